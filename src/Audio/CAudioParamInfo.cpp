#include "Audio/CAudioParamInfo.h"

#include "Audio/CAudioPresetList.h"
#include "Audio/Converters/CAudioParamConverter.h"
#include "Core/CAppData.h"
#include "Core/CApplication.h"
#include "Core/CObject.h"
#include "Core/CPtrArray.h"

#include <utility>

namespace qel {
namespace {

constexpr uint32_t kInfoVersion = 1;
// Non-float parameters hold item ids: their range is that of ids a float keeps exactly.
constexpr double kIdRangeMax = 8388608.0;

bool isTrimmed(char16_t c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

CString trim(const CString& text)
{
    int start = 0;
    int end = text.length();
    while (start < end && isTrimmed(text.at(start)))
        ++start;
    while (end > start && isTrimmed(text.at(end - 1)))
        --end;
    return text.substring(start, end - start);
}

} // namespace

CErrorPtr CAudioParamInfo::parseConverterNames(const CObject& from)
{
    converters.clear();
    const CObject* root = CApplication::sharedRoot();
    if (!root)
        root = &from;
    for (const CString& name : converterNames) {
        auto* converter = name.isEmpty() ? nullptr : dynamic_cast<CAudioParamConverter*>(root->findObject(name));
        if (!converter)
            return QEL_ERROR(CString(), "@qelstr_CAudioParamInfo_parseConverterNames_ConverterNotFound Audio parameter converter '%1' not found.",
                             name);
        converters.push_back(converter);
    }
    if (int32_t(converters.size()) < elementSize)
        return QEL_ERROR(CString(), "@qelstr_CAudioParamInfo_parseConverterNames_NotEnoughConverters Not enough converters defined %1 (should be %2).",
                         CString::number(int64_t(converters.size())), CString::number(elementSize));
    return nullptr;
}

CErrorPtr CAudioParamInfo::parseMinMaxValues(const CString& minText, const CString& maxText)
{
    minValues.clear();
    maxValues.clear();
    if (dataType != CAudioParamStorage::Float) {
        minValues.assign(size_t(elementSize), 0.0);
        maxValues.assign(size_t(elementSize), kIdRangeMax);
        return nullptr;
    }
    CPtrArray<CString, true> mins, maxs;
    minText.split(' ', mins, true, true);
    maxText.split(' ', maxs, true, true);
    if (mins.count() < elementSize)
        return QEL_ERROR(CString(), "@qelstr_CAudioParamInfo_parseMinMaxValues_NotEnoughMin Not enough minimum values defined %1 (should be %2).",
                         CString::number(mins.count()), CString::number(elementSize));
    if (maxs.count() < elementSize)
        return QEL_ERROR(CString(), "@qelstr_CAudioParamInfo_parseMinMaxValues_NotEnoughMax Not enough maximum values defined %1 (should be %2).",
                         CString::number(maxs.count()), CString::number(elementSize));
    for (int32_t pos = 0; pos < elementSize; ++pos)
        minValues.push_back(converters[pos]->parseRawValue(*this, pos, *mins[pos], nullptr));
    for (int32_t pos = 0; pos < elementSize; ++pos)
        maxValues.push_back(converters[pos]->parseRawValue(*this, pos, *maxs[pos], nullptr));
    for (int32_t pos = 0; pos < elementSize; ++pos)
        if (minValues[pos] == maxValues[pos])
            return QEL_ERROR(CString(), "@qelstr_CAudioParamInfo_parseMinMaxValues_Zero Zero default min-max values difference detected in element %1.",
                             CString::number(pos));
    return nullptr;
}

void CAudioParamInfo::splitStateNames(const CString& text, std::vector<CString>& longNames,
                                      std::vector<CString>& shortNames)
{
    longNames.clear();
    shortNames.clear();
    if (text.isEmpty())
        return;
    CPtrArray<CString, true> entries;
    text.split(';', entries, false, true);
    for (const CString* entry : entries) {
        const int bar = entry->find('|');
        const CString longName = trim(bar < 0 ? *entry : entry->substring(0, bar));
        const CString shortName = trim(bar < 0 ? longName : entry->substring(bar + 1)).substring(0, 7);
        longNames.push_back(longName);
        shortNames.push_back(shortName);
    }
}

CErrorPtr CAudioParamInfo::parseStateNames(const CString& text)
{
    stateNames.clear();
    shortStateNames.clear();
    if (text.isEmpty() || text.at(0) != '@') {
        splitStateNames(text, stateNames, shortStateNames);
        return nullptr;
    }
    const bool global = text.length() > 1 && text.at(1) == '/';
    const CString listName = text.substring(global ? 2 : 1);
    CAppData& store = global ? CAppData::global() : CAppData::local();
    CByteArray bytes;
    store.readData(listName, bytes, CAppData::kTagList, false);
    if (bytes.isEmpty())
        return QEL_ERROR(CString(), "@qelstr_CAudioParamInfo_parseStateNames_NoData No state names data available in '%1'.",
                         listName);
    CAudioPresetList list;
    QEL_RETURN_IF_ERROR(list.fromBytes(bytes), listName);
    for (int32_t i = 0; i < list.bank().presetCount(); ++i) {
        // "QMGC:Very Soft;VSoft": the registry's id goes, the rest is one plain entry.
        const CString& preset = list.bank().preset(i).name();
        const CString entry = preset.substring(preset.find(':') + 1);
        const int semicolon = entry.find(';');
        const CString longName = trim(semicolon < 0 ? entry : entry.substring(0, semicolon));
        stateNames.push_back(longName);
        shortStateNames.push_back(trim(semicolon < 0 ? longName : entry.substring(semicolon + 1)).substring(0, 7));
    }
    return nullptr;
}

void CAudioParamInfo::parseSwitches(const CString& valuesText, const CString& namesText)
{
    switchValues.clear();
    switchNames.clear();
    if (valuesText.isEmpty())
        return;
    CPtrArray<CString, true> tokens;
    valuesText.split(',', tokens, false, true);
    for (const CString* token : tokens) {
        bool ok = false;
        const double value = CAudioParamConverter::readNumber(trim(*token), &ok);
        if (!ok) {
            switchValues.clear();
            return;
        }
        switchValues.push_back(value);
    }
    CPtrArray<CString, true> names;
    namesText.split(',', names, false, true);
    for (size_t i = 0; i < switchValues.size(); ++i)
        switchNames.push_back(int(i) < names.count() ? *names[int(i)] : CString());
}

bool CAudioParamInfo::sameShape(const CAudioParamInfo& other) const
{
    return fullName == other.fullName && elementSize == other.elementSize && dataType == other.dataType
           && isSingleGroup == other.isSingleGroup && isSingleElement == other.isSingleElement;
}

CErrorPtr CAudioParamInfo::save(COutputStream& out) const
{
    QEL_RETURN_IF_ERROR(out.writeU32(kInfoVersion), CString());
    QEL_RETURN_IF_ERROR(out.writeBool(isGlobal), CString());
    QEL_RETURN_IF_ERROR(out.writeBool(isStorable), CString());
    QEL_RETURN_IF_ERROR(out.writeBool(isPersistent), CString());
    QEL_RETURN_IF_ERROR(out.writeString(visualName), CString());
    QEL_RETURN_IF_ERROR(out.writeString(fullName), CString());
    QEL_RETURN_IF_ERROR(out.writeString(registryName), CString());
    QEL_RETURN_IF_ERROR(out.writeU32(uint32_t(elementSize)), CString());
    QEL_RETURN_IF_ERROR(out.writeU32(dataType), CString());
    QEL_RETURN_IF_ERROR(out.writeBool(isSingleGroup), CString());
    QEL_RETURN_IF_ERROR(out.writeBool(isSingleElement), CString());
    for (int32_t pos = 0; pos < elementSize; ++pos) {
        QEL_RETURN_IF_ERROR(out.writeString(size_t(pos) < converterNames.size() ? converterNames[pos] : CString()), CString());
        QEL_RETURN_IF_ERROR(out.writeDouble(size_t(pos) < minValues.size() ? minValues[pos] : 0.0), CString());
        QEL_RETURN_IF_ERROR(out.writeDouble(size_t(pos) < maxValues.size() ? maxValues[pos] : 0.0), CString());
    }
    QEL_RETURN_IF_ERROR(out.writeU32(uint32_t(stateNames.size())), CString());
    for (size_t i = 0; i < stateNames.size(); ++i) {
        QEL_RETURN_IF_ERROR(out.writeString(stateNames[i]), CString());
        QEL_RETURN_IF_ERROR(out.writeString(i < shortStateNames.size() ? shortStateNames[i] : CString()), CString());
    }
    QEL_RETURN_IF_ERROR(out.writeU32(uint32_t(switchValues.size())), CString());
    for (size_t i = 0; i < switchValues.size(); ++i) {
        QEL_RETURN_IF_ERROR(out.writeDouble(switchValues[i]), CString());
        QEL_RETURN_IF_ERROR(out.writeString(i < switchNames.size() ? switchNames[i] : CString()), CString());
    }
    return defaults.save(out, -1);
}

CErrorPtr CAudioParamInfo::load(CInputStream& in, const CObject& resolveFrom)
{
    // Read into a fresh record and taken over at the end: damaged data, or a converter this
    // side doesn't have, leaves this one as it was.
    CAudioParamInfo next;
    uint32_t version = 0;
    QEL_RETURN_IF_ERROR(in.readU32(version), CString());
    if (version != kInfoVersion)
        return QEL_ERROR(CString(), "@qelstr_CAudioParamInfo_load_VersionError Unsupported data set version %1.",
                         CString::number(version));
    uint32_t size = 0;
    QEL_RETURN_IF_ERROR(in.readBool(next.isGlobal), CString());
    QEL_RETURN_IF_ERROR(in.readBool(next.isStorable), CString());
    QEL_RETURN_IF_ERROR(in.readBool(next.isPersistent), CString());
    QEL_RETURN_IF_ERROR(in.readString(next.visualName), CString());
    QEL_RETURN_IF_ERROR(in.readString(next.fullName), CString());
    QEL_RETURN_IF_ERROR(in.readString(next.registryName), CString());
    QEL_RETURN_IF_ERROR(in.readU32(size), CString());
    QEL_RETURN_IF_ERROR(in.readU32(next.dataType), CString());
    QEL_RETURN_IF_ERROR(in.readBool(next.isSingleGroup), CString());
    QEL_RETURN_IF_ERROR(in.readBool(next.isSingleElement), CString());
    // An element of more values than a stream could hold is damage, not a format.
    if (size < 1 || size > 1024 || next.dataType > CAudioParamStorage::Raw)
        return QEL_ERROR(CString(), "@qelstr_CAudioParamStorage_load_FormatError Unsupported storage format (esize=%1, dtype=%2; should be: esize=%3, dtype=%4).",
                         CString::number(size), CString::number(next.dataType), CString::number(size), CString::number(0));
    next.elementSize = int32_t(size);
    next.converterNames.assign(size, CString());
    next.minValues.assign(size, 0.0);
    next.maxValues.assign(size, 0.0);
    for (uint32_t pos = 0; pos < size; ++pos) {
        QEL_RETURN_IF_ERROR(in.readString(next.converterNames[pos]), CString());
        QEL_RETURN_IF_ERROR(in.readDouble(next.minValues[pos]), CString());
        QEL_RETURN_IF_ERROR(in.readDouble(next.maxValues[pos]), CString());
    }
    uint32_t count = 0;
    QEL_RETURN_IF_ERROR(in.readU32(count), CString());
    for (uint32_t i = 0; i < count; ++i) {
        CString longName, shortName;
        QEL_RETURN_IF_ERROR(in.readString(longName), CString());
        QEL_RETURN_IF_ERROR(in.readString(shortName), CString());
        next.stateNames.push_back(longName);
        next.shortStateNames.push_back(shortName);
    }
    QEL_RETURN_IF_ERROR(in.readU32(count), CString());
    for (uint32_t i = 0; i < count; ++i) {
        double value = 0;
        CString name;
        QEL_RETURN_IF_ERROR(in.readDouble(value), CString());
        QEL_RETURN_IF_ERROR(in.readString(name), CString());
        next.switchValues.push_back(value);
        next.switchNames.push_back(name);
    }
    next.defaults.setFormat(next);
    QEL_RETURN_IF_ERROR(next.defaults.load(in), CString());
    QEL_RETURN_IF_ERROR(next.parseConverterNames(resolveFrom), CString());
    next.defaults.adoptGroupZeroAsDefaults();
    *this = std::move(next);
    return nullptr;
}

} // namespace qel

#include "Audio/Converters/CAudioParamConverterEnum.h"

#include "Audio/CAudioParamInfo.h"
#include "Audio/Converters/CAudioParamConverterSupport.h"

namespace qel {
namespace {

constexpr int kShortNameLength = 7;
constexpr int kTinyNameLength = 3;

// Latin-1 is all a state name holds; other characters compare as they are.
char16_t lowerCase(char16_t c)
{
    if ((c >= 'A' && c <= 'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7))
        return char16_t(c + 0x20);
    return c;
}

CString lowerCased(const CString& text)
{
    CString lower;
    for (int i = 0; i < text.length(); ++i)
        lower.append(lowerCase(text.at(i)));
    return lower;
}

bool findIn(const std::vector<CString>& names, const CString& key, size_t& index)
{
    for (size_t i = 0; i < names.size(); ++i) {
        if (lowerCased(names[i]) == key) {
            index = i;
            return true;
        }
    }
    return false;
}

// The short form of entry `index`: the short list's when it has one, else cut from the
// long name.
CString shortNameOf(const std::vector<CString>& names, const std::vector<CString>& shortNames, size_t index)
{
    return index < shortNames.size() ? shortNames[index] : names[index].substring(0, kShortNameLength);
}

} // namespace

void CAudioParamConverterEnum::initClassInfo(CClassInfo& info)
{
    CAudioParamConverterRound::initClassInfo(info);
}

CErrorPtr CAudioParamConverterEnum::init()
{
    QEL_RETURN_IF_ERROR(CAudioParamConverterRound::init(), getFullName());
    CAudioParamInfo::splitStateNames(getAttrString(CString("state-names")), m_stateNames, m_shortStateNames);
    return nullptr;
}

bool CAudioParamConverterEnum::findName(const CAudioParamInfo& info, const CString& text, size_t& index) const
{
    const CString key = lowerCased(converter::trimmed(text));
    if (findIn(m_stateNames, key, index) || findIn(info.stateNames, key, index))
        return true;
    const CString shortKey = key.substring(0, kShortNameLength);
    return findIn(m_shortStateNames, shortKey, index) || findIn(info.shortStateNames, shortKey, index);
}

bool CAudioParamConverterEnum::readState(const CAudioParamInfo& info, const CString& text, double base,
                                         double& value) const
{
    int32_t number = 0;
    if (text.toInt(number)) {
        value = double(number);
        return true;
    }
    size_t index = 0;
    if (!findName(info, text, index))
        return false;
    value = base + double(index);
    return true;
}

double CAudioParamConverterEnum::parseValue(const CAudioParamInfo& info, int pos, const CString& text,
                                            bool* ok) const
{
    const double base = roundHalfAway(minOf(info, pos));
    double value = base;
    const bool read = readState(info, text, base, value);
    setOk(ok, read);
    return clamp(info, pos, read ? value : base);
}

double CAudioParamConverterEnum::parseRawValue(const CAudioParamInfo& info, int, const CString& text,
                                               bool* ok) const
{
    double value = 0.0;
    const bool read = readState(info, text, 0.0, value);
    setOk(ok, read);
    return read ? value : 0.0;
}

void CAudioParamConverterEnum::valueToText(CString& out, const CAudioParamInfo& info, int pos, double value,
                                           const CAudioParamData*, TextMode mode) const
{
    const size_t own = m_stateNames.size();
    const size_t inherited = info.stateNames.size();
    if (own == 0 && inherited == 0) {
        out = CString::number(converter::roundToInt64(value));
        return;
    }
    const int64_t index = converter::roundToInt64(value) - converter::roundToInt64(minOf(info, pos));
    if (index < 0 || (uint64_t(index) >= own && uint64_t(index) >= inherited)) {
        out = CString(mode == TextModeTiny ? "Rsv" : "Reserve");
        return;
    }
    const size_t i = size_t(index);
    const bool fromOwn = i < own;
    const std::vector<CString>& names = fromOwn ? m_stateNames : info.stateNames;
    const std::vector<CString>& shortNames = fromOwn ? m_shortStateNames : info.shortStateNames;
    if (mode == TextModeTiny)
        out = shortNameOf(names, shortNames, i).substring(0, kTinyNameLength);
    else if (mode == TextModeShort)
        out = shortNameOf(names, shortNames, i);
    else
        out = names[i];
}

} // namespace qel

#include "Audio/CAudioHostState.h"

#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamInfo.h"
#include "Core/CByteArray.h"
#include "Core/CInputStream.h"
#include "Core/CMemoryReader.h"
#include "Core/COutputStream.h"
#include "Core/CWriteSeqBuffer.h"

#include <algorithm>
#include <cmath>

namespace qel {
namespace {

// What a stored form of an unknown parameter may declare before it counts as damage.
constexpr uint32_t kMaxElementSize = 64;
constexpr uint32_t kMaxDataType = CAudioParamStorage::Raw;

// Every group and element must fit the room the audio side keeps, or applying the state
// would make the audio thread allocate; nothing this product writes comes near it.
constexpr int32_t kMaxElements = 16;

CErrorPtr checkValues(const CAudioParamStorage& values, int32_t maxGroups, const CString& name)
{
    if (values.groupCount() > maxGroups)
        return QEL_ERROR(CString(), "@qelstr_CAudioHostState_read_GroupCount Too many groups (%1) stored for parameter '%2'.",
                         CString::number(values.groupCount()), name);
    for (int32_t g = 0; g < values.groupCount(); ++g) {
        const int32_t count = values.elementCount(g);
        if (count > kMaxElements)
            return QEL_ERROR(CString(), "@qelstr_CAudioHostState_read_ElementCount Too many elements (%1) stored for parameter '%2'.",
                             CString::number(count), name);
        if (values.dataType() != CAudioParamStorage::Float)
            continue;
        const double* v = values.groupValues(g);
        for (int32_t i = 0; i < count * values.elementSize(); ++i)
            if (!std::isfinite(v[i]))
                return QEL_ERROR(CString(), "@qelstr_CAudioHostState_read_InvalidValue Invalid value stored for parameter '%1'.",
                                 name);
    }
    return nullptr;
}

} // namespace

bool CAudioHostState::isStored(const CAudioParam& param)
{
    const CAudioParamInfo* info = param.info();
    return info && (info->isStorable || info->isPersistent);
}

void CAudioHostState::capture(CAudioParamCollector& collector)
{
    m_entries.clear();
    std::vector<CAudioParam*> params;
    collector.getParams(params);
    for (CAudioParam* param : params) {
        if (!isStored(*param))
            continue;
        CEntry entry;
        entry.param = param;
        entry.name = param->name();
        {
            CLockGuard guard(param->lock());
            entry.values = param->values();
        }
        // Groups at the end that hold nothing read as defaults and aren't written, so that
        // equal values always give equal bytes, however many groups were touched before.
        int32_t groups = entry.values.groupCount();
        while (groups > 0 && entry.values.elementCount(groups - 1) == 0)
            --groups;
        entry.values.setGroupCount(groups);
        m_entries.push_back(std::move(entry));
    }
}

CErrorPtr CAudioHostState::write(COutputStream& out) const
{
    CWriteSeqBuffer payload;
    QEL_RETURN_IF_ERROR(payload.writeU32(kVersion), CString());
    QEL_RETURN_IF_ERROR(payload.writeU32(uint32_t(m_entries.size())), CString());
    for (const CEntry& entry : m_entries) {
        QEL_RETURN_IF_ERROR(payload.writeString(entry.name), entry.name);
        QEL_RETURN_IF_ERROR(entry.values.save(payload, -1), entry.name);
    }
    CByteArray bytes;
    QEL_RETURN_IF_ERROR(payload.toArray(bytes), CString());
    QEL_RETURN_IF_ERROR(out.writeCompressedData(bytes, kTag), CString());
    return nullptr;
}

CErrorPtr CAudioHostState::read(CInputStream& in, CAudioParamCollector& collector)
{
    m_entries.clear();
    CByteArray bytes;
    QEL_RETURN_IF_ERROR(in.readCompressedData(bytes, kTag), CString());
    if (CErrorPtr error = decode(bytes.data(), bytes.size(), collector)) {
        m_entries.clear();
        return QEL_TRAIL(error, CString());
    }
    return nullptr;
}

CErrorPtr CAudioHostState::decode(const uint8_t* data, size_t size, CAudioParamCollector& collector)
{
    CMemoryReader in(data, size);
    uint32_t version = 0, count = 0;
    QEL_RETURN_IF_ERROR(in.readU32(version), CString());
    if (version != kVersion)
        return QEL_ERROR(CString(), "@qelstr_CAudioHostState_read_VersionError Unsupported host state version %1.",
                         CString::number(version));
    QEL_RETURN_IF_ERROR(in.readU32(count), CString());
    const int32_t maxGroups = std::max(collector.reservedGroups(), 1);
    CString previous;
    for (uint32_t i = 0; i < count; ++i) {
        CString name;
        QEL_RETURN_IF_ERROR(in.readString(name), CString());
        // Names stand in ascending order, as written; this also rules out a name twice.
        if (i > 0 && !CStringLess()(previous, name))
            return QEL_ERROR(CString(), "@qelstr_CAudioHostState_read_EntryOrder Parameter '%1' out of order in host state.",
                             name);
        previous = name;

        CAudioParam* param = collector.findParam(name);
        const bool isKnown = param && isStored(*param);
        CAudioParamStorage values;
        if (isKnown) {
            values.setFormat(*param->info());
        } else {
            // Read with the format it declares, to step over it.
            int64_t at = 0;
            uint32_t head[3] = {};
            QEL_RETURN_IF_ERROR(in.getPosition(at), name);
            for (uint32_t& word : head)
                QEL_RETURN_IF_ERROR(in.readU32(word), name);
            if (head[1] == 0 || head[1] > kMaxElementSize || head[2] > kMaxDataType)
                return QEL_ERROR(CString(), "@qelstr_CAudioHostState_read_FormatError Invalid stored format of parameter '%1'.",
                                 name);
            QEL_RETURN_IF_ERROR(in.setPosition(at), name);
            values.setFormat(int32_t(head[1]), head[2], false, false);
        }
        QEL_RETURN_IF_ERROR(values.load(in), name);
        if (!isKnown)
            continue;
        QEL_RETURN_IF_ERROR(checkValues(values, maxGroups, name), name);
        values.clampValues(*param->info());
        CEntry entry;
        entry.param = param;
        entry.name = name;
        entry.values = std::move(values);
        m_entries.push_back(std::move(entry));
    }
    int64_t end = 0;
    QEL_RETURN_IF_ERROR(in.getPosition(end), CString());
    if (uint64_t(end) != size)
        return QEL_ERROR(CString(), "@qelstr_CAudioHostState_read_TrailingData Unexpected data at the end of the host state.");
    return nullptr;
}

void CAudioHostState::apply(CAudioParamCollector& collector) const
{
    std::vector<CAudioParam*> params;
    collector.getParams(params);
    for (CAudioParam* param : params) {
        if (!isStored(*param))
            continue;
        const auto found = std::find_if(m_entries.begin(), m_entries.end(),
                                        [&](const CEntry& entry) { return entry.param == param; });
        CAudioParamUpdateContext context;
        if (found == m_entries.end()) {
            param->reset(-1, -1, context, false);
            continue;
        }
        const CAudioParamStorage& values = found->values;
        CAudioParamLock lock(*param);
        // Groups the state doesn't have are emptied, so that they read as defaults.
        const int32_t groups = std::max(values.groupCount(), param->values().groupCount());
        for (int32_t g = 0; g < std::max(groups, 1); ++g) {
            const int32_t count = g < values.groupCount() ? values.elementCount(g) : 0;
            CAudioParamChange change = values.makeChange(g, 0, count, true);
            param->change(change, context);
            if (values.isSingleGroup())
                break;
        }
    }
}

} // namespace qel

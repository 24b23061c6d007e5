#include "Audio/CAudioHostState.h"

#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamInfo.h"
#include "Audio/CAudioParamQueuedChange.h"
#include "Core/CInputStream.h"
#include "Core/COutputStream.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace qel {
namespace {

// Every group and element must fit the room the audio side keeps, or applying the state
// would make the audio thread allocate; nothing this product writes comes near it.
constexpr int32_t kMaxElements = 16;

CErrorPtr checkValues(const CAudioParamStorage& values, int32_t maxGroups, const CString& key)
{
    if (values.groupCount() > maxGroups)
        return QEL_ERROR(CString(), "@qelstr_CAudioHostState_read_GroupCount Too many groups (%1) stored for parameter '%2'.",
                         CString::number(values.groupCount()), key);
    for (int32_t g = 0; g < values.groupCount(); ++g) {
        const int32_t count = values.elementCount(g);
        if (count > kMaxElements)
            return QEL_ERROR(CString(), "@qelstr_CAudioHostState_read_ElementCount Too many elements (%1) stored for parameter '%2'.",
                             CString::number(count), key);
        if (values.dataType() != CAudioParamStorage::Float)
            continue;
        const double* v = values.groupValues(g);
        for (int32_t i = 0; i < count * values.elementSize(); ++i)
            if (!std::isfinite(v[i]))
                return QEL_ERROR(CString(), "@qelstr_CAudioHostState_read_InvalidValue Invalid value stored for parameter '%1'.",
                                 key);
    }
    return nullptr;
}

} // namespace

CAudioHostState::CAudioHostState(const CString& hierarchy, const CString& family)
    : m_hierarchy(hierarchy), m_family(family)
{
}

bool CAudioHostState::isStored(const CAudioParam& param)
{
    const CAudioParamInfo* info = param.info();
    return info && (info->isStorable || info->isPersistent);
}

CErrorPtr CAudioHostState::capture(CAudioParamCollector& collector, const CString& presetName)
{
    m_decoded.clear();
    m_preset.clear();
    m_preset.setName(presetName);
    std::vector<CAudioParam*> params;
    collector.getParams(params);
    for (CAudioParam* param : params) {
        CString key;
        if (!isStored(*param) || !CAudioPreset::makeKey(param->name(), m_hierarchy, key))
            continue;
        CAudioParamStorage values;
        {
            CLockGuard guard(param->lock());
            values = param->values();
        }
        // Groups at the end that hold nothing read as defaults and aren't written, so that
        // equal values always give equal bytes, however many groups were touched before.
        int32_t groups = values.groupCount();
        while (groups > 0 && values.elementCount(groups - 1) == 0)
            --groups;
        values.setGroupCount(groups);
        QEL_RETURN_IF_ERROR(m_preset.entry(key).store(param->info()->fullName, values, -1), param->name());
    }
    return nullptr;
}

CErrorPtr CAudioHostState::write(COutputStream& out) const
{
    QEL_RETURN_IF_ERROR(m_preset.writeBlock(out), CString());
    return nullptr;
}

CErrorPtr CAudioHostState::read(CInputStream& in, CAudioParamCollector& collector)
{
    m_decoded.clear();
    m_preset.clear();
    CAudioPreset preset;
    QEL_RETURN_IF_ERROR(preset.readBlock(in), CString());
    CString id, name;
    CAudioPreset::splitPresetName(preset.name(), id, name);
    if (id != m_family)
        return QEL_ERROR(preset.name(), "@qelstr_CAudioHostState_read_IncompatiblePreset Incompatible preset.");
    const CString presetName = preset.name();
    std::swap(m_preset, preset);
    if (CErrorPtr error = decode(collector, m_decoded)) {
        m_decoded.clear();
        m_preset.clear();
        return QEL_TRAIL(error, presetName);
    }
    return nullptr;
}

CErrorPtr CAudioHostState::decode(CAudioParamCollector& collector, std::vector<CDecoded>& out) const
{
    const int32_t maxGroups = std::max(collector.reservedGroups(), 1);
    for (const auto& [key, entry] : m_preset.entries()) {
        CAudioParam* param = collector.findParam(m_hierarchy + key);
        if (!param || !isStored(*param))
            continue;
        CDecoded decoded;
        decoded.param = param;
        decoded.values.setFormat(*param->info());
        // The stored definition name plays no part: the key alone decides.
        CString definitionName;
        QEL_RETURN_IF_ERROR(entry.parse(definitionName, decoded.values), key);
        QEL_RETURN_IF_ERROR(checkValues(decoded.values, maxGroups, key), key);
        decoded.values.clampValues(*param->info());
        out.push_back(std::move(decoded));
    }
    return nullptr;
}

void CAudioHostState::apply(CAudioParamCollector& collector) const
{
    std::vector<CAudioParam*> params;
    collector.getParams(params);
    // One batch: host notifications wait for its end, and the audio side takes it whole.
    collector.enterBatch();
    CAudioParamQueuedChange* batch = nullptr;
    CAudioParamUpdateContext context;
    context.batchTail = &batch;
    for (CAudioParam* param : params) {
        CString key;
        if (!isStored(*param) || !CAudioPreset::makeKey(param->name(), m_hierarchy, key))
            continue;
        const auto found = std::find_if(m_decoded.begin(), m_decoded.end(),
                                        [&](const CDecoded& decoded) { return decoded.param == param; });
        if (found == m_decoded.end()) {
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
    collector.postChanges(batch);
    collector.releaseUpdate(true);
}

} // namespace qel

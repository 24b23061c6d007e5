#include "Audio/CAudioParamUndoData.h"

namespace qel {

CAudioParamUndoData::CAudioParamUndoData(const CString& name, bool isMergeable, int32_t mergeTag)
    : m_name(name), m_isMergeable(isMergeable), m_mergeTag(mergeTag)
{
}

int32_t CAudioParamUndoData::recordCount() const
{
    size_t count = 0;
    for (const auto& [name, records] : m_params)
        count += records.size();
    return int32_t(count);
}

CAudioParamUndoRecord* CAudioParamUndoData::findIn(Records& records, int32_t group)
{
    for (CAudioParamUndoRecord& record : records)
        if (record.group == group)
            return &record;
    return nullptr;
}

const CAudioParamUndoRecord* CAudioParamUndoData::findIn(const Records& records, int32_t group)
{
    for (const CAudioParamUndoRecord& record : records)
        if (record.group == group)
            return &record;
    return nullptr;
}

CAudioParamUndoRecord* CAudioParamUndoData::findRecord(const CString& paramName, int32_t group)
{
    auto it = m_params.find(paramName);
    return it == m_params.end() ? nullptr : findIn(it->second, group);
}

CAudioParamUndoRecord& CAudioParamUndoData::addRecord(const CString& paramName)
{
    Records& records = m_params[paramName];
    if (records.empty())
        ++m_paramCount;
    records.emplace_back();
    return records.back();
}

bool CAudioParamUndoData::merge(const CAudioParamUndoData& later)
{
    if (m_params.size() != later.m_params.size())
        return false;
    // Checked whole before anything is taken, so that a refusal leaves this entry as it was.
    for (const auto& [name, records] : later.m_params) {
        auto mine = m_params.find(name);
        if (mine == m_params.end() || mine->second.size() != records.size())
            return false;
        for (const CAudioParamUndoRecord& record : records) {
            const CAudioParamUndoRecord* own = findIn(mine->second, record.group);
            if (!own || !own->hasSameFormat(record) || own->newCount != record.newCount)
                return false;
        }
    }
    for (const auto& [name, records] : later.m_params) {
        Records& own = m_params.find(name)->second;
        for (const CAudioParamUndoRecord& record : records)
            findIn(own, record.group)->takeNewState(record);
    }
    return true;
}

std::unique_ptr<CAudioParamUndoData> CAudioParamUndoData::clone() const
{
    auto copy = std::make_unique<CAudioParamUndoData>(m_name, m_isMergeable, m_mergeTag);
    copy->m_params = m_params;
    copy->m_paramCount = m_paramCount;
    return copy;
}

} // namespace qel

#pragma once

#include "Audio/CAudioParamUndoRecord.h"
#include "Core/CMap.h"
#include "Core/CString.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace qel {

// One user action in the undo history: per parameter, by name, the records of the groups
// it changed. Owned by its maker until submitted; afterwards guarded by the history lock.
class CAudioParamUndoData
{
public:
    using Records = std::vector<CAudioParamUndoRecord>;

    explicit CAudioParamUndoData(const CString& name, bool isMergeable = false, int32_t mergeTag = -1);

    const CString& name() const { return m_name; }
    bool isMergeable() const { return m_isMergeable; }
    int32_t mergeTag() const { return m_mergeTag; }
    // Records over all parameters.
    int32_t recordCount() const;
    // Parameters with at least one record.
    int32_t paramCount() const { return m_paramCount; }
    const CMap<CString, Records>& params() const { return m_params; }

    CAudioParamUndoRecord* findRecord(const CString& paramName, int32_t group);
    // A new record for the parameter and group; the caller knows there is none yet.
    CAudioParamUndoRecord& addRecord(const CString& paramName);

    // Folds a later entry in: only when both cover the same parameters and groups with the
    // same formats and new element counts. Then every record here takes the later new
    // state and keeps its old one. False, and nothing changed, otherwise.
    bool merge(const CAudioParamUndoData& later);

    std::unique_ptr<CAudioParamUndoData> clone() const;

private:
    static CAudioParamUndoRecord* findIn(Records& records, int32_t group);
    static const CAudioParamUndoRecord* findIn(const Records& records, int32_t group);

    CString m_name;
    bool m_isMergeable;
    int32_t m_mergeTag;
    CMap<CString, Records> m_params;
    int32_t m_paramCount = 0;
};

} // namespace qel

#pragma once

#include "Audio/CAudioParamData.h"

#include <cstdint>
#include <set>
#include <vector>

namespace qel {

class CAudioParamStorage;
struct CAudioParamChange;

// One group of one parameter in an undo entry: the whole element list before and after.
// The ids of string and raw values point into the record's own `data`, which holds the
// items of both lists.
class CAudioParamUndoRecord
{
public:
    CAudioParamUndoRecord() = default;
    CAudioParamUndoRecord(const CAudioParamUndoRecord&) = default;
    CAudioParamUndoRecord& operator=(const CAudioParamUndoRecord&) = default;

    // Takes the format of the storage and its list of `group` (an empty list when
    // `isEmpty`) as the old state; the new state starts equal to it.
    void captureOld(int32_t group, const CAudioParamStorage& storage, bool isEmpty);
    // Takes the list of the record's group as the new state; false, and nothing changed,
    // when the storage has another format.
    bool captureNew(const CAudioParamStorage& storage, bool isEmpty);
    // The new state of `other` (same group and format) becomes this record's new state.
    void takeNewState(const CAudioParamUndoRecord& other);

    bool hasFormatOf(const CAudioParamStorage& storage) const;
    bool hasSameFormat(const CAudioParamUndoRecord& other) const;
    // A change that writes the old (`isOld`) or the new list of the group, whole; it points
    // into this record.
    CAudioParamChange makeChange(bool isOld, const void* source) const;

    int32_t group = 0;
    int32_t elementSize = 1;
    uint32_t dataType = 0;
    bool isSingleGroup = false;
    bool isSingleElement = false;
    int32_t oldCount = 0;
    int32_t newCount = 0;
    std::vector<double> oldValues;
    std::vector<double> newValues;
    CAudioParamData data;
    // element * 256 + group, for the elements a host edit holds open.
    std::set<int32_t> touched;

private:
    void takeList(const CAudioParamStorage& storage, bool isEmpty, int32_t& count, std::vector<double>& values);
    void releaseItems(const std::vector<double>& values);
};

} // namespace qel

#pragma once

#include "Audio/CAudioParamUndoData.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace qel {

// The entries of one history and how many of them are in effect: entries at and behind
// `position` can be redone.
class CAudioParamUndoHistory
{
public:
    std::vector<std::unique_ptr<CAudioParamUndoData>> entries;
    int32_t position = 0;

    int32_t count() const { return int32_t(entries.size()); }
    // A deep copy: entries and their items are the copy's own.
    std::unique_ptr<CAudioParamUndoHistory> clone() const;
};

} // namespace qel

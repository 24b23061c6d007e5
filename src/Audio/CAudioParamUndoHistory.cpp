#include "Audio/CAudioParamUndoHistory.h"

namespace qel {

std::unique_ptr<CAudioParamUndoHistory> CAudioParamUndoHistory::clone() const
{
    auto copy = std::make_unique<CAudioParamUndoHistory>();
    copy->entries.reserve(entries.size());
    for (const auto& entry : entries)
        copy->entries.push_back(entry->clone());
    copy->position = position;
    return copy;
}

} // namespace qel

#pragma once

#include "Core/CString.h"

#include <cstdint>

namespace qel {

class CAudioVizReceiver;

// One visual source, known by the full name of the process that makes its data. The
// receiver makes it on the first request for the name and keeps it for the life of the
// instance, so a process may hold the pointer. The counts are the receiver's: who listens,
// how many of them through export slots, and those per group.
struct CVizSource
{
    static constexpr int32_t kGroupCount = 8;

    CAudioVizReceiver* collector = nullptr;
    int32_t listenerCount = 0;
    int32_t exportCount = 0;
    int32_t groupCounts[kGroupCount] = {};
    CString name;
};

} // namespace qel

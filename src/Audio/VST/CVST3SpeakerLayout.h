#pragma once

#include "Core/CString.h"

#include <cstdint>
#include <vector>

namespace qel {

// The speaker side of bus arrangements: the channel labels the routing shows, and the
// arrangement offered for a channel count when the host's own is refused.
class CVST3SpeakerLayout
{
public:
    // The arrangement (a speaker bit mask) for the largest count in the table that is not
    // above `channelCount`: 8, 7, 6, 5, 4, 3, 2 or 1 channels. Below 1: mono.
    static uint64_t defaultArrangement(int32_t channelCount);
    static int32_t channelCount(uint64_t arrangement);
    // The label of a speaker bit ("L", "R", "C", ...); a bit beyond the table gets its number.
    static CString label(int32_t bit);
    // One label per set bit, lowest bit first: the order of the channels in a bus.
    static void channelLabels(uint64_t arrangement, std::vector<CString>& out);
};

} // namespace qel

#pragma once

#include "Audio/CAudioProcessTerminal.h"
#include "Audio/Processes/CModGlowCoreModule.h"

namespace qel {

// The harmonic stage of a band (tag audio:modGlowCore): port 0 the filtered band, port 1
// its unfiltered input. Slots 0 `ratio-a`, 1 `ratio-b`, 2 `knee-a`, 3 `knee-b`, 4 `bias-I`,
// 5 `bias-V`, 6 `gain-I`, 7 `gain-V`, 8 `auto-gain-point`, 9 `feed-freq`, 10
// `feed-freq-inv`, 11 `type`, 12 `makeup-gain`.
class CModGlowCore : public CAudioProcessTerminal<CModGlowCoreModule>
{
};

} // namespace qel

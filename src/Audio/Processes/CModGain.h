#pragma once

#include "Audio/CAudioProcessTerminal.h"
#include "Audio/Processes/CModGainModule.h"

namespace qel {

// A gain stage (tag audio:modGain): slots 0 `gain` (linear), 1 `mute`, 2 `phase-invert`.
class CModGain : public CAudioProcessTerminal<CModGainModule>
{
};

} // namespace qel

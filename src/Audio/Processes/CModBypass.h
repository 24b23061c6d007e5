#pragma once

#include "Audio/CAudioProcessTerminal.h"
#include "Audio/Processes/CModBypassModule.h"

namespace qel {

// Bypass and solo (tag audio:modBypass): slots 0 `enable`, 1 `group-solo` (read over all
// groups). With `is-smooth-update` each change crossfades between two modules fed by the
// same buffers.
class CModBypass : public CAudioProcessTerminal<CModBypassModule>
{
};

} // namespace qel

#pragma once

#include "Audio/CAudioProcessTerminal.h"
#include "Audio/Processes/CModSatEBModule.h"

namespace qel {

// The saturator with self-bias (tag audio:modSatEB), in two stages around the band
// filters: the input stage hands its level on output port 1; the output stage
// (`is-output`) takes it on input port 1. Slots 0 `drive`, 1 `bias-gain`, 2 `bias-gain2`,
// 3 `makeup-gain`, 4 `makeup-corr`, 5 `curve-gain`, 6 `curvature`, 7 `shift`,
// 8 `const-bias`, 9 `rms-time`.
class CModSatEB : public CAudioProcessTerminal<CModSatEBModule>
{
};

} // namespace qel

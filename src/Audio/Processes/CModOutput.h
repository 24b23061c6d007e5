#pragma once

#include "Audio/CAudioProcessBase.h"

namespace qel {

// Where the graph ends (tag audio:modOutput): the wrapper reads each block from its port 0
// after process, and the latency it reports to the host from the environment, which this
// process writes whenever its inputs are reconfigured. It feeds nothing.
class CModOutput : public CAudioProcessBase
{
public:
    void update() override;
    // Keeps the block's buffers in port 0 until the next pull.
    void process() override;
};

} // namespace qel

#pragma once

#include "CHostSignal.h"
#include "Core/CError.h"

#include <cstdint>

namespace qel {

class CVst3Instance;

struct CRenderOptions
{
    int blockSize = 512;
    bool isDouble = false;
    bool isOffline = false;
    bool showProgress = false; // on standard error, when it is a terminal
};

struct CRenderReport
{
    uint32_t latencySamples = 0;
    double processSeconds = 0.0; // time spent inside process calls
    bool latencyChanged = false; // the plug-in asked for a restart with a new latency
    int failedBlocks = 0;        // process calls that did not return ok
};

// Runs a whole signal through an instance whose buses already have the signal's channel
// count: sets up processing at the signal's rate, feeds it in blocks, and takes the
// output back aligned with the input, the reported latency cut from its start (the input
// is followed by that much silence), so output and input have the same length.
class CHostRenderer
{
public:
    static CErrorPtr render(CVst3Instance& instance, const CHostSignal& input, CHostSignal& output,
                            const CRenderOptions& options, CRenderReport& report);
};

} // namespace qel

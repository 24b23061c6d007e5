#pragma once

#include "Audio/CAudioModule.h"
#include "Audio/CDSPModDelay.h"

#include <cstdint>
#include <memory>

namespace qel {

class CLatencyDef;

// The delay of one channel that pads its latency up to the table's target at the channel's
// rate. It acts when its input changes (rate, channels or latency): the line is rebuilt
// from empty with the new delay, which holds at once, so for that many samples the channel
// gives zeros; no crossfade inside the line. The module's own latency is what it adds, so
// that the channel leaves at the target.
//
// Not in the table, or marked -1: no delay and nothing added. Input already later than the
// target: no delay, and the target is reported all the same, as the table asks. Both are
// noted for the process's diagnostics.
class CModLatencyUniformerModule : public CAudioModule
{
public:
    CModLatencyUniformerModule() : CAudioModule(0) {}

    CErrorPtr init() override;
    void reset() override;
    void update() override;
    void process(int32_t n);

    // ---- for tests
    int32_t delay() const { return m_delay; }

private:
    std::unique_ptr<CDSPModDelay> m_line;
    int32_t m_delay = 0;
};

} // namespace qel

#pragma once

#include "Audio/CAudioProcessTerminal.h"
#include "Audio/Processes/CModLatencyUniformerModule.h"

#include <atomic>
#include <cstdint>

namespace qel {

class CLatencyDef;

// Pads the signal with a delay so that the graph's latency is the one number of samples
// its table gives for the rate, whatever the stages ahead add (tag
// audio:modLatencyUniformer): the latency the host sees then does not move when those
// stages change. One module per channel, no parameter slots.
//
// What its modules could not do (a rate the table lacks, an input later than the target)
// is noted on the audio thread and written to the log by flushDiagnostics.
class CModLatencyUniformer : public CAudioProcessTerminal<CModLatencyUniformerModule>
{
public:
    CErrorPtr init() override;
    void flushDiagnostics() override;

    // Null when the definition is of another class.
    const CLatencyDef* table() const { return m_table; }

    // Audio thread.
    void noteUnsupportedRate(double sampleRate);
    void noteTooHighLatency(int32_t latency, double sampleRate);

private:
    const CLatencyDef* m_table = nullptr;
    std::atomic<bool> m_isUnsupportedNoted{false};
    std::atomic<bool> m_isTooHighNoted{false};
    std::atomic<double> m_notedRate{0.0};
    std::atomic<double> m_notedTooHighRate{0.0};
    std::atomic<int32_t> m_notedLatency{0};
};

} // namespace qel

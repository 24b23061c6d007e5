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
// is noted for the log on the audio thread.
class CModLatencyUniformer : public CAudioProcessTerminal<CModLatencyUniformerModule>
{
public:
    CErrorPtr init() override;

    // Null when the definition is of another class.
    const CLatencyDef* table() const { return m_table; }

    // Audio thread.
    void noteUnsupportedRate(double sampleRate);
    void noteTooHighLatency(int32_t latency, double sampleRate);
    void noteFits();

private:
    const CLatencyDef* m_table = nullptr;
    // What was last told; the modules' thread only.
    enum class Told { Nothing, Unsupported, TooHigh };
    Told m_told = Told::Nothing;
    double m_toldRate = 0.0;
    int32_t m_toldLatency = 0;
};

} // namespace qel

#pragma once

#include "Audio/CAudioModule.h"
#include "Audio/Processes/CSatEBCoeffs.h"
#include "Audio/Processes/CSatEBKernel.h"

namespace qel {

// One channel of a saturator stage (or each channel, as a whole module).
//
// The input stage hands its signal on port 0 and its level on port 1 (key + 16, same
// group and latency), where the output stage, `is-output` in the definition, reads it back
// by key and group. An output stage without that channel writes zeros: it has nothing to
// undo its inverted input with.
//
// update reads the parameters, designs the coefficients and restarts the level window: a
// ring of round(rms-time * rate) squared samples in a pooled buffer, kept for as long as
// it is large enough. A new ring has room for the longest window at its rate, so that
// automation and mode changes take no memory once each module has played. A new rate
// reaches the module as an update too (after a reset, which has nothing to clear here), so
// the window never mixes samples of two rates.
class CModSatEBModule : public CAudioModule
{
public:
    enum Slot : int32_t {
        SlotDrive = 0,
        SlotBiasGain = 1,
        SlotBiasGain2 = 2,
        SlotMakeupGain = 3,
        SlotMakeupCorr = 4,
        SlotCurveGain = 5,
        SlotCurvature = 6,
        SlotShift = 7,
        SlotConstBias = 8,
        SlotRmsTime = 9,
        SlotCount = 10
    };
    // The longest window: 2.7 s at 1536 kHz, far beyond the longest rms-time of 0.4 s.
    static constexpr int32_t kMaxWindow = int32_t(1) << 22;
    // A new ring has room for this long a window at least: the longest rms-time offered.
    static constexpr double kReserveSec = 0.4;

    CModSatEBModule() : CAudioModule(SlotCount) {}
    ~CModSatEBModule() override;

    CErrorPtr init() override;
    void update() override;
    void process(int32_t n);

    // ---- for tests
    bool isOutput() const { return m_isOutput; }
    const CSatEBCoeffs& coeffs() const { return m_coeffs; }
    const CSatEBKernel& kernel(int32_t c) const { return m_kernels[c]; }
    // The entry of port 1 the output stage reads for channel c, -1 for none.
    int32_t levelIndex(int32_t c) const { return m_levelIndex[c]; }

private:
    void processInput(int32_t n);
    void processOutput(int32_t n);
    // The window that channel c gets: `length`, or less when memory ran out.
    int32_t takeRing(int32_t c, int32_t length);

    bool m_isOutput = false;
    CSatEBCoeffs m_coeffs;
    CSatEBKernel m_kernels[kMaxChannels];
    double* m_rings[kMaxChannels] = {};
    bool m_hasRing[kMaxChannels] = {};
    int32_t m_levelIndex[kMaxChannels] = {};
};

} // namespace qel

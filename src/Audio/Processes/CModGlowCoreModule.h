#pragma once

#include "Audio/CAudioModule.h"
#include "Audio/Processes/CGlowCoreCoeffs.h"
#include "Audio/Processes/CGlowCoreKernel.h"

namespace qel {

// One channel of the harmonic stage behind a band filter (or each channel, as a whole
// module): port 0 is the filtered band, port 1 the band's unfiltered input, found by key
// and group. update designs the curves and the feed's one-pole for the module's rate,
// clears the one-pole and chooses the loop; a new rate thus starts from a cleared state.
class CModGlowCoreModule : public CAudioModule
{
public:
    enum Slot : int32_t {
        SlotRatioA = 0,
        SlotRatioB = 1,
        SlotKneeA = 2,
        SlotKneeB = 3,
        SlotBiasI = 4,
        SlotBiasV = 5,
        SlotGainI = 6,
        SlotGainV = 7,
        SlotAutoGainPoint = 8,
        SlotFeedFreq = 9,
        SlotFeedFreqInv = 10,
        SlotType = 11,
        SlotMakeupGain = 12,
        SlotCount = 13
    };

    CModGlowCoreModule() : CAudioModule(SlotCount) {}

    void reset() override;
    void update() override;
    void process(int32_t n);

    // ---- for tests
    const CGlowCoreCoeffs& coeffs() const { return m_coeffs; }
    const CGlowCoreKernel& kernel(int32_t c) const { return m_kernels[c]; }
    // The entry of port 1 that feeds channel c, -1 for none.
    int32_t feedIndex(int32_t c) const { return m_feedIndex[c]; }

private:
    CGlowCoreCoeffs m_coeffs;
    CGlowCoreKernel m_kernels[kMaxChannels];
    CGlowCoreKernel::Kind m_kinds[kMaxChannels] = {};
    int32_t m_feedIndex[kMaxChannels] = {};
};

} // namespace qel

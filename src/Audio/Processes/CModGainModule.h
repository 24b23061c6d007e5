#pragma once

#include "Audio/CAudioModule.h"
#include "Audio/CSilenceNoise.h"

namespace qel {

// Gain, mute and phase inversion of one channel (or all, as a whole module). update works
// out one factor and whether it does anything; process then passes the input on, writes
// silence, or multiplies into a new buffer.
class CModGainModule : public CAudioModule
{
public:
    enum Slot : int32_t { SlotGain = 0, SlotMute = 1, SlotPhaseInvert = 2, SlotCount = 3 };
    // A factor this close to 1 changes no sample of a signal below full scale by more than
    // its last bit; the buffer then goes on untouched.
    static constexpr double kUnityTolerance = 2.220446049250313e-16;

    CModGainModule() : CAudioModule(SlotCount) {}

    void reset() override { m_noise.reset(); }
    void update() override;
    void process(int32_t n);

    double factor() const { return m_factor; }
    bool isActive() const { return m_isActive; }
    bool isMuted() const { return m_isMuted; }

private:
    double m_factor = 1.0;
    bool m_isActive = false;
    bool m_isMuted = false;
    CSilenceNoise m_noise;
};

} // namespace qel

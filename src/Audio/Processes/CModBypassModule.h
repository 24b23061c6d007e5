#pragma once

#include "Audio/CAudioModule.h"
#include "Audio/CSilenceNoise.h"

namespace qel {

// The bypass and solo switch of one channel: port 0 is the processed signal, port 1 the
// dry one. update decides which of the two goes on (by reference, never copied) or
// whether the channel is silent: bypassed without a dry channel to fall back on, or
// another group soloed.
class CModBypassModule : public CAudioModule
{
public:
    enum Slot : int32_t { SlotEnable = 0, SlotGroupSolo = 1, SlotCount = 2 };
    enum class Mode { Processed, Dry, Silence };

    CModBypassModule() : CAudioModule(SlotCount) {}

    void reset() override { m_noise.reset(); }
    void update() override;
    void process(int32_t n);

    Mode mode(int32_t c) const { return m_modes[c]; }

private:
    Mode m_modes[kMaxChannels] = {};
    int32_t m_dryIndex[kMaxChannels] = {};
    CSilenceNoise m_noise;
};

} // namespace qel

#pragma once

#include "Audio/CAudioProcessBase.h"

namespace qel {

// Doubles the rate of every channel (tag audio:modInterpolator): each input sample is
// followed by a zero, out[2i] = 2 in[i], out[2i + 1] = 0. The gain of 2 makes up for the
// energy the zeros take away, so the half-band filter behind it, which removes the image
// the zeros leave above the old band, hands on the input at its own level. Block lengths
// double, and so do latencies: they count samples of the doubled rate.
//
// The first sample after a reset (as when the step comes into a resampler's chain) is
// silence: the stages behind it, which start with it, start from silence. A linear-phase
// filter would otherwise take that sample, doubled and with a zero behind it, for a signal
// that had been there for ever (it seeds itself with its first sample) and hold it for its
// whole length; so the path is silent for the instant of a change of mode instead.
class CModInterpolator : public CAudioProcessBase
{
public:
    void reset() override;
    void update() override;
    void process() override;

private:
    bool m_isStarting = true;
};

} // namespace qel

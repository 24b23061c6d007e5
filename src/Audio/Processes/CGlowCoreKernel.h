#pragma once

#include "Audio/Processes/CGlowCoreCoeffs.h"

#include <cstdint>

namespace qel {

// The per-sample loops of the harmonic stage: the band `a` through a blend of two curves,
// where the blend follows the high-passed feed `u` (the band's unfiltered input).
//
// Type 1: z is a one-pole low-pass of u, so u - z is its high-pass, and the output is
// ((A - offset) + (biasV - (u - z) gainV) (B - A)) makeup. The other type feeds back its
// own output through the same one-pole and scales by the auto gain instead of makeup.
// Without a feed, u reads as 0.
//
// Where the time goes: with type 1, every sample waits for the last only through the
// one-pole (a subtract, a multiply and an add); the curves, two square roots among them,
// do not wait for anything. Where the processor has AVX2 the one-pole runs sample by
// sample as always while the curves of four samples are computed side by side, each with
// the scalar curve's operations in its order, so the output is the same bit for bit.
//
// The state is snapped to 0 at the block edge once it falls below kStateFloor: a feed of
// exact zeros (a saturator mode that rests at exactly 0 behind a host's digital silence)
// would otherwise walk the one-pole down into subnormal numbers wherever no flush-to-zero
// is set. Nothing below 1e-30 is audible, and a block is too short to get from there to
// the subnormal range.
//
// Audio thread; one state per channel.
class CGlowCoreKernel
{
public:
    static constexpr double kStateFloor = 1e-30;

    enum class Kind : int32_t { Type1, Type1NoFeed, Feedback, FeedbackNoFeed };

    CGlowCoreKernel();

    static Kind kindFor(const CGlowCoreCoeffs& k, bool hasFeed)
    {
        if (k.isType1)
            return hasFeed ? Kind::Type1 : Kind::Type1NoFeed;
        return hasFeed ? Kind::Feedback : Kind::FeedbackNoFeed;
    }

    void reset() { m_z = 0.0; }
    double state() const { return m_z; }

    void run(Kind kind, const CGlowCoreCoeffs& k, const double* in, const double* feed, double* out, int32_t n) noexcept;

private:
    double m_z = 0.0;
    bool m_isWide = false;
};

} // namespace qel

#pragma once

#include "Audio/Processes/CGlowCoreCoeffs.h"

#include <cmath>
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

    static Kind kindFor(const CGlowCoreCoeffs& k, bool hasFeed)
    {
        if (k.isType1)
            return hasFeed ? Kind::Type1 : Kind::Type1NoFeed;
        return hasFeed ? Kind::Feedback : Kind::FeedbackNoFeed;
    }

    void reset() { m_z = 0.0; }
    double state() const { return m_z; }

    void run(Kind kind, const CGlowCoreCoeffs& k, const double* in, const double* feed, double* out, int32_t n) noexcept
    {
        switch (kind) {
        case Kind::Type1:
            runType1<true>(k, in, feed, out, n);
            break;
        case Kind::Type1NoFeed:
            runType1<false>(k, in, feed, out, n);
            break;
        case Kind::Feedback:
            runFeedback<true>(k, in, feed, out, n);
            break;
        case Kind::FeedbackNoFeed:
            runFeedback<false>(k, in, feed, out, n);
            break;
        }
    }

private:
    template <bool HasFeed>
    void runType1(const CGlowCoreCoeffs& coeffs, const double* __restrict in, const double* __restrict feed,
                  double* __restrict out, int32_t n) noexcept
    {
        const CGlowCoreCoeffs k = coeffs; // a local copy: nothing written in the loop can alias it
        double z = m_z;
        for (int32_t i = 0; i < n; ++i) {
            const double u = HasFeed ? feed[i] : 0.0;
            z += (u - z) * k.k;
            const double v = in[i] * k.gainI + k.biasI;
            const double a = k.curveA(v);
            const double b = k.curveB(v);
            const double h = (u - z) * k.gainV;
            out[i] = ((a - k.offset) + (k.biasV - h) * (b - a)) * k.makeupGain;
        }
        m_z = std::fabs(z) < kStateFloor ? 0.0 : z;
    }

    template <bool HasFeed>
    void runFeedback(const CGlowCoreCoeffs& coeffs, const double* __restrict in, const double* __restrict feed,
                     double* __restrict out, int32_t n) noexcept
    {
        const CGlowCoreCoeffs k = coeffs;
        double z = m_z;
        for (int32_t i = 0; i < n; ++i) {
            const double u = HasFeed ? feed[i] : 0.0;
            const double v = in[i] * k.gainI + k.biasI;
            const double a = k.curveA(v);
            const double b = k.curveB(v);
            const double r = z + (u - z) * k.k;
            const double y = (a - k.offset) + (k.biasV - r * k.gainV) * (b - a);
            z = y;
            out[i] = y * k.norm;
        }
        m_z = std::fabs(z) < kStateFloor ? 0.0 : z;
    }

    double m_z = 0.0;
};

} // namespace qel

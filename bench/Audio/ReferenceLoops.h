#pragma once

// Plain loops that the DSP benchmarks run beside the product's stages, so that a result
// reads as "n times the reference" on any machine.
//
// The equalizer reference is three transposed direct-form II biquads in series and one
// cubic soft clip per sample: about what an equalizer with a saturating stage costs when
// it is written as plainly as it can be. The whole chain of a group (filters, harmonic
// stages, saturator) compares with it as one number.

#include <cmath>
#include <cstdint>
#include <numbers>

namespace qel::bench {

struct ReferenceBiquad
{
    double b0 = 1.0, b1 = 0.0, b2 = 0.0, a1 = 0.0, a2 = 0.0;
    double s1 = 0.0, s2 = 0.0;

    // A peaking section of the usual bilinear design, a0 divided out.
    static ReferenceBiquad peaking(double freqHz, double gainDb, double q, double rateHz)
    {
        const double a = std::pow(10.0, gainDb / 40.0);
        const double w = 2.0 * std::numbers::pi * freqHz / rateHz;
        const double alpha = std::sin(w) / (2.0 * q);
        const double cosW = std::cos(w);
        const double a0 = 1.0 + alpha / a;
        ReferenceBiquad s;
        s.b0 = (1.0 + alpha * a) / a0;
        s.b1 = -2.0 * cosW / a0;
        s.b2 = (1.0 - alpha * a) / a0;
        s.a1 = -2.0 * cosW / a0;
        s.a2 = (1.0 - alpha / a) / a0;
        return s;
    }

    double step(double x) noexcept
    {
        const double y = b0 * x + s1;
        s1 = b1 * x - a1 * y + s2;
        s2 = b2 * x - a2 * y;
        return y;
    }
};

// The cubic soft clip: 1.5 x - 0.5 x^3 on [-1, 1], flat at +-1 outside.
inline double referenceSoftClip(double x) noexcept
{
    const double c = x < -1.0 ? -1.0 : x > 1.0 ? 1.0 : x;
    return 1.5 * c - 0.5 * c * c * c;
}

class ReferenceEqClipLoop
{
public:
    // Three bands where the product's defaults put them, each boosted by 3 dB.
    explicit ReferenceEqClipLoop(double rateHz)
        : m_bands{ReferenceBiquad::peaking(126.0, 3.0, 0.7, rateHz), ReferenceBiquad::peaking(700.0, 3.0, 0.5, rateHz),
                  ReferenceBiquad::peaking(4900.0, 3.0, 0.7, rateHz)}
    {
    }

    // State in locals for the loop, as any hand-written filter would keep it.
    void run(const double* __restrict in, double* __restrict out, int32_t n) noexcept
    {
        ReferenceBiquad a = m_bands[0], b = m_bands[1], c = m_bands[2];
        for (int32_t i = 0; i < n; ++i)
            out[i] = referenceSoftClip(c.step(b.step(a.step(in[i]))));
        m_bands[0] = a;
        m_bands[1] = b;
        m_bands[2] = c;
    }

private:
    ReferenceBiquad m_bands[3];
};

} // namespace qel::bench

#include "Audio/Processes/CGlowCoreKernel.h"

#include "Audio/CAvx2Lanes.h"
#include "Audio/Filters/CDCDAWBiquadKernel.h"

#include <cmath>

namespace qel {
namespace {

// Samples from..n of type 1, one at a time; returns the state.
template <bool HasFeed>
double type1Scalar(const CGlowCoreCoeffs& k, double z, const double* __restrict in, const double* __restrict feed,
                   double* __restrict out, int32_t from, int32_t n) noexcept
{
    for (int32_t i = from; i < n; ++i) {
        const double u = HasFeed ? feed[i] : 0.0;
        z += (u - z) * k.k;
        const double v = in[i] * k.gainI + k.biasI;
        const double a = k.curveA(v);
        const double b = k.curveB(v);
        const double h = (u - z) * k.gainV;
        out[i] = ((a - k.offset) + (k.biasV - h) * (b - a)) * k.makeupGain;
    }
    return z;
}

template <bool HasFeed>
double feedbackScalar(const CGlowCoreCoeffs& k, double z, const double* __restrict in, const double* __restrict feed,
                      double* __restrict out, int32_t n) noexcept
{
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
    return z;
}

#if QEL_HAS_AVX2_LANES
struct CCurveLanes
{
    CAvx2Lanes::V slope, t, e, c, c2;
};

[[gnu::always_inline]] QEL_AVX2 inline CCurveLanes curveLanes(const CGlowCoreCurve& k)
{
    using L = CAvx2Lanes;
    return {L::set1(k.slope), L::set1(k.t), L::set1(k.e), L::set1(k.c), L::set1(k.c2)};
}

// CGlowCoreCurve::operator() on four values: the line, the line through the origin, and
// the arc, each computed as the scalar curve computes it, and each lane's own picked.
[[gnu::always_inline]] QEL_AVX2 inline CAvx2Lanes::V curve(const CCurveLanes& k, CAvx2Lanes::V v)
{
    using L = CAvx2Lanes;
    const L::V d = L::sub(v, k.t);
    const L::V arc = L::add(L::add(k.c, v), L::sqrt(L::sub(k.c2, L::mul(d, d))));
    return L::select(L::le(v, k.t), v, L::select(L::ge(v, k.e), L::mul(k.slope, v), arc));
}

template <bool HasFeed>
QEL_AVX2 double type1Wide(const CGlowCoreCoeffs& k, double z, const double* __restrict in, const double* __restrict feed,
                          double* __restrict out, int32_t n) noexcept
{
    using L = CAvx2Lanes;
    using V = L::V;
    const CCurveLanes curveA = curveLanes(k.curveA), curveB = curveLanes(k.curveB);
    const V gainI = L::set1(k.gainI), biasI = L::set1(k.biasI), offset = L::set1(k.offset), biasV = L::set1(k.biasV);
    const V gainV = L::set1(k.gainV), makeup = L::set1(k.makeupGain);
    const double pole = k.k;
    int32_t i = 0;
    for (; i + L::kWidth <= n; i += L::kWidth) {
        // The one-pole, sample by sample: the only chain from one sample to the next.
        double highs[L::kWidth];
        for (int32_t j = 0; j < L::kWidth; ++j) {
            const double u = HasFeed ? feed[i + j] : 0.0;
            z += (u - z) * pole;
            highs[j] = u - z;
        }
        const V v = L::add(L::mul(L::load(in + i), gainI), biasI);
        const V a = curve(curveA, v);
        const V b = curve(curveB, v);
        const V h = L::mul(L::set(highs), gainV);
        L::store(out + i, L::mul(L::add(L::sub(a, offset), L::mul(L::sub(biasV, h), L::sub(b, a))), makeup));
    }
    return type1Scalar<HasFeed>(k, z, in, feed, out, i, n);
}
#else
template <bool HasFeed>
double type1Wide(const CGlowCoreCoeffs& k, double z, const double* in, const double* feed, double* out, int32_t n) noexcept
{
    return type1Scalar<HasFeed>(k, z, in, feed, out, 0, n);
}
#endif

} // namespace

CGlowCoreKernel::CGlowCoreKernel() : m_isWide(dcdaw::hasAvx2()) {}

void CGlowCoreKernel::run(Kind kind, const CGlowCoreCoeffs& coeffs, const double* in, const double* feed, double* out, int32_t n) noexcept
{
    const CGlowCoreCoeffs k = coeffs; // a local copy: nothing written in the loops can alias it
    double z = m_z;
    switch (kind) {
    case Kind::Type1:
        z = m_isWide ? type1Wide<true>(k, z, in, feed, out, n) : type1Scalar<true>(k, z, in, feed, out, 0, n);
        break;
    case Kind::Type1NoFeed:
        z = m_isWide ? type1Wide<false>(k, z, in, feed, out, n) : type1Scalar<false>(k, z, in, feed, out, 0, n);
        break;
    case Kind::Feedback:
        z = feedbackScalar<true>(k, z, in, feed, out, n);
        break;
    case Kind::FeedbackNoFeed:
        z = feedbackScalar<false>(k, z, in, feed, out, n);
        break;
    }
    m_z = std::fabs(z) < kStateFloor ? 0.0 : z;
}

} // namespace qel

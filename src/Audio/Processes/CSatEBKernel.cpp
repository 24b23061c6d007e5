#include "Audio/Processes/CSatEBKernel.h"

#include "Audio/CAvx2Lanes.h"
#include "Audio/Filters/CDCDAWBiquadKernel.h"

#include <cmath>

namespace qel {
namespace {

using CWindow = CSatEBKernel::CWindow;

// Every sample waits for the last through the window's sum: the square root of the mean,
// the curve's division, seven operations of the curve and the square that goes back into
// the sum, some sixty cycles a sample when half the samples bend. The curve subtracts two
// numbers of the order of `curvature` (g + c d^2) and so keeps its result to about 1e-13
// of itself; any other order of its operations, or a fused multiply-add, rounds
// differently by as much, and taking the resting output y0 off magnifies that in a quiet
// output to well above 1e-12 of it. So the loop computes each sample exactly as the
// formulas read, and nothing in it can be moved off that chain but what leaves the window.
void inputLoop(const CSatEBCoeffs& coeffs, CWindow& w, const double* __restrict in, double* __restrict out,
               double* __restrict level, int32_t n) noexcept
{
    const CSatEBCoeffs k = coeffs; // a local copy: nothing written in the loop can alias it
    double* __restrict ring = w.ring;
    const int32_t length = w.length;
    const double invLength = w.invLength;
    double sum = w.sum;
    int32_t pos = w.pos;
    bool isFull = w.isFull;
    for (int32_t i = 0; i < n; ++i) {
        const double e = std::sqrt(sum * invLength + CSatEBCoeffs::kLevelFloor);
        level[i] = e;
        const double be = k.biasGain2 * e;
        const double t = k.cb + be * be + k.drive * in[i] + k.biasGain * e;
        const double y = k.curve(t, e);
        if (isFull)
            sum -= ring[pos];
        const double yy = y * y;
        ring[pos] = yy;
        sum += yy;
        if (++pos == length) {
            pos = 0;
            isFull = true;
        }
        out[i] = (y - k.y0) * k.outGain;
    }
    w.sum = sum;
    w.pos = pos;
    w.isFull = isFull;
}

// The output stage has no memory. Where the processor has AVX2 its samples go through the
// curve four at a time, each branch of it computed for every lane and the lanes' own
// picked by mask, with the same operations in the same order as CSatEBCoeffs::curve; the
// rest of the block, and every sample elsewhere, through the scalar curve.
void outputTail(const CSatEBCoeffs& k, const double* __restrict in, const double* __restrict level, double* __restrict out,
                int32_t from, int32_t n) noexcept
{
    for (int32_t i = from; i < n; ++i) {
        const double e = level[i];
        const double t = k.cbOut + k.biasGain * e + in[i] * k.invOutGain;
        out[i] = (k.curve(t, e) - k.y0out) * k.outGain;
    }
}

#if QEL_HAS_AVX2_LANES
QEL_AVX2 void outputWide(const CSatEBCoeffs& k, const double* __restrict in, const double* __restrict level, double* __restrict out,
                         int32_t n) noexcept
{
    using L = CAvx2Lanes;
    using V = L::V;
    const V cbOut = L::set1(k.cbOut), biasGain = L::set1(k.biasGain), invOutGain = L::set1(k.invOutGain);
    const V curvature = L::set1(k.curvature), curveGain = L::set1(k.curveGain), one = L::set1(1.0), zero = L::set1(0.0);
    const V negInvShift2 = L::set1(k.negInvShift2), shift = L::set1(k.shift), invShift = L::set1(k.invShift);
    const V y0out = L::set1(k.y0out), outGain = L::set1(k.outGain);
    int32_t i = 0;
    for (; i + L::kWidth <= n; i += L::kWidth) {
        const V e = L::load(level + i);
        const V t = L::add(L::add(cbOut, L::mul(biasGain, e)), L::mul(L::load(in + i), invOutGain));
        const V g = L::div(curvature, L::add(L::mul(curveGain, e), one));
        const V c = L::mul(negInvShift2, g);
        const V d = L::sub(t, shift);
        const V r = L::add(L::add(g, L::mul(L::add(one, c), t)), L::mul(L::mul(c, d), d));
        const V q = L::mul(d, invShift);
        const V w = L::mul(q, q);
        const V blend = L::add(L::mul(t, w), L::mul(r, L::sub(one, w)));
        const V y = L::select(L::le(t, zero), t, L::select(L::gt(d, zero), r, blend));
        L::store(out + i, L::mul(L::sub(y, y0out), outGain));
    }
    outputTail(k, in, level, out, i, n);
}
#else
void outputWide(const CSatEBCoeffs& k, const double* in, const double* level, double* out, int32_t n) noexcept
{
    outputTail(k, in, level, out, 0, n);
}
#endif

} // namespace

CSatEBKernel::CSatEBKernel() : m_isWide(dcdaw::hasAvx2()) {}

void CSatEBKernel::runInput(const CSatEBCoeffs& coeffs, const double* in, double* out, double* level, int32_t n) noexcept
{
    CWindow w{m_ring, m_length, m_invLength, m_sum, m_pos, m_isFull};
    inputLoop(coeffs, w, in, out, level, n);
    m_sum = w.sum;
    m_pos = w.pos;
    m_isFull = w.isFull;
}

void CSatEBKernel::runOutput(const CSatEBCoeffs& coeffs, const double* in, const double* level, double* out, int32_t n) const noexcept
{
    if (m_isWide)
        outputWide(coeffs, in, level, out, n);
    else
        outputTail(coeffs, in, level, out, 0, n);
}

} // namespace qel

#include "Audio/Filters/CDCDAWBiquadKernel.h"

#include "Audio/CXFadeKernel.h"
#include "Audio/Filters/CAudioFilterStage.h"
#include "Audio/Filters/CDCDAWFlush.h"

#include <cmath>
#include <numbers>

namespace qel::dcdaw {
namespace {

void readCoeffs(const CAudioFilterStage& stage, double* k)
{
    k[0] = stage.bCount > 0 ? stage.b[0] : 1.0;
    k[1] = stage.bCount > 1 ? stage.b[1] : 0.0;
    k[2] = stage.bCount > 2 ? stage.b[2] : 0.0;
    k[3] = stage.aCount > 0 ? -stage.a[0] : 0.0;
    k[4] = stage.aCount > 1 ? -stage.a[1] : 0.0;
}

bool isSame(const double* x, const double* y)
{
    for (int i = 0; i < 5; ++i)
        if (x[i] != y[i])
            return false;
    return true;
}

void copy5(double* to, const double* from)
{
    for (int i = 0; i < 5; ++i)
        to[i] = from[i];
}

// The old filter goes on from the moving filter's state, which the morph leaves equal to
// the target.
void startMorph(CDCDAWBiquadState& st)
{
    st.v1 = st.w1;
    st.v2 = st.w2;
    const double step = std::numbers::pi / double(st.length);
    st.step = 2.0 * std::cos(step);
    st.s = 0.5;
    st.sPrev = 0.5 * std::sin(std::numbers::pi / 2.0 - step);
    st.remaining = st.length;
}

void finishMorph(CDCDAWBiquadState& st)
{
    copy5(st.c, st.d);
    if (st.isQueued) {
        st.isQueued = 0;
        copy5(st.d, st.q);
        startMorph(st);
    }
}

// A stretch of a morph, all of it inside the block. Costs about three plain biquads: its
// samples wait for each other only through the two states and the raised cosine, and the
// rest is throughput. Built for processors with fused multiply-adds, the compiler fuses
// its products and sums, which takes a quarter off the time.
// `in` may be `out`: the stages after the first run in place.
[[gnu::always_inline]] inline void morphLoop(CDCDAWBiquadState& st, const double* in, double* out, int32_t n) noexcept
{
    const double* c = st.c;
    const double* d = st.d;
    double w1 = st.w1, w2 = st.w2, v1 = st.v1, v2 = st.v2;
    double s = st.s, sPrev = st.sPrev;
    const double step = st.step;
    for (int32_t i = 0; i < n; ++i) {
        const double x = in[i];
        const double p = 0.5 + s;
        const double q = 0.5 - s;
        const double vo = (x + c[4] * v2) + c[3] * v1;
        const double oldOut = c[0] * vo + (c[1] * v1 + c[2] * v2);
        v2 = v1;
        v1 = vo;
        const double m0 = p * c[0] + q * d[0];
        const double m1 = p * c[1] + q * d[1];
        const double m2 = p * c[2] + q * d[2];
        const double m3 = p * c[3] + q * d[3];
        const double m4 = p * c[4] + q * d[4];
        const double w = (x + m4 * w2) + m3 * w1;
        const double newOut = m0 * w + (m1 * w1 + m2 * w2);
        w2 = w1;
        w1 = w;
        out[i] = p * oldOut + q * newOut;
        const double next = step * s - sPrev;
        sPrev = s;
        s = next;
    }
    st.w1 = w1;
    st.w2 = w2;
    st.v1 = v1;
    st.v2 = v2;
    st.s = s;
    st.sPrev = sPrev;
}

void runMorphPlain(CDCDAWBiquadState& st, const double* in, double* out, int32_t n) noexcept
{
    morphLoop(st, in, out, n);
}

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
__attribute__((target("avx2,fma"))) void runMorphFma(CDCDAWBiquadState& st, const double* in, double* out, int32_t n) noexcept
{
    morphLoop(st, in, out, n);
}
#else
void runMorphFma(CDCDAWBiquadState& st, const double* in, double* out, int32_t n) noexcept
{
    morphLoop(st, in, out, n);
}
#endif

} // namespace

bool hasFma()
{
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
#else
    return false;
#endif
}

bool hasAvx2()
{
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2");
#else
    return false;
#endif
}

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
__attribute__((target("avx2,fma")))
void biquadRunFma(const double* c, double& w1State, double& w2State, const double* in, double* out, int32_t n) noexcept
{
    const double b0 = c[0], b1 = c[1], b2 = c[2], na1 = c[3], na2 = c[4];
    double w1 = w1State;
    double w2 = w2State;
    for (int32_t i = 0; i < n; ++i) {
        const double w = std::fma(na1, w1, std::fma(na2, w2, in[i]));
        out[i] = std::fma(b0, w, std::fma(b1, w1, b2 * w2));
        w2 = w1;
        w1 = w;
    }
    w1State = w1;
    w2State = w2;
}
#else
void biquadRunFma(const double* c, double& w1State, double& w2State, const double* in, double* out, int32_t n) noexcept
{
    biquadRunPlain(c, w1State, w2State, in, out, n);
}
#endif

void biquadInit(CDCDAWBiquadState& st, const CAudioFilterStage& stage, double sampleRate)
{
    st = CDCDAWBiquadState();
    readCoeffs(stage, st.c);
    copy5(st.d, st.c);
    copy5(st.q, st.c);
    const int32_t length = CXFadeKernel::lengthFor(sampleRate, kBiquadMorphSec);
    st.length = length > 0 ? length : 1;
    st.useFma = hasFma() ? 1 : 0;
}

void biquadUpdate(CDCDAWBiquadState& st, const CAudioFilterStage& stage)
{
    double k[5];
    readCoeffs(stage, k);
    if (st.remaining > 0) {
        // The newest value waits; one equal to the running target has nothing left to do.
        copy5(st.q, k);
        st.isQueued = isSame(k, st.d) ? 0 : 1;
        return;
    }
    if (isSame(k, st.c))
        return;
    copy5(st.d, k);
    startMorph(st);
}

void biquadProcess(CDCDAWBiquadState& st, const double* in, double* out, int32_t n)
{
    int32_t done = 0;
    while (st.remaining > 0 && done < n) {
        const int32_t run = n - done < st.remaining ? n - done : st.remaining;
        if (st.useFma)
            runMorphFma(st, in + done, out + done, run);
        else
            runMorphPlain(st, in + done, out + done, run);
        done += run;
        st.remaining -= run;
        if (st.remaining == 0)
            finishMorph(st);
    }
    if (done < n) {
        if (st.useFma)
            biquadRunFma(st.c, st.w1, st.w2, in + done, out + done, n - done);
        else
            biquadRunPlain(st.c, st.w1, st.w2, in + done, out + done, n - done);
    }
    flushTiny(st.w1);
    flushTiny(st.w2);
    flushTiny(st.v1);
    flushTiny(st.v2);
}

} // namespace qel::dcdaw

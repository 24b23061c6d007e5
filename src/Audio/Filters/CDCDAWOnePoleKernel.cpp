#include "Audio/Filters/CDCDAWOnePoleKernel.h"

#include "Audio/CXFadeKernel.h"
#include "Audio/Filters/CAudioFilterStage.h"
#include "Audio/Filters/CDCDAWFlush.h"

#include <cmath>
#include <numbers>

namespace qel::dcdaw {
namespace {

enum class Shape { LowPass, HighPass, HighPassGain };

void startMorph(CDCDAWOnePoleState& st)
{
    const double step = std::numbers::pi / double(st.length);
    st.step = 2.0 * std::cos(step);
    st.s = 0.5;
    st.sPrev = 0.5 * std::sin(std::numbers::pi / 2.0 - step);
    st.remaining = st.length;
}

void finishMorph(CDCDAWOnePoleState& st)
{
    st.k = st.kNew;
    st.g = st.gNew;
    if (st.isQueued) {
        st.isQueued = 0;
        st.kNew = st.kQ;
        st.gNew = st.gQ;
        startMorph(st);
    }
}

template <Shape kShape>
inline double output(double x, double z, double g)
{
    if constexpr (kShape == Shape::LowPass)
        return z;
    else if constexpr (kShape == Shape::HighPass)
        return x - z;
    else
        return g * (x - z);
}

template <Shape kShape>
void runMorph(CDCDAWOnePoleState& st, const double* in, double* out, int32_t n) noexcept
{
    double z = st.z, s = st.s, sPrev = st.sPrev;
    const double k0 = st.k, k1 = st.kNew, g0 = st.g, g1 = st.gNew, step = st.step;
    for (int32_t i = 0; i < n; ++i) {
        const double p = 0.5 + s;
        const double q = 0.5 - s;
        const double k = p * k0 + q * k1;
        const double x = in[i];
        z += k * (x - z);
        out[i] = output<kShape>(x, z, p * g0 + q * g1);
        const double next = step * s - sPrev;
        sPrev = s;
        s = next;
    }
    st.z = z;
    st.s = s;
    st.sPrev = sPrev;
}

template <Shape kShape>
void runPlain(CDCDAWOnePoleState& st, const double* in, double* out, int32_t n) noexcept
{
    double z = st.z;
    const double k = st.k, g = st.g;
    for (int32_t i = 0; i < n; ++i) {
        const double x = in[i];
        z += k * (x - z);
        out[i] = output<kShape>(x, z, g);
    }
    st.z = z;
}

template <Shape kShape>
void process(CDCDAWOnePoleState& st, const double* in, double* out, int32_t n)
{
    int32_t done = 0;
    while (st.remaining > 0 && done < n) {
        const int32_t run = n - done < st.remaining ? n - done : st.remaining;
        runMorph<kShape>(st, in + done, out + done, run);
        done += run;
        st.remaining -= run;
        if (st.remaining == 0)
            finishMorph(st);
    }
    if (done < n)
        runPlain<kShape>(st, in + done, out + done, n - done);
    flushTiny(st.z);
}

} // namespace

void onePoleInit(CDCDAWOnePoleState& st, const CAudioFilterStage& stage, double sampleRate)
{
    st = CDCDAWOnePoleState();
    st.k = st.kNew = st.kQ = stage.bCount > 0 ? stage.b[0] : 0.0;
    st.g = st.gNew = st.gQ = stage.bCount > 1 ? stage.b[1] : 1.0;
    const int32_t length = CXFadeKernel::lengthFor(sampleRate, kOnePoleMorphSec);
    st.length = length > 0 ? length : 1;
}

void onePoleUpdate(CDCDAWOnePoleState& st, const CAudioFilterStage& stage)
{
    const double k = stage.bCount > 0 ? stage.b[0] : 0.0;
    const double g = stage.bCount > 1 ? stage.b[1] : 1.0;
    if (st.remaining > 0) {
        st.kQ = k;
        st.gQ = g;
        st.isQueued = (k == st.kNew && g == st.gNew) ? 0 : 1;
        return;
    }
    if (k == st.k && g == st.g)
        return;
    st.kNew = k;
    st.gNew = g;
    startMorph(st);
}

void lowPass1Process(CDCDAWOnePoleState& st, const double* in, double* out, int32_t n)
{
    process<Shape::LowPass>(st, in, out, n);
}

void highPass1Process(CDCDAWOnePoleState& st, const double* in, double* out, int32_t n)
{
    process<Shape::HighPass>(st, in, out, n);
}

void highPass1GainProcess(CDCDAWOnePoleState& st, const double* in, double* out, int32_t n)
{
    process<Shape::HighPassGain>(st, in, out, n);
}

} // namespace qel::dcdaw

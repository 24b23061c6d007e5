#include "Audio/Filters/CDCDAWHalfBandKernel.h"

#include "Audio/Filters/CAudioFilterStage.h"
#include "Audio/Filters/CDCDAWFlush.h"

namespace qel::dcdaw {
namespace {

template <int32_t N>
void process(CDCDAWHalfBandState& st, const double* in, double* out, int32_t n)
{
    constexpr int32_t kAll = 2 * N;
    double c[kAll], x1[kAll], x2[kAll], y1[kAll], y2[kAll];
    for (int32_t j = 0; j < kAll; ++j) {
        c[j] = st.c[j];
        x1[j] = st.x1[j];
        x2[j] = st.x2[j];
        y1[j] = st.y1[j];
        y2[j] = st.y2[j];
    }
    double bPrev = st.bPrev;
    int32_t i = 0;
    for (; i + 1 < n; i += 2) {
        double a0 = in[i], a1 = in[i + 1];
        double b0 = a0, b1 = a1;
        for (int32_t j = 0; j < N; ++j) {
            const double r0 = c[j] * (a0 - y2[j]) + x2[j];
            const double r1 = c[j] * (a1 - y1[j]) + x1[j];
            x2[j] = a0;
            x1[j] = a1;
            y2[j] = r0;
            y1[j] = r1;
            a0 = r0;
            a1 = r1;
        }
        for (int32_t j = N; j < kAll; ++j) {
            const double r0 = c[j] * (b0 - y2[j]) + x2[j];
            const double r1 = c[j] * (b1 - y1[j]) + x1[j];
            x2[j] = b0;
            x1[j] = b1;
            y2[j] = r0;
            y1[j] = r1;
            b0 = r0;
            b1 = r1;
        }
        out[i] = 0.5 * (a0 + bPrev);
        out[i + 1] = 0.5 * (a1 + b0);
        bPrev = b1;
    }
    if (i < n) {
        double a = in[i];
        double b = a;
        for (int32_t j = 0; j < kAll; ++j) {
            double& v = j < N ? a : b;
            const double r = c[j] * (v - y2[j]) + x2[j];
            x2[j] = x1[j];
            x1[j] = v;
            y2[j] = y1[j];
            y1[j] = r;
            v = r;
        }
        out[i] = 0.5 * (a + bPrev);
        bPrev = b;
    }
    for (int32_t j = 0; j < kAll; ++j) {
        flushTiny(x1[j]);
        flushTiny(x2[j]);
        flushTiny(y1[j]);
        flushTiny(y2[j]);
        st.x1[j] = x1[j];
        st.x2[j] = x2[j];
        st.y1[j] = y1[j];
        st.y2[j] = y2[j];
    }
    flushTiny(bPrev);
    st.bPrev = bPrev;
}

void passThrough(CDCDAWHalfBandState&, const double* in, double* out, int32_t n)
{
    if (in != out)
        for (int32_t i = 0; i < n; ++i)
            out[i] = in[i];
}

} // namespace

void halfBandInit(CDCDAWHalfBandState& st, const CAudioFilterStage& stage, double)
{
    st = CDCDAWHalfBandState();
    const int32_t count = stage.bCount < stage.aCount ? stage.bCount : stage.aCount;
    st.sections = count < CDCDAWHalfBandState::kMaxSections ? count : CDCDAWHalfBandState::kMaxSections;
    for (int32_t j = 0; j < st.sections; ++j) {
        st.c[j] = stage.b[j];
        st.c[st.sections + j] = stage.a[j];
    }
}

CHalfBandProcess halfBandProcess(int32_t sections)
{
    switch (sections) {
    case 1: return &process<1>;
    case 2: return &process<2>;
    case 3: return &process<3>;
    case 4: return &process<4>;
    case 5: return &process<5>;
    case 6: return &process<6>;
    case 7: return &process<7>;
    case 8: return &process<8>;
    default: return &passThrough;
    }
}

} // namespace qel::dcdaw

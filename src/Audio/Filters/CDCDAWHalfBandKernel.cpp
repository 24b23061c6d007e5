#include "Audio/Filters/CDCDAWHalfBandKernel.h"

#include "Audio/Filters/CAudioFilterStage.h"
#include "Audio/Filters/CDCDAWFlush.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace qel::dcdaw {
namespace {

// The pairs of samples through both branches, from i = 0 while two samples remain; returns
// where it stopped. The state arrays hold each section's in[t-1], in[t-2], out[t-1],
// out[t-2] before and after.
template <int32_t N>
int32_t runPairsScalar(const double* c, double* x1, double* x2, double* y1, double* y2, double& bPrevState,
                       const double* in, double* out, int32_t n)
{
    constexpr int32_t kAll = 2 * N;
    double bPrev = bPrevState;
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
    bPrevState = bPrev;
    return i;
}

#if defined(__SSE2__)
// The same pairs with the even and the odd sample of a pair in the two lanes of one
// register: a section's even and odd streams share its coefficient and never meet, so
// each instruction does the work of two, and the state stays in registers. The operations
// are those of the scalar loop in the same order, so the results are the same bit for bit.
template <int32_t N>
int32_t runPairs(const double* c, double* x1, double* x2, double* y1, double* y2, double& bPrevState, const double* in,
                 double* out, int32_t n)
{
    constexpr int32_t kAll = 2 * N;
    __m128d cv[kAll], x[kAll], y[kAll];
    for (int32_t j = 0; j < kAll; ++j) {
        cv[j] = _mm_set1_pd(c[j]);
        x[j] = _mm_set_pd(x1[j], x2[j]); // low lane: the even stream, which is at t - 2
        y[j] = _mm_set_pd(y1[j], y2[j]);
    }
    double bPrev = bPrevState;
    int32_t i = 0;
    for (; i + 1 < n; i += 2) {
        __m128d a = _mm_loadu_pd(in + i);
        __m128d b = a;
        for (int32_t j = 0; j < N; ++j) {
            const __m128d r = _mm_add_pd(_mm_mul_pd(cv[j], _mm_sub_pd(a, y[j])), x[j]);
            x[j] = a;
            y[j] = r;
            a = r;
        }
        for (int32_t j = N; j < kAll; ++j) {
            const __m128d r = _mm_add_pd(_mm_mul_pd(cv[j], _mm_sub_pd(b, y[j])), x[j]);
            x[j] = b;
            y[j] = r;
            b = r;
        }
        const double bEven = _mm_cvtsd_f64(b);
        out[i] = 0.5 * (_mm_cvtsd_f64(a) + bPrev);
        out[i + 1] = 0.5 * (_mm_cvtsd_f64(_mm_unpackhi_pd(a, a)) + bEven);
        bPrev = _mm_cvtsd_f64(_mm_unpackhi_pd(b, b));
    }
    for (int32_t j = 0; j < kAll; ++j) {
        x2[j] = _mm_cvtsd_f64(x[j]);
        x1[j] = _mm_cvtsd_f64(_mm_unpackhi_pd(x[j], x[j]));
        y2[j] = _mm_cvtsd_f64(y[j]);
        y1[j] = _mm_cvtsd_f64(_mm_unpackhi_pd(y[j], y[j]));
    }
    bPrevState = bPrev;
    return i;
}
#else
template <int32_t N>
int32_t runPairs(const double* c, double* x1, double* x2, double* y1, double* y2, double& bPrevState, const double* in,
                 double* out, int32_t n)
{
    return runPairsScalar<N>(c, x1, x2, y1, y2, bPrevState, in, out, n);
}
#endif

template <int32_t N, bool kIsScalar>
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
    const int32_t i = kIsScalar ? runPairsScalar<N>(c, x1, x2, y1, y2, bPrev, in, out, n)
                                : runPairs<N>(c, x1, x2, y1, y2, bPrev, in, out, n);
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
    case 1: return &process<1, false>;
    case 2: return &process<2, false>;
    case 3: return &process<3, false>;
    case 4: return &process<4, false>;
    case 5: return &process<5, false>;
    case 6: return &process<6, false>;
    case 7: return &process<7, false>;
    case 8: return &process<8, false>;
    default: return &passThrough;
    }
}

CHalfBandProcess halfBandProcessScalar(int32_t sections)
{
    switch (sections) {
    case 1: return &process<1, true>;
    case 2: return &process<2, true>;
    case 3: return &process<3, true>;
    case 4: return &process<4, true>;
    case 5: return &process<5, true>;
    case 6: return &process<6, true>;
    case 7: return &process<7, true>;
    case 8: return &process<8, true>;
    default: return &passThrough;
    }
}

} // namespace qel::dcdaw

#pragma once

#include <cstdint>

namespace qel {

struct CAudioFilterStage;

// A biquad in direct form II, 64-bit, with its coefficients kept as b0, b1, b2, -a1, -a2:
//   w = in + (-a1) w1 + (-a2) w2;  out = b0 w + b1 w1 + b2 w2;  w2 = w1, w1 = w.
//
// New coefficients never jump in. They morph over N = round(0.025 * rate) samples: the old
// filter C keeps running on a copy of the state, a second filter runs through every shape
// between C and the target D (each coefficient p C + q D), and the output fades from the
// first to the second, with p = 0.5 + s, q = 0.5 - s and s the raised cosine of
// CXFadeKernel. A filter whose coefficients move rings; the fade covers that ring. Values
// that arrive during a morph wait in Q, the newest replacing older ones, and start the
// next morph when this one ends. The block is split where a morph ends, so the steady loop
// tests nothing per sample.
struct CDCDAWBiquadState
{
    double c[5];   // current set
    double d[5];   // target of the running morph
    double q[5];   // queued set
    double w1, w2; // main state
    double v1, v2; // state of the old filter during a morph
    double s, sPrev, step;
    int32_t length;    // N
    int32_t remaining; // samples of the morph still to run
    int32_t isQueued;
    int32_t useFma;
};

namespace dcdaw {

// Seconds of a biquad morph.
constexpr double kBiquadMorphSec = 0.025;

void biquadInit(CDCDAWBiquadState& st, const CAudioFilterStage& stage, double sampleRate);
void biquadUpdate(CDCDAWBiquadState& st, const CAudioFilterStage& stage);
void biquadProcess(CDCDAWBiquadState& st, const double* in, double* out, int32_t n);

// The steady loop, for the kernels and for benchmarks: c holds b0, b1, b2, -a1, -a2. The
// sum is ordered so that only one multiply and one add stand between w1 and the next w.
inline void biquadRunPlain(const double* c, double& w1State, double& w2State, const double* in, double* out, int32_t n) noexcept
{
    const double b0 = c[0], b1 = c[1], b2 = c[2], na1 = c[3], na2 = c[4];
    double w1 = w1State;
    double w2 = w2State;
    for (int32_t i = 0; i < n; ++i) {
        const double w = (in[i] + na2 * w2) + na1 * w1;
        out[i] = b0 * w + (b1 * w1 + b2 * w2);
        w2 = w1;
        w1 = w;
    }
    w1State = w1;
    w2State = w2;
}

// The same with fused multiply-adds, on processors that have them; chosen at init.
void biquadRunFma(const double* c, double& w1State, double& w2State, const double* in, double* out, int32_t n) noexcept;
bool hasFma();
// AVX2 alone: for loops that run four samples side by side and must round as the plain
// build does, so never fuse a multiply and an add.
bool hasAvx2();

} // namespace dcdaw
} // namespace qel

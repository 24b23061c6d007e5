#pragma once

#include <cstdint>

namespace qel {

struct CAudioFilterStage;

// A polyphase half-band low-pass of two chains of all-pass sections in z^-2, each section
// out[t] = c (in[t] - out[t-2]) + in[t-2]; output 0.5 (A[t] + B[t-1]). Sections of one
// branch are in series. Its coefficients are fixed, so it has no update.
//
// A section at t reads only t - 2: even and odd samples are two independent streams. The
// loop takes them in pairs, which gives the processor two chains to overlap and leaves
// nothing to shift; where the processor has two-lane vectors (SSE2, every x86-64) a pair
// is one vector through each section, with the same result bit for bit.
struct CDCDAWHalfBandState
{
    static constexpr int32_t kMaxSections = 8;

    double c[2 * kMaxSections];  // branch A, then branch B
    double x1[2 * kMaxSections]; // in[t-1], in[t-2], out[t-1], out[t-2] of each section
    double x2[2 * kMaxSections];
    double y1[2 * kMaxSections];
    double y2[2 * kMaxSections];
    double bPrev;
    int32_t sections; // per branch
};

namespace dcdaw {

// Branch A in stage.b, branch B in stage.a, equally many.
void halfBandInit(CDCDAWHalfBandState& st, const CAudioFilterStage& stage, double sampleRate);
// By sections per branch, 1 to 8; anything else passes the input.
using CHalfBandProcess = void (*)(CDCDAWHalfBandState&, const double*, double*, int32_t);
CHalfBandProcess halfBandProcess(int32_t sections);
// The same with plain scalar pairs: the reference of the vector loop.
CHalfBandProcess halfBandProcessScalar(int32_t sections);

} // namespace dcdaw
} // namespace qel

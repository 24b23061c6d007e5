#pragma once

#include <cstdint>

namespace qel {

struct CDCDAWKernelSet;

// One stage of a designed filter: the kernels that run it and its coefficients. A biquad
// keeps b0, b1, b2 in `b` and a1, a2 in `a`, already divided by a0; a one-pole keeps k and
// g in `b`; a half-band filter keeps its two all-pass chains in `b` (branch A) and `a`
// (branch B). The long tap list of an FIR design stands in its stage list (tapOffset,
// tapCount), not here.
struct CAudioFilterStage
{
    static constexpr int32_t kMaxCoeffs = 8;

    const CDCDAWKernelSet* kernels = nullptr;
    int32_t bCount = 0;
    int32_t aCount = 0;
    double b[kMaxCoeffs] = {};
    double a[kMaxCoeffs] = {};
    int32_t tapOffset = 0;
    int32_t tapCount = 0;
};

} // namespace qel

#pragma once

#include "Audio/Filters/CDCDAWBiquadKernel.h"
#include "Audio/Filters/CDCDAWHalfBandKernel.h"
#include "Audio/Filters/CDCDAWOnePoleKernel.h"

#include <cstdint>

namespace qel {

struct CAudioFilterStage;

// The coefficient and state block of one stage on one channel, whatever its kind.
union CDCDAWStageState
{
    CDCDAWBiquadState biquad;
    CDCDAWOnePoleState onePole;
    CDCDAWHalfBandState halfBand;
};

// The three kernels of a stage: init sets coefficients from the stage and clears the state
// (ending any morph), update takes new coefficients without a click (null where the
// coefficients are fixed), process runs a block; `in` and `out` may be the same buffer.
// Sets are constant tables, so stages of one kind share them and a stage is matched with
// the one it replaces by comparing pointers. A set without process is an FIR tap list,
// which a convolution runs instead.
struct CDCDAWKernelSet
{
    const char* name;
    const char* initName;
    const char* updateName;
    void (*init)(CDCDAWStageState& state, const CAudioFilterStage& stage, double sampleRate);
    void (*update)(CDCDAWStageState& state, const CAudioFilterStage& stage);
    void (*process)(CDCDAWStageState& state, const double* in, double* out, int32_t n);
};

namespace dcdaw {

extern const CDCDAWKernelSet kBiquadCommon;
extern const CDCDAWKernelSet kBiquadLowPass;
extern const CDCDAWKernelSet kBiquadHighPass;
extern const CDCDAWKernelSet kBiquadBandPass;
extern const CDCDAWKernelSet kBiquadNotch;
extern const CDCDAWKernelSet kLowPass1;
extern const CDCDAWKernelSet kHighPass1;
extern const CDCDAWKernelSet kHighPass1Gain;
extern const CDCDAWKernelSet kFirTaps;
// By sections per branch, 1 to 8 (DCDAW_flthbf2 to DCDAW_flthbf16); null otherwise.
const CDCDAWKernelSet* halfBandKernels(int32_t sections);
// By the name of its process kernel; null for an unknown name.
const CDCDAWKernelSet* findKernelSet(const char* name);

} // namespace dcdaw
} // namespace qel

#pragma once

#include "Audio/Filters/CAudioFilterParams.h"
#include "Audio/Filters/CAudioFilterStageList.h"
#include "Audio/Filters/CDCDAWFilterWorkspace.h"
#include "Core/CObject.h"

#include <cstdint>

namespace qel {

struct CDCDAWKernelSet;

// A filter design as a definition object: design options from attributes, no audio state.
// createFilter turns a sample rate and parameter values into stages appended to a list.
// A generator that misses a name it needs, is asked for a frequency it cannot make at that
// rate, or would compute something that is not a number, appends nothing: the signal then
// passes unfiltered. Attributes are checked in init, so createFilter has nothing to refuse.
class CAudioFilterGen : public CObject
{
public:
    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }

    // Audio thread (or set-up): allocates nothing but FIR taps beyond the list's room.
    virtual void createFilter(CDCDAWFilterWorkspace& workspace, double sampleRate, const CAudioFilterParams& params,
                              CAudioFilterStageList& stages) const = 0;

    // Appends b0 b1 b2 / a1 a2 divided by a0, when all are finite and a0 is not 0.
    static bool appendBiquad(CAudioFilterStageList& stages, const CDCDAWKernelSet* kernels, double b0, double b1,
                             double b2, double a0, double a1, double a2);

protected:
    // The integer attribute `type` within min..max (absent reads as 0); otherwise the
    // message of the class, with the attribute's text.
    CErrorPtr readType(const char* messageId, int32_t min, int32_t max, int32_t& out) const;
};

} // namespace qel

#pragma once

#include "Audio/Filters/CAudioFilterGen.h"
#include "Audio/Filters/CDCDAWHalfBandKernel.h"

namespace qel {

// A polyphase half-band low-pass (tag audio:fltgen-hbf) from two chains of all-pass
// sections, `a` and `b`, equally many coefficients each, 1 to 8. The cut-off is a quarter
// of whatever rate it runs at, so the sample rate plays no part in the design.
class CAudioFilterHBFGen : public CAudioFilterGen
{
public:
    static constexpr int32_t kMaxCoeffs = CDCDAWHalfBandState::kMaxSections;

    static void initClassInfo(CClassInfo& info) { CAudioFilterGen::initClassInfo(info); }
    CErrorPtr init() override;
    void createFilter(CDCDAWFilterWorkspace& workspace, double sampleRate, const CAudioFilterParams& params,
                      CAudioFilterStageList& stages) const override;

    int32_t sections() const { return m_count; }

private:
    double m_a[kMaxCoeffs] = {};
    double m_b[kMaxCoeffs] = {};
    int32_t m_count = 0;
};

} // namespace qel

#pragma once

#include "Audio/Filters/CAudioFilterGen.h"

namespace qel {

// Peaking and band-pass biquads whose response is matched to an analog prototype near the
// Nyquist frequency, where the bilinear transform would cramp it (tag audio:fltgen-magnus).
// `type` 0 peaking designed in radians, 1 peaking matched at the Nyquist frequency and at
// half of it (the product's band), 2 peaking from prescribed band edges, 3 to 5 the
// band-pass counterparts of 0 to 2. All read `freq`, `gain` (linear) and `bw` (octaves).
class CAudioFilterMagnusGen : public CAudioFilterGen
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioFilterGen::initClassInfo(info); }
    CErrorPtr init() override;
    void createFilter(CDCDAWFilterWorkspace& workspace, double sampleRate, const CAudioFilterParams& params,
                      CAudioFilterStageList& stages) const override;

    int32_t type() const { return m_type; }

private:
    int32_t m_type = 0;
};

} // namespace qel

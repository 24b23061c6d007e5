#pragma once

#include "Audio/Filters/CAudioFilterGen.h"

namespace qel {

// A linear-phase low-pass (tag audio:fltgen-firlp): the ideal sinc of cut-off `freq` under a
// Kaiser window of shape `beta` (held to 1 .. 350) and half length
// H = rate^2 * length / (8 * freq) samples; M = floor(H) taps on each side, 2M + 1 in all,
// and M samples of latency. One stage, a single list of taps.
class CAudioFilterFIRLPGen : public CAudioFilterGen
{
public:
    // Taps on one side beyond which a design is refused: two million taps of memory.
    static constexpr double kMaxHalfLength = 1048576.0;

    static void initClassInfo(CClassInfo& info) { CAudioFilterGen::initClassInfo(info); }
    void createFilter(CDCDAWFilterWorkspace& workspace, double sampleRate, const CAudioFilterParams& params,
                      CAudioFilterStageList& stages) const override;

    // The modified Bessel function of order 0 by the polynomials of Abramowitz and Stegun
    // 9.8.1 (below 3.75) and 9.8.2; x >= 0.
    static double besselI0(double x);
};

} // namespace qel

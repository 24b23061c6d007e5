#pragma once

#include "Audio/Filters/CAudioFilterGen.h"

namespace qel {

// One-pole low- and high-pass (tag audio:fltgen-lphp1), -3 dB at `freq`: `type` 0 low-pass,
// 1 high-pass (input less the low-pass), 2 high-pass scaled to be -3 dB exactly at `freq`.
class CAudioFilterLPHP1Gen : public CAudioFilterGen
{
public:
    enum Type : int32_t { LowPass = 0, HighPass = 1, HighPassGain = 2 };

    static void initClassInfo(CClassInfo& info) { CAudioFilterGen::initClassInfo(info); }
    CErrorPtr init() override;
    void createFilter(CDCDAWFilterWorkspace& workspace, double sampleRate, const CAudioFilterParams& params,
                      CAudioFilterStageList& stages) const override;

    Type type() const { return m_type; }
    // The pole's complement k = 1 - r for a -3 dB point at w radians per sample.
    static double coefficientFor(double w);

private:
    Type m_type = LowPass;
};

} // namespace qel

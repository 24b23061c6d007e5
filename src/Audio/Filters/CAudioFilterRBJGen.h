#pragma once

#include "Audio/Filters/CAudioFilterGen.h"

namespace qel {

// The cookbook biquads (tag audio:fltgen-rbj): `type` 0 low-pass, 1 high-pass, 2 band-pass
// of 0 dB peak, 3 band-pass of constant skirt, 4 notch, 5 all-pass, 6 peaking, 7 low shelf,
// 8 high shelf, 9 all-pass of pole radius q, 10 a band-reject of the rarely used kind.
// Width from `bw` in octaves, or as Q (`is-q`), or from `gain` as Q (`is-gain-q`);
// `is-type2` reads `bw` without the correction for the warping of the bilinear transform,
// which is what the shelves want; `is-inverted` negates a low- or high-pass.
class CAudioFilterRBJGen : public CAudioFilterGen
{
public:
    enum Type : int32_t {
        LowPass = 0, HighPass = 1, BandPass = 2, BandPassSkirt = 3, Notch = 4, AllPass = 5,
        Peaking = 6, LowShelf = 7, HighShelf = 8, AllPassRadius = 9, Type10 = 10
    };
    // ln(2) / 2, the factor between octaves and the sinh of the cookbook.
    static constexpr double kHalfLn2 = 0.34657359027997264;
    // Largest argument of the width's sinh: far past any real width, far below overflow.
    static constexpr double kMaxSinhArg = 300.0;

    static void initClassInfo(CClassInfo& info) { CAudioFilterGen::initClassInfo(info); }
    CErrorPtr init() override;
    void createFilter(CDCDAWFilterWorkspace& workspace, double sampleRate, const CAudioFilterParams& params,
                      CAudioFilterStageList& stages) const override;

    Type type() const { return m_type; }

private:
    Type m_type = LowPass;
    bool m_isQ = false;
    bool m_isType2 = false;
    bool m_isInverted = false;
    bool m_isGainQ = false;
};

} // namespace qel

#pragma once

// What the filter tests share: designs through the generators of TestFilterDefs.xml, and
// responses and reference filters written here from their textbook definitions.

#include "../GraphTestSupport.h"

#include "Audio/Filters/CAudioFilterGen.h"
#include "Audio/Filters/CDCDAWKernelSet.h"

#include <complex>
#include <numbers>
#include <string>
#include <vector>

namespace qel {
extern const CResourceRow kFilterTestDefinitions[];
}

namespace qel::test {

using cplx = std::complex<double>;
constexpr double kPi = std::numbers::pi;

// The rates of the tests: the usual ones, and the oversampled ones where low frequencies
// test the precision of the designs.
inline const std::vector<double> kRates = {44100.0, 48000.0, 96000.0, 192000.0, 768000.0, 1536000.0};

// n log-spaced frequencies from lo to hi.
inline std::vector<double> logSpaced(double lo, double hi, int n = 30)
{
    std::vector<double> f;
    for (int i = 0; i < n; ++i)
        f.push_back(lo * std::pow(hi / lo, double(i) / double(n - 1)));
    return f;
}

inline double db(double x) { return 20.0 * std::log10(x); }

// H(e^jw) of a biquad stage: b0 + b1 z^-1 + b2 z^-2 over 1 + a1 z^-1 + a2 z^-2.
inline cplx biquadResponse(const CAudioFilterStage& s, double w)
{
    const cplx z1 = std::polar(1.0, -w);
    return (s.b[0] + z1 * (s.b[1] + z1 * s.b[2])) / (1.0 + z1 * (s.a[0] + z1 * s.a[1]));
}

// One-pole stages: k in b[0], g in b[1]; the low-pass is k / (1 - (1 - k) z^-1).
inline cplx onePoleResponse(const CAudioFilterStage& s, double w)
{
    const cplx z1 = std::polar(1.0, -w);
    const cplx lp = s.b[0] / (1.0 - (1.0 - s.b[0]) * z1);
    if (s.kernels == &dcdaw::kLowPass1)
        return lp;
    return s.b[1] * (1.0 - lp);
}

// A half-band stage: 0.5 (A(z^2) + z^-1 B(z^2)) with sections (c + z^-2) / (1 + c z^-2).
inline cplx halfBandResponse(const CAudioFilterStage& s, double w)
{
    const cplx z1 = std::polar(1.0, -w);
    const cplx z2 = z1 * z1;
    cplx a = 1.0, b = 1.0;
    for (int32_t i = 0; i < s.bCount; ++i)
        a *= (s.b[i] + z2) / (1.0 + s.b[i] * z2);
    for (int32_t i = 0; i < s.aCount; ++i)
        b *= (s.a[i] + z2) / (1.0 + s.a[i] * z2);
    return 0.5 * (a + z1 * b);
}

inline cplx stageResponse(const CAudioFilterStage& s, double w)
{
    if (s.kernels == &dcdaw::kLowPass1 || s.kernels == &dcdaw::kHighPass1 || s.kernels == &dcdaw::kHighPass1Gain)
        return onePoleResponse(s, w);
    if (s.aCount == 2 && s.bCount == 3)
        return biquadResponse(s, w);
    return halfBandResponse(s, w);
}

inline cplx listResponse(const CAudioFilterStageList& list, double w)
{
    cplx h = 1.0;
    for (int32_t i = 0; i < list.count(); ++i)
        h *= stageResponse(list[i], w);
    return h;
}

class FilterFixture : public GraphFixture
{
protected:
    FilterFixture() : GraphFixture(kFilterTestDefinitions) {}

    const CAudioFilterGen& gen(const char* name)
    {
        const auto* g = dynamic_cast<const CAudioFilterGen*>(CApplication::sharedRoot()->findObject(CString("audio.flt.").append(name)));
        EXPECT_NE(g, nullptr) << name;
        return *g;
    }

    // A design from freq, gain, bw (or any names given).
    CAudioFilterStageList design(const CAudioFilterGen& g, double rate, std::vector<std::pair<const char*, double>> values)
    {
        CAudioFilterParamNames names;
        std::vector<double> v;
        for (const auto& [name, value] : values) {
            names.add(name);
            v.push_back(value);
        }
        CAudioFilterStageList list;
        CDCDAWFilterWorkspace workspace;
        g.createFilter(workspace, rate, CAudioFilterParams{&names, v.data(), int32_t(v.size())}, list);
        EXPECT_EQ(workspace.depth(), 0);
        return list;
    }
    CAudioFilterStageList design(const char* name, double rate, double freq, double gain, double bw)
    {
        return design(gen(name), rate, {{"freq", freq}, {"gain", gain}, {"bw", bw}});
    }
};

} // namespace qel::test

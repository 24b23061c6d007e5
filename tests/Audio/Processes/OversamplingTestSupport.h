#pragma once

// The oversampling tests' graphs (the product's own stages around small chains) built as
// plugin.modMain, the half-band response written from its definition, and tone measurement.

#include "../GraphTestSupport.h"

#include "Audio/Filters/CAudioFilterGen.h"
#include "Audio/Filters/CAudioFilterStageList.h"
#include "Audio/Filters/CDCDAWFilterWorkspace.h"
#include "Audio/Processes/CModResampler.h"

#include <complex>
#include <numbers>
#include <string>
#include <vector>

namespace qel {
extern const CResourceRow kOversamplingTestDefinitions[];
}

namespace qel::test {

using cplx = std::complex<double>;
constexpr double kPi = std::numbers::pi;

inline double db(double x) { return 20.0 * std::log10(x); }

// H(e^jw) of a polyphase half-band filter from its two all-pass chains: 0.5 (A(z^2) +
// z^-1 B(z^2)), each section (c + z^-2) / (1 + c z^-2).
inline cplx halfBand(const std::vector<double>& a, const std::vector<double>& b, double w)
{
    const cplx z1 = std::polar(1.0, -w);
    const cplx z2 = z1 * z1;
    cplx ha = 1.0, hb = 1.0;
    for (double c : a)
        ha *= (c + z2) / (1.0 + c * z2);
    for (double c : b)
        hb *= (c + z2) / (1.0 + c * z2);
    return 0.5 * (ha + z1 * hb);
}

// Amplitude and phase of the tone at `freq` in x[from, from + length), by projection; exact
// for whole cycles in the window.
struct Tone
{
    double amplitude = 0.0;
    double phase = 0.0; // of a cosine
    cplx value() const { return std::polar(amplitude, phase); }
};

inline Tone measureTone(const std::vector<double>& x, size_t from, size_t length, double freq, double rate)
{
    double re = 0.0, im = 0.0;
    for (size_t i = 0; i < length; ++i) {
        const double t = 2.0 * kPi * freq * double(i + from) / rate;
        re += x[from + i] * std::cos(t);
        im -= x[from + i] * std::sin(t);
    }
    const cplx c(re * 2.0 / double(length), im * 2.0 / double(length));
    return {std::abs(c), std::arg(c)};
}

inline std::vector<double> cosine(size_t length, double freq, double rate, double amplitude = 1.0)
{
    std::vector<double> x(length);
    for (size_t i = 0; i < length; ++i)
        x[i] = amplitude * std::cos(2.0 * kPi * freq * double(i) / rate);
    return x;
}

// in[from, to) through the graph in blocks of `blockLength`: all that came out, however long
// the output's blocks are; a channel without a buffer reads as NaN.
inline Signal runThrough(Graph& g, const Signal& in, int32_t blockLength, size_t from = 0, size_t to = SIZE_MAX)
{
    to = std::min(to, in[0].size());
    Signal out(in.size());
    for (size_t at = from; at < to;) {
        const auto n = int32_t(std::min<size_t>(size_t(blockLength), to - at));
        const std::vector<const double*> buffers = g.block(in, at, n);
        const int32_t m = g.output->blockLength();
        for (size_t c = 0; c < in.size(); ++c)
            for (int32_t i = 0; i < m; ++i)
                out[c].push_back(buffers[c] ? buffers[c][i] : std::numeric_limits<double>::quiet_NaN());
        at += size_t(n);
    }
    return out;
}

class OversamplingFixture : public GraphFixture
{
protected:
    OversamplingFixture() : GraphFixture(kOversamplingTestDefinitions) {}

    // The graph `defName` of the definition as plugin.modMain, wired to plugin.modOutput.
    Graph& buildMain(const char* defName, std::vector<int32_t> groups = {0}, double rate = 44100.0)
    {
        return build(defName, std::move(groups), rate, "plugin.modMain");
    }

    void setMain(const char* param, double value) { set((std::string("modMain.") + param).c_str(), value); }

    CModResampler& resampler(const char* name) { return m_graph->child<CModResampler>(name); }

    // The coefficients of a half-band generator of the product, as its stage holds them.
    static void halfBandCoefficients(const char* name, std::vector<double>& a, std::vector<double>& b)
    {
        const auto* gen = dynamic_cast<const CAudioFilterGen*>(
            CApplication::sharedRoot()->findObject(CString("audio.flt.").append(name)));
        ASSERT_NE(gen, nullptr) << name;
        CAudioFilterStageList list;
        CDCDAWFilterWorkspace workspace;
        gen->createFilter(workspace, 88200.0, CAudioFilterParams{}, list);
        ASSERT_EQ(list.count(), 1) << name;
        a.assign(list[0].b, list[0].b + list[0].bCount);
        b.assign(list[0].a, list[0].a + list[0].aCount);
    }
};

} // namespace qel::test

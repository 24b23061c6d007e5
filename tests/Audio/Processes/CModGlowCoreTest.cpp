// The harmonic stage against a scalar reference of its formulas, in a band as the product
// builds it (a filter stand-in, the stage fed by the band's unfiltered input), and in the
// chain of a group: input stage, band, output stage.

#include "SaturatorTestSupport.h"

#include "Audio/Processes/CModGlowCore.h"
#include "Audio/Processes/CModGlowCoreModule.h"
#include "Audio/Processes/CModSatEB.h"
#include "Audio/Processes/CModSatEBModule.h"

using namespace qel;
using namespace qel::test;

namespace {

constexpr double kRates[] = {44100.0, 48000.0, 96000.0, 192000.0};

class GlowCore : public SaturatorGraphs
{
protected:
    // What a band carries: the program through the input stage of the default mode.
    static std::vector<double> bandInput(double rate, double seconds, uint32_t seed = 1)
    {
        RefSatEB sat(kSatModes[8], dbToGain(6.0), rate);
        std::vector<double> x = program(rate, seconds, seed);
        for (double& v : x) {
            double e = 0.0;
            v = sat.input(v, e);
        }
        return x;
    }

    static std::vector<double> expectedBand(const GlowMode& mode, double rate, const std::vector<double>& in)
    {
        RefGlowCore ref(mode, rate);
        std::vector<double> out;
        for (const double u : in)
            out.push_back(ref.step(kBandGain * u, u));
        return out;
    }
};

// Every mode at every rate; also with the kernel that feeds back its own output and scales
// by the auto gain (which the product never selects), and with the feed inverted, which
// must read as a negative gain-V.
TEST_F(GlowCore, BandFollowsTheFormulasAtEveryRate)
{
    for (const double rate : kRates) {
        const Signal in = {bandInput(rate, 0.3, uint32_t(rate))};
        for (const GlowMode& base : kGlowModes) {
            for (const char* variant : {"plain", "second kernel", "inverted feed"}) {
                SCOPED_TRACE(std::string(base.name) + ", " + variant + " at " + std::to_string(rate) + " Hz");
                GlowMode mode = base, reference = base;
                if (variant[0] == 's')
                    mode.type = reference.type = 0.0;
                if (variant[0] == 'i') {
                    mode.feedFreqInv = 1.0;
                    reference.gainV = -reference.gainV;
                }
                Graph& g = build("glow", {0}, rate);
                setGlow("glow.modGlowCore", mode);
                EXPECT_LE(worstDeviation(play(g, in)[0], expectedBand(reference, rate, in[0])), 1e-12);
                const CModGlowCoreModule& stage = module<CModGlowCoreModule>("modGlowCore");
                EXPECT_EQ(stage.feedIndex(0), 0);
                EXPECT_EQ(stage.coeffs().isType1, mode.type == 1.0);
                EXPECT_GT(stage.coeffs().k, 0.0);
            }
        }
    }
}

// Unlinked, port 1 reads as silence: the blend rests at bias-V.
TEST_F(GlowCore, WithoutFeedTheBlendRests)
{
    const Signal in = {bandInput(48000.0, 0.1)};
    Graph& g = build("glowUnfed", {0}, 48000.0);
    setGlow("glowUnfed.modGlowCore", kGlowModes[0]);
    RefGlowCore ref(kGlowModes[0], 48000.0);
    std::vector<double> expected;
    for (const double a : in[0])
        expected.push_back(ref.step(a, 0.0));
    EXPECT_LE(worstDeviation(play(g, in)[0], expected), 1e-12);
    EXPECT_EQ(module<CModGlowCoreModule>("modGlowCore").feedIndex(0), -1);
}

TEST_F(GlowCore, CurvesFollowTheirEdgeCases)
{
    // A ratio of 1 keeps the slope at 0.9999, whose m is 0.9999 - 1 in double.
    const CGlowCoreCurve flat = CGlowCoreCurve::design(1.0, 4.0);
    EXPECT_EQ(flat.slope - 1.0, -9.999999999998899e-5);
    EXPECT_EQ(CGlowCoreCurve::design(0.99995, 4.0).slope, flat.slope);
    EXPECT_EQ(CGlowCoreCurve::design(0.002, 4.0).slope, 0.0);
    // Knee 0: the identity below 0, the slope from 0 up.
    const CGlowCoreCurve hard = CGlowCoreCurve::design(0.5, 0.0);
    EXPECT_EQ(hard.t, 0.0);
    EXPECT_EQ(hard.c, 0.0);
    EXPECT_EQ(hard(-2.0), -2.0);
    EXPECT_EQ(hard(3.0), 1.5);
    // The arc meets both lines: continuous at t and at e.
    for (const GlowMode& m : kGlowModes) {
        for (const auto& [ratio, knee] : {std::pair{m.ratioA, m.kneeA}, std::pair{m.ratioB, m.kneeB}}) {
            const CGlowCoreCurve k = CGlowCoreCurve::design(ratio, knee);
            const RefKnee ref(ratio, knee);
            for (double v = -40.0; v <= 40.0; v += 0.0625)
                ASSERT_EQ(k(v), ref(v)) << m.name << " at " << v;
            EXPECT_NEAR(k(std::nextafter(k.t, 1.0)), k.t, 1e-9) << m.name;
            EXPECT_NEAR(k(std::nextafter(k.e, -100.0)), k.slope * k.e, 1e-6 * std::fabs(k.e)) << m.name;
        }
    }
}

// The group's chain: input stage, a band with its harmonic stage, output stage, with the
// level passing the band on port 1 and the band's stage fed by the band's input.
TEST_F(GlowCore, ChainOfAGroupFollowsTheFormulas)
{
    size_t turn = 0;
    for (const double rate : kRates) {
        const Signal in = {program(rate, 0.4, 3)};
        for (int pass = 0; pass < 3; ++pass, ++turn) {
            const SatMode& sat = kSatModes[(turn * 4) % std::size(kSatModes)];
            const GlowMode& glow = kGlowModes[turn % std::size(kGlowModes)];
            const double drive = dbToGain(6.0 * double(turn % 4));
            SCOPED_TRACE(std::string(sat.name) + " / " + glow.name + " at " + std::to_string(rate) + " Hz");
            Graph& g = build("chain", {0}, rate);
            setSat("chain.modSatEB", sat, drive);
            setSat("chain.modSatEBOut", sat, drive);
            setGlow("chain.flt1.modGlowCore", glow);
            RefGlowCore band(glow, rate);
            EXPECT_LE(worstDeviation(play(g, in)[0], refChain(sat, drive, rate, in[0], &band)), 1e-12);
        }
    }
}

// A new rate: the one-pole starts from 0 and takes the new rate's coefficient.
TEST_F(GlowCore, NewRateStartsFromAClearedState)
{
    const GlowMode& mode = kGlowModes[4]; // Clean: 6 Hz, the slowest one-pole of the bank
    Graph& g = build("glow", {0}, 44100.0);
    setGlow("glow.modGlowCore", mode);
    play(g, {bandInput(44100.0, 0.2)});
    EXPECT_NE(module<CModGlowCoreModule>("modGlowCore").kernel(0).state(), 0.0);
    g.setFormat(192000.0, {0});
    const Signal in = {bandInput(192000.0, 0.2, 9)};
    EXPECT_LE(worstDeviation(play(g, in)[0], expectedBand(mode, 192000.0, in[0])), 1e-12);
}

// Silence noise after a signal keeps the output and the one-pole's state normal through the
// chain of the default saturator mode, which settles at 0.
TEST_F(GlowCore, SilenceAfterASignalStaysNormal)
{
    constexpr double kRate = 48000.0;
    const SatMode& sat = kSatModes[8];
    const double drive = dbToGain(18.0);
    for (const GlowMode& glow : kGlowModes) {
        SCOPED_TRACE(glow.name);
        Graph& g = build("chain", {0}, kRate);
        setSat("chain.modSatEB", sat, drive);
        setSat("chain.modSatEBOut", sat, drive);
        setGlow("chain.flt1.modGlowCore", glow);
        Signal in = {program(kRate, 0.3)};
        const size_t signalEnd = in[0].size();
        const std::vector<double> quiet = silenceNoise(size_t(3 * kRate));
        in[0].insert(in[0].end(), quiet.begin(), quiet.end());
        const Signal out = play(g, in);
        EXPECT_EQ(countSubnormals(out[0]), 0u);
        auto& band = dynamic_cast<CAudioProcess&>(*g.composite().findChild(CString("flt1")));
        const auto* stage = dynamic_cast<CModGlowCore*>(band.findChild(CString("modGlowCore")));
        ASSERT_NE(stage, nullptr);
        const double z = static_cast<const CModGlowCoreModule*>(stage->currentModule(0))->kernel(0).state();
        EXPECT_NE(std::fpclassify(z), FP_SUBNORMAL) << z;
        RefGlowCore ref(glow, kRate);
        EXPECT_LE(worstDeviation(out[0], refChain(sat, drive, kRate, in[0], &ref)), 1e-12);
        double tail = 0.0;
        for (size_t i = signalEnd + size_t(2 * kRate); i < out[0].size(); ++i)
            tail = std::max(tail, std::fabs(out[0][i]));
        EXPECT_LT(tail, 1e-8);
    }
}

// Exact zeros after a signal, with no flush-to-zero: the one-pole decays to 0 without
// passing through the subnormals, at each mode's corner.
TEST_F(GlowCore, DigitalSilenceLeavesNoSubnormalState)
{
    constexpr double kRate = 48000.0;
    for (const GlowMode& mode : kGlowModes) {
        SCOPED_TRACE(mode.name);
        Graph& g = build("glow", {0}, kRate);
        setGlow("glow.modGlowCore", mode);
        Signal in = {bandInput(kRate, 0.2)};
        in[0].resize(in[0].size() + size_t(8 * kRate), 0.0);
        const std::vector<double> out = play(g, in)[0];
        EXPECT_EQ(countSubnormals(out), 0u);
        EXPECT_EQ(module<CModGlowCoreModule>("modGlowCore").kernel(0).state(), 0.0);
        EXPECT_LE(worstDeviation(out, expectedBand(mode, kRate, in[0])), 1e-12);
    }
}

// Modes change every few blocks while a loud signal plays through the chain.
TEST_F(GlowCore, ParameterChangesWhilePlayingStayFinite)
{
    constexpr double kRate = 192000.0;
    Graph& g = build("chain", {0}, kRate);
    const Signal in = {program(kRate, 1.5, 21)};
    std::mt19937 rng(9);
    double peak = 0.0;
    for (size_t at = 0, turn = 0; at < in[0].size(); ++turn) {
        if (turn % 2 == 0) {
            GlowMode glow = kGlowModes[rng() % std::size(kGlowModes)];
            glow.type = turn % 10 == 0 ? 0.0 : 1.0;
            setGlow("chain.flt1.modGlowCore", glow);
        }
        if (turn % 5 == 0) {
            const SatMode& sat = kSatModes[rng() % std::size(kSatModes)];
            const double drive = dbToGain(double(rng() % 19));
            setSat("chain.modSatEB", sat, drive);
            setSat("chain.modSatEBOut", sat, drive);
        }
        const auto n = int32_t(std::min<size_t>(size_t(kBlockLengths[turn % std::size(kBlockLengths)]), in[0].size() - at));
        const double* out = g.block(in, at, n)[0];
        ASSERT_NE(out, nullptr);
        for (int32_t i = 0; i < n; ++i) {
            ASSERT_TRUE(std::isfinite(out[i])) << "sample " << at + size_t(i);
            peak = std::max(peak, std::fabs(out[i]));
        }
        at += size_t(n);
    }
    EXPECT_LT(peak, 50.0);
}

} // namespace

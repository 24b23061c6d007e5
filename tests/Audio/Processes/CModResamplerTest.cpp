// The resamplers' octave steps and the rate changers, on the product's own oversampling
// stages: the steps of each mode, what a change of mode keeps, latencies across the rate
// changers, and answers independent of how the host cuts its blocks.

#include "OversamplingTestSupport.h"

#include "Audio/CAudioProcessDefBase.h"
#include "Audio/Processes/CModDecimator.h"
#include "Audio/Processes/CModProcessSwitch.h"

#include <random>

using namespace qel;
using namespace qel::test;

namespace {

class Resampler : public OversamplingFixture
{
protected:
    // The steps of a resampler as "name:definition@rate-factor", rates of their inputs.
    std::string steps(CModResampler& r, double hostRate)
    {
        std::string text;
        for (int32_t i = 0; i < r.childCount(); ++i) {
            const CAudioProcessBase* child = r.childAt(i);
            const CString defName = child->def()->name();
            if (!text.empty())
                text += " ";
            text += r.childNameAt(i).toUtf8() + ":" + defName.toUtf8() + "@" +
                    std::to_string(int(std::lround(child->inputRate() / hostRate)));
        }
        return text;
    }
};

constexpr double kRate = 44100.0;

TEST(ResamplerOctaves, ModeAndAutoGiveTheOctaves)
{
    // Auto (0) follows the host's octaves; 1X to 8X stand for 0 to 3; halves round away
    // from zero and nothing leaves 0 to 3.
    EXPECT_EQ(CModResampler::octavesFor(0.0, 0.0), 0);
    EXPECT_EQ(CModResampler::octavesFor(0.0, 2.0), 2);
    EXPECT_EQ(CModResampler::octavesFor(0.4, 3.0), 3);
    EXPECT_EQ(CModResampler::octavesFor(1.0, 3.0), 0);
    EXPECT_EQ(CModResampler::octavesFor(2.0, 3.0), 1);
    EXPECT_EQ(CModResampler::octavesFor(2.5, 0.0), 2);
    EXPECT_EQ(CModResampler::octavesFor(4.0, 0.0), 3);
    EXPECT_EQ(CModResampler::octavesFor(9.0, 0.0), 3);
    EXPECT_EQ(CModResampler::octavesFor(0.0, 7.0), 3);
    EXPECT_EQ(CModResampler::octavesFor(0.0, -2.0), 0);
    EXPECT_EQ(CModResampler::octavesFor(std::nan(""), 1.0), 1);
}

TEST_F(Resampler, EachModeBuildsItsStepsAtTheHighRateEnd)
{
    Graph& g = buildMain("roundTrip");
    const Signal in = tones(1, 1024);
    struct Case
    {
        double mode;
        const char* up;
        const char* down;
    };
    const Case cases[] = {
        {1.0, "", ""},
        {2.0, "modInterpInterp:modUpsamplerInterpolator@1 modFilter:modUpsamplerFilterSteep@2",
         "modFilter:modDownsamplerFilterSteep@2 modInterpDec:modDownsamplerDecimator@2"},
        {4.0,
         "modInterpInterp:modUpsamplerInterpolator@1 modFilter:modUpsamplerFilterSteep@2 "
         "modInterpInterp:modUpsamplerInterpolator@2 modFilter:modResamplerFilterSoft@4 "
         "modInterpInterp:modUpsamplerInterpolator@4 modFilter:modResamplerFilterSoft@8",
         "modFilter:modResamplerFilterSoft@8 modInterpDec:modDownsamplerDecimator@8 "
         "modFilter:modResamplerFilterSoft@4 modInterpDec:modDownsamplerDecimator@4 "
         "modFilter:modDownsamplerFilterSteep@2 modInterpDec:modDownsamplerDecimator@2"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.mode);
        setMain("oversampling", c.mode);
        runThrough(g, in, 256);
        EXPECT_EQ(steps(resampler("modUpsampler"), kRate), c.up);
        EXPECT_EQ(steps(resampler("modDownsampler"), kRate), c.down);
        const int32_t octaves = int32_t(c.mode) - 1;
        EXPECT_EQ(resampler("modUpsampler").octaveCount(), octaves);
        // Between the two the signal runs at the oversampled rate; outside at the host's.
        EXPECT_DOUBLE_EQ(g.child<CAudioProcessBase>("modBetween").inputRate(), kRate * double(1 << octaves));
        EXPECT_DOUBLE_EQ(g.output->inputRate(), kRate);
    }
}

// Leaving 8X for 2X takes the high-rate steps away; the steep filter that stays goes on
// exactly as in a chain that was at 2X all the time.
TEST_F(Resampler, GoingDownKeepsTheOctavesThatRemainWithTheirState)
{
    const Signal in = tones(1, 6000);
    Signal reference;
    {
        Graph& g = buildMain("upOnly");
        setMain("oversampling", 2.0);
        reference = runThrough(g, in, 500);
    }
    Graph& g = buildMain("upOnly");
    setMain("oversampling", 4.0);
    runThrough(g, in, 500, 0, 3000);
    CModResampler& up = resampler("modUpsampler");
    CAudioProcessBase* steep = up.childAt(1);
    setMain("oversampling", 2.0);
    const Signal out = runThrough(g, in, 500, 3000, 6000);
    ASSERT_EQ(up.childCount(), 2);
    EXPECT_EQ(up.childAt(1), steep);
    ASSERT_EQ(out[0].size(), 6000u);
    for (size_t i = 0; i < out[0].size(); ++i)
        ASSERT_EQ(out[0][i], reference[0][6000 + i]) << i;

    // Going up again adds steps around the steep filter that stays.
    setMain("oversampling", 4.0);
    runThrough(g, in, 500, 0, 500);
    EXPECT_EQ(up.childCount(), 6);
    EXPECT_EQ(up.childAt(1), steep);
}

TEST_F(Resampler, TheAnswerDoesNotDependOnHowBlocksAreCut)
{
    const Signal in = tones(2, 3000);
    for (double mode : {2.0, 3.0, 4.0}) {
        SCOPED_TRACE(mode);
        Signal whole;
        {
            Graph& g = buildMain("roundTrip", {0, 0});
            setMain("oversampling", mode);
            whole = runThrough(g, in, 3000);
        }
        // One sample per block: every decimator still gets whole pairs, which the
        // interpolators made.
        Graph& g = buildMain("roundTrip", {0, 0});
        setMain("oversampling", mode);
        Signal cut(2);
        std::mt19937 random(7);
        const int32_t lengths[] = {1, 1, 3, 0, 64, 17, 1, 255, 512};
        for (size_t at = 0; at < 3000;) {
            const auto n = int32_t(std::min<size_t>(size_t(lengths[random() % std::size(lengths)]), 3000 - at));
            if (n == 0) {
                g.block(in, at, 0);
                continue;
            }
            const Signal part = runThrough(g, in, n, at, at + size_t(n));
            for (size_t c = 0; c < 2; ++c)
                cut[c].insert(cut[c].end(), part[c].begin(), part[c].end());
            at += size_t(n);
        }
        for (size_t c = 0; c < 2; ++c) {
            ASSERT_EQ(cut[c].size(), whole[c].size());
            for (size_t i = 0; i < whole[c].size(); ++i)
                ASSERT_EQ(cut[c][i], whole[c][i]) << c << " " << i;
        }
        EXPECT_EQ(g.output->port(0).channelCount, 2);
    }
}

// Two interpolators, a delay of L samples at four times the rate, two decimators: each
// sample comes out four times as loud (nothing filters the interpolators' zeros away) and
// as late as the decimators report, (L + (L & 1)) / 2 at each; but for the first, which
// the interpolators hand on as silence after their reset. Blocks double and halve.
TEST_F(Resampler, LatenciesCrossTheRateChangersExactly)
{
    const Signal in = tones(1, 37 * 22);
    for (int32_t latency = 0; latency <= 9; ++latency) {
        SCOPED_TRACE(latency);
        Graph& g = buildMain("rateChangers");
        setMain("between-latency", double(latency));
        const Signal out = runThrough(g, in, 37);
        ASSERT_EQ(out[0].size(), in[0].size());
        EXPECT_EQ(g.child<CAudioProcessBase>("up1").outputs().at(0)->blockLength, 2 * 37);
        EXPECT_EQ(g.child<CAudioProcessBase>("up2").outputs().at(0)->blockLength, 4 * 37);
        EXPECT_EQ(g.child<CAudioProcessBase>("down2").outputs().at(0)->blockLength, 2 * 37);
        const int32_t atTwice = (latency + (latency & 1)) / 2;
        const int32_t atHost = (atTwice + (atTwice & 1)) / 2;
        EXPECT_EQ(g.child<CAudioProcessBase>("up2").outputChannel(0).latency, 0);
        EXPECT_EQ(g.child<CAudioProcessBase>("down2").outputChannel(0).latency, atTwice);
        EXPECT_EQ(g.child<CAudioProcessBase>("down1").outputChannel(0).latency, atHost);
        EXPECT_EQ(g.child<CModDecimator>("down2").isDelayingOne(), (latency & 1) != 0);
        EXPECT_EQ(m_env->latency(), atHost);
        EXPECT_DOUBLE_EQ(g.child<CAudioProcessBase>("modBetween").inputRate(), 4.0 * kRate);
        for (size_t i = 0; i < out[0].size(); ++i) {
            if (i == size_t(atHost)) {
                // The first sample after a reset is silence.
                ASSERT_LT(std::fabs(out[0][i]), 1e-10);
                ASSERT_NE(out[0][i], 0.0);
                continue;
            }
            ASSERT_EQ(out[0][i], i < size_t(atHost) ? 0.0 : 4.0 * in[0][i - size_t(atHost)]) << i;
        }
    }
}

// Linear-phase FIRs add half their taps and a block at their rate: 330 + 64 up and 531 + 128
// down next to the host's rate, 32 + 32 further up, halved (rounded up) at each decimator.
// A tone comes back that late, unchanged.
TEST_F(Resampler, LinearPhaseStepsReportTheirLatencyAtTheHostsRate)
{
    Graph& g = buildMain("roundTrip");
    setMain("lp-oversampling-enable", 1.0);
    const Signal in{cosine(6000, 1000.0, kRate)};
    for (const auto& [mode, latency] : {std::pair{2.0, 527}, {3.0, 559}, {4.0, 575}, {1.0, 0}}) {
        SCOPED_TRACE(mode);
        setMain("oversampling", mode);
        const Signal out = runThrough(g, in, 512);
        EXPECT_EQ(m_env->latency(), latency);
        double worst = 0.0;
        for (size_t i = 3000; i < out[0].size(); ++i)
            worst = std::max(worst, std::fabs(out[0][i] - in[0][i - size_t(latency)]));
        // The filters' passband ripple at 1 kHz is far below a thousandth.
        EXPECT_LT(worst, 1e-3);
    }
}

// A resampler's step definitions are found by fixed paths; without one it says which.
TEST(ResamplerDefinitions, AMissingStepDefinitionFailsTheResampler)
{
    ASSERT_FALSE(CApplication::startup({kCoreCreatorRows, kAudioCreatorRows, kGraphTestCreatorRows},
                                       kOversamplingTestDefinitions, CString("OversamplingMissing.xml")));
    CObjectPtr root;
    ASSERT_FALSE(CApplication::initRootObject(root, CString()));
    CObject* made = nullptr;
    ASSERT_FALSE(root->createChild(made, CString("audio:audio-env"), CString("env"), false));
    auto* env = dynamic_cast<CAudioEnv*>(made);
    CSampleBufferPool pool;
    const auto* def =
        dynamic_cast<const CAudioProcessDefBase*>(CApplication::sharedRoot()->findObject(CString("audio.modUpsampler")));
    ASSERT_NE(def, nullptr);
    CAudioProcessBase* process = nullptr;
    CErrorPtr error = def->createProcess(process, nullptr, CString("plugin.modUpsampler"), env, 0, 0, &pool, false, false);
    EXPECT_EQ(process, nullptr);
    ASSERT_TRUE(error);
    EXPECT_NE(error->text().toUtf8().find("Unable to find object 'shared::audio.modUpsamplerInterpolator'"),
              std::string::npos)
        << error->text().toUtf8();
    root.reset();
    CApplication::finalize();
}

} // namespace

// The saturator's two stages against a scalar reference of their formulas, through the
// real graph.

#include "SaturatorTestSupport.h"

#include "Audio/Processes/CModSatEB.h"
#include "Audio/Processes/CModSatEBModule.h"

using namespace qel;
using namespace qel::test;

namespace {

constexpr double kRates[] = {44100.0, 48000.0, 96000.0, 192000.0};
// sateb-drive at 0, 6, 12 and 18 dB.
const double kDrives[] = {1.0, dbToGain(6.0), dbToGain(12.0), dbToGain(18.0)};

using SatEB = SaturatorGraphs;

// Every mode at every rate, through both stages; the input stage's signal and level alone too.
TEST_F(SatEB, StagesFollowTheFormulasAtEveryRate)
{
    size_t turn = 0;
    for (const double rate : kRates) {
        const Signal in = {program(rate, 0.3, uint32_t(rate))};
        for (const SatMode& mode : kSatModes) {
            const double drive = kDrives[turn++ % std::size(kDrives)];
            SCOPED_TRACE(std::string(mode.name) + " at " + std::to_string(rate) + " Hz, drive " + std::to_string(drive));
            RefSatEB first(mode, drive, rate);
            const RefSatEB second(mode, drive, rate);
            std::vector<double> expectedSignal, expectedLevel, expectedOut;
            for (const double x : in[0]) {
                double e = 0.0;
                const double z = first.input(x, e);
                expectedSignal.push_back(z);
                expectedLevel.push_back(e);
                expectedOut.push_back(second.output(z, e));
            }

            Graph& input = build("input", {0}, rate);
            setSat("input.modSatEB", mode, drive);
            EXPECT_LE(worstDeviation(play(input, in)[0], expectedSignal), 1e-12);
            EXPECT_EQ(module<CModSatEBModule>("modSatEB").kernel(0).length(), first.N);

            Graph& level = build("level", {0}, rate);
            setSat("level.modSatEB", mode, drive);
            EXPECT_LE(worstDeviation(play(level, in)[0], expectedLevel), 1e-12);

            Graph& pair = build("pair", {0}, rate);
            setSat("pair.modSatEB", mode, drive);
            setSat("pair.modSatEBOut", mode, drive);
            EXPECT_LE(worstDeviation(play(pair, in)[0], expectedOut), 1e-12);
            EXPECT_EQ(module<CModSatEBModule>("modSatEBOut").levelIndex(0), 0);
        }
    }
}

// The level goes out on port 1 in its channel's group and at its latency; the output stage
// finds it by key and group, so two groups with settings of their own meet their own level.
TEST_F(SatEB, LevelTravelsOnPortOneByKeyAndGroup)
{
    constexpr double kRate = 48000.0;
    Graph& g = build("pair", {0, 1}, kRate);
    const SatMode& warm = kSatModes[8];
    const SatMode& hard = kSatModes[2];
    setSat("pair.modSatEB", warm, kDrives[1], 0);
    setSat("pair.modSatEBOut", warm, kDrives[1], 0);
    setSat("pair.modSatEB", hard, kDrives[3], 1);
    setSat("pair.modSatEBOut", hard, kDrives[3], 1);
    const Signal in = {program(kRate, 0.3, 7), program(kRate, 0.3, 8)};
    const Signal out = play(g, in);

    const auto& stage = g.child<CModSatEB>("modSatEB");
    ASSERT_EQ(stage.outputChannelCount(), 4);
    int32_t pairs = 0;
    for (int32_t i = 0; i < stage.outputChannelCount(); ++i)
        for (int32_t j = 0; j < stage.outputChannelCount(); ++j) {
            const CAudioStream::CChannel& level = stage.outputChannel(i);
            const CAudioStream::CChannel& signal = stage.outputChannel(j);
            if (level.port == 1 && signal.port == 0 && signal.channel == level.channel) {
                ++pairs;
                EXPECT_EQ(level.group, signal.group);
                EXPECT_EQ(level.latency, signal.latency);
            }
        }
    EXPECT_EQ(pairs, 2);
    const auto& second = g.child<CModSatEB>("modSatEBOut");
    EXPECT_EQ(second.port(1).channelCount, 2);
    EXPECT_EQ(second.outputChannelCount(), 2);

    EXPECT_LE(worstDeviation(out[0], refChain(warm, kDrives[1], kRate, in[0])), 1e-12);
    EXPECT_LE(worstDeviation(out[1], refChain(hard, kDrives[3], kRate, in[1])), 1e-12);
}

TEST_F(SatEB, OutputStageWithoutLevelWritesZeros)
{
    Graph& g = build("unfed", {0, 0}, 48000.0);
    const Signal in = {program(48000.0, 0.05), program(48000.0, 0.05, 3)};
    const Signal out = play(g, in);
    for (const auto& channel : out) {
        ASSERT_EQ(channel.size(), in[0].size());
        EXPECT_TRUE(std::all_of(channel.begin(), channel.end(), [](double v) { return v == 0.0 && !std::signbit(v); }));
    }
    EXPECT_EQ(module<CModSatEBModule>("modSatEBOut").levelIndex(0), -1);
}

// A new rate: the window starts empty at the new length, as in a stage that never played.
TEST_F(SatEB, NewRateStartsTheWindowAfresh)
{
    const SatMode& mode = kSatModes[1]; // Crisp: a long window, still filling when the rate changes
    const double drive = kDrives[2];
    Graph& g = build("pair", {0}, 48000.0);
    setSat("pair.modSatEB", mode, drive);
    setSat("pair.modSatEBOut", mode, drive);
    play(g, {program(48000.0, 0.2)});
    EXPECT_EQ(module<CModSatEBModule>("modSatEB").kernel(0).length(), 4877); // 0.1016 s at 48 kHz

    g.setFormat(96000.0, {0});
    const Signal in = {program(96000.0, 0.3, 5)};
    EXPECT_LE(worstDeviation(play(g, in)[0], refChain(mode, drive, 96000.0, in[0])), 1e-12);
    EXPECT_EQ(module<CModSatEBModule>("modSatEB").kernel(0).length(), 9754);
}

// Hundreds of times full scale drives bias plus signal past the shift, where the curve is its
// parabola alone, in both stages and every lane of the output stage.
TEST_F(SatEB, BeyondTheShiftTheCurveIsItsParabola)
{
    constexpr double kRate = 48000.0;
    const SatMode& warm = kSatModes[8];
    Graph& g = build("pair", {0}, kRate);
    setSat("pair.modSatEB", warm, kDrives[3]);
    setSat("pair.modSatEBOut", warm, kDrives[3]);
    Signal in = {program(kRate, 0.3, 9)};
    for (double& x : in[0])
        x *= 400.0;
    RefSatEB first(warm, kDrives[3], kRate);
    const RefSatEB second(warm, kDrives[3], kRate);
    std::vector<double> expected;
    size_t beyond = 0;
    for (const double x : in[0]) {
        double e = 0.0;
        const double z = first.input(x, e);
        beyond += second.cb - second.y0 + second.p.biasGain * e + z * second.invOutGain > warm.shift ? 1 : 0;
        expected.push_back(second.output(z, e));
    }
    EXPECT_GT(beyond, 1000u);
    EXPECT_LE(worstDeviation(play(g, in)[0], expected), 1e-12);
}

// Silence after a signal (silence noise or zeros) leaves no subnormal in the output or the
// window's sum; at rest the pair gives what 15 passes of y0 leave, for Warm nothing.
TEST_F(SatEB, SilenceAfterASignalStaysNormal)
{
    constexpr double kRate = 48000.0;
    for (const bool isNoise : {true, false}) {
        for (const SatMode& mode : kSatModes) {
            SCOPED_TRACE(std::string(mode.name) + (isNoise ? " into silence noise" : " into zeros"));
            Graph& g = build("pair", {0}, kRate);
            setSat("pair.modSatEB", mode, kDrives[3]);
            setSat("pair.modSatEBOut", mode, kDrives[3]);
            Signal in = {program(kRate, 0.3)};
            const size_t signalEnd = in[0].size();
            const std::vector<double> quiet = isNoise ? silenceNoise(size_t(kRate)) : std::vector<double>(size_t(kRate), 0.0);
            in[0].insert(in[0].end(), quiet.begin(), quiet.end());
            const Signal out = play(g, in);
            EXPECT_EQ(countSubnormals(out[0]), 0u);
            const CSatEBKernel& window = module<CModSatEBModule>("modSatEB").kernel(0);
            EXPECT_EQ(std::fpclassify(window.sum()), FP_NORMAL);
            EXPECT_LE(worstDeviation(out[0], refChain(mode, kDrives[3], kRate, in[0])), 1e-12);
            if (std::string(mode.name) == "Warm") {
                // The window has forgotten the signal for the last half second.
                double tail = 0.0;
                for (size_t i = signalEnd + size_t(kRate / 2); i < out[0].size(); ++i)
                    tail = std::max(tail, std::fabs(out[0][i]));
                EXPECT_LT(tail, 1e-9);
            }
        }
    }
}

// Modes and drive change every few blocks of a loud signal, each fading to fresh modules:
// all finite and in scale, and once warm no change takes heap memory (rings fit any window).
TEST_F(SatEB, ParameterChangesWhilePlayingStayFinite)
{
    constexpr double kRate = 96000.0;
    Graph& g = build("pair", {0, 0}, kRate);
    const std::vector<double> tone = program(kRate, 2.0, 11);
    const Signal in = {tone, std::vector<double>(tone.rbegin(), tone.rend())};
    std::mt19937 rng(5);
    const CAudioModule* first = g.child<CModSatEB>("modSatEB").currentModule(0);
    size_t fades = 0;
    double peak = 0.0;
    int64_t warmAllocations = -1;
    for (size_t at = 0, turn = 0; at < tone.size(); ++turn) {
        if (turn == 60)
            warmAllocations = g.pool.systemAllocations();
        if (turn % 3 == 0) {
            const SatMode& mode = kSatModes[rng() % std::size(kSatModes)];
            const double drive = kDrives[rng() % std::size(kDrives)];
            setSat("pair.modSatEB", mode, drive);
            setSat("pair.modSatEBOut", mode, drive);
        }
        // Whole blocks only: a last one of a new length would take a buffer of a new size.
        const int32_t n = kBlockLengths[turn % std::size(kBlockLengths)];
        if (at + size_t(n) > tone.size())
            break;
        const std::vector<const double*> out = g.block(in, at, n);
        for (const double* channel : out) {
            ASSERT_NE(channel, nullptr);
            for (int32_t i = 0; i < n; ++i) {
                ASSERT_TRUE(std::isfinite(channel[i])) << "sample " << at + size_t(i);
                peak = std::max(peak, std::fabs(channel[i]));
            }
        }
        fades += g.child<CModSatEB>("modSatEB").isFading(0) ? 1 : 0;
        at += size_t(n);
    }
    EXPECT_EQ(g.pool.systemAllocations(), warmAllocations);
    EXPECT_GT(fades, 10u);
    EXPECT_NE(g.child<CModSatEB>("modSatEB").currentModule(0), first);
    EXPECT_LT(peak, 20.0);
}

// The laws of the derived values, on the module's own coefficients.
TEST_F(SatEB, UpdateDerivesItsValuesByTheirLaws)
{
    Graph& g = build("input", {0}, 96000.0);
    const SatMode& warm = kSatModes[8];
    setSat("input.modSatEB", warm, 1.0);
    play(g, {std::vector<double>(64, 0.0)});
    const CModSatEBModule& stage = module<CModSatEBModule>("modSatEB");
    // 0 dB of drive: nothing to take back, the output gain is the make-up gain, inverted.
    EXPECT_EQ(stage.coeffs().outGain, -warm.makeupGain);
    EXPECT_EQ(stage.coeffs().invOutGain, 1.0 / warm.makeupGain);

    // A make-up correction of 0 takes back the drive exactly; -5.5 % takes back 105.5 % of it.
    SatMode plain = warm;
    plain.makeupCorr = 0.0;
    setSat("input.modSatEB", plain, kDrives[3]);
    play(g, {std::vector<double>(64, 0.0)});
    EXPECT_NEAR(module<CModSatEBModule>("modSatEB").coeffs().outGain, -warm.makeupGain / kDrives[3], 1e-15);
    plain.makeupCorr = -0.055;
    setSat("input.modSatEB", plain, kDrives[3]);
    play(g, {std::vector<double>(2048, 0.0)});
    const CSatEBCoeffs& k = module<CModSatEBModule>("modSatEB").coeffs();
    EXPECT_NEAR(20.0 * std::log10(-k.outGain / warm.makeupGain), -1.055 * 18.0, 1e-12);

    // The resting point: 15 passes from the silence level, the same as the reference's.
    const RefSatEB ref(plain, kDrives[3], 96000.0);
    EXPECT_EQ(k.y0, ref.y0);
    EXPECT_EQ(k.y0out, ref.y0out);
    EXPECT_EQ(k.cb, kDrives[3] * plain.constBias);
}

} // namespace

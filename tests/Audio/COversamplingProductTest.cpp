// Oversampling in the product, through the wrapper as a host drives it: the aliasing that
// each octave takes away, the latency the host is told and the one it gets, changes of
// mode while audio runs, and the whole chain at 1.536 MHz.

#include "Processes/OversamplingTestSupport.h"
#include "WrapperTestSupport.h"

#include "Audio/CAudioParamCollector.h"
#include "Audio/Filters/CAudioFilterGenArray.h"
#include "Audio/Filters/CDCDAWKernelSet.h"
#include "Audio/Processes/CModResampler.h"
#include "Core/CAppData.h"

#include <random>
#include <tuple>

using namespace qel;
using namespace qel::test;

namespace {

constexpr const char* kOversampling = "plugin.modMain.oversampling";
constexpr const char* kLinearPhase = "plugin.modMain.lp-oversampling-enable";
constexpr const char* kBandGain = "plugin.modMain.modDLC73.eq-params.gain";
constexpr const char* kBypass = "plugin.modMain.bypass-enable";

class ProductOversampling : public ::testing::Test
{
protected:
    ProductOversampling() : m_app(kProductResourceRows, "SharedData.xml") {}

    // The linear-phase setting lives in the user's store: it goes back to its default.
    void TearDown() override
    {
        if (auto w = startedWrapper())
            w->set(kLinearPhase, 0.0);
    }

    std::unique_ptr<TestWrapper> product(double rate)
    {
        auto w = startedWrapper();
        if (w) {
            m_setup = HostSetup{true, 2, 2, rate};
            prepare(*w, m_setup);
        }
        return w;
    }

    // The same signal on both channels, in blocks of 512.
    Signal run(TestWrapper& w, const std::vector<double>& x) { return processAll(w, m_setup, Signal{x, x}, {512}); }
    double onsetPeak(double mode);

    ScopedApplication m_app;
    HostSetup m_setup;
};

// Amplitude of the tone at `freq` in x[from, from + length) through a Hann window (exact
// for whole cycles; an offset or a tone two bins away stays out).
double hannAmplitude(const std::vector<double>& x, size_t from, size_t length, double freq, double rate)
{
    double re = 0.0, im = 0.0;
    for (size_t i = 0; i < length; ++i) {
        const double w = 0.5 - 0.5 * std::cos(2.0 * kPi * double(i) / double(length));
        const double t = 2.0 * kPi * freq * double(i) / rate;
        re += w * x[from + i] * std::cos(t);
        im += w * x[from + i] * std::sin(t);
    }
    return 2.0 * std::hypot(re, im) / (0.5 * double(length));
}

// A full-scale 15 kHz tone, bands at +9 dB: its harmonics all lie above the host's band,
// so anything at another multiple of 300 Hz has folded back; each octave must lower it.
TEST_F(ProductOversampling, EachOctaveLowersTheAliasesOfAToneAtFullScale)
{
    constexpr double kRate = 44100.0;
    constexpr size_t kSettle = 22050;
    constexpr size_t kWindow = 8820;
    const std::vector<double> x = cosine(kSettle + kWindow, 15000.0, kRate);
    double previous = 1e9;
    const char* names[] = {"", "1X", "2X", "4X", "8X"};
    for (double mode : {1.0, 2.0, 3.0, 4.0}) {
        SCOPED_TRACE(names[int(mode)]);
        auto w = product(kRate);
        ASSERT_TRUE(w);
        w->set(kBandGain, std::pow(10.0, 9.0 / 20.0));
        w->set(kOversampling, mode);
        const Signal out = run(*w, x);
        EXPECT_EQ(w->child<CModResampler>("modUpsampler")->octaveCount(), mode > 1.0 ? int32_t(mode) - 1 : 0);
        const double tone = hannAmplitude(out[0], kSettle, kWindow, 15000.0, kRate);
        double power = 0.0, strongest = 0.0, strongestAt = 0.0;
        for (double f = 300.0; f < kRate / 2.0; f += 300.0) {
            if (f == 15000.0)
                continue;
            const double a = hannAmplitude(out[0], kSettle, kWindow, f, kRate);
            power += a * a;
            if (a > strongest) {
                strongest = a;
                strongestAt = f;
            }
        }
        const double aliases = db(std::sqrt(power) / tone);
        std::printf("[ aliases  ] %s: tone %.1f dBFS, aliases together %.1f dBc, strongest %.1f dBc at %.0f Hz\n",
                    names[int(mode)], db(tone), aliases, db(strongest / tone), strongestAt);
        EXPECT_LT(aliases, previous - 6.0);
        previous = aliases;
        for (double s : out[0])
            ASSERT_TRUE(std::isfinite(s));
    }
}

// The latency the host is told is the one it gets: exactly, for an impulse through the
// bypass; at the processed path's peak, 584 with linear phase at any mode and rate, and
// within the half-bands' group delay without it.
TEST_F(ProductOversampling, TheReportedLatencyIsWhereAnImpulseArrives)
{
    constexpr size_t kLength = 1024;
    constexpr size_t kAt = 256;
    for (double rate : {44100.0, 48000.0, 96000.0, 192000.0, 384000.0, 768000.0}) {
        const size_t kSettle = rate > 192000.0 ? 16384 : 4096;
        auto w = product(rate);
        ASSERT_TRUE(w);
        for (double linear : {0.0, 1.0}) {
            for (double mode : {1.0, 2.0, 3.0, 4.0}) {
                SCOPED_TRACE(std::to_string(rate) + " Hz, linear phase " + std::to_string(linear) + ", mode " +
                             std::to_string(mode));
                w->set(kLinearPhase, linear);
                w->set(kOversampling, mode);
                const int32_t expected = linear > 0.0 ? 584 : 0;
                for (double bypass : {1.0, 0.0}) {
                    w->set(kBypass, bypass);
                    // Settle past the bypass's and the alignment's 0.015 s fades.
                    run(*w, std::vector<double>(kSettle, 0.0));
                    EXPECT_EQ(w->queryLatency(), expected);
                    std::vector<double> x(kLength, 0.0);
                    x[kAt] = bypass > 0.0 ? 1.0 : 0.01;
                    const Signal out = run(*w, x);
                    size_t peak = 0;
                    for (size_t i = 0; i < kLength; ++i)
                        if (std::fabs(out[0][i]) > std::fabs(out[0][peak]))
                            peak = i;
                    const auto arrival = int32_t(peak) - int32_t(kAt);
                    if (bypass > 0.0) {
                        for (size_t i = 0; i < kLength; ++i)
                            ASSERT_EQ(out[0][i], i == kAt + size_t(expected) ? 1.0 : 0.0) << i;
                    } else if (linear > 0.0) {
                        EXPECT_NEAR(arrival, expected, 1);
                    } else {
                        EXPECT_GE(arrival, 0);
                        EXPECT_LT(arrival, 24);
                    }
                    if (bypass == 0.0)
                        std::printf("[ latency  ] %6.0f Hz %s %dX: reported %d, impulse peak after %d\n", rate,
                                    linear > 0.0 ? "linear " : "minimum", 1 << (int(mode) - 1), w->queryLatency(),
                                    arrival);
                }
            }
        }
    }
}

// The highest sample of a 1 kHz tone at half scale that starts at its crest, after
// silence, through a fresh product at 44.1 kHz in that mode.
double ProductOversampling::onsetPeak(double mode)
{
    auto w = product(44100.0);
    EXPECT_TRUE(w);
    if (!w)
        return 0.0;
    w->set(kOversampling, mode);
    std::vector<double> x(4410, 0.0);
    const std::vector<double> tone = cosine(2205, 1000.0, 44100.0, 0.5);
    std::copy(tone.begin(), tone.end(), x.begin() + 2205);
    const Signal out = run(*w, x);
    double peak = 0.0;
    for (double s : out[0])
        peak = std::max(peak, std::fabs(s));
    return peak;
}

// A mode change while a tone plays restarts the inner chain cleared, without crossfade:
// a short silence, no overshoot beyond a start from silence, the level back within ms.
TEST_F(ProductOversampling, ModeChangesWhilePlayingStayWithinTheTone)
{
    constexpr double kRate = 44100.0;
    constexpr size_t kStretch = 4410;
    const double modes[] = {1.0, 2.0, 3.0, 4.0, 2.0, 4.0, 1.0, 3.0, 0.0, 4.0, 1.0};
    const std::vector<double> tone = cosine(kStretch * std::size(modes), 1000.0, kRate, 0.5);
    const Signal in{tone, tone};
    for (double linear : {0.0, 1.0}) {
        auto w = product(kRate);
        ASSERT_TRUE(w);
        w->set(kLinearPhase, linear);
        // With linear phase the pad restarts empty: the silence lasts the latency.
        const size_t latency = linear > 0.0 ? 584 : 0;
        std::vector<double> out;
        constexpr int32_t kBlock = 441;
        for (size_t k = 0; k < std::size(modes); ++k) {
            w->set(kOversampling, modes[k]);
            for (size_t at = k * kStretch; at < (k + 1) * kStretch; at += kBlock) {
                const Signal block = processOne(*w, m_setup, in, at, kBlock);
                out.insert(out.end(), block[0].begin(), block[0].end());
            }
        }
        for (double s : out)
            ASSERT_TRUE(std::isfinite(s));
        // The tone's level at 1X once settled.
        double steady = 0.0;
        for (size_t i = kStretch / 2; i < kStretch; ++i)
            steady = std::max(steady, std::fabs(out[i]));
        for (size_t k = 1; k < std::size(modes); ++k) {
            const size_t from = k * kStretch;
            SCOPED_TRACE(std::to_string(modes[k]) + (linear > 0.0 ? " linear phase" : " minimum phase"));
            double peak = 0.0;
            size_t back = kStretch;
            for (size_t i = from; i < from + kStretch; ++i)
                peak = std::max(peak, std::fabs(out[i]));
            // The instant of the switch: the filters of the new chain start from nothing.
            size_t quiet = 0;
            while (quiet < latency + 64 && std::fabs(out[from + quiet]) < 0.01 * steady)
                ++quiet;
            // Back: from where on every cycle (44.1 samples) reaches the tone's level within 1 dB.
            for (size_t i = from + kStretch - 45; i >= from; --i) {
                double cycle = 0.0;
                for (size_t j = i; j < i + 45; ++j)
                    cycle = std::max(cycle, std::fabs(out[j]));
                if (cycle < steady * 0.891 || cycle > steady * 1.122)
                    break;
                back = i - from;
                if (i == from)
                    break;
            }
            const double onset = onsetPeak(modes[k]);
            std::printf("[ switch   ] %s, to mode %.0f: %zu samples silent, peak %.2f of the tone (%.2f of a start "
                        "from silence), back within 1 dB after %zu\n",
                        linear > 0.0 ? "linear phase " : "minimum phase", modes[k], quiet, peak / steady, peak / onset, back);
            EXPECT_LE(quiet, latency + 8);
            // About a start at the crest from silence (the 1 Hz high-pass's restart and a
            // stage's moment of the old rate add a third at most); a seeded or lost sample
            // would give several times the tone.
            EXPECT_LT(peak, 1.3 * onset);
            EXPECT_LT(peak, 1.4 * steady);
            EXPECT_LT(back, latency + 88);
        }
    }
}

// Linear phase on and off at 1X during a tone fades the 584-sample pad in and out: the
// output never steps further between samples than the tone does (a jump would click).
TEST_F(ProductOversampling, TheLatencyPadFadesInAndOutWithLinearPhase)
{
    constexpr double kRate = 44100.0;
    constexpr size_t kStretch = 8820;
    const std::vector<double> tone = cosine(kStretch * 3, 1000.0, kRate, 0.5);
    const Signal in{tone, tone};
    auto w = product(kRate);
    ASSERT_TRUE(w);
    w->set(kOversampling, 1.0);
    std::vector<double> out;
    for (size_t k = 0; k < 3; ++k) {
        w->set(kLinearPhase, k == 1 ? 1.0 : 0.0);
        for (size_t at = k * kStretch; at < (k + 1) * kStretch; at += 441) {
            const Signal block = processOne(*w, m_setup, in, at, 441);
            out.insert(out.end(), block[0].begin(), block[0].end());
        }
        EXPECT_EQ(w->queryLatency(), k == 1 ? 584 : 0);
    }
    const auto largestStep = [&](size_t from, size_t to) {
        double step = 0.0;
        for (size_t i = from + 1; i < to; ++i)
            step = std::max(step, std::fabs(out[i] - out[i - 1]));
        return step;
    };
    const double steady = largestStep(kStretch / 2, kStretch);
    ASSERT_GT(steady, 0.05);
    // The fade's own slope adds (pi / 2N) of the difference of the two phases at most.
    EXPECT_LT(largestStep(kStretch, 3 * kStretch), 1.05 * steady);
    // Until the pad fills the tone goes on undelayed (the 1 Hz high-pass still settles).
    for (size_t i = kStretch; i < kStretch + 584; ++i)
        ASSERT_NEAR(out[i], out[i - 882], 1e-3) << i;
}

// 8X at 192 kHz runs the inner chain at 1.536 MHz: every generator designs there at its
// ranges' ends, stable and bounded on an impulse and noise; the product sounds as at 1X.
TEST_F(ProductOversampling, EveryGeneratorAndStageHoldsAt1536kHz)
{
    constexpr double kTop = 1536000.0;
    std::mt19937 random(3);
    std::uniform_real_distribution<double> noise(-0.5, 0.5);
    std::vector<double> x(30000);
    for (double& v : x)
        v = noise(random);
    x[0] = 1.0;
    const auto gains = {std::pow(10.0, -48.0 / 20.0), std::pow(10.0, -3.0 / 20.0), 1.0, std::pow(10.0, 9.0 / 20.0),
                        std::pow(10.0, 48.0 / 20.0)};
    struct Design
    {
        const char* array;
        int32_t index;
        std::vector<const char*> names;
        std::vector<double> values;
    };
    std::vector<Design> designs;
    for (int32_t index = 0; index <= 3; ++index)
        for (double f : {20.0, 1000.0, 21000.0})
            for (double g : gains)
                for (double bw : {0.01, 1.15, 7.0})
                    designs.push_back({"audio.dlcfilters", index, {"freq", "gain", "bw"}, {f, g, bw}});
    for (int32_t index = 0; index <= 2; ++index)
        for (double f : {1.0, 20.0, 21000.0})
            designs.push_back({"audio.fltarray.hp1", index, {"freq"}, {f}});
    for (int32_t index = 0; index <= 1; ++index)
        designs.push_back({"audio.fltarray.hbf-oversample", index, {}, {}});

    int32_t stagesRun = 0;
    for (const Design& d : designs) {
        const auto* array =
            dynamic_cast<const CAudioFilterGenArray*>(CApplication::sharedRoot()->findObject(CString(d.array)));
        ASSERT_NE(array, nullptr) << d.array;
        const CAudioFilterGen* gen = array->find(d.index);
        if (!gen)
            continue;
        CAudioFilterParamNames names;
        for (const char* name : d.names)
            names.add(name);
        CAudioFilterStageList stages;
        CDCDAWFilterWorkspace workspace;
        gen->createFilter(workspace, kTop, CAudioFilterParams{&names, d.values.data(), int32_t(d.values.size())}, stages);
        for (int32_t i = 0; i < stages.count(); ++i) {
            SCOPED_TRACE(std::string(d.array) + " " + std::to_string(d.index) + " stage " + std::to_string(i));
            const CAudioFilterStage& stage = stages[i];
            ASSERT_TRUE(stage.kernels && stage.kernels->process);
            for (int32_t k = 0; k < stage.bCount; ++k)
                ASSERT_TRUE(std::isfinite(stage.b[k]));
            for (int32_t k = 0; k < stage.aCount; ++k)
                ASSERT_TRUE(std::isfinite(stage.a[k]));
            // Stable: a biquad's poles inside the unit circle (triangle conditions on a1, a2),
            // a one-pole's coefficient in (0, 1], a half-band's all-passes in [0, 1).
            const bool isOnePole = stage.kernels == &dcdaw::kLowPass1 || stage.kernels == &dcdaw::kHighPass1 ||
                                   stage.kernels == &dcdaw::kHighPass1Gain;
            if (isOnePole) {
                EXPECT_GT(stage.b[0], 0.0);
                EXPECT_LE(stage.b[0], 1.0);
            } else if (stage.bCount == 3 && stage.aCount == 2) {
                EXPECT_LT(std::fabs(stage.a[1]), 1.0);
                EXPECT_LT(std::fabs(stage.a[0]), 1.0 + stage.a[1]);
            } else {
                for (int32_t k = 0; k < stage.aCount; ++k)
                    EXPECT_TRUE(stage.a[k] >= 0.0 && stage.a[k] < 1.0 && stage.b[k] >= 0.0 && stage.b[k] < 1.0);
            }
            CDCDAWStageState state;
            stage.kernels->init(state, stage, kTop);
            std::vector<double> y(x.size());
            stage.kernels->process(state, x.data(), y.data(), int32_t(x.size()));
            // The loudest, a narrow +48 dB shelf, stays far below 1e5.
            for (double v : y)
                ASSERT_TRUE(std::isfinite(v) && std::fabs(v) < 1e5) << v;
            ++stagesRun;
        }
    }
    // None declines: 135 band designs, 3 + 2 * 3 one-poles, two half-bands.
    EXPECT_EQ(stagesRun, 135 + 9 + 2);

    // The linear-phase designs, as if the rate were not fixed: taps that sum to one.
    const auto* firArray =
        dynamic_cast<const CAudioFilterGenArray*>(CApplication::sharedRoot()->findObject(CString("audio.fltarray.firlp")));
    ASSERT_NE(firArray, nullptr);
    for (const auto& [length, freq, beta] : {std::tuple{0.015, 11025.0, 18.0}, std::tuple{0.024, 10980.0, 18.0},
                                             std::tuple{0.0016, 12000.0, 18.4}}) {
        CAudioFilterParamNames names;
        for (const char* name : {"length", "freq", "beta"})
            names.add(name);
        const double values[] = {length, freq, beta};
        CAudioFilterStageList stages;
        CDCDAWFilterWorkspace workspace;
        firArray->find(0)->createFilter(workspace, kTop, CAudioFilterParams{&names, values, 3}, stages);
        ASSERT_EQ(stages.count(), 1);
        const double* taps = stages.taps(stages[0]);
        double sum = 0.0;
        for (int32_t k = 0; k < stages[0].tapCount; ++k) {
            ASSERT_TRUE(std::isfinite(taps[k]));
            sum += taps[k];
        }
        EXPECT_NEAR(sum, 1.0, 1e-3) << stages[0].tapCount << " taps";
    }

    // The product at 8X and at 1X on the same music-like signal: finite, and as loud.
    double rms[2] = {};
    for (int32_t which = 0; which < 2; ++which) {
        auto w = product(192000.0);
        ASSERT_TRUE(w);
        w->set(kOversampling, which == 0 ? 4.0 : 1.0);
        w->set(kBandGain, std::pow(10.0, 6.0 / 20.0));
        std::vector<double> music(38400);
        for (size_t i = 0; i < music.size(); ++i)
            music[i] = 0.4 * std::sin(2.0 * kPi * 220.0 * double(i) / 192000.0) +
                       0.2 * std::sin(2.0 * kPi * 3100.0 * double(i) / 192000.0) + 0.1 * noise(random);
        const Signal out = run(*w, music);
        if (which == 0) {
            auto* chains = w->child<CAudioProcessBase>("modDLC73");
            ASSERT_NE(chains, nullptr);
            EXPECT_DOUBLE_EQ(chains->inputRate(), kTop);
        }
        double sum = 0.0;
        for (size_t i = 0; i < out[0].size(); ++i) {
            ASSERT_TRUE(std::isfinite(out[0][i])) << i;
            if (i >= 19200)
                sum += out[0][i] * out[0][i];
        }
        rms[which] = std::sqrt(sum / 19200.0);
    }
    std::printf("[ 1.536MHz ] 8X at 192 kHz: %.2f dB against 1X\n", db(rms[0] / rms[1]));
    EXPECT_NEAR(db(rms[0] / rms[1]), 0.0, 0.5);
}

// Auto runs the octaves the wrapper asks for (the mode per rate is in CAudioWrapperTest's
// OfflineRenderingChoosesOctavesByRateWithinLimits): two offline at 44.1 kHz, none in real time.
TEST_F(ProductOversampling, AutoRunsTheOctavesTheWrapperAsksFor)
{
    auto w = product(44100.0);
    ASSERT_TRUE(w);
    w->set(kOversampling, 0.0);
    const std::vector<double> x = cosine(2048, 1000.0, 44100.0, 0.5);
    auto* chains = w->child<CAudioProcessBase>("modDLC73");
    auto* up = w->child<CModResampler>("modUpsampler");
    ASSERT_TRUE(chains && up);

    w->setOffline(true);
    run(*w, x);
    EXPECT_EQ(w->value("plugin.modMain.host-oversampling-mode"), 2.0);
    EXPECT_EQ(up->octaveCount(), 2);
    EXPECT_DOUBLE_EQ(chains->inputRate(), 4.0 * 44100.0);

    w->setOffline(false);
    run(*w, x);
    EXPECT_EQ(up->octaveCount(), 0);
    EXPECT_DOUBLE_EQ(chains->inputRate(), 44100.0);

    // A mode of its own is not Auto: the host's octaves don't count.
    w->setOffline(true);
    w->set(kOversampling, 2.0);
    run(*w, x);
    EXPECT_EQ(up->octaveCount(), 1);
    EXPECT_DOUBLE_EQ(chains->inputRate(), 2.0 * 44100.0);
    w->setOffline(false);
}

// Beyond the latency table the pad cannot pad: the audio thread only notes it, and the
// wrapper's flush logs it once for both channels.
TEST_F(ProductOversampling, ARateBeyondTheTableIsToldWhenTheWrapperFlushes)
{
    LogCapture log;
    auto w = product(800000.0);
    ASSERT_TRUE(w);
    w->set(kLinearPhase, 1.0);
    run(*w, std::vector<double>(4096, 0.0));
    const std::string line =
        "Unsupported sample rate 800000.000000 in LatencyUniformer // plugin.modMain.modLatencyUniformer";
    EXPECT_FALSE(log.has(line));
    w->flushDiagnostics();
    EXPECT_EQ(std::count(log.lines.begin(), log.lines.end(), line), 1);
    run(*w, std::vector<double>(4096, 0.0));
    w->flushDiagnostics();
    EXPECT_EQ(std::count(log.lines.begin(), log.lines.end(), line), 1);
}

} // namespace

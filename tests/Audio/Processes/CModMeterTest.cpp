// The level meter on graphs of MeterGraphs.xml: the levels it reports against values worked
// out here from the signals (sines, squares, DC, impulses, silence, noise), its framing,
// the ballistics of its smoother, envelope and peak hold against their closed forms, the
// comparing meter's ratio, the lowest-level and window measures, restarts, and the record's
// stored form.

#include "MeterTestSupport.h"

#include "Audio/CScopedDenormalFlush.h"
#include "Core/CMemoryReader.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>

namespace qel {
extern const CResourceRow kMeterTestDefinitions[];
}

using namespace qel;
using namespace qel::test;

namespace {

// The coefficient of y += (x - y) k whose response falls to -3 dB at 1 / (1.362 t) Hz,
// found by bisection on |k / (1 - (1 - k) e^-jw)|^2 = 1/2, which grows with k. The
// denominator |1 - u e^-jw|^2 = 1 - 2u cos w + u^2 is written k^2 + 4u sin^2(w/2), which
// keeps its digits when k and w are small.
double cornerCoefficient(double timeSec, double rate)
{
    const double w = 2.0 * kPi / (1.362 * timeSec) / rate;
    const double s = std::sin(0.5 * w);
    double lo = 0.0, hi = 1.0;
    for (int i = 0; i < 200; ++i) {
        const double k = 0.5 * (lo + hi);
        const double power = k * k / (k * k + 4.0 * (1.0 - k) * s * s);
        (power < 0.5 ? lo : hi) = k;
    }
    return 0.5 * (lo + hi);
}

// |k / (1 - (1 - k) e^-jw)|: how much of a tone at w the smoother lets through.
double onePoleGain(double k, double w) { return k / std::abs(1.0 - (1.0 - k) * std::polar(1.0, -w)); }

double db(double x) { return 20.0 * std::log10(x); }

Signal join(const Signal& a, const Signal& b)
{
    Signal s = a;
    s[0].insert(s[0].end(), b[0].begin(), b[0].end());
    return s;
}

Signal silence(size_t length) { return Signal(1, std::vector<double>(length, 0.0)); }

size_t seconds(double s, double rate) { return size_t(std::llround(s * rate)); }

// Samples measured when a record of a meter at 250 frames a second was made: its stamp is
// the middle of its frame, and the environment's clock stood at 0 when the meter started.
int64_t frameEnd(const CAudioVizDataMeter& r, double rate)
{
    return std::llround(r.time * rate + 0.5 * double(std::lround(rate / 250.0)));
}

// The peak hold in whole chunks of 25 ms: their length and how many make up the time.
struct Hold
{
    Hold(double rate, double peakTime)
        : chunk(std::llround(rate / 40.0)), chunks(std::llround(rate * peakTime / double(chunk)))
    {
    }
    int64_t chunk, chunks;
};

bool isSubnormal(double x) { return std::fpclassify(x) == FP_SUBNORMAL; }

class Meter : public MeterFixture
{
protected:
    Meter() : MeterFixture(kMeterTestDefinitions) {}

    // Builds `graph` at `rate`, sets the meter's slots, and runs `in` through, keeping only
    // this run's records.
    Graph& measure(const char* graph, double rate, const Signal& in, std::vector<std::pair<const char*, double>> slots = {},
                   int32_t block = 512)
    {
        m_receiver.items.clear();
        Graph& g = build(graph, std::vector<int32_t>(in.size(), 0), rate);
        for (const auto& [slot, value] : slots)
            set((std::string(graph) + ".m." + slot).c_str(), value);
        g.run(in, block);
        return g;
    }

    std::vector<const CAudioVizDataMeter*> records(const char* graph, int32_t channel = -1) const
    {
        return m_receiver.of((std::string("plugin.") + graph + ".m").c_str(), channel);
    }
};

// ---- levels

TEST_F(Meter, SteadySignalsReadTheirLevelAndPeakAtEveryRate)
{
    for (const double rate : kMeterRates) {
        SCOPED_TRACE(rate);
        const size_t length = seconds(3.0, rate);
        // A sine of period 96 samples has a sample on its crest; its square ripples at
        // twice its frequency, which the smoother passes at onePoleGain.
        const double k = cornerCoefficient(0.15, rate);
        const double ripple = onePoleGain(k, 2.0 * 2.0 * kPi / 96.0);
        struct Case
        {
            const char* name;
            Signal in;
            double rms, peak, tolerance;
        };
        const Case cases[] = {
            {"sine", sine(0.8, rate / 96.0, rate, length), 0.8 / std::sqrt(2.0), 0.8,
             0.5 * 0.32 * ripple * 1.01 / (0.8 / std::sqrt(2.0))},
            {"square", square(0.6, 50, length), 0.6, 0.6, 1e-12},
            {"dc", Signal(1, std::vector<double>(length, -0.3)), 0.3, 0.3, 1e-12},
            {"silence", silence(length), 0.0, 0.0, 2e-15},
        };
        for (const Case& c : cases) {
            SCOPED_TRACE(c.name);
            measure("slow", rate, c.in);
            const auto got = records("slow");
            ASSERT_EQ(got.size(), size_t(3 * 6));
            for (const auto* r : got) {
                if (r->time < 2.0)
                    continue;
                EXPECT_NEAR(r->rms, c.rms, c.tolerance) << r->time;
                // The peak is the square of the crest sample itself.
                EXPECT_NEAR(r->peak, c.peak, c.name == std::string("silence") ? 2e-15 : 1e-12) << r->time;
            }
        }
    }
}

TEST_F(Meter, AnInvertedMeterReportsReciprocals)
{
    measure("inverted", 44100.0, square(0.5, 30, seconds(2.0, 44100.0)));
    const auto got = records("inverted");
    ASSERT_EQ(got.size(), 100u);
    EXPECT_NEAR(got.back()->rms, 2.0, 1e-11);
    EXPECT_NEAR(got.back()->peak, 2.0, 1e-11);
}

TEST_F(Meter, WithoutSlotsTheMeterRunsOnItsFallbacks)
{
    const double rate = 96000.0;
    measure("bare", rate, square(0.5, 64, seconds(2.0, rate)));
    const CModMeterModule& m = module();
    EXPECT_EQ(m.kernel(), CModMeterModule::KernelPlain);
    // 0.15 s of smoothing, no release, a hold of 1 s in chunks of 25 ms.
    EXPECT_NEAR(m.rmsCoefficient(), cornerCoefficient(0.15, rate), 1e-15);
    EXPECT_EQ(m.releaseCoefficient(), 1.0);
    EXPECT_EQ(m.chunkLength(), 2400);
    EXPECT_EQ(m.ringLength(), 40);
    const auto got = records("bare");
    ASSERT_EQ(got.size(), 100u);
    EXPECT_NEAR(got.back()->rms, 0.5, 1e-12);
    EXPECT_NEAR(got.back()->peak, 0.5, 1e-12);
}

TEST_F(Meter, TheSmoothingCoefficientHasItsCornerAtTheGivenTime)
{
    for (const double rate : {44100.0, 48000.0, 96000.0, 192000.0, 768000.0}) {
        for (const double t : {0.0001, 0.001, 0.15, 1.0, 5.0}) {
            SCOPED_TRACE(testing::Message() << rate << " " << t);
            const double k = CModMeterModule::smoothingCoefficient(t, rate);
            EXPECT_NEAR(k, cornerCoefficient(t, rate), 1e-12 * std::max(k, 1e-3));
        }
    }
    // A corner above half the rate stays at half the rate, where the formula's x is 3.
    const double atNyquist = 1.0 - 3.0 + std::sqrt(8.0);
    EXPECT_NEAR(CModMeterModule::smoothingCoefficient(1e-9, 48000.0), atNyquist, 1e-15);
    EXPECT_NEAR(CModMeterModule::smoothingCoefficient(0.0, 48000.0), atNyquist, 1e-15);
}

// ---- ballistics

TEST_F(Meter, TheLevelRisesAsAOnePoleOfItsCornerAndTheEnvelopeReleasesAsTwoPolesInARow)
{
    // A level of 1 for 1.5 s, then silence. The smoother rises as 1 - u^n (u = 1 - k) and
    // the envelope with it; from A0 at the stop the smoother falls as A0 u^n, and the
    // envelope follows it through a pole of its own, v = 1 - kr:
    // E(n) = A0 (v^n + kr u (v^n - u^n) / (v - u)).
    struct Case
    {
        double rmsTime, release;
    };
    for (const double rate : kMeterRates) {
        for (const Case c : {Case{0.003, 0.0}, Case{0.15, 0.00005}, Case{2.0, 0.3}, Case{0.05, 0.0}, Case{0.05, 0.00005},
                             Case{0.05, 0.3}, Case{0.05, 1.0}}) {
            SCOPED_TRACE(testing::Message() << rate << " " << c.rmsTime << " " << c.release);
            const size_t stop = seconds(1.5, rate);
            measure("fast", rate, join(Signal(1, std::vector<double>(stop, 1.0)), silence(stop)),
                    {{"rms-time", c.rmsTime}, {"release", c.release}});
            const double u = 1.0 - cornerCoefficient(c.rmsTime, rate);
            // Below 0.1 ms the envelope falls with the level itself.
            const double kr = c.release < 0.0001 ? 1.0 : cornerCoefficient(c.release, rate), v = 1.0 - kr;
            const double a0 = 1.0 - std::pow(u, double(stop));
            const auto got = records("fast");
            ASSERT_EQ(got.size(), 2 * stop / size_t(std::lround(rate / 250.0)));
            for (const auto* r : got) {
                const int64_t end = frameEnd(*r, rate);
                if (end <= int64_t(stop)) {
                    ASSERT_NEAR(r->rms * r->rms, 1.0 - std::pow(u, double(end)), 1e-10) << end;
                    continue;
                }
                const auto n = double(end - int64_t(stop));
                const double expected =
                    a0 * (kr == 1.0 ? std::pow(u, n) : std::pow(v, n) + kr * u * (std::pow(v, n) - std::pow(u, n)) / (v - u));
                ASSERT_NEAR(r->rms * r->rms, expected, 1e-9 * expected + 1e-20) << n;
            }
        }
    }
}

TEST_F(Meter, TheHeldPeakIsTheLargestOfTheWindowOfPeakTimeAndNoChunkLonger)
{
    // Impulses of distinct sizes about every 1.7 chunks for 3 s, then silence. The peak
    // reported at the end of each frame is the largest impulse in the chunks the hold spans
    // (chunks count from the meter's start: an impulse's chunk and the whole ones behind it
    // that make up the time), found here by looking at all of them. Once the hold is empty,
    // what shows is the smoothed level (over 5 s) that its oldest chunk started from.
    for (const double rate : kMeterRates) {
        for (const double peakTime : {0.3, 0.5, 1.0, 2.0}) {
            SCOPED_TRACE(testing::Message() << rate << " " << peakTime);
            const Hold hold(rate, peakTime);
            EXPECT_NEAR(double(hold.chunks * hold.chunk) / rate, peakTime, 0.5 / 40.0);
            Signal in = silence(seconds(3.5 + peakTime, rate));
            uint32_t seed = 7;
            std::vector<std::pair<int64_t, double>> impulses;
            for (int64_t at = 100; at < int64_t(seconds(3.0, rate)); at += hold.chunk * 17 / 10 + int64_t(seed % 300)) {
                seed = seed * 1664525u + 1013904223u;
                const double size = 0.2 + 0.8 * double(seed >> 8) / double(1u << 24);
                in[0][size_t(at)] = (seed & 1) ? size : -size;
                impulses.push_back({at, size});
            }
            measure("fast", rate, in, {{"rms-time", 5.0}, {"peak-time", peakTime}}, 333);
            const double k = cornerCoefficient(5.0, rate);
            const auto got = records("fast");
            ASSERT_EQ(got.size(), in[0].size() / size_t(std::lround(rate / 250.0)));
            int empty = 0;
            for (const auto* r : got) {
                const int64_t end = frameEnd(*r, rate);
                const int64_t from = std::max<int64_t>(0, (end / hold.chunk - hold.chunks) * hold.chunk);
                double largest = 0.0, level = 0.0;
                for (const auto& [at, size] : impulses) {
                    if (at >= from && at < end)
                        largest = std::max(largest, size);
                    else if (at < from)
                        level += k * size * size * std::pow(1.0 - k, double(from - 1 - at));
                }
                if (largest > 0.0) {
                    ASSERT_NEAR(r->peak, largest, 1e-12) << end;
                } else {
                    ASSERT_NEAR(r->peak * r->peak, level, 1e-9 * level) << end;
                    ++empty;
                }
            }
            EXPECT_GT(empty, 50);
        }
    }
}

// ---- framing

TEST_F(Meter, AFixedRateOfSixFramesASecondHoldsAtEveryRateAndBlockSizeWhateverTheEnvironmentAsks)
{
    m_env->setUpdateRate(77.0);
    for (const double rate : kMeterRates) {
        const auto frame = size_t(std::llround(rate / 6.0));
        for (const int32_t block : {512, 20000}) {
            SCOPED_TRACE(testing::Message() << rate << " " << block);
            m_receiver.items.clear();
            Graph& g = build("slow", {0}, rate);
            const Signal in = noise(0.5, seconds(10.0, rate));
            std::vector<size_t> perBlock;
            for (size_t at = 0; at + size_t(block) <= in[0].size(); at += size_t(block)) {
                const size_t before = m_receiver.items.size();
                g.block(in, at, block);
                perBlock.push_back(m_receiver.items.size() - before);
            }
            // Frames end within blocks: a block has as many as fit into it, or one more.
            for (size_t n : perBlock)
                EXPECT_TRUE(n == size_t(block) / frame || n == size_t(block) / frame + 1) << n;
            const auto got = records("slow");
            ASSERT_EQ(got.size(), perBlock.size() * size_t(block) / frame);
            for (size_t i = 0; i < got.size(); ++i)
                EXPECT_NEAR(got[i]->time, (double(i) + 0.5) * double(frame) / rate, 1e-9) << i;
        }
    }
}

TEST_F(Meter, AFollowingMeterTakesTheEnvironmentsRateEvenAndAtLeast32AndARateThatDoesNotParseIsAFixed30)
{
    const double rate = 44100.0;
    struct Case
    {
        const char* graph;
        double fps;
        int64_t first, next;
    };
    // The first frame is the plain rounding; later ones are even and at least 32 samples.
    for (const Case c : {Case{"plain", 30.0, 1470, 1470}, Case{"plain", 100.0, 441, 442}, Case{"plain", 7.0, 6300, 6300},
                         Case{"plain", 2000.0, 22, 32}, Case{"badFps", 100.0, 1470, 1470}}) {
        SCOPED_TRACE(testing::Message() << c.graph << " " << c.fps);
        m_env->setUpdateRate(c.fps);
        measure(c.graph, rate, silence(seconds(1.0, rate)), {}, 256);
        const auto got = records(c.graph);
        ASSERT_EQ(int64_t(got.size()), 1 + (int64_t(seconds(1.0, rate)) - c.first) / c.next);
        for (size_t i = 0; i < got.size(); ++i) {
            const int64_t end = c.first + int64_t(i) * c.next;
            const int64_t frame = i == 0 ? c.first : c.next;
            EXPECT_NEAR(got[i]->time, (double(end) - 0.5 * double(frame)) / rate, 1e-9) << i;
        }
    }
}

TEST_F(Meter, ARateAskedForWhilePlayingTakesOverAfterTheNextFrame)
{
    const double rate = 44100.0;
    m_env->setUpdateRate(30.0);
    Graph& g = build("plain", {0}, rate);
    const Signal in = silence(seconds(2.0, rate));
    g.run(in, 441, 0, seconds(1.0, rate));
    ASSERT_EQ(records("plain").size(), 30u);
    // Between two frames: the one under way keeps its length.
    m_env->setUpdateRate(50.0);
    g.run(in, 441, seconds(1.0, rate), seconds(1.0, rate) + 441);
    const CModMeterModule& m = module();
    EXPECT_EQ(m.frameLength(), 1470);
    g.run(in, 441, seconds(1.0, rate) + 441);
    EXPECT_EQ(m.frameLength(), 882);
    const auto got = records("plain");
    // 30 frames of 1470, one more of 1470, then frames of 882 to the end of the 2 s.
    ASSERT_EQ(got.size(), size_t(31 + (88200 - 31 * 1470) / 882));
    EXPECT_NEAR(got[31]->time, (31.0 * 1470 + 441.0) / rate, 1e-9);
}

TEST_F(Meter, EveryChannelHasItsRecordStampedAndAddressed)
{
    const double rate = 48000.0;
    m_env->setStreamPosition(2.5);
    Graph& g = build("slow", {0, 0, 1}, rate);
    Signal in(3);
    in[0] = square(0.1, 10, seconds(1.0, rate))[0];
    in[1] = square(0.2, 10, seconds(1.0, rate))[0];
    in[2] = square(0.4, 10, seconds(1.0, rate))[0];
    g.run(in, 480);
    ASSERT_EQ(m_receiver.items.size(), 18u);
    for (size_t i = 0; i < m_receiver.items.size(); ++i) {
        const auto& item = m_receiver.items[i];
        EXPECT_EQ(item.source->name, CString("plugin.slow.m"));
        const auto& r = item.record;
        const uint32_t channel = r.channel;
        ASSERT_LT(channel, 3u);
        EXPECT_EQ(r.group, channel == 2 ? 1u : 0u);
        EXPECT_EQ(r.element, 0u);
        EXPECT_EQ(r.slot, -1);
        EXPECT_NEAR(r.time, 2.5 + (double(i / 3 + 1) * 8000.0 - 4000.0) / rate, 1e-9);
        EXPECT_NEAR(r.peak, 0.1 * double(1u << channel), 1e-12);
    }
    // One source for the process, asked for once.
    EXPECT_EQ(m_receiver.sources.size(), 1u);
}

// ---- the comparing meter

TEST_F(Meter, TheComparingMeterReadsTheGainBetweenItsPorts)
{
    for (const double rate : kMeterRates) {
        for (const double gain : {0.5, 2.0, 0.1, 1.0}) {
            SCOPED_TRACE(testing::Message() << rate << " " << gain);
            m_receiver.items.clear();
            Graph& g = build("diff", {0}, rate);
            set("diff.g.gain", gain);
            set("diff.m.rms-time", 0.05);
            set("diff.m.peak-gain", 1.5);
            g.run(noise(0.5, seconds(1.0, rate)), 512);
            EXPECT_GE(module().sideIndex(), 0);
            const auto got = records("diff");
            ASSERT_EQ(got.size(), 50u);
            for (const auto* r : got) {
                if (r->time < 0.5)
                    continue;
                // Both smoothers see the same squares but for the factor gain^2.
                EXPECT_NEAR(db(r->rms), db(gain), 1e-9) << r->time;
                EXPECT_NEAR(r->peak, 1.5 * r->rms, 1e-12);
            }
            if (gain == 0.5) {
                EXPECT_NEAR(db(got.back()->rms), -6.0206, 1e-4);
            }
        }
    }
}

TEST_F(Meter, TwoEqualSignalsReadExactlyOneEvenInSilenceAndSilenceAgainstASignalTheRatioOfTheFloors)
{
    for (const bool isSilent : {false, true}) {
        SCOPED_TRACE(isSilent);
        const Signal in = isSilent ? silence(seconds(1.0, 44100.0)) : noise(0.3, seconds(1.0, 44100.0));
        measure("diff", 44100.0, in);
        for (const auto* r : records("diff")) {
            ASSERT_EQ(r->rms, 1.0);
            ASSERT_EQ(r->peak, 1.0);
        }
    }
    // Nothing on port 1: the input itself is the other side.
    measure("diffAlone", 44100.0, noise(0.3, seconds(1.0, 44100.0)));
    EXPECT_EQ(module().sideIndex(), -1);
    for (const auto* r : records("diffAlone"))
        ASSERT_EQ(r->rms, 1.0);

    // Port 0 silent, port 1 a square of 0.5: the two 1e-15 terms keep the ratio finite,
    // sqrt(1e-15 / (1e-15 + 0.25)), some 134 dB down.
    Graph& g = build("diff", {0}, 48000.0);
    set("diff.g.gain", 0.0);
    set("diff.m.rms-time", 0.05);
    g.run(square(0.5, 24, seconds(1.0, 48000.0)), 512);
    EXPECT_NEAR(records("diff").back()->rms / std::sqrt(1e-15 / (1e-15 + 0.25)), 1.0, 1e-9);
}

TEST_F(Meter, WithItsBiasTheComparingMeterForgetsAConstantGain)
{
    // The ratio r = gain^2 settles within a few ms; the bias follower Z then moves from 1
    // to r as a pole of the bias time, and the meter reads r / Z.
    const double rate = 44100.0;
    const double gain = 0.5, r = gain * gain;
    for (const double biasTime : {0.5, 5.0}) {
        SCOPED_TRACE(biasTime);
        m_receiver.items.clear();
        Graph& g = build("diff", {0}, rate);
        set("diff.g.gain", gain);
        set("diff.m.rms-time", 0.001);
        set("diff.m.bias-time", biasTime);
        set("diff.m.use-bias", 1.0);
        g.run(noise(0.5, seconds(12.0, rate)), 1024);
        const double z = 1.0 - cornerCoefficient(biasTime, rate);
        const auto got = records("diff");
        ASSERT_EQ(got.size(), 600u);
        for (const auto* rec : got) {
            if (rec->time < 0.05)
                continue;
            const double n = rec->time * rate + 0.5 * 882.0;
            const double expected = r / (r + (1.0 - r) * std::pow(z, n));
            ASSERT_NEAR(rec->rms * rec->rms, expected, 0.01 * expected) << rec->time;
        }
        if (biasTime == 0.5) {
            EXPECT_NEAR(got.back()->rms, 1.0, 1e-6);
            EXPECT_NEAR(got.back()->peak, 1.0, 1e-6);
        }
    }
}

// ---- the lowest level

TEST_F(Meter, TheLowestLevelFallsAtOnceAndRisesWithTheRelease)
{
    const double rate = 48000.0;
    const double rmsTime = 0.01, release = 0.2, peakTime = 0.3;
    const size_t dipAt = seconds(1.0, rate), dipEnd = dipAt + seconds(0.1, rate);
    Signal in = square(1.0, 48, dipAt);
    in = join(in, square(0.25, 48, dipEnd - dipAt));
    in = join(in, square(1.0, 48, seconds(1.5, rate)));
    measure("lowest", rate, in, {{"rms-time", rmsTime}, {"release", release}, {"peak-time", peakTime}});
    const double u = 1.0 - cornerCoefficient(rmsTime, rate), kr = cornerCoefficient(release, rate), v = 1.0 - kr;
    const Hold hold(rate, peakTime);
    const int64_t holdGone = ((int64_t(dipEnd) - 1) / hold.chunk + hold.chunks + 1) * hold.chunk;
    double lastPeak = 0.0;
    int checked = 0;
    for (const auto* r : records("lowest")) {
        const int64_t end = frameEnd(*r, rate);
        if (end > 900 && end <= int64_t(dipAt)) {
            // The start values of 1.0 are the highest this meter can hold.
            ASSERT_NEAR(r->rms, 1.0, 1e-9) << end;
            ASSERT_NEAR(r->peak, 1.0, 1e-9) << end;
        } else if (end >= int64_t(dipAt) + 3000 && end <= int64_t(dipEnd)) {
            ASSERT_NEAR(r->rms, 0.25, 1e-9) << end;
            ASSERT_NEAR(r->peak, 0.25, 1e-12) << end;
        } else if (end > int64_t(dipEnd)) {
            // 1 - E falls as the release formula of the highest level, from 1 - 1/16.
            const auto n = double(end - int64_t(dipEnd));
            const double d = 0.9375 * (std::pow(v, n) + kr * u * (std::pow(v, n) - std::pow(u, n)) / (v - u));
            ASSERT_NEAR(r->rms * r->rms, 1.0 - d, 1e-9) << end;
            // The chunk after the dip starts from the level at its end, which rounds to
            // the same square: the hold may last that one chunk longer.
            if (end < holdGone) {
                ASSERT_NEAR(r->peak, 0.25, 1e-12) << end;
            } else if (end >= holdGone + hold.chunk) {
                ASSERT_GT(r->peak, 0.25) << end;
                ASSERT_GE(r->peak, lastPeak) << end;
            }
            lastPeak = r->peak;
            ++checked;
        }
    }
    EXPECT_GT(checked, 250);
    EXPECT_NEAR(lastPeak, 1.0, 1e-3);
}

TEST_F(Meter, WithItsBiasTheLowestLevelReadsOneForAnySteadyLevel)
{
    for (const double level : {0.05, 0.3, 0.9}) {
        SCOPED_TRACE(level);
        measure("lowest", 44100.0, square(level, 21, seconds(5.0, 44100.0)),
                {{"use-bias", 1.0}, {"bias-time", 0.2}, {"rms-time", 0.05}, {"peak-time", 0.5}});
        EXPECT_EQ(module().kernel(), CModMeterModule::KernelCompressionBias);
        const auto got = records("lowest");
        ASSERT_EQ(got.size(), seconds(5.0, 44100.0) / 176);
        EXPECT_NEAR(got.back()->rms, 1.0, 1e-6);
        EXPECT_NEAR(got.back()->peak, 1.0, 1e-6);
    }
}

// ---- the window measure

// The loudness weighting as published for 48 kHz: shelf, then high-pass.
double publishedWeighting(double freq)
{
    using cplx = std::complex<double>;
    const cplx z1 = std::polar(1.0, -2.0 * kPi * freq / 48000.0);
    const cplx shelf = (1.53512485958697 + z1 * (-2.69169618940638 + z1 * 1.19839281085285)) /
                       (1.0 + z1 * (-1.69065929318241 + z1 * 0.73248077421585));
    const cplx highPass = (1.0 + z1 * (-2.0 + z1 * 1.0)) / (1.0 + z1 * (-1.99004745483398 + z1 * 0.99007225036621));
    return std::abs(shelf * highPass);
}

class MeterWindow : public Meter
{
protected:
    // The level a settled tone reads, the window (0.4 s) full.
    double toneLevel(double rate, double freq, double amplitude = 0.5)
    {
        measure("fast", rate, sine(amplitude, freq, rate, seconds(1.5, rate)), {{"use-ebu128", 1.0}, {"rms-time", 0.4}});
        return records("fast").back()->rms;
    }
};

TEST_F(MeterWindow, WeightsTonesAsThePublishedFilterDoesAtEveryRate)
{
    // Whole cycles of each tone in the window's 0.4 s, so that its mean square is exact. At
    // 48 kHz, where the published coefficients are, every tone to 0.001 dB; at the other
    // rates the shape from 100 Hz to 1 kHz to 0.01 dB. A tone of 1 kHz reads its own level.
    for (const double rate : kMeterRates) {
        SCOPED_TRACE(rate);
        const bool isPublished = rate == 48000.0;
        const double tolerance = isPublished ? 0.001 : 0.01;
        const double reference = toneLevel(rate, 1000.0);
        EXPECT_NEAR(db(reference), db(0.5 / std::sqrt(2.0)), tolerance);
        for (const double f : isPublished ? std::vector<double>{50.0, 100.0, 500.0, 2000.0, 5000.0, 10000.0, 15000.0}
                                          : std::vector<double>{100.0})
            EXPECT_NEAR(db(toneLevel(rate, f) / reference), db(publishedWeighting(f) / publishedWeighting(1000.0)),
                        tolerance)
                << f;
    }
    // So does the published weighting, its high-pass taken at unity gain at half the rate,
    // under the same scale.
    const double highPassAtNyquist = 4.0 / (1.0 + 1.99004745483398 + 0.99007225036621);
    EXPECT_NEAR(db(toneLevel(48000.0, 1000.0)),
                db(0.5 / std::sqrt(2.0) * publishedWeighting(1000.0) / highPassAtNyquist * 0.927414538975768), 0.001);
}

TEST_F(MeterWindow, TheLevelIsTheMeanSquareOverTheWindow)
{
    const double rate = 48000.0;
    const double settled = toneLevel(rate, 1000.0);
    const size_t stop = seconds(1.2, rate);
    measure("fast", rate, join(sine(0.5, 1000.0, rate, stop), silence(seconds(1.0, rate))),
            {{"use-ebu128", 1.0}, {"rms-time", 0.4}});
    const int64_t window = 19200;
    EXPECT_EQ(module().windowLength(), window);
    for (const auto* r : records("fast")) {
        const int64_t end = frameEnd(*r, rate);
        // A tone that fills part of the window reads that part of its power; the first
        // 20 ms and the last are the weighting's own settling.
        double part = -1.0;
        if (end > 960 && end < window - 960)
            part = double(end) / double(window);
        else if (end > int64_t(stop) + 960 && end < int64_t(stop) + window - 960)
            part = double(int64_t(stop) + window - end) / double(window);
        else if (end > int64_t(stop) + window + 960)
            part = 0.0;
        if (part < 0.0)
            continue;
        ASSERT_NEAR(r->rms * r->rms, settled * settled * part, 0.003 * settled * settled) << end;
    }
}

TEST_F(MeterWindow, ThePeakIsTheLargestSampleNotItsSquare)
{
    for (const double rate : kMeterRates) {
        SCOPED_TRACE(rate);
        measure("fast", rate, sine(0.5, rate / 96.0, rate, seconds(1.0, rate)), {{"use-ebu128", 1.0}, {"rms-time", 0.4}});
        EXPECT_EQ(module().kernel(), CModMeterModule::KernelEbu128);
        EXPECT_NEAR(records("fast").back()->peak, 0.5, 1e-15);
    }
}

// ---- restarts, switching and the state the meter keeps

TEST_F(Meter, GainsChangeTheReportWhileTimesRestartTheMeasurement)
{
    const double rate = 44100.0;
    Graph& g = build("fast", {0}, rate);
    const Signal in = square(0.6, 30, seconds(4.0, rate));
    g.run(in, 441, 0, seconds(2.0, rate));
    const CModMeterModule& m = module();
    const double settled = m.state().rmsA;
    const int64_t frames = m.frameCount();
    ASSERT_NEAR(records("fast").back()->rms, 0.6, 1e-12);

    set("fast.m.gain", 0.5);
    set("fast.m.peak-gain", 2.0);
    g.run(in, 441, seconds(2.0, rate), seconds(2.0, rate) + 441);
    EXPECT_EQ(m.frameCount(), frames + 2);
    EXPECT_NEAR(m.state().rmsA, settled, 1e-15);
    EXPECT_NEAR(records("fast").back()->rms, 0.3, 1e-12);
    EXPECT_NEAR(records("fast").back()->peak, 0.6, 1e-12);

    // A new time clears the measurement: the level starts again from nothing.
    set("fast.m.rms-time", 0.2);
    g.run(in, 441, seconds(2.0, rate) + 441, seconds(2.0, rate) + 882);
    EXPECT_LT(m.state().rmsA, 0.1);
    EXPECT_LT(records("fast").back()->rms, 0.5 * 0.3);
}

TEST_F(Meter, ANewRateStartsTheMeasurementAfresh)
{
    Graph& g = build("slow", {0}, 44100.0);
    g.run(square(0.8, 20, seconds(1.0, 44100.0)), 512);
    ASSERT_NEAR(records("slow").back()->rms, 0.8, 1e-12);
    m_receiver.items.clear();
    g.setFormat(48000.0, {0});
    g.run(silence(seconds(0.5, 48000.0)), 512);
    const CModMeterModule& m = module();
    EXPECT_EQ(m.sampleRate(), 48000.0);
    EXPECT_EQ(m.frameLength(), 8000);
    EXPECT_EQ(m.chunkLength(), 1200);
    EXPECT_NEAR(m.rmsCoefficient(), cornerCoefficient(0.15, 48000.0), 1e-15);
    const auto got = records("slow");
    ASSERT_EQ(got.size(), 3u);
    // Carried over, the level would still read 0.8 (1 - k)^(8000 / 2) = 0.06 here.
    EXPECT_LT(got.front()->rms, 1e-14);
    EXPECT_LT(got.front()->peak, 1e-14);
}

TEST_F(Meter, TheVizSwitchTakesTheMeterOutAndBringsItBackCleared)
{
    const double rate = 44100.0;
    Graph& g = build("switched", {0}, rate);
    const Signal in = square(0.6, 30, seconds(4.0, rate));
    g.run(in, 441, 0, seconds(0.5, rate));
    EXPECT_EQ(records("switched").size(), 0u);
    set("switched.m-enable", 1.0);
    g.run(in, 441, seconds(0.5, rate), seconds(2.0, rate));
    const size_t on = records("switched").size();
    EXPECT_NEAR(double(on), 75.0, 1.0);
    EXPECT_NEAR(records("switched").back()->rms, 0.6, 1e-6);
    set("switched.m-enable", 0.0);
    g.run(in, 441, seconds(2.0, rate), seconds(3.0, rate));
    EXPECT_LE(records("switched").size(), on + 1);
    set("switched.m-enable", 1.0);
    m_receiver.items.clear();
    g.run(in, 441, seconds(3.0, rate), seconds(3.0, rate) + 882);
    ASSERT_FALSE(records("switched").empty());
    EXPECT_LT(records("switched").front()->rms, 0.45);
}

TEST_F(Meter, NothingTheMeterKeepsBecomesSubnormalAfterItsSignalStops)
{
    ASSERT_FALSE(CScopedDenormalFlush::isActive());
    const double rate = 44100.0;
    const Signal in = join(noise(0.5, seconds(0.1, rate)), silence(seconds(10.0, rate)));
    struct Case
    {
        const char* graph;
        double useBias, useEbu;
    };
    for (const Case c : {Case{"plain", 0, 0}, Case{"plain", 0, 1}, Case{"lowest", 0, 0}, Case{"lowest", 1, 0},
                         Case{"diff", 0, 0}, Case{"diff", 1, 0}}) {
        SCOPED_TRACE(testing::Message() << c.graph << " " << c.useBias << " " << c.useEbu);
        measure(c.graph, rate, in,
                {{"rms-time", 0.0005}, {"release", 0.0002}, {"bias-time", 0.001}, {"peak-time", 0.05},
                 {"use-bias", c.useBias}, {"use-ebu128", c.useEbu}},
                4096);
        const CModMeterModule::CState& s = module().state();
        for (const double x : {s.rmsA, s.rmsB, s.envelope, s.chunkValue, s.hold, s.bias, s.hpW1, s.hpW2, s.shelfW1,
                               s.shelfW2, s.sum, s.sum2})
            EXPECT_FALSE(isSubnormal(x)) << x;
        for (const auto* r : records(c.graph)) {
            ASSERT_TRUE(std::isfinite(r->rms));
            ASSERT_TRUE(std::isfinite(r->peak));
        }
    }
    // Without its bias the same smoother would have stuck in a subnormal long before.
    const double k = cornerCoefficient(0.0005, rate);
    double y = 0.25;
    for (size_t i = 0; i < seconds(10.0, rate); ++i)
        y += (0.0 - y) * k;
    EXPECT_TRUE(isSubnormal(y)) << y;
}

// ---- the record

TEST(MeterRecord, ItsStoredFormIsFortyBytesInOrder)
{
    CAudioVizDataMeter r;
    r.channel = 3;
    r.group = 7;
    r.element = 2;
    r.time = 12.345;
    r.slot = -1;
    r.rms = 0.25;
    r.peak = 0.75;
    const Bytes expected = ByteBuilder().u32(3).u32(7).u32(2).f64(12.345).u32(0xFFFFFFFFu).f64(0.25).f64(0.75).bytes;
    const Bytes bytes = saved(r);
    EXPECT_EQ(bytes.size(), size_t(CAudioVizDataMeter::kSize));
    EXPECT_EQ(bytes, expected);
    EXPECT_EQ(r.type(), uint32_t(CAudioVizData::TypeMeter));

    CAudioVizDataMeter back;
    CMemoryReader in(bytes.data(), bytes.size());
    ASSERT_FALSE(back.load(in));
    EXPECT_EQ(saved(back), bytes);
}

TEST(MeterRecord, ATruncatedRecordFailsAndChangesNothing)
{
    CAudioVizDataMeter r;
    r.channel = 1;
    r.time = 0.5;
    r.rms = 0.125;
    r.peak = 0.5;
    const Bytes full = ByteBuilder().u32(9).u32(9).u32(9).f64(9.0).u32(9).f64(9.0).f64(9.0).bytes;
    const Bytes before = saved(r);
    for (size_t n = 0; n < full.size(); ++n) {
        SCOPED_TRACE(n);
        CMemoryReader in(full.data(), n);
        EXPECT_TRUE(r.load(in));
        EXPECT_EQ(saved(r), before);
    }
    // Any forty bytes are a record, and read back they are saved as they came.
    std::vector<uint8_t> garbage(CAudioVizDataMeter::kSize);
    uint32_t seed = 3;
    for (uint8_t& b : garbage) {
        seed = seed * 1664525u + 1013904223u;
        b = uint8_t(seed >> 24);
    }
    CMemoryReader in(garbage.data(), garbage.size());
    ASSERT_FALSE(r.load(in));
    EXPECT_EQ(saved(r), garbage);
}

} // namespace

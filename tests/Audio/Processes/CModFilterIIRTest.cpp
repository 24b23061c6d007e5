// The recursive filter process in a graph: against plain reference filters, coefficient
// changes without clicks, type changes through the crossfade.

#include "../Filters/FilterTestSupport.h"

#include "../RealTimeCounting.h"

#include "Audio/Processes/CModFilterIIR.h"

using namespace qel;
using namespace qel::test;

namespace {

// Direct form II, as a textbook writes it.
struct ReferenceBiquad
{
    double b0, b1, b2, a1, a2, w1 = 0.0, w2 = 0.0;

    explicit ReferenceBiquad(const CAudioFilterStage& s) : b0(s.b[0]), b1(s.b[1]), b2(s.b[2]), a1(s.a[0]), a2(s.a[1]) {}
    double run(double x)
    {
        const double w = x - a1 * w1 - a2 * w2;
        const double y = b0 * w + b1 * w1 + b2 * w2;
        w2 = w1;
        w1 = w;
        return y;
    }
};

Signal sine(double freq, double rate, size_t length, double amplitude = 0.5)
{
    Signal s(1, std::vector<double>(length));
    for (size_t i = 0; i < length; ++i)
        s[0][i] = amplitude * std::sin(2.0 * kPi * freq * double(i) / rate);
    return s;
}

double largestStep(const std::vector<double>& y, size_t from = 1)
{
    double step = 0.0;
    for (size_t i = std::max<size_t>(from, 1); i < y.size(); ++i)
        step = std::max(step, std::fabs(y[i] - y[i - 1]));
    return step;
}

class FilterIIR : public FilterFixture
{
protected:
    CModFilterIIRModule& module(const char* child, int32_t slot = 0)
    {
        return *static_cast<CModFilterIIRModule*>(m_graph->child<CModFilterIIR>(child).currentModule(slot));
    }
};

TEST_F(FilterIIR, ThreeBandsMatchAReferenceCascade)
{
    const double rate = 48000.0;
    const double gains[3] = {std::pow(10.0, 6.0 / 20.0), std::pow(10.0, -3.0 / 20.0), std::pow(10.0, 9.0 / 20.0)};
    std::vector<ReferenceBiquad> reference;
    reference.emplace_back(design("ls_rbj2", rate, 126.0, gains[0], 1.15)[0]);
    reference.emplace_back(design("peak_magnusB_fixed", rate, 700.0, gains[1], 2.75)[0]);
    reference.emplace_back(design("hs_rbj2", rate, 4900.0, gains[2], 1.15)[0]);
    Signal in(1, std::vector<double>(20000));
    uint32_t seed = 1;
    for (double& x : in[0])
        x = double(int32_t(seed = seed * 1664525u + 1013904223u)) / 2147483648.0;
    std::vector<double> expected;
    for (double x : in[0]) {
        for (ReferenceBiquad& b : reference)
            x = b.run(x);
        expected.push_back(x);
    }
    Signal previous;
    for (const int32_t block : {1, 37, 512, 4096}) {
        SCOPED_TRACE(block);
        Graph& g = build("bands", {0}, rate);
        set("bands.lo.gain", gains[0]);
        set("bands.mid.gain", gains[1]);
        set("bands.hi.gain", gains[2]);
        const Signal out = g.run(in, block);
        // Fused multiply-adds round an ulp per operation apart; the cascade's gain (< 10) and
        // the poles' memory keep that below 1e-12.
        for (size_t i = 0; i < expected.size(); ++i)
            ASSERT_NEAR(out[0][i], expected[i], 1e-12) << i;
        if (!previous.empty()) {
            ASSERT_EQ(out, previous);
        }
        previous = out;
        EXPECT_EQ(module("mid").stageCount(), 1);
        EXPECT_STREQ(module("lo").stage(0).kernels->name, "DCDAW_fltbiqcommon");
    }
}

// The gain from -3 to +9 dB in 1 dB steps every 10 ms over a sine at the centre, each step
// queued behind the running morph. A steady sine of amplitude a moves at most
// a * 2 sin(pi f / rate) per sample; a blend of two filters stays within the loudest one's
// steps, plus 2% for the moving filter's ring. A click or zipper stands far above that.
TEST_F(FilterIIR, GainSweepMovesWithoutZipperOrClick)
{
    for (const double rate : {48000.0, 192000.0}) {
        SCOPED_TRACE(rate);
        Graph& g = build("one", {0}, rate);
        const double freq = 1000.0;
        set("one.b.gain", std::pow(10.0, -3.0 / 20.0));
        const auto step = int32_t(std::lround(0.010 * rate));
        const size_t length = size_t(step) * 16;
        const Signal in = sine(freq, rate, length);
        std::vector<double> out;
        for (int32_t k = 0; k < 16; ++k) {
            const double gainDb = std::min(-3.0 + k, 9.0);
            set("one.b.gain", std::pow(10.0, gainDb / 20.0));
            const Signal part = g.run(in, step, size_t(k) * size_t(step), size_t(k + 1) * size_t(step));
            out.insert(out.end(), part[0].begin(), part[0].end());
        }
        const double loudest = 0.5 * std::pow(10.0, 9.0 / 20.0);
        const double bound = loudest * 2.0 * std::sin(kPi * freq / rate);
        EXPECT_LE(largestStep(out), 1.02 * bound);
        // It did move: the last stretch is the +9 dB filter's steady sine.
        double peak = 0.0;
        for (size_t i = out.size() - size_t(step); i < out.size(); ++i)
            peak = std::max(peak, std::fabs(out[i]));
        EXPECT_NEAR(peak, loudest, 0.01 * loudest);
    }
}

TEST_F(FilterIIR, MorphsTakeTwentyFiveMillisecondsAndQueueTheNewestValue)
{
    for (const auto& [rate, length] : std::vector<std::pair<double, int32_t>>{{44100.0, 1103}, {96000.0, 2400}, {768000.0, 19200}}) {
        SCOPED_TRACE(rate);
        Graph& g = build("one", {0}, rate);
        set("one.b.freq", 1000.0);
        set("one.b.gain", 1.0);
        const Signal in = sine(1000.0, rate, 64);
        g.run(in, 64);
        const CDCDAWBiquadState& st = module("b").state(0, 0).biquad;
        EXPECT_EQ(st.length, length);
        EXPECT_EQ(st.remaining, 0);
        set("one.b.gain", 2.0);
        g.run(in, 64);
        EXPECT_EQ(st.remaining, length - 64);
        EXPECT_EQ(st.d[0], design("peak_magnusB_fixed", rate, 1000.0, 2.0, 1.0)[0].b[0]);
        set("one.b.gain", 3.0);
        g.run(in, 64);
        set("one.b.freq", 2000.0);
        g.run(in, 64);
        // The morph runs on; the newest set waits.
        EXPECT_EQ(st.remaining, length - 192);
        EXPECT_EQ(st.isQueued, 1);
        EXPECT_EQ(st.q[0], design("peak_magnusB_fixed", rate, 2000.0, 3.0, 1.0)[0].b[0]);
        const Signal rest = sine(1000.0, rate, size_t(length));
        g.run(rest, 256);
        EXPECT_EQ(st.isQueued, 0);
        EXPECT_EQ(st.c[0], design("peak_magnusB_fixed", rate, 1000.0, 2.0, 1.0)[0].b[0]);
        EXPECT_GT(st.remaining, 0);
    }
}

TEST_F(FilterIIR, AnIndexChangeCrossfadesModules)
{
    const double rate = 48000.0;
    const size_t change = 4096;
    const Signal in = sine(700.0, rate, 9600);
    // The peak that plays, and the shelf that takes over from silence at the change.
    build("one", {0}, rate);
    set("one.b.gain", 2.0);
    set("one.b.index", 1);
    const std::vector<double> peak = m_graph->run(in, 256)[0];
    Signal late = in;
    std::fill(late[0].begin(), late[0].begin() + std::ptrdiff_t(change), 0.0);
    build("one", {0}, rate);
    set("one.b.index", 2);
    const std::vector<double> shelf = m_graph->run(late, 256)[0];

    Graph& g = build("one", {0}, rate);
    set("one.b.index", 1);
    std::vector<double> out = g.run(in, 256, 0, change)[0];
    set("one.b.index", 2);
    const Signal rest = g.run(in, 256, change, 9600);
    out.insert(out.end(), rest[0].begin(), rest[0].end());
    EXPECT_EQ(module("b").index(), 2);
    EXPECT_STREQ(module("b").stage(0).kernels->name, "DCDAW_fltbiqcommon");

    // The raised cosine of 0.015 s: 720 samples.
    const size_t fade = 720;
    for (size_t i = 0; i < out.size(); ++i) {
        double expected = i < change ? peak[i] : shelf[i];
        if (i >= change && i < change + fade) {
            const double s = 0.5 * std::cos(kPi * double(i - change) / double(fade));
            expected = (0.5 + s) * peak[i] + (0.5 - s) * shelf[i];
        }
        ASSERT_NEAR(out[i], expected, 1e-9) << i;
    }
    // No step beyond those of the two signals, plus the weights' slope (pi / (2 N)) times their difference.
    double difference = 0.0;
    for (size_t i = change; i < change + fade; ++i)
        difference = std::max(difference, std::fabs(peak[i] - shelf[i]));
    const double bound = std::max(largestStep(peak, 100), largestStep(shelf, change + 1)) + kPi / (2.0 * fade) * difference;
    EXPECT_LE(largestStep(out, 100), bound * (1.0 + 1e-9));
}

TEST_F(FilterIIR, StagesComeAndGoWithTheGenerator)
{
    Graph& g = build("hp", {0}, 48000.0);
    const Signal in = sine(50.0, 48000.0, 4096);
    g.run(in, 1024);
    EXPECT_EQ(module("f").stageCount(), 1);
    EXPECT_STREQ(module("f").stage(0).kernels->name, "DCDAW_flthp1");
    set("hp.f.index", 2);
    g.run(in, 1024);
    EXPECT_EQ(module("f").stageCount(), 2);
    set("hp.f.index", 1);
    g.run(in, 1024);
    EXPECT_EQ(module("f").stageCount(), 1);
    // The bypass generator: no stage, and the buffer itself goes through.
    set("hp.f.index", 0);
    g.run(in, 2048);
    const std::vector<const double*> out = g.block(in, 0, 512);
    EXPECT_EQ(module("f").stageCount(), 0);
    EXPECT_EQ(out[0], g.lastInput[0]);
}

TEST_F(FilterIIR, HalfBandRunsItsRecursionPerSample)
{
    const double rate = 96000.0;
    for (const int32_t index : {0, 1}) {
        SCOPED_TRACE(index);
        const CAudioFilterStageList list = design(index == 0 ? "hbf159t12" : "hbf151t8", rate, 1.0, 1.0, 1.0);
        Signal in(1, std::vector<double>(3001, 0.0));
        in[0][0] = 1.0;
        in[0][1000] = -0.5;
        in[0][1001] = 0.25;
        // out[t] = c (in[t] - out[t-2]) + in[t-2] per section; 0.5 (A[t] + B[t-1]).
        const auto chain = [&](const double* c, int32_t n) {
            std::vector<double> x = in[0];
            for (int32_t s = 0; s < n; ++s) {
                std::vector<double> y(x.size(), 0.0);
                for (size_t t = 0; t < x.size(); ++t)
                    y[t] = c[s] * (x[t] - (t >= 2 ? y[t - 2] : 0.0)) + (t >= 2 ? x[t - 2] : 0.0);
                x = y;
            }
            return x;
        };
        const std::vector<double> a = chain(list[0].b, list[0].bCount);
        const std::vector<double> b = chain(list[0].a, list[0].aCount);
        for (const int32_t block : {1, 3, 64, 3001}) {
            SCOPED_TRACE(block);
            Graph& g = build("hbf", {0}, rate);
            set("hbf.f.index", index);
            const Signal out = g.run(in, block);
            for (size_t t = 0; t < a.size(); ++t)
                ASSERT_NEAR(out[0][t], 0.5 * (a[t] + (t >= 1 ? b[t - 1] : 0.0)), 1e-15) << t;
        }
    }
}

TEST_F(FilterIIR, SilenceAfterASignalLeavesNoDenormals)
{
    const double rate = 48000.0;
    Graph& g = build("bands", {0}, rate);
    set("bands.lo.gain", 2.0);
    set("bands.hi.gain", 0.7);
    Signal in(1, std::vector<double>(size_t(rate) * 30, 0.0));
    for (size_t i = 0; i < 4800; ++i)
        in[0][i] = std::sin(0.05 * double(i));
    const Signal out = g.run(in, 1024);
    for (size_t i = 0; i < out[0].size(); ++i)
        ASSERT_NE(std::fpclassify(out[0][i]), FP_SUBNORMAL) << i;
    EXPECT_EQ(out[0].back(), 0.0);
    for (const char* band : {"lo", "mid", "hi"}) {
        const CDCDAWBiquadState& st = module(band).state(0, 0).biquad;
        EXPECT_EQ(st.w1, 0.0) << band;
        EXPECT_EQ(st.w2, 0.0) << band;
    }
}

TEST_F(FilterIIR, ARateChangeStartsTheStagesAgain)
{
    Graph& g = build("one", {0}, 44100.0);
    set("one.b.gain", 2.0);
    g.run(sine(1000.0, 44100.0, 2048), 512);
    EXPECT_EQ(module("b").state(0, 0).biquad.length, 1103);
    g.setFormat(96000.0, {0});
    const Signal out = g.run(sine(1000.0, 96000.0, 1), 1);
    const CDCDAWBiquadState& st = module("b").state(0, 0).biquad;
    EXPECT_EQ(st.length, 2400);
    EXPECT_EQ(st.remaining, 0); // new coefficients at once, no morph from the old rate's
    EXPECT_EQ(st.c[0], design("peak_magnusB_fixed", 96000.0, 1000.0, 2.0, 1.0)[0].b[0]);
    EXPECT_EQ(out[0][0], 0.0); // cleared state, silent first sample of a sine
}

// Steady filtering, queued morphs and designs of every kind the bands use, on the audio
// thread's side without an allocation.
TEST_F(FilterIIR, DesigningAndMorphingAllocateNothing)
{
    const double rate = 48000.0;
    Graph& g = build("bands", {0}, rate);
    const int32_t n = 256;
    const Signal in = sine(700.0, rate, size_t(n));
    for (int i = 0; i < 20; ++i)
        g.block(in, 0, n); // warm: buffers and modules exist, every stage designed
#ifdef QEL_COUNTING
    // The counter sees what it should.
    t_news = 0;
    t_counting = true;
    auto* probe = new std::vector<double>(4);
    t_counting = false;
    delete probe;
    EXPECT_EQ(t_news, 2u);
#endif
    [[maybe_unused]] int64_t counted = 0;
    for (int k = 0; k < 40; ++k) {
        set("bands.lo.gain", 1.0 + 0.05 * k);
        set("bands.mid.freq", 500.0 + 10.0 * k);
        set("bands.hi.bw", 1.0 + 0.02 * k);
        g.applyChanges();
        g.feed(in, 0, n);
        t_news = t_mallocs = 0;
        t_counting = true;
        g.root->process();
        g.output->process();
        t_counting = false;
        counted += int64_t(t_news + t_mallocs);
    }
#ifdef QEL_COUNTING
    EXPECT_EQ(counted, 0);
#endif
    EXPECT_GT(module("lo").state(0, 0).biquad.remaining, 0);
}

TEST_F(FilterIIR, AMissingArrayIsLoggedAndPassesTheSignal)
{
    LogCapture log;
    Graph& g = build("lost", {0}, 48000.0);
    const Signal in = sine(1000.0, 48000.0, 256);
    EXPECT_EQ(g.run(in, 256), in);
    EXPECT_TRUE(log.has("The 'gen-array' '/audio.nowhere' not found. // plugin.lost.b")) << (log.lines.empty() ? "" : log.lines[0]);
}

} // namespace

// Stacks on graphs compiled from TestStackGraphs.xml: a copy per group that has channels,
// chains of copies reading their own elements, the crossfade when a layout changes, and
// the multiband process's split.

#include "GraphTestSupport.h"

#include "Audio/CAudioProcessMB.h"
#include "Audio/CAudioProcessStack.h"
#include "Audio/CAudioProcessTerminalBase.h"
#include "Audio/CXFadeKernel.h"

#include <numbers>

using namespace qel;
using namespace qel::test;

namespace qel {
extern const CResourceRow kStackGraphTestDefinitions[];
}

namespace {

constexpr double kRate = 44100.0;

// Noise of a fixed seed in [-1, 1).
Signal noise(size_t channels, size_t length, uint32_t seed = 1)
{
    Signal s(channels, std::vector<double>(length));
    for (auto& channel : s) {
        for (double& x : channel) {
            seed = seed * 1664525u + 1013904223u;
            x = double(int32_t(seed)) / 2147483648.0;
        }
    }
    return s;
}

// The weight of the old signal k samples into a fade of n: 0.5 + 0.5 cos(pi k / n), written
// from its definition rather than from the recurrence the kernel runs.
double oldWeight(size_t k, int32_t n)
{
    return k >= size_t(n) ? 0.0 : 0.5 + 0.5 * std::cos(std::numbers::pi * double(k) / double(n));
}

// The recurrence drifts from the cosine by far less than this over a fade (see CXFadeKernel).
constexpr double kFadeTolerance = 1e-9;

class Stack : public GraphFixture
{
protected:
    Stack() : GraphFixture(kStackGraphTestDefinitions) {}

    void setElement(const char* param, double value, int32_t group, int32_t element)
    {
        m_collector->getParam(CString("plugin.").append(param))->setElementValue(value, group, element, nullptr);
    }

    CAudioProcessStack& stack(const char* child) { return m_graph->child<CAudioProcessStack>(child); }

    // The band stack inside the copy of `dlc` that serves `group`.
    CAudioProcessStack* bands(int32_t group)
    {
        auto* copy = dynamic_cast<CAudioProcess*>(stack("dlc").copyAt(group, 0));
        return copy ? dynamic_cast<CAudioProcessStack*>(copy->findChild(CString("band"))) : nullptr;
    }
};

// ---- a copy per group

TEST_F(Stack, EachGroupInUseHasOneCopyThatScalesItsOwnChannels)
{
    Graph& g = build("groups", {0, 0, 1, 1, 3, 3});
    const double gains[4] = {1.5, 2.0, 0.25, 4.0};
    for (int32_t group = 0; group < 4; ++group)
        set("groups.dlc.gain", gains[group], group);
    const Signal in = tones(6, 2000);
    const Signal out = g.run(in, 256);
    for (size_t c = 0; c < 6; ++c)
        for (size_t i = 0; i < in[c].size(); ++i)
            ASSERT_EQ(out[c][i], in[c][i] * gains[g.groups[c]]) << c << " " << i;

    CAudioProcessStack& s = stack("dlc");
    ASSERT_EQ(s.groupRecordCount(), 3);
    EXPECT_EQ(s.groupRecordAt(2), 3);
    EXPECT_EQ(s.runListCount(), 3);
    for (const int32_t group : {0, 1, 3}) {
        SCOPED_TRACE(group);
        auto* copy = dynamic_cast<CAudioProcess*>(s.copyAt(group, 0));
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(copy->group(), group);
        // The copy hears its group's two channels and no others.
        auto* gain = dynamic_cast<CAudioProcessTerminalBase*>(copy->findChild(CString("g")));
        ASSERT_NE(gain, nullptr);
        EXPECT_EQ(gain->slotCount(), 2);
        EXPECT_EQ(gain->port(0).channelCount, 2);
    }
    EXPECT_EQ(s.copyAt(2, 0), nullptr);
}

// ---- levels in series

TEST_F(Stack, LevelsRunInSeriesEachAtItsElement)
{
    Graph& g = build("gains");
    const Signal in = tones(1, 1000);
    // Products of the gains 2, 3, 0.5, 5: each level reads its own.
    const double products[5] = {0.0, 2.0, 6.0, 3.0, 15.0};
    for (int32_t count = 1; count <= 4; ++count) {
        SCOPED_TRACE(count);
        set("gains.count", count);
        // The first block after a change fades from the old chain; from the second on the
        // new one plays alone.
        g.run(in, 700);
        const Signal out = g.run(in, 250);
        for (size_t i = 0; i < out[0].size(); ++i)
            ASSERT_NEAR(out[0][i], in[0][i] * products[count], 1e-12 * products[count]) << i;
        EXPECT_EQ(stack("g").levelCount(0), count);
        EXPECT_EQ(stack("g").runListCount(), count);
        for (int32_t e = 0; e < count; ++e)
            EXPECT_EQ(stack("g").copyAt(0, e)->element(), e);
    }
    // The four levels the count asked for at set-up are all there are: six play four.
    EXPECT_EQ(stack("g").preparedLevelCount(0), 4);
    set("gains.count", 6);
    g.run(in, 700);
    EXPECT_NEAR(g.run(in, 250)[0][100], in[0][100] * 15.0, 1e-12);
    EXPECT_EQ(stack("g").levelCount(0), 4);
}

TEST_F(Stack, LatenciesOfLevelsAddUp)
{
    Graph& g = build("delays");
    const Signal in = noise(1, 3000);
    const Signal out = g.run(in, 128);
    for (size_t i = 0; i < in[0].size(); ++i)
        ASSERT_EQ(out[0][i], i < 15 ? 0.0 : in[0][i - 15]) << i;
    EXPECT_EQ(m_env->latency(), 15);
}

TEST_F(Stack, AnIndexShiftMovesEveryLevelUp)
{
    Graph& g = build("shifted");
    set("shifted.count", 1);
    const Signal in = tones(1, 500);
    EXPECT_EQ(g.run(in, 500)[0][100], in[0][100] * 5.0);
    EXPECT_EQ(stack("g").copyAt(0, 0)->element(), 2);
    set("shifted.count", 2);
    g.run(in, 250);
    g.run(in, 500);
    EXPECT_NEAR(g.run(in, 500)[0][100], in[0][100] * 35.0, 1e-15);
}

TEST_F(Stack, NoLevelsLeaveTheGroupWithoutOutput)
{
    Graph& g = build("gains", {0, 1});
    set("gains.count", 0, 1);
    const Signal in = tones(2, 500);
    Signal out = g.run(in, 500);
    EXPECT_EQ(out[0][10], in[0][10] * 15.0);
    EXPECT_TRUE(std::isnan(out[1][10]));
    EXPECT_EQ(stack("g").levelCount(1), 0);
    set("gains.count", 2, 1);
    out = g.run(in, 500);
    EXPECT_EQ(out[1][10], in[1][10] * 6.0);
}

// The product's shape against the same bands written out, per group with values of its
// own: the stack's wiring, element binding and group routing change no sample.
TEST_F(Stack, StackedBandsMatchTheBandsWrittenOut)
{
    struct Setting
    {
        double mode[3], freq[3], gain[3], bw[3];
    };
    const Setting settings[2] = {
        {{2, 1, 3}, {126, 700, 4900}, {1.9952623, 0.7079458, 2.8183829}, {1.15, 2.75, 1.15}},
        {{3, 0, 1}, {300, 1000, 2500}, {0.5, 4.0, 1.5}, {0.5, 1.0, 3.0}},
    };
    const Signal in = noise(2, 6000, 7);
    Signal written[2];
    for (int32_t k = 0; k < 2; ++k) {
        Graph& g = build("written");
        const char* names[3] = {"lo", "mid", "hi"};
        for (int32_t b = 0; b < 3; ++b) {
            const std::string at = std::string("written.") + names[b] + ".";
            set((at + "mode").c_str(), settings[k].mode[b]);
            set((at + "freq").c_str(), settings[k].freq[b]);
            set((at + "gain").c_str(), settings[k].gain[b]);
            set((at + "bw").c_str(), settings[k].bw[b]);
        }
        written[k] = g.run(Signal{in[size_t(k)]}, 300);
    }
    Graph& g = build("eq", {0, 1});
    for (int32_t group = 0; group < 2; ++group) {
        for (int32_t b = 0; b < 3; ++b) {
            setElement("eq.dlc.eq.mode", settings[group].mode[b], group, b);
            setElement("eq.dlc.eq.freq", settings[group].freq[b], group, b);
            setElement("eq.dlc.eq.gain", settings[group].gain[b], group, b);
            setElement("eq.dlc.eq.bw", settings[group].bw[b], group, b);
        }
    }
    const Signal out = g.run(in, 300);
    for (size_t c = 0; c < 2; ++c)
        for (size_t i = 0; i < in[c].size(); ++i)
            ASSERT_EQ(out[c][i], written[c][0][i]) << c << " " << i;
    EXPECT_EQ(stack("dlc").groupRecordCount(), 2);
    EXPECT_EQ(bands(0)->levelCount(0), 3);
    EXPECT_EQ(bands(1)->levelCount(1), 3);
}

// ---- changes while audio runs

// 3 levels (x 3) to 2 (x 6): over one fade the old chain hands over to the new.
TEST_F(Stack, AnotherCountCrossfadesFromTheOldChain)
{
    Graph& g = build("gains");
    set("gains.count", 3);
    const Signal in = tones(1, 3000);
    const int32_t n = CXFadeKernel::lengthFor(kRate, 0.015);
    ASSERT_EQ(n, 662);
    g.run(in, 200, 0, 1000);
    set("gains.count", 2);
    const Signal out = g.run(in, 200, 1000, 3000);
    EXPECT_FALSE(stack("g").isFading());
    for (size_t k = 0; k < out[0].size(); ++k) {
        const double w = oldWeight(k, n);
        ASSERT_NEAR(out[0][k], in[0][1000 + k] * (3.0 * w + 6.0 * (1.0 - w)), kFadeTolerance) << k;
    }
    EXPECT_EQ(stack("g").runListCount(), 2);
}

// A count that changes during a fade waits for it; the newest value is taken after.
TEST_F(Stack, ACountDuringAFadeWaitsForIt)
{
    Graph& g = build("gains");
    set("gains.count", 3);
    const Signal in = tones(1, 4000);
    const int32_t n = CXFadeKernel::lengthFor(kRate, 0.015);
    g.run(in, 100, 0, 1000);
    set("gains.count", 2);
    g.run(in, 100, 1000, 1100);
    EXPECT_TRUE(stack("g").isFading());
    set("gains.count", 1);
    set("gains.count", 4);
    // The first fade ends within the block at 1600; the next starts at 1700.
    Signal out = g.run(in, 100, 1100, 4000);
    for (size_t t = 1100; t < 4000; ++t) {
        double expected = 0.0;
        if (t < 1000 + size_t(n)) {
            const double w = oldWeight(t - 1000, n);
            expected = 3.0 * w + 6.0 * (1.0 - w);
        } else if (t < 1700) {
            expected = 6.0;
        } else {
            const double w = oldWeight(t - 1700, n);
            expected = 6.0 * w + 15.0 * (1.0 - w);
        }
        ASSERT_NEAR(out[0][t - 1100], in[0][t] * expected, kFadeTolerance) << t;
    }
}

// Channel 1 leaves group 0 for group 1: its new copy starts from silence (a fresh delay of
// 64), and the old copy plays it on until the fade is over.
TEST_F(Stack, AChannelThatMovesGroupFadesToAFreshCopy)
{
    Graph& g = build("groupDelays", {0, 0});
    const Signal in = noise(2, 5000, 3);
    const int32_t n = CXFadeKernel::lengthFor(kRate, 0.015);
    g.run(in, 256, 0, 1024);
    CAudioProcessBase* first = stack("d").copyAt(0, 0);
    g.setFormat(kRate, {0, 1});
    const Signal out = g.run(in, 256, 1024, 5000);
    for (size_t t = 1024; t < 5000; ++t) {
        const double delayed = in[1][t - 64];
        const double fresh = t < 1024 + 64 ? 0.0 : delayed;
        const double w = oldWeight(t - 1024, n);
        ASSERT_NEAR(out[1][t - 1024], delayed * w + fresh * (1.0 - w), kFadeTolerance) << t;
        // The channel that stays hears nothing of it.
        ASSERT_EQ(out[0][t - 1024], in[0][t - 64]) << t;
    }
    CAudioProcessStack& s = stack("d");
    EXPECT_EQ(s.groupRecordCount(), 2);
    EXPECT_EQ(s.copyAt(0, 0), first);
    ASSERT_NE(s.copyAt(1, 0), nullptr);
    EXPECT_NE(s.copyAt(1, 0), first);
    EXPECT_EQ(s.copyAt(0, 0)->port(0).channelCount, 1);
    EXPECT_EQ(m_env->latency(), 64);

    // Back again: group 1 goes, and group 0's copy, which kept playing, takes it on.
    g.setFormat(kRate, {0, 0});
    g.run(in, 256, 0, 2048);
    EXPECT_EQ(s.groupRecordCount(), 1);
    EXPECT_EQ(s.copyAt(1, 0), nullptr);
}

// Before the first block there is nothing to fade from.
TEST_F(Stack, ALayoutBeforeTheFirstBlockStartsAtOnce)
{
    Graph& g = build("gains");
    set("gains.count", 2);
    const Signal in = tones(1, 300);
    EXPECT_EQ(g.run(in, 300)[0][5], in[0][5] * 6.0);
    EXPECT_FALSE(stack("g").isFading());
}

// Counts and groups changing on the product's shape stay finite and complete:
// CAudioStackRealTimeTest; the fades themselves are checked exactly above.

// ---- columns, failures

TEST_F(Stack, AChannelStackGivesEachChannelItsOwnCopies)
{
    Graph& g = build("perChannel", {0, 0, 1});
    const Signal in = tones(3, 400);
    const Signal out = g.run(in, 400);
    for (size_t c = 0; c < 3; ++c)
        EXPECT_EQ(out[c][50], 2.0 * in[c][50]);
    CAudioProcessStack& s = stack("g");
    EXPECT_EQ(s.columnCount(0), 2);
    EXPECT_EQ(s.columnCount(1), 1);
    ASSERT_TRUE(s.copyAt(0, 0, 0) && s.copyAt(0, 0, 1));
    EXPECT_NE(s.copyAt(0, 0, 0), s.copyAt(0, 0, 1));
    EXPECT_EQ(s.copyAt(0, 0, 1)->port(0).channelCount, 1);
    EXPECT_EQ(s.runListCount(), 3);
}

TEST_F(Stack, ACopyThatCannotBeMadeIsLogged)
{
    LogCapture log;
    CObject* made = nullptr;
    ASSERT_FALSE(m_root->createChild(made, CString("brokenCopies"), CString("broken"), true));
    const auto* def = static_cast<CAudioProcessDefBase*>(made);
    CSampleBufferPool pool;
    CAudioProcessBase* process = nullptr;
    CErrorPtr error = def->createProcess(process, nullptr, CString("plugin.broken"), m_env, 0, 0, &pool, false, false);
    std::unique_ptr<CAudioProcessBase> owned(process);
    EXPECT_FALSE(error);
    auto* s = dynamic_cast<CAudioProcessStack*>(process);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->preparedCopyCount(), 0);
    EXPECT_TRUE(log.has("No 'multiband-freq-param' attribute defined. // plugin.broken")) << (log.lines.empty() ? "" : log.lines[0]);
}

// ---- the multiband process

// Bands 2, 3, 5, 7; crossovers low 0.5, 0.25, 0.125 and high 0.75, 0.5, 0.25; a pre stage
// of latency 4: out = x(t-4) (2 * 0.5 + 3 * 0.75 * 0.25 + 5 * 0.75 * 0.5 * 0.125 + 7 * 0.75 * 0.5 * 0.25).
TEST_F(Stack, MultibandSplitsIntoBandsAndSumsThem)
{
    Graph& g = build("split");
    const Signal in = noise(1, 8000);
    // The bands are gains, so a new split holds from the block it comes in; the pre stage
    // before it keeps its four samples.
    size_t at = 0;
    const auto expect = [&](double factor) {
        const Signal out = g.run(in, 256, at, at + 2000);
        for (size_t i = 0; i < out[0].size(); ++i) {
            const size_t t = at + i;
            ASSERT_NEAR(out[0][i], t < 4 ? 0.0 : in[0][t - 4] * factor, 1e-12) << t;
        }
        at += 2000;
    };
    expect(2 * 0.5 + 3 * 0.75 * 0.25 + 5 * 0.75 * 0.5 * 0.125 + 7 * 0.75 * 0.5 * 0.25);
    auto& mb = g.child<CAudioProcessMB>("mb");
    EXPECT_EQ(mb.bandCount(), 4);
    EXPECT_EQ(mb.band(3)->element(), 3);
    EXPECT_EQ(mb.pre()->fullName(), CString("plugin.split.mb.pre"));
    EXPECT_EQ(m_env->latency(), 4);

    // A crossover below the one before it ends the count: 100, 1000, then 500.
    setElement("split.xf", 500.0, 0, 2);
    expect(2 * 0.5 + 3 * 0.75 * 0.25 + 5 * 0.75 * 0.5);
    EXPECT_EQ(mb.bandCount(), 3);
    EXPECT_EQ(mb.band(3), nullptr);
    // So does one at or above half the rate.
    setElement("split.xf", 22050.0, 0, 0);
    expect(2.0);
    EXPECT_EQ(mb.bandCount(), 1);
    setElement("split.xf", 100.0, 0, 0);
    set("split.bands", 2);
    expect(2 * 0.5 + 3 * 0.75);
    EXPECT_EQ(mb.bandCount(), 2);
}

TEST_F(Stack, MultibandRefusesWhatItCannotSplit)
{
    for (const auto& [name, message] : std::vector<std::pair<const char*, std::string>>{
             {"mbNoFreq", "No 'multiband-freq-param' attribute defined."},
             {"mbNoCount", "No 'multiband-count-param' attribute defined."},
             {"mbNoLowPass", "Name attribute 'multiband-lp' refers to a non-existent object '.nowhere'"},
             {"mbEmptyHighPass", "Object name attribute 'multiband-hp' cannot be empty."}}) {
        SCOPED_TRACE(name);
        CObject* made = nullptr;
        ASSERT_FALSE(m_root->createChild(made, CString(name), CString(name), true));
        CSampleBufferPool pool;
        CAudioProcessBase* process = nullptr;
        CErrorPtr error = static_cast<CAudioProcessDefBase*>(made)->createProcess(
            process, nullptr, CString("plugin.mb"), m_env, 0, 0, &pool, false, false);
        std::unique_ptr<CAudioProcessBase> owned(process);
        ASSERT_TRUE(error);
        EXPECT_EQ(error->line(0).toUtf8().substr(0, message.size()), message);
        EXPECT_EQ(process, nullptr);
        // Its bands alone are plain processes.
        error = static_cast<CAudioProcessDefBase*>(made)->createProcess(process, nullptr, CString("plugin.mb"), m_env,
                                                                        0, 0, &pool, true, true);
        owned.reset(process);
        EXPECT_FALSE(error);
        EXPECT_NE(process, nullptr);
    }
}

} // namespace

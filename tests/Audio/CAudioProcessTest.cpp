// The run-time of the graph on graphs compiled from TestProcessGraphs.xml: planning,
// alignment of latencies, mixing, bypass states, cycles, block lengths and rates.

#include "GraphTestSupport.h"

#include "Audio/CAudioProcessStack.h"
#include "Audio/CAudioProcessTerminalBase.h"

#include <tuple>

using namespace qel;
using namespace qel::test;

namespace qel {
extern const CResourceRow kProcessGraphTestDefinitions[];
}

namespace {

class ProcessGraph : public GraphFixture
{
protected:
    ProcessGraph() : GraphFixture(kProcessGraphTestDefinitions) {}

    // Child names in run order, the output side as "*".
    std::string runOrder()
    {
        CAudioProcess& p = m_graph->composite();
        std::string names;
        for (int32_t i = 0; i < p.runOrderCount(); ++i) {
            const CString& full = p.runOrderAt(i)->fullName();
            if (!names.empty())
                names.append(" ");
            names.append(full == p.fullName() ? CString("*").toUtf8() : full.substring(full.findLast('.') + 1).toUtf8());
        }
        return names;
    }
};

// A plain chain's order and gains: JunctionChainGivesADirectStream here, and the invert in
// CModSimpleProcessesTest; averaging in AnyBlockLengthGivesTheSameOutput's reference.

TEST_F(ProcessGraph, ParallelPathsAlignToTheLaterOne)
{
    Graph& g = build("parallel");
    const Signal in = tones(1, 2000);
    const Signal out = g.run(in, 500);
    for (size_t i = 0; i < in[0].size(); ++i)
        ASSERT_EQ(out[0][i], i < 64 ? 0.0 : 2.0 * in[0][i - 64]) << i;
    // The line sits on the stream from a, the path of latency 0; b's needs none.
    CAudioStream* fromA = g.child<CAudioProcessBase>("a").outputs().at(0);
    CAudioStream* fromB = g.child<CAudioProcessBase>("b").outputs().at(0);
    ASSERT_NE(fromA->delays[0], nullptr);
    EXPECT_EQ(fromA->delays[0]->delay(), 64);
    EXPECT_EQ(fromB->delays[0], nullptr);
    EXPECT_EQ(g.child<CAudioProcessBase>("c").latency(), 64);
    EXPECT_EQ(g.output->latency(), 64);
    EXPECT_EQ(m_env->latency(), 64);
}

TEST_F(ProcessGraph, NewRateResetsModulesAndLines)
{
    Graph& g = build("parallel");
    const Signal dc = constant(1, 1000, 1.0);
    EXPECT_EQ(g.run(dc, 250)[0].back(), 2.0);
    g.setFormat(48000.0, {0});
    // Both paths start from nothing: the line on a's stream and b's module alike.
    const Signal out = g.run(dc, 250, 0, 500);
    for (size_t i = 0; i < 500; ++i)
        ASSERT_EQ(out[0][i], i < 64 ? 0.0 : 2.0) << i;
    auto& b = g.child<CAudioProcessTerminalBase>("b");
    EXPECT_EQ(b.currentModule(0)->sampleRate(), 48000.0);
    EXPECT_EQ(g.output->inputRate(), 48000.0);
}

TEST_F(ProcessGraph, AnyBlockLengthGivesTheSameOutput)
{
    const Signal in = tones(2, 12000);
    Signal reference = build("mixed", {0, 1}).run(in, 12000);
    for (size_t c = 0; c < 2; ++c) {
        for (size_t i = 0; i < in[c].size(); ++i) {
            const double x = i < 64 ? 0.0 : in[c][i - 64];
            ASSERT_EQ(reference[c][i], (x + x * 0.5) * 0.5 + x) << c << "/" << i;
        }
    }
    EXPECT_EQ(m_env->latency(), 64);
    for (int32_t length : {1, 37, 512, 4096, 9000}) {
        SCOPED_TRACE(length);
        Graph& g = build("mixed", {0, 1});
        EXPECT_EQ(g.run(in, length), reference);
    }
    // Blocks beyond the classes come from the large class and are reused from there.
    Graph& g = build("mixed", {0, 1});
    g.run(in, 9000, 0, 9000);
    g.run(in, 9000, 0, 9000); // the output process holds one block while the next comes in
    const int64_t allocations = g.pool.systemAllocations();
    g.run(in, 9000, 0, 9000);
    EXPECT_EQ(g.pool.systemAllocations(), allocations);
    EXPECT_GT(g.pool.freeCount(CSampleBufferPool::kLargeClass), 0);
}

TEST_F(ProcessGraph, LatencyChangeCrossfadesTheAlignment)
{
    Graph& g = build("align");
    const Signal in = tones(1, 8000);
    Signal out = g.run(in, 512, 0, 2048);
    EXPECT_EQ(m_env->latency(), 64);
    set("align.b.latency", 128);
    const Signal later = g.run(in, 512, 2048, 8000);
    out[0].insert(out[0].end(), later[0].begin(), later[0].end());
    EXPECT_EQ(m_env->latency(), 128);

    // The tone moves by at most 2 pi 220 / 44100 per sample; fading between two copies of
    // it adds at most pi / (2 N) times their distance (below 2), about 0.005. A jump from
    // one alignment to the other would be up to 1.7.
    const double bound = 2.0 * 3.141592653589793 * 220.0 / 44100.0 + 3.141592653589793 / (2.0 * 662.0) * 2.0;
    for (size_t i = 65; i < out[0].size(); ++i)
        ASSERT_LE(std::fabs(out[0][i] - out[0][i - 1]), bound) << i;
    for (size_t i = 64; i < 2048; ++i)
        ASSERT_EQ(out[0][i], in[0][i - 64]) << i;
    // The line waits out the 64 samples it grows by, then fades over 662.
    for (size_t i = 2048 + 64 + 662; i < out[0].size(); ++i)
        ASSERT_EQ(out[0][i], in[0][i - 128]) << i;
}

TEST_F(ProcessGraph, JunctionChainGivesADirectStream)
{
    Graph& g = build("junctions");
    EXPECT_EQ(runOrder(), "a b *");
    auto& a = g.child<CAudioProcessBase>("a");
    auto& b = g.child<CAudioProcessBase>("b");
    ASSERT_EQ(b.port(0).sources.size(), 1u);
    EXPECT_EQ(b.port(0).sources[0], a.outputs().at(0));
    const Signal in = tones(1, 100);
    const Signal out = g.run(in, 100);
    for (size_t i = 0; i < in[0].size(); ++i)
        ASSERT_EQ(out[0][i], in[0][i] * 2.0 * 3.0);
    EXPECT_EQ(g.composite().lateLinkEntryCount(), 0);
}

TEST_F(ProcessGraph, BypassedProcessLeavesAndComesBackCleared)
{
    Graph& g = build("bypassable");
    const Signal dc = constant(1, 300, 1.0);
    Signal out = g.run(dc, 100);
    EXPECT_EQ(out[0][63], 0.0);
    EXPECT_EQ(out[0][64], 1.0);
    EXPECT_EQ(runOrder(), "g1 d g2 *");
    EXPECT_EQ(m_env->latency(), 64);

    // Gone: its neighbours meet, and it holds nothing any more.
    set("bypassable.skip", 1);
    out = g.run(dc, 100, 0, 100);
    EXPECT_EQ(out[0], std::vector<double>(100, 1.0));
    EXPECT_EQ(runOrder(), "g1 g2 *");
    EXPECT_EQ(m_env->latency(), 0);
    auto& d = g.child<CAudioProcessTerminalBase>("d");
    EXPECT_EQ(d.port(0).channelCount, 0);
    EXPECT_EQ(d.slotCount(), 0);

    // Back, from cleared state: its memory of ones is gone.
    set("bypassable.skip", 0);
    out = g.run(dc, 100, 0, 100);
    for (size_t i = 0; i < 100; ++i)
        ASSERT_EQ(out[0][i], i < 64 ? 0.0 : 1.0) << i;
    EXPECT_EQ(runOrder(), "g1 d g2 *");
    EXPECT_EQ(m_env->latency(), 64);
    EXPECT_EQ(g.composite().lateLinkEntryCount(), 0);
}

TEST_F(ProcessGraph, CycleIsLoggedAndTheRestRuns)
{
    LogCapture log;
    Graph& g = build("cycle");
    // At set-up the line is written at once.
    EXPECT_TRUE(log.has("process seq err // plugin.cycle"));
    EXPECT_TRUE(g.composite().hasSequenceError());
    EXPECT_EQ(runOrder(), "a *");
    const Signal in = tones(1, 200);
    Signal out = g.run(in, 100);
    for (size_t i = 0; i < in[0].size(); ++i)
        ASSERT_EQ(out[0][i], in[0][i] * 2.0);

    set("cycle.loop", 0);
    g.run(in, 100);
    EXPECT_FALSE(g.composite().hasSequenceError());
    EXPECT_EQ(runOrder(), "a b c *");

    // A cycle found while audio runs is only noted; the log hears of it afterwards.
    log.lines.clear();
    set("cycle.loop", 1);
    out = g.run(in, 100);
    EXPECT_TRUE(g.composite().hasSequenceError());
    EXPECT_TRUE(log.lines.empty());
    EXPECT_EQ(out[0][150], in[0][150] * 2.0);
    m_env->diagnostics().flush();
    EXPECT_EQ(log.lines, std::vector<std::string>{"process seq err // plugin.cycle"});
}

TEST_F(ProcessGraph, SlotsWithoutRowsAreLoggedOnce)
{
    LogCapture log;
    Graph& g = build("unbound");
    EXPECT_EQ(log.lines, (std::vector<std::string>{"regModuleParam error 0 // plugin.unbound.g",
                                                    "regModuleParam error 1 // plugin.unbound.g",
                                                    "regModuleParam error 2 // plugin.unbound.g"}));
    // Unbound, the gain reads its fallbacks and passes the signal on.
    const Signal in = tones(1, 64);
    EXPECT_EQ(g.run(in, 64), in);
    m_env->diagnostics().flush();
    EXPECT_EQ(log.lines.size(), 3u);
}

// The wrappers come first, unless the caller makes their inner instances: a multiband
// process before a stack, and this one refuses to split without its parameters.
TEST_F(ProcessGraph, WrappersAreMadeUnlessSkipped)
{
    CObject* made = nullptr;
    ASSERT_FALSE(m_root->createChild(made, CString("stackedGain"), CString("stacked"), true));
    const auto* def = static_cast<CAudioProcessDefBase*>(made);
    CSampleBufferPool pool;
    for (const auto& [skipStack, skipMultiband, kind] : std::vector<std::tuple<bool, bool, std::string>>{
             {false, false, "refused"}, {true, false, "refused"}, {false, true, "stack"}, {true, true, "gain"}}) {
        SCOPED_TRACE(testing::Message() << skipStack << skipMultiband);
        CAudioProcessBase* process = nullptr;
        CErrorPtr error = def->createProcess(process, nullptr, CString("plugin.stacked"), m_env, 0, 0, &pool, skipStack, skipMultiband);
        std::unique_ptr<CAudioProcessBase> owned(process);
        EXPECT_EQ(firstLine(error), kind == "refused" ? "No 'multiband-freq-param' attribute defined." : "");
        EXPECT_EQ(dynamic_cast<CAudioProcessStack*>(process) != nullptr, kind == "stack");
        EXPECT_EQ(dynamic_cast<CAudioProcessTerminalBase*>(process) != nullptr, kind == "gain");
    }
}

} // namespace

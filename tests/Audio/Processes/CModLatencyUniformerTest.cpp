// The delay that holds the graph's latency at one number: its table of target latencies,
// and behind a delay of known latency, the signal it hands on, the latency it reports and
// what it tells the log.

#include "OversamplingTestSupport.h"

#include "Audio/Processes/CLatencyDef.h"
#include "Audio/Processes/CModLatencyUniformer.h"

using namespace qel;
using namespace qel::test;

namespace {

std::vector<std::pair<int32_t, int32_t>> rows(const char* text)
{
    CLatencyDef table;
    table.parseLatencies(CString(text));
    std::vector<std::pair<int32_t, int32_t>> out;
    for (const CLatencyDef::CRow& row : table.latencyRows())
        out.emplace_back(row.rate, row.latency);
    return out;
}

using Rows = std::vector<std::pair<int32_t, int32_t>>;

TEST(LatencyTable, ItemsParseInTheFrameworksIntegerGrammar)
{
    EXPECT_EQ(rows("768000=584"), (Rows{{768000, 584}}));
    EXPECT_EQ(rows(""), Rows{});
    EXPECT_EQ(rows(";;"), Rows{});
    // Kept in the order written; hexadecimal behind any of its four marks, and a sign.
    EXPECT_EQ(rows("96000=-1;48000=0x64;#10=$20;-5=0X10"), (Rows{{96000, -1}, {48000, 100}, {16, 32}, {-5, 16}}));
    // A field that is no number reads as -1; an item without '=' is no row.
    EXPECT_EQ(rows("bad=7;1;44100=x;=3;5="), (Rows{{-1, 7}, {44100, -1}, {-1, 3}, {5, -1}}));
    // Fields past the second are not read.
    EXPECT_EQ(rows("8=9=10"), (Rows{{8, 9}}));
    EXPECT_EQ(rows("99999999999=1"), (Rows{{-1, 1}}));
}

TEST(LatencyTable, TheFirstRowAtOrAboveTheRoundedRateHolds)
{
    CLatencyDef table;
    table.parseLatencies(CString("48000=100;96000=-1;192000=400"));
    const auto latencyAt = [&](double rate) {
        const CLatencyDef::CRow* row = table.latencyRowFor(rate);
        return row ? row->latency : -2;
    };
    EXPECT_EQ(latencyAt(44100.0), 100);
    EXPECT_EQ(latencyAt(48000.0), 100);
    EXPECT_EQ(latencyAt(48000.4), 100);
    EXPECT_EQ(latencyAt(48000.5), -1);
    EXPECT_EQ(latencyAt(88200.0), -1);
    EXPECT_EQ(latencyAt(192000.0), 400);
    EXPECT_EQ(latencyAt(192001.0), -2);
    EXPECT_EQ(latencyAt(1e12), -2);
    EXPECT_EQ(latencyAt(std::nan("")), -2);
}

class Uniformer : public OversamplingFixture
{
protected:
    CModLatencyUniformer& uniformer() { return m_graph->child<CModLatencyUniformer>("modLatencyUniformer"); }
    int32_t moduleDelay()
    {
        auto* module = dynamic_cast<CModLatencyUniformerModule*>(uniformer().currentModule(0));
        EXPECT_NE(module, nullptr);
        return module ? module->delay() : -1;
    }
    // The log lines of the last flush.
    std::vector<std::string> flushed()
    {
        LogCapture log;
        m_env->diagnostics().flush();
        return log.lines;
    }

    // Whether out is in delayed by `delay`, zeros before.
    static void expectDelayed(const std::vector<double>& out, const std::vector<double>& in, size_t delay, size_t from = 0)
    {
        for (size_t i = from; i < out.size(); ++i)
            ASSERT_EQ(out[i], i < delay ? 0.0 : in[i - delay]) << i;
    }
};

// Behind a delay of `before`, the signal comes out as late as the table's 584 (or as it came
// where that is later or the rate lies beyond the table, which the log is told).
TEST_F(Uniformer, PadsTheLatencyToTheTablesTarget)
{
    const std::string at = " in LatencyUniformer // plugin.modMain.modLatencyUniformer";
    struct Case
    {
        double rate;
        int32_t before, delay, reported;
        std::string message;
    };
    const Case cases[] = {
        {44100.0, 100, 584, 584, ""},
        {48000.0, 0, 584, 584, ""},
        {96000.0, 583, 584, 584, ""},
        {768000.0, 7, 584, 584, ""},
        {44100.0, 584, 584, 584, ""},
        {44100.0, 600, 600, 584, "Too high latency 600 at sample rate 44100.000000" + at},
        // Exactly 768000 Hz is the table's last rate; one more is beyond it.
        {768001.0, 10, 10, 10, "Unsupported sample rate 768001.000000" + at},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.rate) + " " + std::to_string(c.before));
        Graph& g = buildMain("uniformer", {0, 0}, c.rate);
        setMain("between-latency", double(c.before));
        const Signal in = tones(2, 3000, c.rate);
        const Signal out = runThrough(g, in, 512);
        for (size_t ch = 0; ch < 2; ++ch)
            expectDelayed(out[ch], in[ch], size_t(c.delay));
        EXPECT_EQ(moduleDelay(), c.delay - c.before);
        EXPECT_EQ(m_env->latency(), c.reported);
        EXPECT_EQ(flushed(), c.message.empty() ? std::vector<std::string>{} : std::vector<std::string>{c.message});
        EXPECT_TRUE(flushed().empty()); // told once
    }
}

TEST_F(Uniformer, RowsMarkedUnsupportedAndEmptyTablesPadNothing)
{
    struct Case
    {
        const char* graph;
        double rate;
        int32_t latency; // -1: unsupported
    };
    const Case cases[] = {{"uniformerRows", 44100.0, 100},  {"uniformerRows", 88200.0, -1},
                          {"uniformerRows", 96000.0, -1},   {"uniformerRows", 176400.0, 400},
                          {"uniformerRows", 200000.0, -1},  {"uniformerEmpty", 44100.0, -1},
                          {"uniformerEmpty", 8000.0, -1}};
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.graph) + " " + std::to_string(c.rate));
        Graph& g = buildMain(c.graph, {0}, c.rate);
        const Signal in = tones(1, 1500, c.rate);
        const Signal out = runThrough(g, in, 512);
        expectDelayed(out[0], in[0], size_t(std::max(c.latency, 0)));
        EXPECT_EQ(m_env->latency(), std::max(c.latency, 0));
        EXPECT_EQ(flushed().size(), c.latency < 0 ? 1u : 0u);
    }
}

// A new input latency rebuilds the line from empty: zeros for the new delay, then the input
// as late as the target, which never moves.
TEST_F(Uniformer, ANewInputLatencyRebuildsTheLineAtOnce)
{
    Graph& g = buildMain("uniformer");
    setMain("between-latency", 100.0);
    const Signal in = tones(1, 6000);
    Signal out = runThrough(g, in, 500, 0, 3000);
    setMain("between-latency", 200.0);
    const Signal after = runThrough(g, in, 500, 3000, 6000);
    out[0].insert(out[0].end(), after[0].begin(), after[0].end());
    EXPECT_EQ(moduleDelay(), 384);
    EXPECT_EQ(m_env->latency(), 584);
    for (size_t i = 0; i < out[0].size(); ++i) {
        const bool isRefilling = i >= 3000 && i < 3000 + 384;
        ASSERT_EQ(out[0][i], isRefilling || i < 584 ? 0.0 : in[0][i - 584]) << i;
    }
}

TEST_F(Uniformer, AResetRearmsTheSameDelay)
{
    Graph& g = buildMain("uniformer");
    setMain("between-latency", 84.0);
    const Signal in = constant(1, 3000, 0.5);
    runThrough(g, in, 500, 0, 1500);
    g.root->reset();
    const Signal out = runThrough(g, in, 500, 1500, 3000);
    EXPECT_EQ(moduleDelay(), 500);
    // Both lines start again from zeros: the test delay's 84 and the uniformer's 500.
    for (size_t i = 0; i < out[0].size(); ++i)
        ASSERT_EQ(out[0][i], i < 584 ? 0.0 : 0.5) << i;
}

} // namespace

// The long FIR filter process in a graph: its output against the convolution written out
// with taps designed in the test, its plan and latency, crossfades to new filters,
// a new rate, the zero-latency form, and definitions and values it cannot use.

#include "../Filters/FIRTestSupport.h"
#include "../GraphTestSupport.h"

#include "Audio/Filters/CAudioFilterGen.h"
#include "Audio/Processes/CModFilterFIR.h"

#include <numbers>
#include <tuple>

namespace qel {
extern const CResourceRow kFIRTestDefinitions[];
}

using namespace qel;
using namespace qel::test;

namespace {

class FilterFIR : public GraphFixture
{
protected:
    FilterFIR() : GraphFixture(kFIRTestDefinitions) {}

    CModFilterFIRModule& module(int32_t slot = 0)
    {
        return *static_cast<CModFilterFIRModule*>(m_graph->child<CModFilterFIR>("f").currentModule(slot));
    }

    // The windowed-sinc low-pass as the generator designs it, asked here directly.
    std::vector<double> design(double rate, double length, double freq, double beta)
    {
        const auto* gen = dynamic_cast<const CAudioFilterGen*>(CApplication::sharedRoot()->findObject(CString("audio.flt.firlp")));
        EXPECT_NE(gen, nullptr);
        CAudioFilterParamNames names;
        names.add("length");
        names.add("freq");
        names.add("beta");
        const double values[3] = {length, freq, beta};
        CAudioFilterStageList list;
        CDCDAWFilterWorkspace workspace;
        gen->createFilter(workspace, rate, CAudioFilterParams{&names, values, 3}, list);
        EXPECT_EQ(list.count(), 1);
        if (list.count() != 1)
            return {};
        return std::vector<double>(list.taps(list[0]), list.taps(list[0]) + list[0].tapCount);
    }

    int32_t publishedLatency() const { return m_graph->link.channels[0].latency; }

    Signal runBlocks(Graph& g, const Signal& in, const std::vector<int32_t>& blocks, size_t from = 0)
    {
        Signal out(in.size());
        size_t at = from;
        for (const int32_t n : blocks) {
            const std::vector<const double*> buffers = g.block(in, at, n);
            for (size_t c = 0; c < in.size(); ++c)
                for (int32_t i = 0; i < n; ++i)
                    out[c].push_back(buffers[c] ? buffers[c][i] : std::numeric_limits<double>::quiet_NaN());
            at += size_t(n);
        }
        return out;
    }
};

void expectClose(const std::vector<double>& y, const std::vector<double>& expected, double bound, size_t from = 0)
{
    ASSERT_GE(y.size(), from + expected.size());
    const size_t worst = worstSample(y, expected, from);
    ASSERT_NEAR(y[from + worst], expected[worst], 1e-12 * bound) << "at " << worst;
}

struct ProductFilter
{
    const char* graph;
    double length, freq, beta;
    int32_t taps, blockLength;
    std::vector<std::pair<int32_t, int32_t>> plan; // block length and partitions per stage
};

// At `fixsr` the product's three filters run the taps of 44100 Hz at any rate.
const ProductFilter kProductFilters[] = {
    {"upSteep", 0.015, 11025.0, 18.0, 661, 64, {{64, 3}, {256, 2}}},
    {"downSteep", 0.024, 10980.0, 18.0, 1063, 128, {{128, 9}}},
    {"soft", 0.0016, 12000.0, 18.4, 65, 32, {{32, 3}}},
};

TEST_F(FilterFIR, TheProductsFiltersConvolveExactlyHoweverTheBlocksAreCut)
{
    for (const ProductFilter& p : kProductFilters) {
        const std::vector<double> h = design(44100.0, p.length, p.freq, p.beta);
        ASSERT_EQ(int32_t(h.size()), p.taps);
        const Signal in(1, randomSignal(size_t(3 * p.taps + 5000), 1, 0.25));
        const std::vector<double> expected = directConvolution(h, in[0], p.blockLength);
        Signal previous;
        for (int32_t way = 0; way < 6; ++way) {
            SCOPED_TRACE(::testing::Message() << p.graph << ", way " << way);
            Graph& g = build(p.graph, {0}, 96000.0);
            const std::vector<int32_t> blocks = way < 4 ? fixedBlocks(in[0].size(), std::array{1, 37, 512, 4096}[size_t(way)])
                                                        : randomBlocks(in[0].size(), uint32_t(way));
            const Signal out = runBlocks(g, in, blocks);
            expectClose(out[0], expected, outputBound(h, in[0]));
            if (!previous.empty()) {
                ASSERT_EQ(out, previous);
            }
            previous = out;
            EXPECT_EQ(module().tapCount(), p.taps);
            EXPECT_EQ(module().blockLength(), p.blockLength);
            // The taps of the 44.1 kHz design; the latency is M + B0 samples, also as the host is told.
            EXPECT_TRUE(std::equal(h.begin(), h.end(), module().taps()));
            EXPECT_EQ(publishedLatency(), p.taps / 2 + p.blockLength);
            EXPECT_EQ(m_env->latency(), publishedLatency());
            std::vector<std::pair<int32_t, int32_t>> plan;
            const CFIRPartitionedFilter& f = module().filter();
            for (int32_t s = 0; s < f.stageCount(); ++s)
                plan.emplace_back(f.stage(s).blockLength, f.stage(s).partitions);
            EXPECT_EQ(plan, p.plan);
        }
    }
}

// The linear-phase path's impulse response: symmetric around the latency the host is told.
TEST_F(FilterFIR, TheLowPassIsSymmetricAroundItsLatency)
{
    Graph& g = build("fir", {0}, 48000.0);
    const size_t at = 300;
    Signal in(1, std::vector<double>(3000, 0.0));
    in[0][at] = 1.0;
    const std::vector<double> y = g.run(in, 256)[0];
    const int32_t latency = publishedLatency();
    EXPECT_EQ(latency, 330 + 64);
    const size_t centre = at + size_t(latency);
    // The transforms round at about 1e-16 of the taps' sum (about 1).
    for (size_t k = 1; k <= 330; ++k) {
        ASSERT_NEAR(y[centre + k], y[centre - k], 1e-14) << k;
        ASSERT_LT(std::fabs(y[centre + k]), y[centre]) << k;
    }
    // Nothing before the first tap or after the last: the response is 661 samples long.
    for (size_t t = 0; t < centre - 330; ++t)
        ASSERT_LT(std::fabs(y[t]), 1e-14) << t;
    for (size_t t = centre + 331; t < y.size(); ++t)
        ASSERT_LT(std::fabs(y[t]), 1e-14) << t;
    // Half the band at fixsr: the centre tap is w / pi = 2 * 11025 / 44100.
    EXPECT_NEAR(y[centre], 0.5, 1e-12);
}

// A longer filter: the old output goes on while the new module, seeded with the sample at
// the change, fills its latency; then the raised cosine of 0.015 s; then the new one alone.
TEST_F(FilterFIR, ANewLengthCrossfadesToTheNewFilter)
{
    const double rate = 44100.0;
    Graph& g = build("fir", {0}, rate);
    const Signal in(1, randomSignal(9000, 3, 0.1));
    const size_t change = 2048;
    std::vector<double> out = g.run(in, 256, 0, change)[0];
    EXPECT_EQ(publishedLatency(), 330 + 64);
    set("fir.f.length", 0.024);
    std::vector<double> rest = g.run(in, 256, change, in[0].size())[0];
    out.insert(out.end(), rest.begin(), rest.end());
    // H = 44100 * 0.024 / 2 = 529.2 taps on each side.
    const int32_t latency = 529 + 64;
    EXPECT_EQ(publishedLatency(), latency);
    EXPECT_EQ(module().tapCount(), 2 * 529 + 1);

    const std::vector<double> hOld = design(44100.0, 0.015, 11025.0, 18.0);
    const std::vector<double> hNew = design(44100.0, 0.024, 11025.0, 18.0);
    const std::vector<double> oldOut = directConvolution(hOld, in[0], 64);
    const std::vector<double> newOut = directConvolution(hNew, in[0], 64, change);
    const size_t wait = size_t(latency);
    const size_t fade = 662; // 661.5 rounded half away from zero
    const double bound = outputBound(hNew, in[0]);
    for (size_t t = 0; t < out.size(); ++t) {
        double expected = t < change + wait ? oldOut[t] : newOut[t - change];
        if (t >= change + wait && t < change + wait + fade) {
            const double s = 0.5 * std::cos(std::numbers::pi * double(t - change - wait) / double(fade));
            expected = (0.5 + s) * oldOut[t] + (0.5 - s) * newOut[t - change];
        }
        ASSERT_NEAR(out[t], expected, 1e-9 * bound) << t;
    }
    // No step beyond those of the two signals, plus the weights' slope (pi / (2 N)) times their difference.
    double stepOld = 0.0, stepNew = 0.0, stepOut = 0.0, difference = 0.0;
    for (size_t t = change + wait; t < change + wait + fade + 1; ++t) {
        stepOld = std::max(stepOld, std::fabs(oldOut[t] - oldOut[t - 1]));
        stepNew = std::max(stepNew, std::fabs(newOut[t - change] - newOut[t - change - 1]));
        stepOut = std::max(stepOut, std::fabs(out[t] - out[t - 1]));
        difference = std::max(difference, std::fabs(oldOut[t] - newOut[t - change]));
    }
    EXPECT_LE(stepOut, std::max(stepOld, stepNew) + std::numbers::pi / (2.0 * fade) * difference + 1e-12);
}

// A new rate: designed again for it, and started afresh from its first sample.
TEST_F(FilterFIR, ANewRateDesignsAgainAndStartsFromTheNextSample)
{
    Graph& g = build("fir", {0}, 48000.0);
    set("fir.f.fixsr", 0.0);
    const Signal in(1, randomSignal(12000, 4, -0.3));
    const size_t change = 3000;
    const std::vector<double> before = g.run(in, 500, 0, change)[0];
    // H = 48000^2 * 0.015 / (8 * 11025) = 391.8
    const std::vector<double> h48 = design(48000.0, 0.015, 11025.0, 18.0);
    ASSERT_EQ(h48.size(), 2u * 391 + 1);
    EXPECT_EQ(publishedLatency(), 391 + 64);
    expectClose(before, directConvolution(h48, std::vector<double>(in[0].begin(), in[0].begin() + change), 64),
                outputBound(h48, in[0]));

    g.setFormat(96000.0, {0});
    const std::vector<double> after = g.run(in, 500, change, in[0].size())[0];
    const std::vector<double> h96 = design(96000.0, 0.015, 11025.0, 18.0);
    EXPECT_EQ(module().tapCount(), int32_t(h96.size()));
    EXPECT_EQ(publishedLatency(), int32_t(h96.size() / 2) + 64);
    expectClose(after, directConvolution(h96, in[0], 64, change), outputBound(h96, in[0]));
}

TEST_F(FilterFIR, TheZeroLatencyFormAddsOnlyTheDesignsLatency)
{
    Graph& g = build("firZero", {0}, 44100.0);
    const Signal in(1, randomSignal(5000, 5, 0.4));
    const std::vector<double> h = design(44100.0, 0.015, 11025.0, 18.0);
    const Signal out = runBlocks(g, in, randomBlocks(in[0].size(), 5));
    EXPECT_EQ(publishedLatency(), 330);
    EXPECT_EQ(module().blockLength(), 64);
    EXPECT_EQ(module().head(0).length(), 64);
    EXPECT_EQ(module().filter().plan().parts[0].level, 2);
    expectClose(out[0], directConvolution(h, in[0], 0), outputBound(h, in[0]));
}

// One whole module for all channels, or one per channel: each channel its own signal state.
TEST_F(FilterFIR, EveryChannelIsFilteredOnItsOwn)
{
    Signal in;
    for (uint32_t c = 0; c < 3; ++c)
        in.push_back(randomSignal(4000, 40 + c, 0.2 * c));
    const std::vector<double> h = design(44100.0, 0.015, 11025.0, 18.0);
    for (const char* graph : {"fir", "firEach"}) {
        SCOPED_TRACE(graph);
        Graph& g = build(graph, {0, 1, 1}, 44100.0);
        const Signal out = runBlocks(g, in, randomBlocks(in[0].size(), 6));
        for (size_t c = 0; c < 3; ++c)
            expectClose(out[c], directConvolution(h, in[c], 64), outputBound(h, in[c]));
        EXPECT_EQ(m_graph->child<CModFilterFIR>("f").currentModule(0)->channelCount(), std::string(graph) == "fir" ? 3 : 1);
    }
}

TEST_F(FilterFIR, TheBlockOrderIsRoundedAndHeldToTheTable)
{
    const std::vector<std::pair<double, int32_t>> cases = {{6.4, 64}, {6.5, 128}, {2.0, 16}, {14.0, 16384}, {20.0, 16384}};
    for (const auto& [value, block] : cases) {
        SCOPED_TRACE(value);
        Graph& g = build("firEach", {0}, 44100.0);
        set("firEach.f.latency", value);
        g.run(tones(1, 64), 64);
        EXPECT_EQ(module().blockLength(), block);
        EXPECT_EQ(publishedLatency(), 330 + block);
    }
}

TEST_F(FilterFIR, AMissingArrayIsLoggedAndPassesTheSignal)
{
    LogCapture log;
    Graph& g = build("lost", {0}, 48000.0);
    const Signal in(1, randomSignal(256, 8));
    const std::vector<const double*> out = g.block(in, 0, 256);
    EXPECT_EQ(out[0], g.lastInput[0]);
    EXPECT_EQ(publishedLatency(), 0);
    EXPECT_TRUE(log.has("The 'gen-array' '/audio.nowhere' not found. // plugin.lost.f"))
        << (log.lines.empty() ? "" : log.lines[0]);
}

// The product's `count` and `index` rows name no parameter: one filter of the array's first
// generator. A slot with no row at all is logged.
TEST_F(FilterFIR, SlotsWithoutParametersReadTheirDefaults)
{
    {
        LogCapture log;
        build("soft", {0}, 44100.0).run(tones(1, 128), 128);
        for (const std::string& line : log.lines)
            EXPECT_EQ(line.find("regModuleParam"), std::string::npos) << line;
    }
    LogCapture log;
    Graph& g = build("gap", {0}, 44100.0);
    g.run(tones(1, 128), 128);
    EXPECT_TRUE(log.has("regModuleParam error 1 // plugin.gap.f"));
    EXPECT_EQ(log.lines.size(), 1u);
    // The rows that are there still design the filter, at the default block of 128.
    EXPECT_EQ(module().tapCount(), 2 * int32_t(44100.0 * 44100.0 * 0.0016 / (8.0 * 12000.0)) + 1);
    EXPECT_EQ(module().blockLength(), 128);
}

// Values go to the generator by name in row order; a point list's shape is told after them.
TEST_F(FilterFIR, PointListsAddTheirShapeToTheGeneratorsNames)
{
    Graph& g = build("points", {0}, 44100.0);
    g.run(tones(1, 64), 64);
    const CModFilterFIRModule::CLayout& layout = g.child<CModFilterFIR>("f").layout();
    std::vector<std::string> names;
    for (int32_t i = 0; i < layout.names.count(); ++i)
        names.push_back(layout.names.name(i));
    EXPECT_EQ(names, (std::vector<std::string>{"length", "freq", "beta", "element-size", "element-count", "element-count2",
                                               "element-count3"}));
    EXPECT_EQ(layout.valueCount, 3);
    EXPECT_EQ(layout.pointSlots[0], 1);
    EXPECT_EQ(module().tapCount(), 65);
}

TEST_F(FilterFIR, TwoFiltersAreNotCombinedButTheirLatencyCounts)
{
    LogCapture log;
    Graph& g = build("firEach", {0}, 44100.0);
    set("firEach.f.count", 2.0);
    const Signal in(1, randomSignal(512, 9));
    g.run(in, 256);
    const std::vector<const double*> out = g.block(in, 0, 256);
    EXPECT_EQ(out[0], g.lastInput[0]);
    EXPECT_EQ(module().tapCount(), 0);
    EXPECT_EQ(publishedLatency(), 2 * 330 + 64);
    m_env->diagnostics().flush();
    EXPECT_TRUE(log.has("FIR filter combining was not implemented yet! // plugin.firEach.f"));
    // Told once per occurrence.
    const size_t lines = log.lines.size();
    m_env->diagnostics().flush();
    EXPECT_EQ(log.lines.size(), lines);
}

// No taps to run: the input buffer itself goes on and nothing is added to the latency.
TEST_F(FilterFIR, WithoutTapsTheSignalPassesByReference)
{
    const Signal in(1, randomSignal(512, 10));
    for (const auto& [what, param, value] : std::vector<std::tuple<const char*, const char*, double>>{
             {"a frequency above half the rate", "firEach.f.freq", 30000.0},
             {"a generator without taps", "firEach.f.index", 1.0},
             {"a recursive generator", "firEach.f.index", 2.0},
             {"an index without a generator", "firEach.f.index", 7.0},
             {"no filter asked for", "firEach.f.count", 0.0}}) {
        SCOPED_TRACE(what);
        Graph& g = build("firEach", {0}, 44100.0);
        set(param, value);
        g.run(in, 256);
        const std::vector<const double*> out = g.block(in, 0, 256);
        EXPECT_EQ(out[0], g.lastInput[0]);
        EXPECT_EQ(publishedLatency(), 0);
        EXPECT_EQ(module().tapCount(), 0);
    }
}

} // namespace

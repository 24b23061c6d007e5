// Gain, bypass and solo, and the process switch with its table.

#include "../GraphTestSupport.h"

#include "Audio/Processes/CModBypassModule.h"
#include "Audio/Processes/CModGainModule.h"
#include "Audio/Processes/CModProcessSwitch.h"

#include <numbers>

using namespace qel;
using namespace qel::test;

namespace qel {
extern const CResourceRow kProcessGraphTestDefinitions[];
}

namespace {

// The silence of a module that started at state 0, written from the generator's definition.
std::vector<double> silence(size_t n)
{
    std::vector<double> out;
    uint32_t state = 0;
    for (size_t i = 0; i < n; ++i) {
        state = state * 30013u + 30011u;
        out.push_back((state & 0x800000u) ? 1e-11 : -1e-11);
    }
    return out;
}

class SimpleProcesses : public GraphFixture
{
protected:
    SimpleProcesses() : GraphFixture(kProcessGraphTestDefinitions) {}

    template <class Module>
    Module& module(const char* child, int32_t slot = 0)
    {
        return *static_cast<Module*>(m_graph->child<CAudioProcessTerminalBase>(child).currentModule(slot));
    }
};

TEST_F(SimpleProcesses, UnityGainPassesTheBufferItself)
{
    Graph& g = build("chain");
    const Signal in = tones(1, 256);
    std::vector<const double*> out = g.block(in, 0, 256);
    // The buffer that went in comes out: three stages, no copy and no multiply.
    EXPECT_EQ(out[0], g.lastInput[0]);
    for (const char* name : {"g1", "g2", "g3"})
        EXPECT_FALSE(module<CModGainModule>(name).isActive()) << name;

    // 0 dB inverted is a factor of -1: active, and written into a buffer of its own.
    set("chain.g2.invert", 1);
    out = g.block(in, 0, 256);
    EXPECT_NE(out[0], g.lastInput[0]);
    EXPECT_TRUE(module<CModGainModule>("g2").isActive());
    EXPECT_EQ(module<CModGainModule>("g2").factor(), -1.0);
    for (size_t i = 0; i < 256; ++i)
        ASSERT_EQ(out[0][i], -in[0][i]);
}

TEST_F(SimpleProcesses, MutedGainWritesSilenceNoise)
{
    Graph& g = build("chain");
    set("chain.g2.gain", 0.5);
    set("chain.g2.mute", 1);
    const Signal out = g.run(tones(1, 600), 300);
    EXPECT_EQ(out[0], silence(600)); // two blocks: the generator runs on
    EXPECT_EQ(module<CModGainModule>("g2").factor(), 0.0);
}

TEST_F(SimpleProcesses, SoloInOneGroupSilencesTheOthers)
{
    Graph& g = build("noDry", {1, 2});
    const Signal in = tones(2, 200);
    set("noDry.byp.solo", 1, 2);
    Signal out = g.run(in, 200);
    EXPECT_TRUE(std::all_of(out[0].begin(), out[0].end(), [](double v) { return std::fabs(v) == 1e-11; }));
    for (size_t i = 0; i < 200; ++i)
        ASSERT_EQ(out[1][i], in[1][i] * 0.5);
    EXPECT_EQ(module<CModBypassModule>("byp", 0).mode(0), CModBypassModule::Mode::Silence);

    set("noDry.byp.solo", 0, 2);
    out = g.run(in, 200);
    for (size_t c = 0; c < 2; ++c)
        for (size_t i = 0; i < 200; ++i)
            ASSERT_EQ(out[c][i], in[c][i] * 0.5);
}

TEST_F(SimpleProcesses, BypassFallsBackOnTheDryLinkOrOnSilence)
{
    const Signal in = tones(1, 300);
    {
        Graph& g = build("dry");
        set("dry.byp.enable", 1);
        EXPECT_EQ(g.run(in, 300), in); // the dry channel, by reference
        EXPECT_EQ(module<CModBypassModule>("byp").mode(0), CModBypassModule::Mode::Dry);
    }
    Graph& g = build("noDry");
    set("noDry.byp.enable", 1);
    EXPECT_EQ(g.run(in, 300)[0], silence(300));
}

TEST_F(SimpleProcesses, BypassCrossfadeFollowsTheRaisedCosine)
{
    Graph& g = build("dry");
    constexpr size_t kFade = 662; // 0.015 s at 44100 Hz is 661.5, rounded away from zero
    constexpr size_t kBlock = kFade / 2;
    const Signal in = tones(1, 7 * kBlock);
    Signal out = g.run(in, kBlock, 0, 2 * kBlock);
    // From the processed signal (half) to the dry one, and back again: the change that
    // comes halfway waits for the first fade to end.
    set("dry.byp.enable", 1);
    Signal more = g.run(in, kBlock, 2 * kBlock, 3 * kBlock);
    set("dry.byp.enable", 0);
    const Signal rest = g.run(in, kBlock, 3 * kBlock, 7 * kBlock);
    out[0].insert(out[0].end(), more[0].begin(), more[0].end());
    out[0].insert(out[0].end(), rest[0].begin(), rest[0].end());

    const auto expected = [&](size_t i) {
        const double x = in[0][i];
        if (i < 2 * kBlock)
            return 0.5 * x;
        const size_t k = i - 2 * kBlock;
        const double s = k < 2 * kFade ? 0.5 * std::cos(std::numbers::pi * double(k % kFade) / double(kFade)) : -0.5;
        const bool isToDry = k < kFade;
        return isToDry ? (0.5 + s) * 0.5 * x + (0.5 - s) * x : (0.5 + s) * x + (0.5 - s) * 0.5 * x;
    };
    // The recurrence drifts from the cosine by at most 4 N (N + 1) 2^-53 (about 2e-10).
    for (size_t i = 0; i < out[0].size(); ++i)
        ASSERT_NEAR(out[0][i], expected(i), 4e-10) << i;
    EXPECT_NE(out[0][2 * kBlock + kFade - 1], in[0][2 * kBlock + kFade - 1]);
    EXPECT_EQ(out[0][2 * kBlock + kFade], in[0][2 * kBlock + kFade]);
    EXPECT_EQ(out[0].back(), 0.5 * in[0].back());
}

TEST_F(SimpleProcesses, SwitchTakesTheTableEntryOrTheDefault)
{
    Graph& g = build("switched");
    auto& sw = g.child<CModProcessSwitch>("sw");
    const auto& def = static_cast<const CModProcessSwitchDef&>(*sw.def());
    const Signal dc = constant(1, 100, 1.0);
    const std::vector<std::tuple<int, const char*, int32_t>> cases = {
        {0, "flt0", 10}, {1, "flt1", 20}, {2, "flt1", 20}, {3, "flt1", 20}, {9, "flt0", 10}, {0, "flt0", 10}};
    for (const auto& [index, target, latency] : cases) {
        SCOPED_TRACE(index);
        EXPECT_EQ(def.lookUp(index)->def->name().toUtf8(), target);
        set("switched.sw.index", index);
        const Signal out = g.run(dc, 100);
        EXPECT_EQ(m_env->latency(), latency);
        ASSERT_EQ(sw.instanceCount(), 1);
        EXPECT_EQ(sw.instance(0)->fullName().toUtf8(), "plugin.switched.sw.inst");
        // Whatever it held before is gone: the new instance starts from silence.
        for (int32_t i = 0; i < 100; ++i)
            ASSERT_EQ(out[0][size_t(i)], i < latency ? 0.0 : 1.0) << i;
    }
    EXPECT_EQ(sw.preparedInstanceCount(), 2);
}

TEST_F(SimpleProcesses, BankChainsCountMinusIndexMinusOne)
{
    Graph& g = build("bank");
    auto& sw = g.child<CModProcessSwitch>("sw");
    EXPECT_EQ(sw.preparedInstanceCount(), 5); // count up to 6, index down to 0
    const Signal dc = constant(1, 64, 1.0);
    for (const auto& [index, count, stages] : std::vector<std::tuple<int, int, int32_t>>{{0, 4, 3}, {0, 6, 5}, {1, 6, 4}, {0, 9, 5}, {1, 1, 0}}) {
        SCOPED_TRACE(testing::Message() << index << "/" << count);
        set("bank.sw.index", index);
        set("bank.sw.count", count);
        const Signal out = g.run(dc, 64);
        EXPECT_EQ(sw.instanceCount(), stages);
        EXPECT_EQ(m_env->latency(), 5 * stages);
        if (stages > 0)
            EXPECT_EQ(out[0][size_t(5 * stages) - 1] + out[0][size_t(5 * stages)], 1.0);
        else
            EXPECT_TRUE(std::isnan(out[0][0])); // an empty switch hands on no channel
    }
}

TEST_F(SimpleProcesses, SwitchTablesAreReadOrRefused)
{
    const std::vector<std::pair<const char*, std::string>> cases = {
        {"switchNoIndex", "No index delimiter ':' found in item #1."},
        {"switchBadIndex", "Invalid index value '0x' in item #0."},
        {"switchWordIndex", "Invalid index value 'two' in item #1."},
        {"switchDupe", "Duplicate index value '0x1' used in item #1."},
        {"switchMissing", "Unable to find object '.missing' (':name.missing')"},
        {"switchWrongClass", "Incompatible type of object '.p' (':name.p')"},
    };
    int n = 0;
    for (auto [templateName, message] : cases) {
        SCOPED_TRACE(templateName);
        const std::string name = "sw" + std::to_string(++n);
        if (const size_t at = message.find(":name"); at != std::string::npos)
            message.replace(at, 5, name);
        CObject* made = nullptr;
        EXPECT_EQ(firstLine(m_root->createChild(made, CString(templateName), CString(name.c_str()), true)), message);
    }
    CObject* made = nullptr;
    ASSERT_FALSE(m_root->createChild(made, CString("switchGood"), CString("good"), true));
    std::string table;
    for (const auto& [index, entry] : static_cast<CModProcessSwitchDef*>(made)->table())
        table += std::to_string(index) + "=" + entry.childName.toUtf8() + " ";
    EXPECT_EQ(table, "-2=first 11=third 16=plain ");
}

} // namespace

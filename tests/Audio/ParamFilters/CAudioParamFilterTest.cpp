// The product's three filters and the base class's element mapping, on processes of a test
// definition: auto-gain against the decibel sum, the oversampling bypass over its table,
// the group solo ORed over the groups, new defaults, refusals, and two concurrent writers.

#include "ParamFilterTestSupport.h"

#include "Audio/ParamFilters/CAudioParamFilterFixedAG.h"

#include <chrono>
#include <future>
#include <random>
#include <thread>
#include <tuple>
#include <vector>

using namespace qel;
using namespace qel::test;

namespace {

// The auto-gain in decibels: the output gain plus each band's decibels times its coefficient.
double expectedInGainDb(double outDb, const std::vector<double>& bandDb)
{
    const double coeffs[3] = {-0.35, -0.35, -0.2};
    double db = outDb;
    for (size_t i = 0; i < bandDb.size(); ++i)
        db += coeffs[i] * bandDb[i];
    return db;
}

class ParamFilters : public ParamFilterFixture
{
protected:
    void setBands(const std::vector<double>& bandDb, double outDb, int32_t group)
    {
        for (size_t i = 0; i < bandDb.size(); ++i)
            setElement("autoGain.eq-params.gain", toLinear(bandDb[i]), group, int32_t(i));
        param("autoGain.outgain")->setValue(toLinear(outDb), group, nullptr);
    }
};

TEST_F(ParamFilters, FixedAutoGainLowersTheInputGainByTheBandsDecibels)
{
    const auto process = instantiate("autoGain", m_env);
    ASSERT_TRUE(process);
    EXPECT_EQ(m_collector->filterCount(), 1u);
    // At the defaults every gain is 0 dB, so ingain equals outgain.
    EXPECT_DOUBLE_EQ(value("autoGain.ingain"), 1.0);

    struct Case
    {
        std::vector<double> bandDb;
        double outDb;
        double expectedDb; // where the product names the figure
    };
    const std::vector<Case> cases = {
        {{9, 0, 0}, 0, -3.15},   {{0, 9, 0}, 0, -3.15},    {{0, 0, 9}, 0, -1.8},  {{0, 0, 0}, -7.5, -7.5},
        {{-3, -3, -3}, -6, -3.3}, {{6, -2, 4}, 12, 9.8}, {{0.5, 1.25, -2.75}, 3.3, 3.3 - 0.175 - 0.4375 + 0.55},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.bandDb) + " out " + std::to_string(c.outDb));
        setBands(c.bandDb, c.outDb, 0);
        EXPECT_NEAR(expectedInGainDb(c.outDb, c.bandDb), c.expectedDb, 1e-12);
        // Through exp and log against a sum of decibels: a few roundings apart.
        EXPECT_NEAR(toDb(value("autoGain.ingain")), c.expectedDb, 1e-12);
    }
}

TEST_F(ParamFilters, FixedAutoGainReachesTheSoundThroughTheRemappedPreGain)
{
    Graph& g = build("autoGain");
    // The pre-gain's own slot says 12 dB by default; the remap makes it read ingain instead.
    const Signal in = constant(1, 256, 0.25);
    Signal out = g.run(in, 64);
    for (double v : out[0])
        ASSERT_EQ(v, 0.25);

    setElement("autoGain.eq-params.gain", toLinear(9.0), 0, 0);
    setElement("autoGain.eq-params.gain", toLinear(9.0), 0, 2);
    param("autoGain.outgain")->setValue(toLinear(6.0), 0, nullptr);
    out = g.run(in, 64);
    for (double v : out[0])
        ASSERT_NEAR(v, 0.25 * toLinear(6.0 - 3.15 - 1.8), 1e-15);
}

TEST_F(ParamFilters, ChangedDefaultsRecomputeEveryGroup)
{
    const auto process = instantiate("autoGain", m_env);
    ASSERT_TRUE(process);
    param("autoGain.outgain")->setValue(toLinear(-6.0), 2, nullptr);
    setElement("autoGain.eq-params.gain", toLinear(3.0), 4, 1);

    // New band defaults: ingain follows in every group any source holds, not only the defaults.
    CAudioParam* bands = param("autoGain.eq-params.gain");
    const double twice = 2.0;
    CAudioParamChange c;
    {
        CAudioParamLock lock(*bands);
        c = bands->values().makeChange(kParamDefaultsGroup, 0, 1, true);
    }
    c.values = &twice;
    CAudioParamUpdateContext context;
    bands->change(c, context);

    const double bandsDb = toDb(2.0) * (-0.35 - 0.35 - 0.2);
    EXPECT_NEAR(toDb(value("autoGain.ingain", 0)), bandsDb, 1e-9);
    EXPECT_NEAR(toDb(value("autoGain.ingain", 2)), -6.0 + bandsDb, 1e-9);
    EXPECT_NEAR(toDb(value("autoGain.ingain", 4)), bandsDb, 1e-9);
    CAudioParam* ingain = param("autoGain.ingain");
    CAudioParamLock lock(*ingain);
    ASSERT_EQ(ingain->values().defaultValues().size(), 1u);
    EXPECT_NEAR(toDb(ingain->values().defaultValues()[0]), bandsDb, 1e-9);
}

TEST_F(ParamFilters, BypassOfOversamplingFollowsTheModeInForce)
{
    const auto process = instantiate("bypasses", m_env);
    ASSERT_TRUE(process);
    // Defaults: 1X and host mode 0.
    EXPECT_EQ(value("bypasses.oversampling-bypass"), 1.0);
    const char* names[] = {"Auto", "1X", "2X", "4X", "8X"};
    for (int mode = 0; mode <= 4; ++mode) {
        for (int host = 0; host <= 3; ++host) {
            SCOPED_TRACE(std::string(names[mode]) + " host " + std::to_string(host));
            param("bypasses.oversampling")->setValue(mode, 0, nullptr);
            param("bypasses.host-oversampling-mode")->setValue(host, 0, nullptr);
            // Auto follows the host, whose mode 0 is 1X.
            const bool isOneX = mode == 1 || (mode == 0 && host == 0);
            EXPECT_EQ(value("bypasses.oversampling-bypass"), isOneX ? 1.0 : 0.0);
        }
    }
    // Stored values are read rounded, half away from zero.
    param("bypasses.host-oversampling-mode")->setValue(0.0, 0, nullptr);
    for (const auto& [mode, bypass] : {std::pair{0.5, 1.0}, {1.49, 1.0}, {1.5, 0.0}, {0.49, 1.0}}) {
        param("bypasses.oversampling")->setValue(mode, 0, nullptr);
        EXPECT_EQ(value("bypasses.oversampling-bypass"), bypass) << mode;
    }
}

TEST_F(ParamFilters, BypassOfOversamplingHearsGroupZeroOnly)
{
    const auto process = instantiate("osPerGroup", m_env);
    ASSERT_TRUE(process);
    EXPECT_EQ(value("osPerGroup.bypass"), 1.0);
    param("osPerGroup.mode")->setValue(3, 3, nullptr);
    EXPECT_EQ(value("osPerGroup.bypass"), 1.0);
    EXPECT_EQ(param("osPerGroup.bypass")->values().elementCount(3), 0); // nothing was written there
    param("osPerGroup.mode")->setValue(3, 0, nullptr);
    EXPECT_EQ(value("osPerGroup.bypass"), 0.0);
    param("osPerGroup.host")->setValue(2, 3, nullptr);
    param("osPerGroup.mode")->setValue(0, 0, nullptr);
    EXPECT_EQ(value("osPerGroup.bypass"), 1.0); // Auto, and the host's group 0 is still 1X
    param("osPerGroup.host")->setValue(2, 0, nullptr);
    EXPECT_EQ(value("osPerGroup.bypass"), 0.0);
}

TEST_F(ParamFilters, GroupSoloIsTheOrOfEveryGroup)
{
    const auto process = instantiate("bypasses", m_env);
    ASSERT_TRUE(process);
    CAudioParam* solo = param("bypasses.io-params.channel-group-solo");
    // The declared default is 0, but no group is soloed: the filter sets it when it joins.
    EXPECT_EQ(value("bypasses.group-solo-bypass"), 1.0);

    // Group 2 stays soloed when 5 goes; 0.49 is off, 0.5 on.
    for (const auto& [v, group, bypass] :
         std::vector<std::tuple<double, int32_t, double>>{{1.0, 5, 0.0}, {1.0, 2, 0.0}, {0.0, 5, 0.0}, {0.49, 2, 1.0}, {0.5, 7, 0.0}}) {
        solo->setValue(v, group, nullptr);
        EXPECT_EQ(value("bypasses.group-solo-bypass"), bypass) << v << " in group " << group;
    }

    // A group whose list was emptied takes no part, whatever its default says.
    CAudioParamChange c;
    {
        CAudioParamLock lock(*solo);
        c = solo->values().makeChange(7, 0, 0, true);
    }
    CAudioParamUpdateContext context;
    solo->change(c, context);
    EXPECT_EQ(value("bypasses.group-solo-bypass"), 1.0);
}

TEST_F(ParamFilters, GroupSoloSwitchesTheSoloStageInAndOut)
{
    Graph& g = build("bypasses");
    const Signal in = tones(1, 512);
    // Not soloed: the solo stage is out of the path and the buffer passes as it came.
    Signal out = g.run(in, 128);
    EXPECT_EQ(out[0], in[0]);

    param("bypasses.io-params.channel-group-solo")->setValue(1.0, 6, nullptr);
    out = g.run(in, 128);
    for (size_t i = 0; i < in[0].size(); ++i)
        ASSERT_NEAR(out[0][i], in[0][i] * toLinear(-6.0), 1e-15) << i;

    param("bypasses.io-params.channel-group-solo")->setValue(0.0, 6, nullptr);
    out = g.run(in, 128);
    EXPECT_EQ(out[0], in[0]);
}

TEST_F(ParamFilters, BaseFilterMapsElementToElementAndKeepsWhatItDoesNotFill)
{
    const auto process = instantiate("mapped", m_env);
    ASSERT_TRUE(process);
    // The defaults run covers the longest list of a source (a: 1, 2): x = 2a + b, and y keeps
    // its own values for those elements, its list ending behind them.
    EXPECT_EQ(value("mapped.x", 0, 0), 12.0);
    EXPECT_EQ(value("mapped.x", 0, 1), 14.0);
    EXPECT_EQ(param("mapped.x")->values().elementCount(0), 2);
    EXPECT_EQ(value("mapped.y", 0, 0), 7.0);
    EXPECT_EQ(value("mapped.y", 0, 1), 8.0);
    EXPECT_EQ(param("mapped.y")->values().elementCount(0), 2);

    // Element 1 of group 1: the gap before it is filled with a's default, and both elements
    // are mapped.
    setElement("mapped.a", 5.0, 1, 1);
    EXPECT_EQ(value("mapped.x", 1, 0), 12.0);
    EXPECT_EQ(value("mapped.x", 1, 1), 20.0);
    // b is one element with the list's end: every element of a in the group follows.
    param("mapped.b")->setValue(20.0, 1, nullptr);
    EXPECT_EQ(value("mapped.x", 1, 0), 22.0);
    EXPECT_EQ(value("mapped.x", 1, 1), 30.0);
    EXPECT_EQ(value("mapped.y", 1, 1), 8.0);
    // Group 0 is untouched by all this.
    EXPECT_EQ(value("mapped.x", 0, 1), 14.0);
}

TEST_F(ParamFilters, CopiesOfAProcessShareOneFilter)
{
    auto first = instantiate("autoGain", m_env);
    auto second = instantiate("autoGain", m_env);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(m_collector->filterCount(), 1u);
    // One change of ingain per source change, not one per copy.
    size_t pending = m_collector->pendingCount();
    setElement("autoGain.eq-params.gain", toLinear(2.0), 3, 0);
    EXPECT_EQ(m_collector->pendingCount() - pending, 2u);
    // A second instance has its own.
    CAudioEnv* env = nullptr;
    CAudioParamCollector* other = addInstance(env);
    auto third = instantiate("autoGain", env);
    EXPECT_EQ(other->filterCount(), 1u);
    first.reset();
    second.reset();
    third.reset();
}

TEST_F(ParamFilters, FiltersOfWrongSizeAreRefusedWhenTheProcessIsBuilt)
{
    const std::vector<std::pair<const char*, const char*>> cases = {
        {"agcOneSource", "Not enough source parameters 1 defined in the param filter (required 2)."},
        {"osTenSources", "Too many source parameters 10 defined in the param filter."},
        {"soloTenDestinations", "Too many destination parameters 10 defined in the param filter."},
        {"soloNineDestinations", ""},
    };
    for (const auto& [templateName, message] : cases) {
        SCOPED_TRACE(templateName);
        CObject* made = nullptr;
        ASSERT_FALSE(instantiateTemplate(made, templateName));
        auto* def = dynamic_cast<CAudioProcessDefBase*>(made);
        ASSERT_NE(def, nullptr);
        CAudioProcessBase* process = nullptr;
        CErrorPtr error = def->createProcess(process, nullptr, CString("plugin.").append(made->name()), m_env, 0, 0,
                                             &m_pool, false, false);
        std::unique_ptr<CAudioProcessBase> owned(process);
        EXPECT_EQ(firstLine(error), message);
        EXPECT_EQ(process == nullptr, *message != 0);
    }
    EXPECT_EQ(m_collector->filterCount(), 1u); // only the nine destinations

    // The minimum of destinations, which a definition can't undercut, on the filter directly.
    CAudioParamFilterFixedAG filter;
    EXPECT_EQ(firstLine(filter.init(nullptr, m_collector, {CString("a"), CString("b")}, {})),
              "Not enough destination parameters 0 defined in the param filter (required 1).");
}

// The UI and a host's automation write two sources of one filter: were the filter to lock
// every source, each thread would hold the lock the other waits for.
TEST_F(ParamFilters, TwoWritersOfTwoSourcesNeverWaitForEachOther)
{
    const auto process = instantiate("autoGain", m_env);
    ASSERT_TRUE(process);
    CAudioParam* outgain = param("autoGain.outgain");
    CAudioParam* bands = param("autoGain.eq-params.gain");
    constexpr int kWrites = 4000;
    auto writeOut = std::async(std::launch::async, [&] {
        std::mt19937 random(1);
        for (int i = 0; i < kWrites; ++i)
            outgain->setValue(toLinear(std::uniform_real_distribution<double>(-12, 12)(random)), 0, nullptr);
    });
    auto writeBands = std::async(std::launch::async, [&] {
        std::mt19937 random(2);
        for (int i = 0; i < kWrites; ++i)
            bands->setElementValue(toLinear(std::uniform_real_distribution<double>(-3, 9)(random)), 0, i % 3, nullptr);
    });
    // The queue grows meanwhile; an audio thread would drain it.
    auto drainer = std::async(std::launch::async, [&] {
        while (writeOut.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready
               || writeBands.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready)
            drain();
    });
    if (drainer.wait_for(std::chrono::seconds(120)) != std::future_status::ready) {
        std::fprintf(stderr, "the two writers are stuck on each other's locks\n");
        std::_Exit(1);
    }
    drain();
    // The last result written is the one of the last values of both.
    std::vector<double> bandDb;
    for (int e = 0; e < 3; ++e)
        bandDb.push_back(toDb(value("autoGain.eq-params.gain", 0, e)));
    EXPECT_NEAR(toDb(value("autoGain.ingain")), expectedInGainDb(toDb(value("autoGain.outgain")), bandDb), 1e-9);
    // And the audio side saw the same.
    CAudioParam* ingain = param("autoGain.ingain");
    EXPECT_EQ(ingain->audioValues().getElementValue(0, 0, 0, 0.0), value("autoGain.ingain"));
}

} // namespace

// A smooth stage that its bypass state takes out of the path, or brings back, fades
// between its input and its own output instead of switching: out of the path it leaves
// only once it passes its input unchanged, and back in it starts from its input.

#include "GraphTestSupport.h"

#include "Audio/CAudioProcess.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace qel {

extern const CResourceRow kProcessGraphTestDefinitions[];

namespace {

using namespace qel::test;

class BypassFade : public GraphFixture
{
protected:
    BypassFade() : GraphFixture(kProcessGraphTestDefinitions) {}

    bool isRunning(const char* name)
    {
        CAudioProcess& p = m_graph->composite();
        const CAudioProcessBase* child = p.findChild(CString(name));
        for (int32_t i = 0; i < p.runOrderCount(); ++i)
            if (child && p.runOrderAt(i) == child)
                return true;
        return false;
    }
};

// The 0.015 s fade at 44.1 kHz.
constexpr size_t kFade = 662;

TEST_F(BypassFade, ASmoothStageFadesToItsInputBeforeItLeavesAndFadesBackWhenItReturns)
{
    Graph& g = build("fading");
    const Signal dc = constant(1, 2000, 1.0);
    Signal out = g.run(dc, 100);
    EXPECT_EQ(out[0].back(), 2.0);
    EXPECT_TRUE(isRunning("g"));

    // Out: from the gain's 2 down to the input's 1 along the raised cosine, then gone.
    set("fading.skip", 1);
    out = g.run(dc, 100);
    EXPECT_EQ(out[0][0], 2.0);
    for (size_t i = 1; i < out[0].size(); ++i) {
        ASSERT_LE(out[0][i], out[0][i - 1]) << i;
        // No step larger than the cosine's steepest: pi / (2 N) of the difference.
        ASSERT_LE(out[0][i - 1] - out[0][i], 3.2 / (2.0 * double(kFade))) << i;
    }
    for (size_t i = kFade; i < out[0].size(); ++i)
        ASSERT_EQ(out[0][i], 1.0) << i;
    EXPECT_NEAR(out[0][kFade / 2], 1.5, 0.01);
    EXPECT_FALSE(isRunning("g"));

    // Back: from the input up to the gain again.
    set("fading.skip", 0);
    out = g.run(dc, 100);
    EXPECT_TRUE(isRunning("g"));
    EXPECT_EQ(out[0][0], 1.0);
    for (size_t i = 1; i < out[0].size(); ++i)
        ASSERT_GE(out[0][i], out[0][i - 1]) << i;
    for (size_t i = kFade; i < out[0].size(); ++i)
        ASSERT_EQ(out[0][i], 2.0) << i;
    EXPECT_EQ(g.composite().lateLinkEntryCount(), 0);
}

TEST_F(BypassFade, TurnedRoundHalfwayTheFadeGoesBackFromWhereItStands)
{
    Graph& g = build("fading");
    const Signal dc = constant(1, 2000, 1.0);
    g.run(dc, 100);

    set("fading.skip", 1);
    Signal out = g.run(dc, 100, 0, 300);
    const double reached = out[0].back();
    EXPECT_GT(reached, 1.0);
    EXPECT_LT(reached, 2.0);
    // Back before it has left: it never leaves, and goes up again without a step.
    set("fading.skip", 0);
    Signal back = g.run(dc, 100);
    EXPECT_TRUE(isRunning("g"));
    EXPECT_NEAR(back[0][0], reached, 0.01);
    for (size_t i = 1; i < back[0].size(); ++i)
        ASSERT_GE(back[0][i], back[0][i - 1]) << i;
    // It turns where it stood: what was left of the way back is as long as the way came.
    for (size_t i = 300; i < back[0].size(); ++i)
        ASSERT_EQ(back[0][i], 2.0) << i;
    EXPECT_LT(back[0][290], 2.0);
}

TEST_F(BypassFade, AResetLetsALeavingStageGoAtOnce)
{
    Graph& g = build("fading");
    const Signal dc = constant(1, 2000, 1.0);
    g.run(dc, 100);
    set("fading.skip", 1);
    g.run(dc, 100, 0, 200);
    EXPECT_TRUE(isRunning("g"));
    g.root->reset();
    const Signal out = g.run(dc, 100, 0, 300);
    EXPECT_FALSE(isRunning("g"));
    for (size_t i = 0; i < out[0].size(); ++i)
        ASSERT_EQ(out[0][i], 1.0) << i;
}

} // namespace
} // namespace qel

// The product's stacks as the wrapper builds them from its definition: a copy of the group
// chain for each group that has channels, and in it one band per element of the band
// parameters.

#include "WrapperTestSupport.h"

#include "Audio/CAudioProcessStack.h"

using namespace qel;
using namespace qel::test;

namespace {

TEST(ProductStacks, AStereoDefaultSetUpRunsOneGroupChainOfThreeBands)
{
    ScopedApplication app{kProductResourceRows, "SharedData.xml"};
    auto w = startedWrapper();
    ASSERT_TRUE(w);
    const HostSetup stereo;
    prepare(*w, stereo);
    const Signal out = processOne(*w, stereo, tones(2, 512), 0, 512);
    for (const auto& channel : out)
        for (double x : channel)
            ASSERT_TRUE(std::isfinite(x));

    auto* chains = w->child<CAudioProcessStack>("modDLC73");
    ASSERT_NE(chains, nullptr);
    // A copy is ready for every group, and the one group with channels runs alone.
    EXPECT_EQ(chains->preparedGroupCount(), 8);
    ASSERT_EQ(chains->groupRecordCount(), 1);
    EXPECT_EQ(chains->groupRecordAt(0), 0);
    EXPECT_EQ(chains->runListCount(), 1);
    auto* chain = dynamic_cast<CAudioProcess*>(chains->copyAt(0, 0));
    ASSERT_NE(chain, nullptr);
    EXPECT_EQ(chain->port(0).channelCount, 2);

    auto* bands = dynamic_cast<CAudioProcessStack*>(chain->findChild(CString("modFilter")));
    ASSERT_NE(bands, nullptr);
    EXPECT_EQ(bands->preparedGroupCount(), 1);
    EXPECT_EQ(bands->levelCount(0), 3);
    for (int32_t e = 0; e < 3; ++e)
        EXPECT_EQ(bands->copyAt(0, e)->element(), e);
    EXPECT_EQ(bands->copyAt(0, 3), nullptr);
}

} // namespace

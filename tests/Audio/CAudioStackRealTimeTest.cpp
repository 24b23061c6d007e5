// Stacks on an audio thread of their own: while another thread changes the band count of
// every group, the audio thread moves channels between groups, so copies come and go and
// fade all the time. Every copy was made at set-up, so from the second block on, first
// uses of a layout or a count included, the audio thread must not allocate, free or lock
// (counted as in CAudioGraphRealTimeTest.cpp).

#include "GraphTestSupport.h"
#include "RealTimeCounting.h"

#include "Audio/CAudioProcessStack.h"

using namespace qel;
using namespace qel::test;

namespace qel {
extern const CResourceRow kStackRealTimeDefinitions[];
}

namespace {

class StackRealTime : public GraphFixture
{
protected:
    StackRealTime() : GraphFixture(kStackRealTimeDefinitions) {}
};

TEST_F(StackRealTime, CountsAndGroupsChangeWithoutAllocatingOrLocking)
{
    constexpr int32_t kChannels = 8;
    constexpr int32_t kBlock = 128;
    constexpr int kBlocks = 3000;
    // The first block of a set-up fills the sample buffer pool.
    constexpr int kWarmUp = 1;
    // Group assignments the audio thread cycles through, one every 47 blocks, as a
    // routing change reaches the graph's input.
    const std::vector<std::vector<int32_t>> layouts = {
        {0, 0, 1, 1, 2, 2, 3, 3}, {0, 0, 0, 0, 1, 1, 1, 1}, {0, 1, 2, 3, 4, 5, 6, 7},
        {5, 5, 5, 5, 5, 5, 5, 5}, {7, 6, 5, 4, 3, 2, 1, 0}, {0, 0, 1, 1, 2, 2, 3, 3},
    };
    Graph& g = build("eq", layouts[0], 48000.0);
    m_env->setActive(true);
    for (int32_t group = 0; group < 8; ++group)
        for (int32_t b = 0; b < 3; ++b)
            m_collector->getParam(CString("plugin.eq.dlc.eq.gain"))->setElementValue(1.0 + 0.5 * b, group, b, nullptr);

    const Signal in = tones(kChannels, size_t(kBlock) * 64, 48000.0);
    bool isFinite = true;
    int incompleteAt = -1;
    size_t locks = 0;
    int fadingBlocks = 0;
    auto& outer = g.child<CAudioProcessStack>("dlc");
    // The host's side: each group's band count walks 3, 2, 1, 2, 3 at its own pace, within
    // the three levels made at set-up, and now and then asks for more than were made.
    const auto host = [&](int block) {
        for (int32_t group = 0; group < 8; ++group) {
            const int period = 29 + 6 * group;
            if (block % period == 0) {
                const int counts[6] = {3, 2, 1, 2, 3, 5};
                set("eq.dlc.eq.count", counts[(block / period) % 6], group);
            }
        }
    };
    const auto audio = [&](int block) {
        g.applyChanges();
        if (block % 47 == 0) {
            // As the wrapper does it: records on the stack, nothing allocated.
            const auto& layout = layouts[size_t(block / 47) % layouts.size()];
            CAudioStream::CChannel records[kChannels];
            for (int32_t c = 0; c < kChannels; ++c)
                records[c] = {c, layout[size_t(c)], 0, 0, nullptr};
            g.input.setFormat(48000.0, records, kChannels);
        }
        g.feed(in, size_t(block % 64) * kBlock, kBlock);
        t_counting = block >= kWarmUp;
        const size_t locksBefore = t_locks;
        g.root->process();
        g.output->process();
        locks += t_locks - locksBefore;
        t_locks = locksBefore;
        // Every channel goes on through some copy, even while it moves.
        if (g.output->port(0).channelCount != kChannels && incompleteAt < 0)
            incompleteAt = block;
        isFinite = isFinite && g.isOutputBelow(100.0, kBlock);
        fadingBlocks += block >= kWarmUp && outer.isFading();
    };
    const RealTimeCounts counts = runInLockStep(kBlocks, host, audio);
    m_env->setActive(false);

    EXPECT_TRUE(isFinite);
    EXPECT_EQ(incompleteAt, -1) << "a channel went missing";
    EXPECT_GT(fadingBlocks, 100);
    EXPECT_EQ(outer.preparedGroupCount(), 8);
    QEL_EXPECT_NOTHING_ALLOCATED_OR_LOCKED(counts, locks);
}

} // namespace

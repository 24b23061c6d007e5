// Stacks on an audio thread of their own: while another thread changes the band count of
// every group, the audio thread moves channels between groups, so copies come and go and
// fade all the time. Every copy was made at set-up, so from the second block on, first
// uses of a layout or a count included, the audio thread must not allocate, free or lock
// (counted as in CAudioGraphRealTimeTest.cpp).

#include "GraphTestSupport.h"
#include "RealTimeCounting.h"

#include "Audio/CAudioProcessStack.h"

#include <atomic>
#include <thread>

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
    std::atomic<int> requested{0};
    std::atomic<int> done{0};
    std::atomic<bool> isFinite{true};
    std::atomic<bool> isComplete{true};
    size_t news = 0, mallocs = 0, frees = 0, locks = 0;
    int fadingBlocks = 0;
    auto& outer = g.child<CAudioProcessStack>("dlc");
    std::thread audio([&] {
        for (int block = 0; block < kBlocks; ++block) {
            while (requested.load(std::memory_order_acquire) <= block)
                std::this_thread::yield();
            CAudioParamQueuedChange* list = m_collector->takePendingChanges();
            CAudioParamCollector::applyPendingChanges(list);
            CAudioParamQueuedChange::freeList(list);
            if (block % 47 == 0) {
                // As the wrapper does it: records on the stack, nothing allocated.
                const auto& layout = layouts[size_t(block / 47) % layouts.size()];
                CAudioStream::CChannel records[kChannels];
                for (int32_t c = 0; c < kChannels; ++c)
                    records[c] = {c, layout[size_t(c)], 0, 0, nullptr};
                g.input.setFormat(48000.0, records, kChannels);
            }
            const size_t offset = size_t(block % 64) * kBlock;
            for (int32_t c = 0; c < kChannels; ++c) {
                double* buffer = g.pool.take(kBlock);
                std::copy(in[size_t(c)].begin() + std::ptrdiff_t(offset),
                          in[size_t(c)].begin() + std::ptrdiff_t(offset) + kBlock, buffer);
                CSampleBufferPool::release(g.input.channels[c].buffer);
                g.input.channels[c].buffer = buffer;
            }
            g.input.blockLength = kBlock;
            t_counting = block >= kWarmUp;
            const size_t locksBefore = t_locks;
            g.root->process();
            g.output->process();
            locks += t_locks - locksBefore;
            t_locks = locksBefore;
            const CAudioPort& out = g.output->port(0);
            // Every channel goes on through some copy, even while it moves.
            if (out.channelCount != kChannels) {
                if (isComplete.load()) printf("incomplete at block %d: %d\n", block, out.channelCount);
                isComplete.store(false);
            }
            bool finite = true;
            for (int32_t c = 0; c < out.channelCount; ++c)
                for (int32_t i = 0; i < kBlock && out.channels[c].buffer; ++i)
                    finite = finite && std::fabs(out.channels[c].buffer[i]) < 100.0;
            if (!finite)
                isFinite.store(false);
            fadingBlocks += block >= kWarmUp && outer.isFading();
            t_counting = false;
            done.store(block + 1, std::memory_order_release);
        }
        news = t_news;
        mallocs = t_mallocs;
        frees = t_frees;
    });

    // The host's side: each group's band count walks 3, 2, 1, 2, 3 at its own pace, within
    // the three levels made at set-up, and now and then asks for more than were made.
    for (int block = 0; block < kBlocks; ++block) {
        for (int32_t group = 0; group < 8; ++group) {
            const int period = 29 + 6 * group;
            if (block % period == 0) {
                const int counts[6] = {3, 2, 1, 2, 3, 5};
                set("eq.dlc.eq.count", counts[(block / period) % 6], group);
            }
        }
        requested.store(block + 1, std::memory_order_release);
        while (done.load(std::memory_order_acquire) <= block)
            std::this_thread::yield();
    }
    audio.join();
    m_env->setActive(false);

    EXPECT_TRUE(isFinite.load());
    EXPECT_TRUE(isComplete.load());
    EXPECT_GT(fadingBlocks, 100);
    EXPECT_EQ(outer.preparedGroupCount(), 8);
#ifdef QEL_COUNTING
    EXPECT_EQ(news, 0u);
    EXPECT_EQ(mallocs, 0u);
    EXPECT_EQ(frees, 0u);
    EXPECT_EQ(locks, 0u);
#else
    (void)news, (void)mallocs, (void)frees, (void)locks;
    GTEST_SKIP() << "the sanitizer's allocator is not counted";
#endif
}

} // namespace

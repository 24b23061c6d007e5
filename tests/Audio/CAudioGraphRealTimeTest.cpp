// A long run of a graph on an audio thread of its own while another thread automates its
// parameters and toggles its bypasses: after a warm-up that toggles everything each way,
// the audio thread must not allocate, free or lock (counted by RealTimeCounting.cpp). The
// sanitizer builds bring their own allocator (QEL_ASAN, QEL_TSAN): there the run still
// checks its output, and the counts are skipped.

#include "GraphTestSupport.h"
#include "RealTimeCounting.h"

#include "Audio/CAudioProcessTerminalBase.h"
#include "Audio/Processes/CModProcessSwitch.h"

#include <atomic>
#include <thread>

using namespace qel;
using namespace qel::test;

namespace qel {
extern const CResourceRow kProcessGraphRealTimeDefinitions[];
}

namespace {

class GraphRealTime : public GraphFixture
{
protected:
    GraphRealTime() : GraphFixture(kProcessGraphRealTimeDefinitions) {}
};

TEST_F(GraphRealTime, SteadyStateAllocatesAndLocksNothing)
{
    constexpr int32_t kChannels = 8;
    constexpr int32_t kBlock = 128;
    constexpr int kBlocks = 4000;
    constexpr int kWarmUp = 400;
    Graph& g = build("busy", {0, 0, 1, 1, 2, 2, 3, 3}, 48000.0);
    m_env->setActive(true);

    const Signal in = tones(kChannels, size_t(kBlock) * 64, 48000.0);
    bool isFinite = true;
    size_t locks = 0;
    // What the run went through after the warm-up: each latency the toggles make, and fades.
    std::vector<int32_t> latencies;
    latencies.reserve(64);
    int fadingBlocks = 0;
    auto& byp = g.child<CAudioProcessTerminalBase>("byp");
    // The host's side: values only, and every kind of toggle, each at its own pace.
    const auto host = [&](int block) {
        for (int32_t group = 0; group < 4; ++group) {
            set("busy.g1.gain", 0.5 + 0.4 * std::sin(0.05 * block + group), group);
            set("busy.inner.p.gain", 1.0 + 0.5 * std::cos(0.03 * block), group);
        }
        if (block % 97 == 0)
            set("busy.skip", (block / 97) % 2);
        if (block % 61 == 0)
            set("busy.byp.enable", (block / 61) % 2, (block / 122) % 4);
        if (block % 131 == 0)
            set("busy.sw.index", (block / 131) % 2);
        if (block % 173 == 0)
            set("busy.byp.solo", (block / 173) % 2, 1);
    };
    const auto audio = [&](int block) {
        t_counting = block >= kWarmUp;
        // As the wrapper's block: changes, input, graph. Only the graph must not lock;
        // taking the queue costs the wrapper one short lock.
        g.applyChanges();
        g.feed(in, size_t(block % 64) * kBlock, kBlock);
        const size_t locksBefore = t_locks;
        g.root->process();
        g.output->process();
        locks += t_locks - locksBefore;
        t_locks = locksBefore;
        isFinite = isFinite && g.output->port(0).channelCount == kChannels && g.isOutputBelow(10.0, kBlock);
        if (block >= kWarmUp) {
            if (std::find(latencies.begin(), latencies.end(), m_env->latency()) == latencies.end())
                latencies.push_back(m_env->latency());
            fadingBlocks += byp.isFading(0) || byp.isFading(2) || byp.isFading(4) || byp.isFading(6);
        }
    };
    const RealTimeCounts counts = runInLockStep(kBlocks, host, audio);
    m_env->setActive(false);

    EXPECT_TRUE(isFinite);
    // The inner paths' 8, with the bypassable 32 and the switch's 16 each in or out.
    std::sort(latencies.begin(), latencies.end());
    EXPECT_EQ(latencies, (std::vector<int32_t>{8, 24, 40, 56}));
    EXPECT_GT(fadingBlocks, 100);
    EXPECT_EQ(g.composite().lateLinkEntryCount(), 0);
    EXPECT_EQ(g.child<CModProcessSwitch>("sw").preparedInstanceCount(), 2);
    QEL_EXPECT_NOTHING_ALLOCATED_OR_LOCKED(counts, locks);
}

// The counting itself works: a lock and an allocation on a counting thread are seen.
TEST(GraphRealTimeCounting, SeesWhatItCounts)
{
#ifndef QEL_COUNTING
    GTEST_SKIP() << kNotCounted;
#else
    std::mutex lock;
    t_counting = true;
    const size_t news = t_news, mallocs = t_mallocs, locks = t_locks;
    auto* p = new int(3);
    void* q = std::malloc(16);
    // Seen by nothing, the pair could be left out by the compiler.
    asm volatile("" : : "r"(p), "r"(q) : "memory");
    lock.lock();
    lock.unlock();
    t_counting = false;
    std::free(q);
    delete p;
    EXPECT_EQ(t_news - news, 1u);
    EXPECT_EQ(t_mallocs - mallocs, 2u);
    EXPECT_EQ(t_locks - locks, 1u);
#endif
}

} // namespace

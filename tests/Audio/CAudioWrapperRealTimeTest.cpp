// The product's instance on an audio thread of its own, blocks of changing lengths, while
// the host's other thread moves its parameters and toggles its bypass and the host's own
// automation arrives as events: after a warm-up that has seen every block length and both
// bypass states, the audio thread allocates and frees nothing. A block without host events
// takes two short locks to exchange with the parameter side, and the collector's listener
// lock once per change it applies; the graph takes none.

#include "RealTimeCounting.h"
#include "WrapperTestSupport.h"

#include <cmath>

using namespace qel;
using namespace qel::test;

namespace {

TEST(WrapperRealTime, SteadyStateAllocatesNothing)
{
    ScopedApplication app(kProductResourceRows, "SharedData.xml");
    auto w = startedWrapper();
    ASSERT_TRUE(w);
    constexpr int32_t kChannels = 2;
    // Lengths, events and toggles repeat every 7 * 5 * 13 blocks: the warm-up sees each of
    // their combinations in both bypass states, and so every buffer the pool must hold.
    // Where nothing is counted, a short run still takes each block length and both bypass
    // states through the sanitizer.
    constexpr int kBlocks = realTimeBlocks(4500, 280);
    constexpr int kWarmUp = realTimeBlocks(1500, 140);
    const int32_t lengths[] = {256, 1000, 64, 4096, 37, 512, 513};
    const HostSetup setup{false, kChannels, kChannels, 48000.0};
    prepare(*w, setup);

    // Every buffer the host hands over exists before the run.
    const Signal in = tones(kChannels, 8192, 48000.0);
    std::vector<std::vector<float>> in32(kChannels), out32(kChannels, std::vector<float>(4096));
    for (size_t c = 0; c < kChannels; ++c)
        for (double x : in[c])
            in32[c].push_back(float(x));
    void* inputs[kChannels];
    void* outputs[kChannels] = {out32[0].data(), out32[1].data()};

    bool isFinite = true;
    // Per block: changes queued for it, and for blocks without events the locks taken
    // beyond what those changes account for.
    std::vector<size_t> queuedChanges(size_t(kBlocks), 0);
    std::vector<size_t> quietBlockLocks;
    quietBlockLocks.reserve(size_t(kBlocks));
    // The host's other thread: values, and the bypass both ways, each at its own pace.
    const auto host = [&](int block) {
        w->set("plugin.modMain.modDLC73.outgain", 1.0 + 0.3 * std::sin(0.05 * block), block % 8);
        if (block % 7 == 0)
            w->set("plugin.modMain.modDLC73.eq-params.gain", 1.0 + 0.2 * std::cos(0.02 * block));
        if (block % 91 == 0)
            w->set("plugin.modMain.bypass-enable", (block / 91) % 2);
        queuedChanges[size_t(block)] = w->paramCollector()->pendingCount();
    };
    const auto audio = [&](int block) {
        const int32_t n = lengths[size_t(block) % std::size(lengths)];
        const size_t offset = size_t(block * 97) % (8192 - 4096);
        for (size_t c = 0; c < kChannels; ++c)
            inputs[c] = in32[c].data() + offset;
        // Host automation on some blocks, as a binding hands it in before the block.
        const bool hasEvents = block % 5 == 0;
        if (hasEvents) {
            w->addHostEvent({n / 2, CAudioHostEvent::KindParam, 5, 0.5 + 0.2 * std::sin(0.1 * block)});
            w->addHostEvent({n - 1, CAudioHostEvent::KindParam, 2, 0.5 + 0.2 * std::cos(0.1 * block)});
        }
        t_counting = block >= kWarmUp;
        const size_t locksBefore = t_locks;
        w->processBlock(inputs, outputs, n);
        if (t_counting && !hasEvents)
            quietBlockLocks.push_back(t_locks - locksBefore - queuedChanges[size_t(block)]);
        t_counting = false;
        for (size_t c = 0; c < kChannels; ++c)
            for (int32_t i = 0; i < n; ++i)
                isFinite = isFinite && std::fabs(out32[c][size_t(i)]) < 10.0f;
    };
    const RealTimeCounts counts = runInLockStep(kBlocks, host, audio);
    w->stopProcessing();

    EXPECT_TRUE(isFinite);
    EXPECT_FALSE(quietBlockLocks.empty());
#ifdef QEL_COUNTING
    expectNothingAllocated(counts);
    // The environment's lock for the slice facts, the queue's for the changes.
    for (size_t locks : quietBlockLocks)
        ASSERT_EQ(locks, 2u);
#else
    (void)counts;
    GTEST_SKIP() << kNotCounted;
#endif
}

} // namespace

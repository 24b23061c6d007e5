// Meters on an audio thread of their own (counted as in CAudioGraphRealTimeTest.cpp): a
// level meter, a window meter and a comparing meter on eight channels, while another thread
// changes their times and gains, the audio side moves channels between groups and the
// displays' frame rate changes. Once each layout and each change has been met, measuring
// and handing over records must not allocate, free or lock.

#include "../RealTimeCounting.h"
#include "MeterTestSupport.h"

#include <cmath>

using namespace qel;
using namespace qel::test;

namespace qel {
extern const CResourceRow kMeterRealTimeDefinitions[];
}

namespace {

class MeterRealTime : public MeterFixture
{
protected:
    MeterRealTime() : MeterFixture(kMeterRealTimeDefinitions) {}
};

TEST_F(MeterRealTime, MeasuringAndReportingAllocateAndLockNothing)
{
    constexpr int32_t kChannels = 8;
    constexpr int32_t kBlock = 128;
    const int blocks = realTimeBlocks(4000, 400);
    // Past the second block, where the gain's buffers come to the pool for good, and the
    // first move of channels between groups (from block 150, reaching the leaves within a
    // block or two), which makes a second set of modules, and their rings, for the channels
    // that change; every change of times, gains, kernels and frame rate after that, and
    // every later move, is counted.
    constexpr int kWarmUp = 155;
    const double rate = 48000.0;
    const std::vector<std::vector<int32_t>> layouts = {{0, 0, 1, 1, 2, 2, 3, 3}, {0, 1, 2, 3, 4, 5, 6, 7}};
    Graph& g = build("busy", layouts[0], rate);
    m_env->setActive(true);
    const Signal in = tones(kChannels, size_t(kBlock) * 64, rate);

    size_t locks = 0;
    const auto host = [&](int block) {
        if (block % 97 == 0)
            set("busy.g.gain", 0.25 + 0.5 * double(block % 5) / 4.0);
        if (block % 131 == 0) {
            set("busy.level.release", double(block % 3) * 0.2);
            set("busy.level.peak-time", 0.5 + double(block % 4));
        }
        // Never longer than the window the first block made.
        if (block % 211 == 0)
            set("busy.window.rms-time", (block / 211) % 2 ? 0.4 : 3.0);
        if (block % 173 == 0)
            set("busy.io.use-bias", double(block % 2));
    };
    const auto audio = [&](int block) {
        g.applyChanges();
        if (block % 300 == 150) {
            const auto& layout = layouts[size_t(block / 300 + 1) % layouts.size()];
            CAudioStream::CChannel records[kChannels];
            for (int32_t c = 0; c < kChannels; ++c)
                records[c] = {c, layout[size_t(c)], 0, 0, nullptr};
            g.input.setFormat(rate, records, kChannels);
        }
        // The displays ask for another rate now and then; it reaches the environment at
        // the start of a block, on this thread.
        if (block % 250 == 0)
            m_env->setUpdateRate(block % 500 ? 60.0 : 24.0);
        g.feed(in, size_t(block % 64) * kBlock, kBlock);
        t_counting = block >= kWarmUp;
        const size_t locksBefore = t_locks;
        g.root->process();
        g.output->process();
        locks += t_locks - locksBefore;
        t_locks = locksBefore;
    };
    const RealTimeCounts counts = runInLockStep(blocks, host, audio);
    if (kIsSanitized) {
        GTEST_LOG_(INFO) << kNotCounted;
    } else {
        expectNothingAllocated(counts);
        EXPECT_EQ(locks, 0u);
    }

    // Every meter reported for every channel, with finite levels.
    for (const char* name : {"plugin.busy.level", "plugin.busy.window", "plugin.busy.io"}) {
        SCOPED_TRACE(name);
        for (int32_t c = 0; c < kChannels; ++c) {
            const auto got = m_receiver.of(name, c);
            EXPECT_FALSE(got.empty()) << c;
            for (const auto* r : got) {
                ASSERT_TRUE(std::isfinite(r->rms));
                ASSERT_TRUE(std::isfinite(r->peak));
            }
        }
    }
    EXPECT_EQ(m_receiver.foreign, 0u);
}

} // namespace

// The long FIR filter on its own audio thread while the host changes its length: once each
// of its two modules has designed every length, steady blocks and crossfades allocate, free
// and lock nothing. Part of the graph's real-time counting program.

#include "../GraphTestSupport.h"
#include "../RealTimeCounting.h"

#include "Audio/Filters/CAlignedDoubles.h"
#include "Audio/Filters/CRealFFT.h"
#include "Audio/Processes/CModFilterFIR.h"

namespace qel {
extern const CResourceRow kFIRRealTimeDefinitions[];
}

using namespace qel;
using namespace qel::test;

namespace {

class FilterFIRRealTime : public GraphFixture
{
protected:
    FilterFIRRealTime() : GraphFixture(kFIRRealTimeDefinitions) {}
};

TEST_F(FilterFIRRealTime, SteadyBlocksAndNewFiltersAllocateAndLockNothing)
{
    constexpr int kBlocks = realTimeBlocks(1500, 300);
    constexpr int kWarmUp = realTimeBlocks(400, 100);
    // 661, 1059 and 65 taps in turn; each fade ends well within the 40 blocks to the next.
    constexpr double kLengths[] = {0.015, 0.024, 0.0016};
    constexpr int kChangeEvery = 40;
    Graph& g = build("fir", {0, 1}, 44100.0);
    m_env->setActive(true);
    const Signal in = tones(2, 48000, 44100.0);
    // Host blocks vary in length, as hosts do; the pool has buffers of each after a round.
    const auto blockLength = [](int block) { return std::array{256, 1, 37, 700, 64, 511}[size_t(block % 6)]; };

    size_t locks = 0;
    bool isFinite = true;
    // Fades begun after the warm-up, and the changes that asked for them.
    int fades = 0;
    int changes = 0;
    bool wasFading = false;
    auto& fir = g.child<CModFilterFIR>("f");
    const auto host = [&](int block) {
        if (block % kChangeEvery == kChangeEvery - 1) {
            set("fir.f.length", kLengths[(block / kChangeEvery) % 3]);
            changes += block >= kWarmUp ? 1 : 0;
        }
    };
    const auto audio = [&](int block) {
        t_counting = block >= kWarmUp;
        const int32_t n = blockLength(block);
        g.applyChanges();
        g.feed(in, size_t(block) * 701 % 40000, n);
        const size_t locksBefore = t_locks;
        g.root->process();
        g.output->process();
        locks += t_locks - locksBefore;
        t_locks = locksBefore;
        isFinite = isFinite && g.output->port(0).channelCount == 2 && g.isOutputBelow(2.0, n);
        const bool isFading = fir.isFading(0);
        fades += block >= kWarmUp && isFading && !wasFading ? 1 : 0;
        wasFading = isFading;
    };
    const RealTimeCounts counts = runInLockStep(kBlocks, host, audio);
    m_env->setActive(false);

    EXPECT_TRUE(isFinite);
    EXPECT_GE(changes, 4);
    EXPECT_EQ(fades, changes);
    QEL_EXPECT_NOTHING_ALLOCATED_OR_LOCKED(counts, locks);
}

// The transforms at every order a filter may use: no plan that takes heap scratch per call.
TEST(RealFFTRealTime, TransformsOfEveryOrderAllocateNothing)
{
    std::vector<CRealFFT*> records;
    std::vector<CAlignedDoubles> samples(CRealFFT::kMaxOrder + 1), bins(CRealFFT::kMaxOrder + 1);
    for (int32_t order = CRealFFT::kMinOrder; order <= CRealFFT::kMaxOrder; ++order) {
        records.push_back(CRealFFT::take(order));
        ASSERT_NE(records.back(), nullptr);
        ASSERT_TRUE(samples[size_t(order)].reserve(size_t(1) << order) && bins[size_t(order)].reserve(records.back()->binLength()));
        std::fill(samples[size_t(order)].data(), samples[size_t(order)].data() + (size_t(1) << order), 0.5);
    }
    size_t locks = 0;
    const RealTimeCounts counts = runInLockStep(2, [](int) {}, [&](int) {
        t_counting = true;
        const size_t before = t_locks;
        for (CRealFFT* fft : records) {
            fft->forward(samples[size_t(fft->order())].data(), bins[size_t(fft->order())].data());
            fft->inverse(bins[size_t(fft->order())].data(), samples[size_t(fft->order())].data());
        }
        locks += t_locks - before;
    });
    for (CRealFFT* fft : records)
        CRealFFT::give(fft);
    QEL_EXPECT_NOTHING_ALLOCATED_OR_LOCKED(counts, locks);
}

} // namespace

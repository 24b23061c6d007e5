// The partitioned convolution and the direct head against the convolution written out,
// however the blocks are cut, from a seeded start and after a reset.

#include "Audio/Filters/CFIRConvolver.h"
#include "Audio/Filters/CFIRDirectHead.h"
#include "Audio/Filters/CFIRPartitionedFilter.h"

#include "FIRTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

using namespace qel;
using namespace qel::test;

namespace {

// Runs x through in the given blocks, each into a buffer of its own with a guard sample
// behind it that must stay untouched.
std::vector<double> runBlocks(CFIRConvolver& conv, const std::vector<double>& x, const std::vector<int32_t>& blocks)
{
    std::vector<double> y;
    size_t at = 0;
    for (const int32_t n : blocks) {
        std::vector<double> out(size_t(n) + 1, 0.0);
        out[size_t(n)] = 12345.0;
        conv.run(x.data() + at, out.data(), n);
        EXPECT_EQ(out[size_t(n)], 12345.0);
        y.insert(y.end(), out.begin(), out.begin() + n);
        at += size_t(n);
    }
    return y;
}

void expectClose(const std::vector<double>& y, const std::vector<double>& expected, double bound, size_t from = 0)
{
    ASSERT_EQ(y.size() - from, expected.size());
    // Each output is a sum of products bounded by `bound`; the transforms round at about
    // 1e-16 per stage of their log2(2B) <= 15 stages, far below 1e-12 of that.
    const size_t worst = worstSample(y, expected, from);
    ASSERT_NEAR(y[from + worst], expected[worst], 1e-12 * bound) << "at " << worst;
}

TEST(FIRConvolver, MatchesTheDirectConvolutionForAnyLengthAndBlock)
{
    for (const int32_t taps : {1, 2, 15, 16, 17, 31, 65, 100, 661, 1063, 3001}) {
        const std::vector<double> h = randomSignal(size_t(taps), uint32_t(taps));
        const std::vector<double> x = randomSignal(size_t(std::max(2 * taps, 4096) + 777), 7u, 0.3);
        // Without latency; a block length B0 delays it, the seed's constant standing before.
        const std::vector<double> undelayed = directConvolution(h, x, 0);
        for (const int32_t b0 : {16, 64, 128, 1024}) {
            SCOPED_TRACE(::testing::Message() << "B0 " << b0 << ", " << taps << " taps");
            CFIRPartitionedFilter filter;
            ASSERT_TRUE(filter.build(h.data(), taps, b0));
            std::vector<double> expected(size_t(b0), undelayed.front());
            expected.insert(expected.end(), undelayed.begin(), undelayed.end() - b0);
            std::vector<double> previous;
            for (int32_t way = 0; way < 6; ++way) {
                const std::vector<int32_t> blocks = way < 4 ? fixedBlocks(x.size(), std::array{1, 37, 512, 4096}[size_t(way)])
                                                            : randomBlocks(x.size(), uint32_t(way + taps));
                CFIRConvolver conv;
                ASSERT_TRUE(conv.configure(filter));
                const std::vector<double> y = runBlocks(conv, x, blocks);
                expectClose(y, expected, outputBound(h, x));
                // The cut of the blocks changes nothing, to the last bit.
                if (!previous.empty()) {
                    ASSERT_EQ(y, previous) << way;
                }
                previous = y;
            }
        }
    }
}

TEST(FIRConvolver, AConstantGivesTheSumOfTheTapsFromItsFirstSample)
{
    for (const int32_t taps : {5, 661, 1063, 65, 40000}) {
        SCOPED_TRACE(taps);
        const std::vector<double> h = randomSignal(size_t(taps), 11u + uint32_t(taps), 0.1);
        double sum = 0.0;
        for (double v : h)
            sum += v;
        CFIRPartitionedFilter filter;
        ASSERT_TRUE(filter.build(h.data(), taps, 64));
        CFIRConvolver conv;
        ASSERT_TRUE(conv.configure(filter));
        const std::vector<double> x(size_t(taps) * 2 + 200, -0.75);
        const std::vector<double> y = runBlocks(conv, x, randomBlocks(x.size(), 3));
        const double bound = outputBound(h, x);
        for (size_t t = 0; t < y.size(); ++t)
            ASSERT_NEAR(y[t], -0.75 * sum, 1e-12 * bound) << t;
    }
}

TEST(FIRConvolver, AResetSeedsAgainFromTheNextSample)
{
    const std::vector<double> h = randomSignal(661, 5);
    const std::vector<double> x = randomSignal(6000, 6, -0.2);
    CFIRPartitionedFilter filter;
    ASSERT_TRUE(filter.build(h.data(), 661, 64));
    CFIRConvolver conv;
    ASSERT_TRUE(conv.configure(filter));
    // Mid-block for every stage: 1000 is no multiple of 64 or 256.
    const size_t at = 1000;
    runBlocks(conv, x, fixedBlocks(at, 100));
    conv.reset();
    const std::vector<double> rest(x.begin() + std::ptrdiff_t(at), x.end());
    const std::vector<double> y = runBlocks(conv, rest, randomBlocks(rest.size(), 9));
    expectClose(y, directConvolution(h, x, 64, at), outputBound(h, x));
}

TEST(FIRConvolver, StagesFollowThePlan)
{
    const std::vector<double> h = randomSignal(661, 1);
    CFIRPartitionedFilter filter;
    ASSERT_TRUE(filter.build(h.data(), 661, 64));
    ASSERT_EQ(filter.stageCount(), 2);
    EXPECT_EQ(filter.stage(0).blockLength, 64);
    EXPECT_EQ(filter.stage(0).partitions, 3);
    EXPECT_EQ(filter.stage(0).firstTap, 0);
    EXPECT_EQ(filter.stage(0).fft->size(), 128);
    EXPECT_EQ(filter.stage(1).blockLength, 256);
    EXPECT_EQ(filter.stage(1).partitions, 2);
    EXPECT_EQ(filter.stage(1).firstTap, 192);
    EXPECT_EQ(filter.stage(1).fft->size(), 512);
    // The DC bins are the taps' sums, scaled for the inverse transform.
    double sum = 0.0;
    for (int32_t k = 192; k < 661; ++k)
        sum += h[size_t(k)];
    EXPECT_NEAR(filter.stage(1).dcSum * 512.0, sum, 1e-12);

    // Building it again, or a smaller one, keeps the memory it has.
    const size_t capacity = filter.capacity();
    ASSERT_TRUE(filter.build(h.data(), 300, 64));
    ASSERT_TRUE(filter.build(h.data(), 661, 64));
    EXPECT_EQ(filter.capacity(), capacity);
    filter.clear();
    EXPECT_EQ(filter.stageCount(), 0);
    CFIRConvolver conv;
    ASSERT_TRUE(conv.configure(filter));
    EXPECT_EQ(conv.stageCount(), 0);
    EXPECT_TRUE(filter.build(nullptr, 5, 64));
    EXPECT_EQ(filter.stageCount(), 0);
}

// The first taps run directly, the rest as a convolution of blocks of 64 that begins at
// tap 64: together, the filter without any latency.
TEST(FIRConvolver, ADirectHeadAndTheRestGiveTheFilterWithoutLatency)
{
    for (const int32_t taps : {1, 7, 64, 65, 661}) {
        SCOPED_TRACE(taps);
        const std::vector<double> h = randomSignal(size_t(taps), 21u + uint32_t(taps));
        const std::vector<double> x = randomSignal(3000, 22, 0.5);
        CFIRDirectHead head;
        head.configure(h.data(), taps);
        EXPECT_EQ(head.length(), std::min(taps, 64));
        CFIRPartitionedFilter filter;
        const int32_t rest = std::max(0, taps - 64);
        ASSERT_TRUE(filter.build(rest > 0 ? h.data() + 64 : nullptr, rest, 64));
        CFIRConvolver conv;
        ASSERT_TRUE(conv.configure(filter));
        std::vector<double> y;
        size_t at = 0;
        for (const int32_t n : randomBlocks(x.size(), 4)) {
            std::vector<double> out(size_t(n), 0.0);
            conv.run(x.data() + at, out.data(), n);
            head.run(x.data() + at, out.data(), n, conv.stageCount() > 0);
            y.insert(y.end(), out.begin(), out.end());
            at += size_t(n);
        }
        expectClose(y, directConvolution(h, x, 0), outputBound(h, x));
    }
}

TEST(FIRConvolver, ADirectHeadSeedsWithItsFirstSampleAndAgainAfterAReset)
{
    const std::vector<double> h = randomSignal(40, 31);
    const std::vector<double> x = randomSignal(500, 32, 1.0);
    CFIRDirectHead head;
    head.configure(h.data(), 40);
    std::vector<double> y(x.size());
    head.run(x.data(), y.data(), 200, false);
    head.reset();
    head.run(x.data() + 200, y.data() + 200, 300, false);
    const std::vector<double> first = directConvolution(h, std::vector<double>(x.begin(), x.begin() + 200), 0);
    const std::vector<double> second = directConvolution(h, x, 0, 200);
    for (size_t t = 0; t < 200; ++t)
        ASSERT_NEAR(y[t], first[t], 1e-13) << t;
    for (size_t t = 200; t < 500; ++t)
        ASSERT_NEAR(y[t], second[t - 200], 1e-13) << t;
    // Nothing configured: nothing written.
    CFIRDirectHead none;
    double out = 5.0;
    none.run(x.data(), &out, 1, false);
    EXPECT_EQ(out, 5.0);
}

} // namespace

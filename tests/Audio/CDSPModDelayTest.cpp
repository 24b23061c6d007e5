#include "Audio/CDSPModDelay.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

using namespace qel;
using Pool = CSampleBufferPool;

namespace {

constexpr double kRate = 44100.0;
constexpr int32_t kFade = 662; // round(44100 * 0.015)
constexpr double kGuard = 1234.5;
constexpr int32_t kGuardSamples = 16;
// The kernel's drift bound at N = 662 (derived in its test: 4 N (N + 1) 2^-53), times the
// largest difference of the two taps, 2, plus the rounding of the mix.
constexpr double kFadeTolerance = 2.0 * (4.0 * kFade * (kFade + 1.0) + 8.0) * 0x1p-53 + 4 * 0x1p-52;

// The line written the obvious way: the whole history in a vector, times before the first
// sample read as the fill value, the crossfade weights from the cosine itself.
struct NaiveDelay
{
    std::vector<double> history;
    int32_t target = 0, delay = 0, from = 0, wait = 0, k = 0;
    bool isChanging = false;

    void setDelay(int32_t d)
    {
        target = std::clamp(d, 0, CDSPModDelay::kMaxDelay);
        if (history.empty())
            delay = from = target;
    }
    double tap(int64_t t, int32_t d) const { return t - d < 0 ? 0.0 : history[size_t(t - d)]; }
    double step(double x, bool& isFading)
    {
        const auto t = int64_t(history.size());
        history.push_back(x);
        if (!isChanging && target != delay) {
            from = std::exchange(delay, target);
            isChanging = true;
            wait = std::max(0, delay - from); // a longer delay waits for the samples held
            k = 0;
        }
        if (isChanging && wait > 0) {
            --wait;
            return tap(t, from);
        }
        isFading = isChanging;
        if (!isChanging)
            return tap(t, delay);
        const double s = 0.5 * std::cos(std::numbers::pi * k / kFade);
        isChanging = ++k < kFade;
        return tap(t, from) * (0.5 + s) + tap(t, delay) * (0.5 - s);
    }
};

// {length, delay set before it}: a delay that grows (and waits), changes during a wait and
// during a fade, the same value again, 0, the longest delay and a jump back from it.
const std::vector<std::pair<int32_t, int32_t>> kSchedule = {
    {5000, 100}, {1000, 3000}, {2000, 50},     {4000, 50},  {100, 0},
    {7900, 1},   {1000, 2},    {135000, 1 << 30}, {10000, 7}, {3000, 2000}};

enum class Way { OneBlock, SampleBySample, RandomBlocks, FixedBlocks };

// One block: a pool buffer with guard samples behind it, alternately the only holder (in
// place) and shared with someone who must still see the input; one sample: plain arrays.
void runBlock(Pool& pool, CDSPModDelay& line, const double* in, int32_t n, bool isShared, std::vector<double>& out)
{
    SCOPED_TRACE(testing::Message() << "block of " << n << " at " << out.size());
    double* buffer = pool.take(n + kGuardSamples);
    std::copy(in, in + n, buffer);
    std::fill(buffer + n, buffer + n + kGuardSamples, kGuard);
    double* original = buffer;
    Pool::addRef(isShared ? original : nullptr);
    ASSERT_TRUE(line.process(buffer, n));
    for (int32_t g = 0; g < kGuardSamples; ++g)
        ASSERT_EQ(original[n + g], kGuard);
    EXPECT_EQ(buffer != original, isShared && n > 0);
    if (buffer != original) {
        EXPECT_EQ(Pool::refCount(original), 1);
        EXPECT_TRUE(std::equal(in, in + n, original));
        Pool::release(original);
    } else if (isShared) {
        Pool::release(original);
    }
    out.insert(out.end(), buffer, buffer + n);
    Pool::release(buffer);
}

std::vector<double> runSchedule(Pool& pool, CDSPModDelay& line, const std::vector<double>& in, Way way)
{
    std::mt19937 rng(99);
    std::vector<double> out;
    bool isShared = false;
    for (const auto& [length, delay] : kSchedule) {
        line.setDelay(delay);
        for (int32_t left = length; left > 0 && !testing::Test::HasFatalFailure();) {
            const int32_t picks[] = {0, 1, 4096, 9000, int32_t(rng() % 600) | 1};
            const int32_t n = way == Way::OneBlock        ? left
                              : way == Way::FixedBlocks   ? std::min(left, 512)
                              : way == Way::RandomBlocks  ? std::min(left, picks[rng() % 5])
                                                          : 1;
            if (way == Way::SampleBySample) {
                double y[1 + kGuardSamples];
                std::fill(std::begin(y), std::end(y), kGuard);
                line.run(&in[out.size()], y, 1);
                out.push_back(y[0]);
                EXPECT_TRUE(std::all_of(y + 1, std::end(y), [](double g) { return g == kGuard; }));
            } else {
                isShared = way != Way::OneBlock && !isShared;
                runBlock(pool, line, &in[out.size()], n, isShared, out);
            }
            left -= n;
        }
    }
    return out;
}

TEST(CDSPModDelayTest, MatchesTheNaiveDelayHoweverTheBlockIsCut)
{
    std::mt19937 rng(1234);
    std::uniform_real_distribution<double> dist(-1.0, 1.0);
    NaiveDelay ref;
    std::vector<double> in, expected;
    std::vector<bool> isFading;
    for (const auto& [length, delay] : kSchedule) {
        ref.setDelay(delay);
        for (int32_t i = 0; i < length; ++i) {
            bool fading = false;
            in.push_back(dist(rng));
            expected.push_back(ref.step(in.back(), fading));
            isFading.push_back(fading);
        }
    }

    for (Way way : {Way::OneBlock, Way::SampleBySample, Way::RandomBlocks, Way::FixedBlocks}) {
        SCOPED_TRACE(int(way));
        Pool pool;
        CDSPModDelay line(pool);
        line.setSampleRate(kRate);
        const std::vector<double> out = runSchedule(pool, line, in, way);
        ASSERT_EQ(out.size(), in.size());
        for (size_t t = 0; t < out.size(); ++t) {
            if (isFading[t]) {
                ASSERT_NEAR(out[t], expected[t], kFadeTolerance) << "t = " << t;
            } else {
                ASSERT_EQ(out[t], expected[t]) << "t = " << t;
            }
        }
        // Reset forgets everything; the second run of fixed blocks finds the pool warm.
        const int64_t warm = pool.systemAllocations();
        line.reset();
        EXPECT_EQ(line.chunkCount(), 0);
        EXPECT_EQ(runSchedule(pool, line, in, way), out);
        if (way == Way::FixedBlocks) {
            EXPECT_EQ(pool.systemAllocations(), warm);
        }
    }
}

TEST(CDSPModDelayTest, ShortDelayHoldsOneOrTwoChunks)
{
    Pool pool;
    CDSPModDelay line(pool);
    line.setDelay(100);
    std::vector<double> block(512);
    for (int i = 0; i < 400; ++i) {
        line.run(block.data(), block.data(), 512);
        ASSERT_LE(line.chunkCount(), 2);
    }
}

TEST(CDSPModDelayTest, FillValueAndReset)
{
    Pool pool;
    for (bool isCompInput : {false, true}) {
        SCOPED_TRACE(isCompInput);
        CDSPModDelay line(pool);
        line.setCompInput(isCompInput);
        line.setDelay(5);
        const double in[] = {3, 4, 5, 6, 7, 8, 9};
        double out[7];
        line.run(in, out, 0); // an empty first block has no first sample
        line.run(in, out, 2);
        line.run(in + 2, out + 2, 5); // still the fill of the very first sample
        const double f = isCompInput ? 3 : 0;
        EXPECT_EQ(std::vector<double>(out, out + 7), std::vector<double>({f, f, f, f, f, 3, 4}));

        line.reset(); // re-armed: the next delay applies at once, with a new fill value
        line.setDelay(2);
        EXPECT_FALSE(line.isChanging());
        line.run(in + 5, out, 2);
        const double g = isCompInput ? 8 : 0;
        EXPECT_EQ(std::vector<double>(out, out + 2), std::vector<double>({g, g}));
    }
}

} // namespace

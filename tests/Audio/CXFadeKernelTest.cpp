#include "Audio/CXFadeKernel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

using namespace qel;

namespace {

// Bound on |s[k] - 0.5 cos(pi k / N)| for k <= N. Each step rounds c * s and the difference
// (|c s| <= 1, |result| <= 0.5: at most 1.5 u, u = 2^-53), and c itself is off by at most
// about 9 u, which injects |dc * s| <= 4.6 u per step. The recurrence answers an error
// injected once with sin(m pi / N) / sin(pi / N) times it, at most N / 2 for N >= 2. Over
// N + 1 steps: (N + 1) * 6.1 u * N / 2 < 4 N (N + 1) u, plus a few u for the direct cosine.
// For N = 662: 2e-10.
double recurrenceTolerance(int32_t n) { return (4.0 * n * (n + 1.0) + 8.0) * 0x1p-53; }

TEST(CXFadeKernelTest, LengthRoundsHalfAwayFromZero)
{
    EXPECT_EQ(CXFadeKernel::lengthFor(44100.0, 0.015), 662); // 661.5
    EXPECT_EQ(CXFadeKernel::lengthFor(48000.0, 0.015), 720);
    EXPECT_EQ(CXFadeKernel::lengthFor(5.0, 0.5), 3); // 2.5, not to even
    EXPECT_EQ(CXFadeKernel::lengthFor(44100.0, -1.0), 0);
}

TEST(CXFadeKernelTest, RecurrenceFollowsTheCosine)
{
    for (int32_t n : {1, 2, 3, 7, 662, 720, 2880, 10000}) {
        CXFadeKernel fade;
        fade.start(n);
        for (int32_t k = 0; k <= n; ++k) {
            ASSERT_NEAR(fade.level(), 0.5 * std::cos(std::numbers::pi * k / n), recurrenceTolerance(n))
                << "N = " << n << ", k = " << k;
            double sample = 0.0;
            fade.run(&sample, &sample, &sample, 1);
        }
        EXPECT_FALSE(fade.isRunning());
    }
}

// The weights follow the formula, the new signal passes alone after N samples, and neither
// cutting the run into pieces nor fading in place changes a bit.
TEST(CXFadeKernelTest, MixesOldIntoNewWhateverTheCut)
{
    const int32_t n = 662, total = 1500;
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> dist(-1.0, 1.0);
    std::vector<double> a(total), b(total), whole(total + 8, 99.0);
    for (int32_t i = 0; i < total; ++i) {
        a[i] = dist(rng);
        b[i] = dist(rng);
    }
    CXFadeKernel fade;
    fade.start(n);
    fade.run(a.data(), b.data(), whole.data(), total);
    EXPECT_TRUE(std::all_of(whole.begin() + total, whole.end(), [](double g) { return g == 99.0; }));
    for (int32_t k = 0; k < total; ++k) {
        const double s = k < n ? 0.5 * std::cos(std::numbers::pi * k / n) : -0.5;
        ASSERT_NEAR(whole[k], a[k] * (0.5 + s) + b[k] * (0.5 - s), 2.0 * recurrenceTolerance(n) + 0x1p-50) << k;
        ASSERT_TRUE(k < n || whole[k] == b[k]) << k;
    }

    for (bool inPlace : {false, true}) {
        std::vector<double> oldIn = a, out(total);
        double* dst = inPlace ? oldIn.data() : out.data();
        fade.start(n);
        for (int32_t i = 0, piece = 0; i < total; i += piece) {
            piece = std::min<int32_t>(total - i, int32_t(rng() % 97));
            fade.run(oldIn.data() + i, b.data() + i, dst + i, piece);
        }
        EXPECT_TRUE(std::equal(dst, dst + total, whole.begin())) << "in place: " << inPlace;
    }
}

} // namespace

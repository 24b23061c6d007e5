// The real FFT against the discrete Fourier transform written out, and its records'
// free list.

#include "Audio/Filters/CAlignedDoubles.h"
#include "Audio/Filters/CRealFFT.h"

#include "FIRTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <thread>
#include <vector>

using namespace qel;
using namespace qel::test;

namespace {

struct FFTRecord
{
    explicit FFTRecord(int32_t order) : fft(CRealFFT::take(order)) {}
    ~FFTRecord() { CRealFFT::give(fft); }
    CRealFFT* fft;
};

TEST(RealFFT, ForwardGivesTheDftBinsFromDcToHalfTheRate)
{
    for (int32_t order = CRealFFT::kMinOrder; order <= 10; ++order) {
        SCOPED_TRACE(order);
        FFTRecord r(order);
        ASSERT_NE(r.fft, nullptr);
        const int32_t n = r.fft->size();
        EXPECT_EQ(n, 1 << order);
        EXPECT_EQ(r.fft->scale(), 1.0 / n);
        EXPECT_EQ(r.fft->binCount(), n / 2 + 1);
        const std::vector<double> x = randomSignal(size_t(n), uint32_t(order), 0.25);
        CAlignedDoubles samples, data;
        ASSERT_TRUE(samples.reserve(size_t(n)) && data.reserve(r.fft->binLength()));
        std::copy(x.begin(), x.end(), samples.data());
        r.fft->forward(samples.data(), data.data());
        // X[k] = sum x[t] e^(-2 pi i k t / n); rounding grows with log n, well below 1e-13 n.
        double peak = 0.0;
        for (int32_t k = 0; k <= n / 2; ++k) {
            long double re = 0.0L, im = 0.0L;
            for (int32_t t = 0; t < n; ++t) {
                const long double a = -2.0L * std::numbers::pi_v<long double> * (long double)(int64_t(k) * t % n) / n;
                re += x[size_t(t)] * std::cos(a);
                im += x[size_t(t)] * std::sin(a);
            }
            peak = std::max({peak, std::fabs(data.data()[2 * k] - double(re)), std::fabs(data.data()[2 * k + 1] - double(im))});
        }
        EXPECT_LT(peak, 1e-13 * n);
        // The DC bin alone is the sum, with no imaginary part.
        double sum = 0.0;
        for (double v : x)
            sum += v;
        EXPECT_NEAR(data.data()[0], sum, 1e-12 * n);
        EXPECT_EQ(data.data()[1], 0.0);
        EXPECT_EQ(data.data()[n + 1], 0.0);
    }
}

TEST(RealFFT, InverseUndoesForwardTimesTheSize)
{
    for (int32_t order = CRealFFT::kMinOrder; order <= CRealFFT::kMaxOrder; ++order) {
        SCOPED_TRACE(order);
        FFTRecord r(order);
        ASSERT_NE(r.fft, nullptr);
        const std::vector<double> x = randomSignal(size_t(r.fft->size()), 100u + uint32_t(order));
        CAlignedDoubles samples, bins;
        ASSERT_TRUE(samples.reserve(size_t(r.fft->size())) && bins.reserve(r.fft->binLength()));
        std::copy(x.begin(), x.end(), samples.data());
        r.fft->forward(samples.data(), bins.data());
        r.fft->inverse(bins.data(), samples.data());
        for (int32_t t = 0; t < r.fft->size(); ++t)
            ASSERT_NEAR(samples.data()[t] * r.fft->scale(), x[size_t(t)], 1e-14 * order) << t;
    }
}

// The product of two spectra is the spectrum of the circular convolution of the signals.
TEST(RealFFT, ProductsOfSpectraConvolveCircularly)
{
    FFTRecord r(6);
    const int32_t n = r.fft->size();
    const std::vector<double> a = randomSignal(size_t(n), 1), b = randomSignal(size_t(n), 2), c = randomSignal(size_t(n), 3);
    CAlignedDoubles samples, fa, fb, fc, out;
    ASSERT_TRUE(samples.reserve(size_t(n)));
    for (CAlignedDoubles* d : {&fa, &fb, &fc, &out})
        ASSERT_TRUE(d->reserve(r.fft->binLength()));
    for (const auto& [x, f] : {std::pair{&a, &fa}, std::pair{&b, &fb}, std::pair{&c, &fc}}) {
        std::copy(x->begin(), x->end(), samples.data());
        r.fft->forward(samples.data(), f->data());
    }
    // out = A B + A C, the transform of a (*) (b + c).
    r.fft->multiply(fa.data(), fb.data(), out.data());
    r.fft->multiplyAdd(fa.data(), fc.data(), out.data());
    r.fft->inverse(out.data(), samples.data());
    for (int32_t t = 0; t < n; ++t) {
        double expected = 0.0;
        for (int32_t k = 0; k < n; ++k)
            expected += a[size_t(k)] * (b[size_t((t - k + n) % n)] + c[size_t((t - k + n) % n)]);
        ASSERT_NEAR(samples.data()[t] * r.fft->scale(), expected, 1e-12) << t;
    }
}

// Two bins at a time, where the processor allows, give the plain loop's bits: the same
// products, the same sums. The bin counts are odd, so the last bin is left to the plain loop.
TEST(RealFFT, WideProductsRoundAsThePlainOnes)
{
    for (const int32_t order : {5, 6, 10}) {
        SCOPED_TRACE(order);
        FFTRecord r(order);
        const auto bins = size_t(r.fft->binCount());
        const std::vector<double> a = randomSignal(2 * bins, 4), b = randomSignal(2 * bins, 5), c = randomSignal(2 * bins, 6);
        std::vector<double> wide(2 * bins), plain(2 * bins);
        r.fft->multiply(a.data(), b.data(), wide.data());
        CRealFFT::multiplyPlain(a.data(), b.data(), plain.data(), int32_t(bins));
        EXPECT_EQ(wide, plain);
        r.fft->multiplyAdd(a.data(), c.data(), wide.data());
        CRealFFT::multiplyAddPlain(a.data(), c.data(), plain.data(), int32_t(bins));
        EXPECT_EQ(wide, plain);
        // And both are the complex product.
        for (size_t k = 0; k < bins; ++k) {
            const std::complex<double> x(a[2 * k], a[2 * k + 1]);
            const std::complex<double> expected = x * std::complex<double>(b[2 * k], b[2 * k + 1]) + x * std::complex<double>(c[2 * k], c[2 * k + 1]);
            ASSERT_NEAR(plain[2 * k], expected.real(), 1e-15) << k;
            ASSERT_NEAR(plain[2 * k + 1], expected.imag(), 1e-15) << k;
        }
    }
}

TEST(RealFFT, RecordsComeBackThroughTheFreeList)
{
    EXPECT_EQ(CRealFFT::take(CRealFFT::kMinOrder - 1), nullptr);
    EXPECT_EQ(CRealFFT::take(CRealFFT::kMaxOrder + 1), nullptr);
    CRealFFT::give(nullptr);
    const int32_t order = 9;
    const int32_t before = CRealFFT::freeCount(order);
    CRealFFT* first = CRealFFT::take(order);
    CRealFFT* second = CRealFFT::take(order);
    ASSERT_TRUE(first && second);
    EXPECT_NE(first, second);
    EXPECT_EQ(CRealFFT::freeCount(order), std::max(0, before - 2));
    CRealFFT::give(first);
    EXPECT_EQ(CRealFFT::freeCount(order), std::max(0, before - 2) + 1);
    // The one given back is the next one taken: no new plans.
    EXPECT_EQ(CRealFFT::take(order), first);
    CRealFFT::give(first);
    CRealFFT::give(second);
    EXPECT_EQ(CRealFFT::freeCount(order), std::max(0, before - 2) + 2);
}

// Plans are made and given back from several threads at once, as plug-in instances of one
// host do; the planner's lock keeps them apart, and every record works.
TEST(RealFFT, ThreadsTakeAndGiveRecordsTogether)
{
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &failures] {
            for (int i = 0; i < 40; ++i) {
                const int32_t order = CRealFFT::kMinOrder + (t * 3 + i) % 8;
                CRealFFT* fft = CRealFFT::take(order);
                if (!fft) {
                    ++failures;
                    continue;
                }
                CAlignedDoubles samples, data;
                samples.reserve(size_t(fft->size()));
                data.reserve(fft->binLength());
                std::fill(samples.data(), samples.data() + fft->size(), 0.0);
                samples.data()[0] = 1.0;
                fft->forward(samples.data(), data.data());
                // An impulse has a flat spectrum.
                if (data.data()[2 * (fft->binCount() - 1)] != 1.0)
                    ++failures;
                CRealFFT::give(fft);
            }
        });
    }
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(failures.load(), 0);
}

} // namespace

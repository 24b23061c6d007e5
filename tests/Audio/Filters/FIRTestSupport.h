#pragma once

// What the FIR tests share: signals, and the convolution written out as its definition
// sums it, sample by sample, against which the partitioned one is held.

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace qel::test {

// Uniform values in [-1, 1] plus `offset`, from a fixed seed.
inline std::vector<double> randomSignal(size_t length, uint32_t seed, double offset = 0.0)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::vector<double> x(length);
    for (double& v : x)
        v = u(rng) + offset;
    return x;
}

// y[t] = sum over k of h[k] x[t - delay - k], where the input before `start` reads as
// x[start] (a filter that starts from its first sample as if it had always been there),
// for t from `start` to the end of x.
inline std::vector<double> directConvolution(const std::vector<double>& h, const std::vector<double>& x, int64_t delay,
                                             size_t start = 0)
{
    // The input from `start` on, behind as many copies of x[start] as the taps and the
    // delay reach back.
    const size_t reach = size_t(delay) + h.size() - 1;
    std::vector<double> padded(reach, x[start]);
    padded.insert(padded.end(), x.begin() + std::ptrdiff_t(start), x.end());
    std::vector<double> y(x.size() - start, 0.0);
    const double* taps = h.data();
    const size_t n = h.size();
    for (size_t t = 0; t < y.size(); ++t) {
        // x[t - delay - k] of the input is padded[t + reach - delay - k].
        const double* newest = padded.data() + t + reach - size_t(delay);
        long double sum = 0.0L;
        for (size_t k = 0; k < n; ++k)
            sum += (long double)taps[k] * (long double)newest[-std::ptrdiff_t(k)];
        y[t] = double(sum);
    }
    return y;
}

// The largest output a filter can give for that input: the bound of the errors.
inline double outputBound(const std::vector<double>& h, const std::vector<double>& x)
{
    double sum = 0.0, peak = 0.0;
    for (double v : h)
        sum += std::fabs(v);
    for (double v : x)
        peak = std::max(peak, std::fabs(v));
    return sum * peak;
}

// Where y[from + t] lies farthest from expected[t]; a value that is not a number first.
inline size_t worstSample(const std::vector<double>& y, const std::vector<double>& expected, size_t from = 0)
{
    size_t worst = 0;
    double largest = -1.0;
    for (size_t t = 0; t < expected.size(); ++t) {
        const double d = std::fabs(y[from + t] - expected[t]);
        if (std::isnan(d))
            return t;
        if (d > largest) {
            largest = d;
            worst = t;
        }
    }
    return worst;
}

// Block lengths that cover a signal of `length` in a random order, with 0 among them.
inline std::vector<int32_t> randomBlocks(size_t length, uint32_t seed, int32_t longest = 700)
{
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int32_t> pick(0, longest);
    std::vector<int32_t> blocks;
    size_t covered = 0;
    while (covered < length) {
        int32_t n = pick(rng);
        // Now and then the lengths at the edges: nothing, one sample, one block less one.
        if (blocks.size() % 7 == 3)
            n = int32_t(blocks.size() % 3) == 0 ? 0 : 1;
        n = int32_t(std::min<size_t>(size_t(n), length - covered));
        blocks.push_back(n);
        covered += size_t(n);
    }
    return blocks;
}

inline std::vector<int32_t> fixedBlocks(size_t length, int32_t n)
{
    std::vector<int32_t> blocks;
    for (size_t at = 0; at < length; at += size_t(n))
        blocks.push_back(int32_t(std::min<size_t>(size_t(n), length - at)));
    return blocks;
}

} // namespace qel::test

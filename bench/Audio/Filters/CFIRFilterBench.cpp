// The long FIR filters of the oversampling chain per sample and channel: the partitioned
// convolution as a channel of the FIR process runs it, beside a plain direct convolution
// loop of the same taps. Arguments: taps (661, 1063, 65: the product's three filters, at
// their block lengths 64, 128, 32) and the host's block length.

#include "Audio/Filters/CAudioFilterFIRLPGen.h"
#include "Audio/Filters/CFIRConvolver.h"
#include "Audio/Filters/CFIRPartitionedFilter.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

using namespace qel;

namespace {

struct ProductFilter
{
    int32_t taps;
    double length, freq, beta;
    int32_t blockLength;
};

const ProductFilter kFilters[] = {
    {661, 0.015, 11025.0, 18.0, 64},
    {1063, 0.024, 10980.0, 18.0, 128},
    {65, 0.0016, 12000.0, 18.4, 32},
};

const ProductFilter& filterOf(int64_t taps)
{
    for (const ProductFilter& f : kFilters)
        if (f.taps == taps)
            return f;
    std::fprintf(stderr, "no filter of %lld taps\n", static_cast<long long>(taps));
    std::abort();
}

// The windowed sinc as the process designs it, at 44100 Hz.
std::vector<double> design(const ProductFilter& f)
{
    CAudioFilterFIRLPGen gen;
    CAudioFilterParamNames names;
    names.add("length");
    names.add("freq");
    names.add("beta");
    const double values[3] = {f.length, f.freq, f.beta};
    CAudioFilterStageList list;
    CDCDAWFilterWorkspace workspace;
    gen.createFilter(workspace, 44100.0, CAudioFilterParams{&names, values, 3}, list);
    if (list.count() != 1 || list[0].tapCount != f.taps)
        std::abort();
    return std::vector<double>(list.taps(list[0]), list.taps(list[0]) + f.taps);
}

constexpr size_t kSignalLength = 1 << 16;

const std::vector<double>& signal()
{
    static const std::vector<double> x = [] {
        std::vector<double> s(kSignalLength);
        std::mt19937 rng(1);
        std::uniform_real_distribution<double> u(-1.0, 1.0);
        for (double& v : s)
            v = u(rng);
        return s;
    }();
    return x;
}

void setCounters(benchmark::State& state, int64_t samplesPerIteration)
{
    state.SetItemsProcessed(state.iterations() * samplesPerIteration);
    state.counters["per_sample_ch"] = benchmark::Counter(double(samplesPerIteration),
                                                         benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_FIRPartitioned(benchmark::State& state)
{
    const ProductFilter& f = filterOf(state.range(0));
    const auto n = int32_t(state.range(1));
    const std::vector<double> h = design(f);
    CFIRPartitionedFilter filter;
    CFIRConvolver conv;
    if (!filter.build(h.data(), f.taps, f.blockLength) || !conv.configure(filter))
        std::abort();
    std::vector<double> out(static_cast<size_t>(n));
    size_t at = 0;
    for (auto _ : state) {
        if (at + size_t(n) > kSignalLength)
            at = 0;
        conv.run(signal().data() + at, out.data(), n);
        at += size_t(n);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, n);
}

// y[t] = sum h[k] x[t - k], as plainly as it is written: a history that holds the last
// N - 1 samples before the block, and per tap one pass over the block, y[i] += h[k]
// x[i - k]. The passes have no sum to carry from sample to sample, so the compiler may
// vectorise them without reordering a single addition.
void BM_FIRDirectReference(benchmark::State& state)
{
    const ProductFilter& f = filterOf(state.range(0));
    const auto n = int32_t(state.range(1));
    const std::vector<double> h = design(f);
    const auto taps = size_t(f.taps);
    std::vector<double> history(taps - 1 + size_t(n), 0.0);
    std::vector<double> out(static_cast<size_t>(n));
    size_t at = 0;
    for (auto _ : state) {
        if (at + size_t(n) > kSignalLength)
            at = 0;
        const double* x = signal().data() + at;
        std::copy(x, x + n, history.begin() + std::ptrdiff_t(taps - 1));
        std::fill(out.begin(), out.end(), 0.0);
        double* __restrict y = out.data();
        for (size_t k = 0; k < taps; ++k) {
            const double tap = h[k];
            const double* __restrict window = history.data() + (taps - 1 - k);
            for (int32_t i = 0; i < n; ++i)
                y[i] += tap * window[i];
        }
        std::copy(history.end() - std::ptrdiff_t(taps - 1), history.end(), history.begin());
        at += size_t(n);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, n);
}

void productCases(benchmark::internal::Benchmark* b)
{
    for (const ProductFilter& f : kFilters)
        for (const int64_t n : {64, 256, 1024})
            b->Args({f.taps, n});
}

} // namespace

BENCHMARK(BM_FIRPartitioned)->Apply(productCases);
BENCHMARK(BM_FIRDirectReference)->Apply(productCases);

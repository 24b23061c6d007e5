// The filter kernels per sample and channel, steady and while morphing, and the product's
// three bands as its band switches run them (one stage after the other over the block)
// against a plain loop of three transposed direct-form II biquads per sample.

#include "Audio/Filters/CAudioFilterStage.h"
#include "Audio/Filters/CDCDAWKernelSet.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

using namespace qel;

namespace {

// The default bands at 48 kHz with a few dB each: low shelf 126 Hz, peak 700 Hz, high shelf
// 4900 Hz, as their generators design them (b0 b1 b2 / a1 a2).
const double kBands[3][5] = {
    {1.0008638155542227, -1.9826283000555017, 0.98200484406455, -1.9826624427394707, 0.9828345469348548},
    {1.0128683557398516, -1.9580187064919002, 0.9472339929539547, -1.9580187064919002, 0.9601023486938063},
    {1.2927826426138096, -1.6326186911074914, 0.5734436617733393, -1.0996993180470007, 0.3333069312297282},
};

CAudioFilterStage stageOf(const double* k)
{
    CAudioFilterStage s;
    s.kernels = &dcdaw::kBiquadCommon;
    s.bCount = 3;
    s.aCount = 2;
    s.b[0] = k[0];
    s.b[1] = k[1];
    s.b[2] = k[2];
    s.a[0] = k[3];
    s.a[1] = k[4];
    return s;
}

std::vector<double> noise(size_t n)
{
    std::vector<double> x(n);
    uint32_t seed = 7;
    for (double& v : x) {
        seed = seed * 1664525u + 1013904223u;
        v = double(int32_t(seed)) / 2147483648.0;
    }
    return x;
}

void BM_ReferenceThreeTdf2(benchmark::State& state)
{
    const auto n = int32_t(state.range(0));
    const std::vector<double> in = noise(size_t(n));
    std::vector<double> out(static_cast<size_t>(n));
    double s1[3] = {}, s2[3] = {};
    for (auto _ : state) {
        for (int32_t i = 0; i < n; ++i) {
            double x = in[size_t(i)];
            for (int b = 0; b < 3; ++b) {
                const double* k = kBands[b];
                const double y = k[0] * x + s1[b];
                s1[b] = k[1] * x - k[3] * y + s2[b];
                s2[b] = k[2] * x - k[4] * y;
                x = y;
            }
            out[size_t(i)] = x;
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * n);
}

// Three bands, each a stage of its own process writing a buffer of its own.
void BM_ProductBands(benchmark::State& state)
{
    const auto n = int32_t(state.range(0));
    const std::vector<double> in = noise(size_t(n));
    std::vector<double> buffers[3] = {std::vector<double>(size_t(n)), std::vector<double>(size_t(n)), std::vector<double>(size_t(n))};
    CDCDAWStageState states[3];
    CAudioFilterStage stages[3];
    for (int b = 0; b < 3; ++b) {
        stages[b] = stageOf(kBands[b]);
        stages[b].kernels->init(states[b], stages[b], 48000.0);
    }
    for (auto _ : state) {
        const double* from = in.data();
        for (int b = 0; b < 3; ++b) {
            stages[b].kernels->process(states[b], from, buffers[b].data(), n);
            from = buffers[b].data();
        }
        benchmark::DoNotOptimize(buffers[2].data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * n);
}

template <bool kFma>
void BM_BiquadSteady(benchmark::State& state)
{
    const auto n = int32_t(state.range(0));
    const std::vector<double> in = noise(size_t(n));
    std::vector<double> out(static_cast<size_t>(n));
    const double c[5] = {kBands[1][0], kBands[1][1], kBands[1][2], -kBands[1][3], -kBands[1][4]};
    double w1 = 0.0, w2 = 0.0;
    if (kFma && !dcdaw::hasFma()) {
        state.SkipWithError("no FMA on this processor");
        return;
    }
    for (auto _ : state) {
        if constexpr (kFma)
            dcdaw::biquadRunFma(c, w1, w2, in.data(), out.data(), n);
        else
            dcdaw::biquadRunPlain(c, w1, w2, in.data(), out.data(), n);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * n);
}

// A kernel set over a block, steady or with a morph under way for all of it. A morph at
// 48 MHz lasts 720000 samples or more, so a new one is started only every few thousand
// blocks and its cost vanishes from the time per sample.
bool isMorphRunning(const CDCDAWKernelSet& set, const CDCDAWStageState& st, int32_t n)
{
    return set.process == dcdaw::kBiquadCommon.process ? st.biquad.remaining >= n : st.onePole.remaining >= n;
}

void runKernel(benchmark::State& state, const CDCDAWKernelSet& set, const CAudioFilterStage& a, const CAudioFilterStage& b,
               bool isMorphing)
{
    const auto n = int32_t(state.range(0));
    const std::vector<double> in = noise(size_t(n));
    std::vector<double> out(static_cast<size_t>(n));
    const double rate = isMorphing ? 48.0e6 : 48000.0;
    CDCDAWStageState st;
    set.init(st, a, rate);
    bool toB = true;
    for (auto _ : state) {
        if (isMorphing && !isMorphRunning(set, st, n)) {
            set.init(st, toB ? a : b, rate);
            set.update(st, toB ? b : a);
            toB = !toB;
        }
        set.process(st, in.data(), out.data(), n);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * n);
}

void BM_BiquadKernel(benchmark::State& state)
{
    runKernel(state, dcdaw::kBiquadCommon, stageOf(kBands[1]), stageOf(kBands[2]), false);
}
void BM_BiquadKernelMorphing(benchmark::State& state)
{
    runKernel(state, dcdaw::kBiquadCommon, stageOf(kBands[1]), stageOf(kBands[2]), true);
}

CAudioFilterStage onePole(double k)
{
    CAudioFilterStage s;
    s.kernels = &dcdaw::kHighPass1;
    s.bCount = 2;
    s.b[0] = k;
    s.b[1] = 1.0;
    return s;
}
void BM_OnePoleKernel(benchmark::State& state) { runKernel(state, dcdaw::kHighPass1, onePole(1.3e-4), onePole(2.6e-4), false); }
void BM_OnePoleKernelMorphing(benchmark::State& state)
{
    runKernel(state, dcdaw::kHighPass1, onePole(1.3e-4), onePole(2.6e-4), true);
}

template <int32_t kSections>
void BM_HalfBandKernel(benchmark::State& state)
{
    static const double kA[5] = {0.017201989192148732, 0.143436416471937580, 0.347900769631093840, 0.577350269189625730, 0.810517970072601620};
    static const double kB[5] = {0.066817741883400714, 0.239667767835860080, 0.461816363311925440, 0.693116558427877340, 0.933859775291256300};
    CAudioFilterStage s;
    s.kernels = dcdaw::halfBandKernels(kSections);
    s.bCount = s.aCount = kSections;
    for (int32_t i = 0; i < kSections; ++i) {
        s.b[i] = kA[i];
        s.a[i] = kB[i];
    }
    const auto n = int32_t(state.range(0));
    const std::vector<double> in = noise(size_t(n));
    std::vector<double> out(static_cast<size_t>(n));
    CDCDAWStageState st;
    s.kernels->init(st, s, 96000.0);
    for (auto _ : state) {
        s.kernels->process(st, in.data(), out.data(), n);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * n);
}

} // namespace

BENCHMARK(BM_ReferenceThreeTdf2)->Arg(64)->Arg(256)->Arg(1024);
BENCHMARK(BM_ProductBands)->Arg(64)->Arg(256)->Arg(1024);
BENCHMARK(BM_BiquadSteady<false>)->Arg(256);
BENCHMARK(BM_BiquadSteady<true>)->Arg(256);
BENCHMARK(BM_BiquadKernel)->Arg(256);
BENCHMARK(BM_BiquadKernelMorphing)->Arg(256);
BENCHMARK(BM_OnePoleKernel)->Arg(256);
BENCHMARK(BM_OnePoleKernelMorphing)->Arg(256);
BENCHMARK(BM_HalfBandKernel<4>)->Arg(256);
BENCHMARK(BM_HalfBandKernel<5>)->Arg(256);

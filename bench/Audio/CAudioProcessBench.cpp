// What the graph itself costs per block: a chain of twelve unity gains at 48 kHz, blocks
// of 512 samples on 8 channels. Each gain passes its buffers on by reference, so what is
// measured is the engine (pulls, tables, references, hand-over), not any arithmetic. The
// reference copies the 8 channels once, as the wrapper's conversion of the host's block
// does; the engine's overhead reads best as a fraction of that copy.

#include "AudioBenchSupport.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

namespace qel {
extern const CResourceRow kProcessBenchDefinitions[];
}

using namespace qel;

namespace {

constexpr int32_t kBlock = 512;
constexpr int32_t kChannels = 8;

void setCounters(benchmark::State& state) { bench::setCounters(state, int64_t(kBlock) * kChannels); }

void BM_CopyEightChannels(benchmark::State& state)
{
    std::vector<double> src(size_t(kBlock) * kChannels, 0.25);
    std::vector<double> dst(src.size());
    for (auto _ : state) {
        for (int32_t c = 0; c < kChannels; ++c) {
            const double* from = src.data() + size_t(c) * kBlock;
            double* to = dst.data() + size_t(c) * kBlock;
            benchmark::DoNotOptimize(from);
            benchmark::DoNotOptimize(to);
            std::memcpy(to, from, kBlock * sizeof(double));
        }
        benchmark::ClobberMemory();
    }
    setCounters(state);
}

void BM_TwelveUnityGains(benchmark::State& state)
{
    // Four groups of two channels; the host's samples would be copied into the buffers,
    // which the gains never read.
    bench::BenchGraph graph(kProcessBenchDefinitions, "BenchProcessGraphs.xml", "audio.unity", "plugin.unity",
                            {0, 0, 1, 1, 2, 2, 3, 3}, kBlock);
    for (int i = 0; i < 4; ++i)
        graph.block();
    for (auto _ : state) {
        graph.block();
        benchmark::DoNotOptimize(graph.output(0));
    }
    setCounters(state);
}

} // namespace

BENCHMARK(BM_CopyEightChannels);
BENCHMARK(BM_TwelveUnityGains);

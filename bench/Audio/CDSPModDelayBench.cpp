// What aligning a channel costs per 512-sample block: the delay line running in place on a
// pool buffer, against one memcpy of the block, the least any stage that moves samples
// pays. The line copies every sample twice (into its ring and out again), so about twice
// the memcpy is what to expect of it when nothing changes.

#include "Audio/CDSPModDelay.h"
#include "Audio/CSampleBufferPool.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

using namespace qel;

namespace {

constexpr int32_t kBlock = 512;

void setCounters(benchmark::State& state)
{
    state.SetItemsProcessed(state.iterations() * kBlock);
    state.SetBytesProcessed(state.iterations() * kBlock * int64_t(sizeof(double)));
}

void BM_MemcpyBlock(benchmark::State& state)
{
    std::vector<double> src(kBlock, 0.25);
    std::vector<double> dst(kBlock);
    double* to = dst.data();
    const double* from = src.data();
    for (auto _ : state) {
        // The pointers escape each time round, or a compiler may drop the copy altogether.
        benchmark::DoNotOptimize(from);
        benchmark::DoNotOptimize(to);
        std::memcpy(to, from, kBlock * sizeof(double));
        benchmark::ClobberMemory();
    }
    setCounters(state);
}

// Argument: the delay in samples.
void BM_DelayInPlace(benchmark::State& state)
{
    CSampleBufferPool pool;
    CDSPModDelay line(pool);
    line.setSampleRate(48000.0);
    line.setDelay(int32_t(state.range(0)));
    double* buffer = pool.take(kBlock);
    for (int32_t i = 0; i < kBlock; ++i)
        buffer[i] = 0.001 * i;
    for (auto _ : state) {
        line.process(buffer, kBlock);
        benchmark::ClobberMemory();
    }
    CSampleBufferPool::release(buffer);
    setCounters(state);
}

// The length swings between 64 and 600 samples, each change as soon as the last one is
// done, so that every block waits or crossfades with two read positions.
void BM_DelayChanging(benchmark::State& state)
{
    CSampleBufferPool pool;
    CDSPModDelay line(pool);
    line.setSampleRate(48000.0);
    line.setDelay(64);
    double* buffer = pool.take(kBlock);
    for (int32_t i = 0; i < kBlock; ++i)
        buffer[i] = 0.001 * i;
    line.process(buffer, kBlock);
    for (auto _ : state) {
        if (!line.isChanging())
            line.setDelay(line.delay() == 64 ? 600 : 64);
        line.process(buffer, kBlock);
        benchmark::ClobberMemory();
    }
    CSampleBufferPool::release(buffer);
    setCounters(state);
}

} // namespace

BENCHMARK(BM_MemcpyBlock);
BENCHMARK(BM_DelayInPlace)->Arg(1)->Arg(64)->Arg(3000)->Arg(100000);
BENCHMARK(BM_DelayChanging);

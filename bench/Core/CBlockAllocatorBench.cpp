// The block allocator against the system's malloc, on one and on two threads. Each
// iteration makes 64 blocks of mixed small sizes, as object trees and strings do, and
// frees them again.

#include "Core/CBlockAllocator.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>

namespace {

constexpr int kBlocks = 64;

constexpr std::array<size_t, kBlocks> makeSizes()
{
    std::array<size_t, kBlocks> sizes{};
    uint32_t x = 12345;
    for (auto& s : sizes) {
        x = x * 1103515245u + 12345u;
        s = 16 + (x >> 16) % 500;
    }
    return sizes;
}

constexpr auto kSizes = makeSizes();

template <class Alloc, class Free>
void churn(benchmark::State& state, Alloc&& alloc, Free&& release)
{
    std::array<void*, kBlocks> blocks{};
    for (auto _ : state) {
        for (int i = 0; i < kBlocks; ++i) {
            blocks[i] = alloc(kSizes[i]);
            benchmark::DoNotOptimize(blocks[i]);
        }
        for (int i = 0; i < kBlocks; ++i)
            release(blocks[i]);
    }
    state.SetItemsProcessed(state.iterations() * kBlocks);
}

void BM_SystemMalloc(benchmark::State& state)
{
    churn(state, [](size_t n) { return std::malloc(n); }, [](void* p) { std::free(p); });
}

void BM_BlockAllocator(benchmark::State& state)
{
    churn(state, [](size_t n) { return qel::CBlockAllocator::alloc(n); },
          [](void* p) { qel::CBlockAllocator::free(p); });
}

} // namespace

BENCHMARK(BM_SystemMalloc)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_BlockAllocator)->Threads(1)->Threads(2)->UseRealTime();

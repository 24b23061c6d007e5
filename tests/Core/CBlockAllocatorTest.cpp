#include "Core/CBlockAllocator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

using qel::CBlockAllocator;

TEST(CBlockAllocator, SizeClassesAndHeapBlocks)
{
    struct Case { size_t size; int sizeClass; size_t usable; };
    const Case cases[] = {
        {0, 0, 16}, {1, 0, 16}, {16, 0, 16}, {17, 1, 32}, {100, 6, 112},
        {4079, 254, 4080}, {4080, 254, 4080}, {4081, 255, 4081}, {100000, 255, 100000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.size);
        void* p = CBlockAllocator::alloc(c.size);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
        EXPECT_EQ(CBlockAllocator::blockClass(p), c.sizeClass);
        EXPECT_EQ(CBlockAllocator::blockSize(p), c.usable);
        std::memset(p, 0x5A, c.usable); // the whole usable size is ours
        CBlockAllocator::free(p);
    }
}

TEST(CBlockAllocator, ReallocAlwaysMovesAndKeepsTheLesserSize)
{
    auto* p = static_cast<unsigned char*>(CBlockAllocator::alloc(40));
    for (int i = 0; i < 40; ++i)
        p[i] = static_cast<unsigned char>(i);
    auto* same = static_cast<unsigned char*>(CBlockAllocator::realloc(p, 35)); // same class
    EXPECT_NE(same, p);
    EXPECT_EQ(CBlockAllocator::blockClass(same), 2);
    for (int i = 0; i < 35; ++i)
        ASSERT_EQ(same[i], i);

    auto* big = static_cast<unsigned char*>(CBlockAllocator::realloc(same, 10000));
    EXPECT_EQ(CBlockAllocator::blockClass(big), 255);
    for (int i = 0; i < 35; ++i)
        ASSERT_EQ(big[i], i);
    auto* back = static_cast<unsigned char*>(CBlockAllocator::realloc(big, 20));
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ(back[i], i);
    CBlockAllocator::free(back);

    void* fresh = CBlockAllocator::realloc(nullptr, 64);
    EXPECT_EQ(CBlockAllocator::blockClass(fresh), 3);
    CBlockAllocator::free(fresh);
}

TEST(CBlockAllocator, BlocksOfOneClassNeverOverlap)
{
    std::vector<uintptr_t> blocks;
    for (int i = 0; i < 3000; ++i)
        blocks.push_back(reinterpret_cast<uintptr_t>(CBlockAllocator::alloc(48)));
    std::vector<uintptr_t> sorted = blocks;
    std::sort(sorted.begin(), sorted.end());
    for (size_t i = 1; i < sorted.size(); ++i)
        ASSERT_GE(sorted[i] - sorted[i - 1], 48u + 16u) << "blocks overlap or miss their class byte";
    for (uintptr_t b : blocks)
        CBlockAllocator::free(reinterpret_cast<void*>(b));
}

TEST(CBlockAllocator, BlockFreedOnAnotherThreadIsReused)
{
    void* block = CBlockAllocator::alloc(200);
    std::thread([block] { CBlockAllocator::free(block); }).join();
    // The class's list is last in, first out, and nothing else uses class 12 here.
    void* again = CBlockAllocator::alloc(200);
    EXPECT_EQ(again, block);
    std::thread([again] {
        CBlockAllocator::free(again);
        EXPECT_EQ(CBlockAllocator::alloc(195), again);
        CBlockAllocator::free(again);
    }).join();
}

TEST(CBlockAllocator, ConcurrentThreadsNeverShareABlock)
{
    // Each thread stamps its blocks with its own pattern and checks it before freeing;
    // a block handed out twice would carry another thread's stamp. Half of the blocks
    // are freed by the neighbouring thread to exercise cross-thread frees.
    constexpr int kThreads = 4;
    constexpr int kRounds = 20000;
    std::atomic<bool> failed{false};
    std::vector<std::vector<void*>> handoff(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &failed] {
            std::mt19937 rng(t + 1);
            std::vector<std::pair<unsigned char*, size_t>> live;
            for (int i = 0; i < kRounds; ++i) {
                if (live.size() < 64 && (rng() & 1)) {
                    const size_t size = 1 + rng() % 600;
                    auto* p = static_cast<unsigned char*>(CBlockAllocator::alloc(size));
                    std::memset(p, 0x10 + t, size);
                    live.emplace_back(p, size);
                } else if (!live.empty()) {
                    const size_t k = rng() % live.size();
                    auto [p, size] = live[k];
                    for (size_t j = 0; j < size; ++j)
                        if (p[j] != 0x10 + t)
                            failed = true;
                    CBlockAllocator::free(p);
                    live[k] = live.back();
                    live.pop_back();
                }
            }
            for (auto& [p, size] : live)
                CBlockAllocator::free(p);
        });
    }
    for (auto& th : threads)
        th.join();
    EXPECT_FALSE(failed);

    // Blocks made on one thread and freed on another.
    std::vector<void*> made;
    std::thread maker([&made] {
        for (int i = 0; i < 5000; ++i)
            made.push_back(CBlockAllocator::alloc(16 * (i % 20 + 1)));
    });
    maker.join();
    std::thread freer([&made] {
        for (void* p : made)
            CBlockAllocator::free(p);
    });
    freer.join();
}

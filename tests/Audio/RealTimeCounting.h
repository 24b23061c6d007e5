#pragma once

// The per-thread counters of the real-time test program, which replaces the global
// operator new and the C allocation and mutex entry points to count them (defined in
// CAudioGraphRealTimeTest.cpp). A thread counts while its t_counting is set. The sanitizer
// builds bring their own allocator: there nothing is counted and QEL_COUNTING is unset.
// Also the run those tests share: host and audio thread in lock step, block by block.

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <thread>

#if !defined(QEL_TSAN) && !defined(QEL_ASAN)
#define QEL_COUNTING 1
#endif

// A sanitizer build, whether the build says so or the compiler does.
#if defined(QEL_ASAN) || defined(QEL_TSAN) || defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QEL_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QEL_SANITIZED 1
#endif
#endif

namespace qel::test {
extern thread_local bool t_counting;
extern thread_local size_t t_news;
extern thread_local size_t t_mallocs;
extern thread_local size_t t_frees;
extern thread_local size_t t_locks;

// How many blocks a run takes: its full length where the allocations are counted, which
// takes thousands of blocks past every combination of changes; a short one under a
// sanitizer, which counts nothing and looks for memory errors, and finds them in a few
// hundred blocks through the same paths as well as in thousands.
#ifdef QEL_SANITIZED
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif
constexpr int realTimeBlocks(int counted, int sanitized) { return kIsSanitized ? sanitized : counted; }

// What a thread allocated and freed while it counted.
struct RealTimeCounts
{
    size_t news = 0;
    size_t mallocs = 0;
    size_t frees = 0;
};

inline void expectNothingAllocated(const RealTimeCounts& counts)
{
    EXPECT_EQ(counts.news, 0u) << "operator new";
    EXPECT_EQ(counts.mallocs, 0u) << "C allocations";
    EXPECT_EQ(counts.frees, 0u) << "frees";
}

constexpr const char* kNotCounted = "the sanitizer's allocator is not counted";

// The verdict that ends a real-time test: the audio thread allocated and freed nothing (and
// took no lock, for the second form); where nothing is counted, the test is marked skipped.
#ifdef QEL_COUNTING
#define QEL_EXPECT_NOTHING_ALLOCATED(counts) ::qel::test::expectNothingAllocated(counts)
#define QEL_EXPECT_NOTHING_ALLOCATED_OR_LOCKED(counts, locks) \
    do {                                                      \
        ::qel::test::expectNothingAllocated(counts);          \
        EXPECT_EQ((locks), 0u);                               \
    } while (0)
#else
#define QEL_EXPECT_NOTHING_ALLOCATED(counts)              \
    do {                                                  \
        (void)(counts);                                   \
        GTEST_SKIP() << ::qel::test::kNotCounted;         \
    } while (0)
#define QEL_EXPECT_NOTHING_ALLOCATED_OR_LOCKED(counts, locks) \
    do {                                                      \
        (void)(locks);                                        \
        QEL_EXPECT_NOTHING_ALLOCATED(counts);                 \
    } while (0)
#endif

// Runs `blocks` blocks as a host drives a plug-in from two threads: on the calling thread
// host(block) makes the changes that go with the block, then on an audio thread of its own
// audio(block) runs it, counting where it sets t_counting; the next block's changes wait
// for it. Returns what the audio thread allocated and freed while it counted.
template <class Host, class Audio>
RealTimeCounts runInLockStep(int blocks, Host&& host, Audio&& audio)
{
    std::atomic<int> requested{0};
    std::atomic<int> done{0};
    RealTimeCounts counts;
    std::thread audioThread([&] {
        for (int block = 0; block < blocks; ++block) {
            while (requested.load(std::memory_order_acquire) <= block)
                std::this_thread::yield();
            audio(block);
            t_counting = false;
            done.store(block + 1, std::memory_order_release);
        }
        counts = {t_news, t_mallocs, t_frees};
    });
    for (int block = 0; block < blocks; ++block) {
        host(block);
        requested.store(block + 1, std::memory_order_release);
        while (done.load(std::memory_order_acquire) <= block)
            std::this_thread::yield();
    }
    audioThread.join();
    return counts;
}

} // namespace qel::test

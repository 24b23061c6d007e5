#include "Audio/CSampleBufferPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>

using namespace qel;
using Pool = CSampleBufferPool;

namespace {

TEST(CSampleBufferPoolTest, RequestsFallIntoTheirSizeClasses)
{
    for (auto [bytes, sizeClass] : {std::pair<int64_t, int32_t>{0, 0}, {512, 0}, {513, 1}, {65536, 127}, {65537, 128}})
        EXPECT_EQ(Pool::classForBytes(bytes), sizeClass) << bytes;

    // Blocks of 1 and of 8192 samples (8 and 65536 bytes) take the first and the last
    // regular class, one of 9000 the large class; each is reused on the next block.
    Pool pool;
    const struct
    {
        int32_t samples, sizeClass, capacity;
    } blocks[] = {{1, 0, 512}, {65, 1, 1024}, {8192, 127, 65536}, {9000, 128, 72192}};
    for (int block = 0; block < 3; ++block) {
        for (const auto& b : blocks) {
            SCOPED_TRACE(testing::Message() << b.samples << " samples, block " << block);
            double* buffer = pool.take(b.samples);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer) % 16, 0u);
            EXPECT_EQ(Pool::sizeClassOf(buffer), b.sizeClass);
            EXPECT_EQ(Pool::capacityBytes(buffer), b.capacity);
            EXPECT_EQ(Pool::poolOf(buffer), &pool);
            EXPECT_EQ(Pool::refCount(buffer), 1);
            std::fill(buffer, buffer + b.capacity / 8, 1.0); // all of it is ours (ASan)
            Pool::release(buffer);
        }
        EXPECT_EQ(pool.systemAllocations(), 4);
    }
    EXPECT_EQ(pool.takeBytes(Pool::kMaxBytes + 1), nullptr);
}

TEST(CSampleBufferPoolTest, LargeClassReplacesABufferTooSmall)
{
    Pool pool;
    Pool::release(pool.take(9000));
    double* larger = pool.take(12000);
    EXPECT_GE(Pool::capacityBytes(larger), 12000 * 8);
    EXPECT_EQ(pool.bufferCount(), 1); // the small one went back to the heap
    Pool::release(larger);
    EXPECT_EQ(pool.take(9000), larger); // while a larger one serves a smaller request
    Pool::release(larger);
}

TEST(CSampleBufferPoolTest, OnlyTheLastReleaseFreesTheBuffer)
{
    Pool pool;
    double* buffer = pool.take(100);
    Pool::addRef(buffer);
    Pool::addRef(buffer);
    Pool::release(buffer);
    Pool::release(buffer);
    EXPECT_EQ(Pool::refCount(buffer), 1);
    EXPECT_EQ(pool.freeCount(1), 0);
    double* other = pool.take(100);
    EXPECT_NE(other, buffer);
    Pool::release(buffer);
    EXPECT_EQ(pool.freeCount(1), 1);
    EXPECT_EQ(pool.take(100), buffer);
    Pool::addRef(nullptr); // empty channel slots need no test
    Pool::release(nullptr);
    // `buffer` and `other` stay referenced: the destructor frees them (LeakSanitizer watches).
}

TEST(CSampleBufferPoolTest, ReserveWarmsAClass)
{
    Pool pool;
    ASSERT_FALSE(pool.reserve(8192 * 8, 3));
    ASSERT_FALSE(pool.reserve(8192 * 8, 2)); // there already
    double* held[3];
    for (double*& b : held)
        b = pool.take(8150); // 65200 bytes, the same class
    EXPECT_EQ(pool.systemAllocations(), 3);
    for (double* b : held)
        Pool::release(b);

    ASSERT_FALSE(pool.reserve(9000 * 8, 2));
    ASSERT_FALSE(pool.reserve(20000 * 8, 2)); // drops the two of 9000 samples
    EXPECT_EQ(pool.freeCount(128), 2);
    EXPECT_EQ(pool.bufferCount(), 5);
    EXPECT_TRUE(pool.reserve(Pool::kMaxBytes + 1, 1));
}

} // namespace

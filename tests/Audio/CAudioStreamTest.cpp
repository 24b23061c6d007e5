#include "Audio/CAudioPort.h"
#include "Audio/CAudioStream.h"

#include <gtest/gtest.h>

using namespace qel;
using Pool = CSampleBufferPool;

namespace {

CAudioStream::CChannel record(int32_t key, int32_t group, int32_t latency)
{
    return {keyChannel(key), group, latency, keyPort(key), nullptr};
}

TEST(CAudioStreamTest, FormatChangesReachTheOwner)
{
    EXPECT_EQ(channelKey(3, 1), 19);
    int32_t dirty = 0;
    CAudioStream stream;
    stream.ownerDirty = &dirty;
    // Key 17 twice and a key of a third port: only the first 17 stays.
    const CAudioStream::CChannel records[] = {record(0, 0, 0), record(17, 1, 64), record(17, 2, 0), record(32, 0, 0)};
    EXPECT_TRUE(stream.setFormat(48000.0, records, 4));
    EXPECT_FALSE(stream.setFormat(48000.0, records, 4)); // the same again: the owner sleeps
    EXPECT_EQ(dirty, 1);
    EXPECT_EQ(stream.channelCount, 2);
    ASSERT_NE(stream.find(17), nullptr);
    EXPECT_EQ(stream.find(17)->group, 1);
    EXPECT_EQ(stream.find(1), nullptr);

    Pool pool; // a new latency lets go of the buffers of the old format
    double* buffer = pool.take(64);
    stream.find(0)->buffer = buffer;
    Pool::addRef(buffer);
    const CAudioStream::CChannel later[] = {record(0, 0, 0), record(17, 1, 128)};
    EXPECT_TRUE(stream.setFormat(48000.0, later, 2));
    EXPECT_EQ(Pool::refCount(buffer), 1);
    EXPECT_EQ(stream.find(0)->buffer, nullptr);
    EXPECT_TRUE(stream.setFormat(96000.0, later, 2));
    EXPECT_EQ(dirty, 3);
    Pool::release(buffer);
}

// Only the channel with a delay is touched; the others pass on by reference.
TEST(CAudioStreamTest, DelaysAlignTheirChannelsOnly)
{
    Pool pool;
    {
        CAudioStream stream;
        const CAudioStream::CChannel records[] = {record(0, 0, 0), record(1, 0, 3)};
        ASSERT_TRUE(stream.setFormat(44100.0, records, 2));
        stream.delayFor(0, pool)->setDelay(3);
        double* a = pool.take(4);
        double* b = pool.take(4);
        for (int i = 0; i < 4; ++i)
            a[i] = b[i] = i + 1;
        stream.find(0)->buffer = a;
        stream.find(1)->buffer = b;
        stream.blockLength = 4;
        ASSERT_TRUE(stream.runDelays());
        EXPECT_EQ(stream.find(0)->buffer, a); // the only holder: in place
        EXPECT_EQ(std::vector<double>(a, a + 4), std::vector<double>({0, 0, 0, 1}));
        EXPECT_EQ(stream.find(1)->buffer, b);
        EXPECT_EQ(b[0], 1.0);
    } // the stream lets go of both buffers, the line of its chunk
    EXPECT_EQ(pool.freeCount(0), 2);
    EXPECT_EQ(pool.freeCount(15), 1);
}

TEST(CAudioStreamTest, PortFindsChannelsAndKnowsWhenUnused)
{
    CAudioPort side(1);
    EXPECT_FALSE(CAudioPort().isUnused());
    EXPECT_TRUE(side.isUnused());
    CAudioStream stream;
    side.sources.push_back(&stream);
    EXPECT_FALSE(side.isUnused());

    Pool pool;
    side.channelCount = 2;
    side.channels[0].key = 16;
    side.channels[1].key = 17;
    side.channels[1].buffer = pool.take(1);
    EXPECT_EQ(side.find(17), &side.channels[1]);
    EXPECT_EQ(side.find(18), nullptr);
    side.releaseBuffers();
    EXPECT_EQ(pool.freeCount(0), 1);
}

} // namespace

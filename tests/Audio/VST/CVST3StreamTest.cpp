#include "Audio/VST/CInputStreamVST.h"
#include "Audio/VST/COutputStreamVST.h"

#include "VST3TestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <vector>

namespace qel {
namespace {

using test::CTestByteStream;

constexpr uint32_t kTag = 0x73727061; // "aprs" read as a little-endian u32

std::vector<uint8_t> pattern(size_t n)
{
    std::vector<uint8_t> bytes(n);
    for (size_t i = 0; i < n; ++i)
        bytes[i] = uint8_t((i * 131u + 7u) >> 1);
    return bytes;
}

TEST(CVST3StreamTest, ACompressedBlockRoundTripsThroughAHostStreamThatMovesFewBytesPerCall)
{
    const std::vector<uint8_t> payload = pattern(100000);
    for (int32_t piece : {1, 3, 4096, 1 << 30}) {
        SCOPED_TRACE(piece);
        CTestByteStream host({}, piece);
        COutputStreamVST out(&host);
        ASSERT_FALSE(out.writeCompressedData(payload.data(), payload.size(), kTag));
        ASSERT_FALSE(out.writeString(CString("tail")));

        host.cursor = 0;
        CInputStreamVST in(&host);
        CByteArray back;
        ASSERT_FALSE(in.readCompressedData(back, kTag));
        ASSERT_EQ(back.size(), payload.size());
        EXPECT_EQ(std::memcmp(back.data(), payload.data(), payload.size()), 0);
    }
}

TEST(CVST3StreamTest, TypedValuesReadBackExactly)
{
    CTestByteStream host({}, 3);
    COutputStreamVST out(&host);
    ASSERT_FALSE(out.writeU32(0xA1B2C3D4u));
    ASSERT_FALSE(out.writeDouble(-0.1));
    ASSERT_FALSE(out.writeString(CString(u"Gr\u00fc\u00dfe \u20ac")));
    // Little-endian, as every stored integer.
    ASSERT_GE(host.data.size(), 4u);
    EXPECT_EQ(host.data[0], 0xD4);
    EXPECT_EQ(host.data[3], 0xA1);

    host.cursor = 0;
    CInputStreamVST in(&host);
    uint32_t u = 0;
    double d = 0.0;
    CString s;
    ASSERT_FALSE(in.readU32(u));
    ASSERT_FALSE(in.readDouble(d));
    ASSERT_FALSE(in.readString(s));
    EXPECT_EQ(u, 0xA1B2C3D4u);
    EXPECT_EQ(d, -0.1);
    EXPECT_EQ(s, CString(u"Gr\u00fc\u00dfe \u20ac"));
}

TEST(CVST3StreamTest, AReadPastTheEndFailsWithTheCountsAndStreamedReadsStopThere)
{
    CTestByteStream host(pattern(10), 4);
    CInputStreamVST in(&host);
    uint8_t buffer[16];
    CErrorPtr error = in.read(buffer, 11);
    ASSERT_TRUE(error);
    EXPECT_NE(error->text().toUtf8().find("required 11 bytes, read 10 bytes"), std::string::npos);

    host.cursor = 6;
    size_t count = sizeof buffer;
    ASSERT_FALSE(in.readStreamed(buffer, count));
    EXPECT_EQ(count, 4u);
    count = sizeof buffer;
    ASSERT_FALSE(in.readStreamed(buffer, count));
    EXPECT_EQ(count, 0u);
}

TEST(CVST3StreamTest, AFailingOrMissingHostStreamIsAnError)
{
    CTestByteStream host(pattern(64));
    host.failReads = true;
    host.failWrites = true;
    uint8_t buffer[8] = {};
    CInputStreamVST in(&host);
    EXPECT_TRUE(in.read(buffer, 8));
    size_t count = 8;
    EXPECT_TRUE(in.readStreamed(buffer, count));
    EXPECT_EQ(count, 0u);
    COutputStreamVST out(&host);
    EXPECT_TRUE(out.write(buffer, 8));

    CInputStreamVST noInput(nullptr);
    EXPECT_TRUE(noInput.read(buffer, 1));
    COutputStreamVST noOutput(nullptr);
    EXPECT_TRUE(noOutput.write(buffer, 1));
}

TEST(CVST3StreamTest, AGarbledBlockFromTheHostIsRefused)
{
    const std::vector<uint8_t> payload = pattern(5000);
    CTestByteStream host;
    COutputStreamVST out(&host);
    ASSERT_FALSE(out.writeCompressedData(payload.data(), payload.size(), kTag));
    const std::vector<uint8_t> good = host.data;

    // Every cut of the block and a flipped byte in its head or body fail.
    for (size_t cut : {size_t(0), size_t(3), size_t(11), good.size() / 2, good.size() - 1}) {
        SCOPED_TRACE(cut);
        CTestByteStream shortHost(std::vector<uint8_t>(good.begin(), good.begin() + std::ptrdiff_t(cut)));
        CInputStreamVST in(&shortHost);
        CByteArray back;
        EXPECT_TRUE(in.readCompressedData(back, kTag));
    }
    for (size_t at : {size_t(5), size_t(9), good.size() / 2}) {
        SCOPED_TRACE(at);
        std::vector<uint8_t> bad = good;
        bad[at] ^= 0x40;
        CTestByteStream badHost(bad);
        CInputStreamVST in(&badHost);
        CByteArray back;
        EXPECT_TRUE(in.readCompressedData(back, kTag));
    }
}

} // namespace
} // namespace qel

#include "Audio/VST/CInputStreamVST.h"
#include "Audio/VST/COutputStreamVST.h"

#include "VST3TestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
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

    // Cuts of the block and a flipped byte in its head or body fail.
    std::vector<std::vector<uint8_t>> bad;
    for (size_t cut : {size_t(0), size_t(3), size_t(11), good.size() / 2, good.size() - 1})
        bad.emplace_back(good.begin(), good.begin() + std::ptrdiff_t(cut));
    for (size_t at : {size_t(5), size_t(9), good.size() / 2}) {
        bad.push_back(good);
        bad.back()[at] ^= 0x40;
    }
    for (const std::vector<uint8_t>& bytes : bad) {
        CTestByteStream badHost(bytes);
        CInputStreamVST in(&badHost);
        CByteArray back;
        EXPECT_TRUE(in.readCompressedData(back, kTag)) << bytes.size();
    }
}

} // namespace
} // namespace qel

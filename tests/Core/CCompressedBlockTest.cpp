#include "StreamTestSupport.h"

#include "Core/CByteOrder.h"
#include "Core/CDataTag.h"
#include "Core/CMemoryReader.h"
#include "Core/COutputStream.h"
#include "Core/CZipStream.h"

#include <gtest/gtest.h>
#include <lz4.h>
#include <zlib.h>

#include <atomic>
#include <random>
#include <string>
#include <vector>

#if defined(QEL_ASAN)
#include <sanitizer/allocator_interface.h>
#endif

using namespace qel;

namespace {

using namespace qel::test;

constexpr uint32_t kTag = makeTag("aprs");

// Straight from the definition: two sums modulo the largest prime below 2^16.
uint32_t adler32Of(const uint8_t* data, size_t size)
{
    uint32_t a = 1, b = 0;
    for (size_t i = 0; i < size; ++i) {
        a = (a + data[i]) % 65521;
        b = (b + a) % 65521;
    }
    return b << 16 | a;
}

Bytes makeData(size_t size, bool compressible, uint32_t seed)
{
    static const char kWords[] = "the lazy dog jumps over a quick brown fox; ";
    std::mt19937 rng(seed);
    Bytes data(size);
    for (size_t i = 0; i < size; ++i)
        data[i] = compressible && rng() % 32 != 0 ? uint8_t(kWords[i % (sizeof kWords - 1)]) : uint8_t(rng());
    return data;
}

Bytes writeBlock(const Bytes& data, bool lz4)
{
    VectorSink sink;
    EXPECT_FALSE(lz4 ? sink.writeCompressedDataLZ4(data.data(), data.size(), kTag)
                     : sink.writeCompressedData(data.data(), data.size(), kTag));
    return sink.bytes;
}

// Reads from an exact-size copy, so the sanitizer catches any read past the end.
CErrorPtr readBlock(const Bytes& bytes, bool lz4, Bytes& out, int64_t* position = nullptr)
{
    const Bytes copy(bytes);
    CMemoryReader reader(copy.data(), copy.size());
    CByteArray array;
    CErrorPtr error = lz4 ? reader.readCompressedDataLZ4(array, kTag) : reader.readCompressedData(array, kTag);
    out.assign(array.data(), array.data() + array.size());
    if (position) {
        EXPECT_FALSE(reader.getPosition(*position));
    }
    return error;
}

// A block head with a correct head check, written by hand around any payload.
Bytes handBlock(uint32_t size, const Bytes& payload, bool lz4, int64_t compressedSize = -1)
{
    Bytes bytes(lz4 ? 16 : 12);
    storeU32LE(bytes.data(), kTag);
    storeU32LE(bytes.data() + 4, size);
    if (lz4)
        storeU32LE(bytes.data() + 8, uint32_t(compressedSize < 0 ? payload.size() : compressedSize));
    const size_t checked = lz4 ? 8 : 4;
    storeU32LE(bytes.data() + 4 + checked, adler32Of(bytes.data() + 4, checked));
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

// The largest single heap request, where the sanitizer lets us see it.
std::atomic<size_t> g_largestAllocation{0};
#if defined(QEL_ASAN)
void noteMalloc(const volatile void*, size_t size)
{
    size_t seen = g_largestAllocation.load();
    while (size > seen && !g_largestAllocation.compare_exchange_weak(seen, size)) {
    }
}
void noteFree(const volatile void*) {}
const int g_hooksInstalled = __sanitizer_install_malloc_and_free_hooks(noteMalloc, noteFree);
#endif

} // namespace

TEST(CCompressedBlock, HeadCheckIsAdler32OfTheSizeField)
{
    const uint8_t size1A03[4] = {0x03, 0x1A, 0, 0}, zero[4] = {};
    EXPECT_EQ(adler32Of(size1A03, 4), 0x005E001Eu);
    EXPECT_EQ(CZipStream::headCheck(size1A03, 4), 0x005E001Eu);
    EXPECT_EQ(CZipStream::headCheck(zero, 4), 0x00040001u);
    const Bytes bytes = writeBlock(Bytes(0x1A03, 'q'), false), empty = writeBlock(Bytes(), false);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 12), Bytes({'a', 'p', 'r', 's', 0x03, 0x1A, 0, 0, 0x1E, 0, 0x5E, 0}));
    EXPECT_EQ(Bytes(empty.begin() + 4, empty.begin() + 12), Bytes({0, 0, 0, 0, 1, 0, 4, 0}));
}

TEST(CCompressedBlock, RoundTripsAndPayloadsDecodeIndependently)
{
    for (size_t size : {0, 1, 47, 48, 49, 32767, 32768, 32769, 300007}) {
        for (int kind = 0; kind < 4; ++kind) {
            const bool lz4 = kind & 1, compressible = kind & 2;
            SCOPED_TRACE(::testing::Message() << size << (compressible ? " text" : " random") << (lz4 ? " lz4" : " zlib"));
            const Bytes data = makeData(size, compressible, uint32_t(size));
            const Bytes bytes = writeBlock(data, lz4);
            const size_t head = lz4 ? 16 : 12;
            ASSERT_GE(bytes.size(), head);
            EXPECT_EQ(loadU32LE(bytes.data()), kTag);
            EXPECT_EQ(loadU32LE(bytes.data() + 4), size);
            EXPECT_EQ(loadU32LE(bytes.data() + head - 4), adler32Of(bytes.data() + 4, head - 8));
            Bytes decoded(size + 1);
            uLongf decodedSize = uLongf(decoded.size());
            uLong payloadSize = uLong(bytes.size() - head);
            if (lz4) {
                EXPECT_EQ(loadU32LE(bytes.data() + 8), payloadSize);
                decodedSize = uLongf(LZ4_decompress_safe(reinterpret_cast<const char*>(bytes.data() + head),
                                                         reinterpret_cast<char*>(decoded.data()), int(payloadSize),
                                                         int(decoded.size())));
            } else {
                EXPECT_EQ(uncompress2(decoded.data(), &decodedSize, bytes.data() + head, &payloadSize), Z_OK);
                EXPECT_EQ(payloadSize, bytes.size() - head); // nothing after the stream's end
            }
            ASSERT_EQ(decodedSize, size);
            decoded.resize(size);
            EXPECT_TRUE(decoded == data);

            Bytes back;
            int64_t position = -1;
            CErrorPtr error = readBlock(bytes, lz4, back, &position);
            ASSERT_FALSE(error) << message(error);
            EXPECT_TRUE(back == data);
            EXPECT_EQ(position, int64_t(bytes.size()));
        }
    }
}

TEST(CCompressedBlock, RefusesBadHeads)
{
    const Bytes data = makeData(300, true, 5);
    for (bool lz4 : {false, true}) {
        SCOPED_TRACE(lz4 ? "lz4" : "zlib");
        const Bytes good = writeBlock(data, lz4);
        Bytes back;

        // The tag is judged on its own four bytes.
        Bytes wrongTag(good.begin(), good.begin() + 4);
        wrongTag[3] = 'x';
        EXPECT_EQ(message(readBlock(wrongTag, lz4, back)),
                  "Invalid ID encountered when reading compressed data (expected " + std::to_string(kTag)
                      + ", read " + std::to_string(makeTag("aprx")) + ").");

        // A changed size or check fails before any payload is looked at, even a garbage one.
        const size_t checkAt = lz4 ? 12 : 8;
        for (size_t flip : {size_t(4), size_t(6), checkAt - 1, checkAt, checkAt + 3}) {
            SCOPED_TRACE(flip);
            Bytes bad = good;
            bad[flip] ^= 0x10;
            for (size_t i = checkAt + 4; i < bad.size(); ++i)
                bad[i] = uint8_t(i * 37);
            EXPECT_EQ(message(readBlock(bad, lz4, back)),
                      "Invalid CRC encountered when reading compressed data (expected "
                          + std::to_string(adler32Of(bad.data() + 4, checkAt - 4)) + ", read "
                          + std::to_string(loadU32LE(bad.data() + checkAt)) + ").");
        }
    }
}

TEST(CCompressedBlock, ReadsPayloadsOfTheLibrariesAndRefusesBadOnes)
{
    const Bytes data = makeData(1000, true, 11);
    Bytes zlibPayload(compressBound(uLong(data.size())));
    uLongf zlibSize = uLongf(zlibPayload.size());
    ASSERT_EQ(compress2(zlibPayload.data(), &zlibSize, data.data(), uLong(data.size()), 6), Z_OK);
    zlibPayload.resize(zlibSize);
    Bytes lz4Payload(size_t(LZ4_compressBound(int(data.size()))));
    lz4Payload.resize(size_t(LZ4_compress_default(reinterpret_cast<const char*>(data.data()),
                                                  reinterpret_cast<char*>(lz4Payload.data()), int(data.size()),
                                                  int(lz4Payload.size()))));
    ASSERT_FALSE(lz4Payload.empty());
    Bytes badChecksum = zlibPayload, badHeader = zlibPayload, followed = zlibPayload;
    followed.insert(followed.end(), 40, 'z');
    badChecksum.back() ^= 1;
    badHeader[0] = 0;
    const Bytes cutLz4(lz4Payload.begin(), lz4Payload.end() - 1);

    const struct
    {
        const char* what;
        Bytes block;
        bool lz4;
        std::string expected;
    } cases[] = {
        {"zlib from zlib", handBlock(1000, zlibPayload, false), false, "<no error>"},
        {"lz4 from lz4", handBlock(1000, lz4Payload, true), true, "<no error>"},
        {"zlib size too large", handBlock(1001, zlibPayload, false), false, "Premature end of file."},
        {"zlib size too large, more follows", handBlock(1001, followed, false), false, "Premature end of file."},
        {"zlib size too small", handBlock(999, zlibPayload, false), false, "Compressed data is longer than its declared size."},
        {"zlib no payload", handBlock(1000, Bytes(), false), false, "Premature end of file."},
        {"zlib bad checksum", handBlock(1000, badChecksum, false), false, "zlib inflate error -3 (incorrect data check)."},
        {"zlib bad header", handBlock(1000, badHeader, false), false, "zlib inflate error -3 (incorrect header check)."},
        {"zlib huge size", handBlock(0xFFFFFFFF, zlibPayload, false), false, "Premature end of file."},
        {"lz4 size too large", handBlock(1001, lz4Payload, true), true, "Invalid uncompressed data (expected 1001 bytes, read 1000)."},
        {"lz4 size too small", handBlock(999, lz4Payload, true), true, "Invalid uncompressed data (expected 999 bytes, read 0)."},
        {"lz4 cut payload", handBlock(1000, cutLz4, true), true, "Invalid uncompressed data (expected 1000 bytes, read 0)."},
        {"lz4 empty payload", handBlock(0, Bytes(), true), true, "Invalid uncompressed data (expected 0 bytes, read 0)."},
        {"lz4 implausible size", handBlock(100000000, lz4Payload, true), true, "Invalid uncompressed data (expected 100000000 bytes, read 0)."},
        {"lz4 huge size", handBlock(0xFFFFFFFF, lz4Payload, true), true, "Invalid uncompressed data (expected 4294967295 bytes, read 0)."},
        {"lz4 huge sizes", handBlock(0xFFFFFFFF, lz4Payload, true, 0xFFFFFFFF), true,
         "Premature end of memory resource while reading (pos 16, count "},
    };
#if defined(QEL_ASAN)
    ASSERT_NE(g_hooksInstalled, 0);
#endif
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        g_largestAllocation = 0;
        Bytes back;
        EXPECT_EQ(message(readBlock(c.block, c.lz4, back)).substr(0, c.expected.size()), c.expected);
        EXPECT_TRUE(back == data || c.expected != "<no error>");
        EXPECT_LT(g_largestAllocation.load(), size_t(1) << 20); // lengths are not trusted ahead of the data
    }
}

TEST(CCompressedBlock, EveryTruncationFailsCleanly)
{
    const Bytes data = makeData(200, true, 3);
    for (bool lz4 : {false, true}) {
        const Bytes bytes = writeBlock(data, lz4);
        const size_t head = lz4 ? 16 : 12;
        for (size_t cut = 0; cut < bytes.size(); ++cut) {
            SCOPED_TRACE(::testing::Message() << (lz4 ? "lz4 " : "zlib ") << cut);
            Bytes back;
            const std::string text = message(readBlock(Bytes(bytes.begin(), bytes.begin() + cut), lz4, back));
            if (cut < head || lz4)
                EXPECT_EQ(text.rfind("Premature end of memory resource while reading (pos ", 0), 0u) << text;
            else
                EXPECT_EQ(text, "Premature end of file.");
        }
    }
}

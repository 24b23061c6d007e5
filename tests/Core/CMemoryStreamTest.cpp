#include "StreamTestSupport.h"

#include "Core/CByteOrder.h"
#include "Core/CMemoryReaderStatic.h"
#include "Core/COutputStream.h"
#include "Core/CWriteSeqBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <random>
#include <string>
#include <vector>

using namespace qel;

namespace {

using namespace qel::test;

Bytes withLength(const std::string& utf8)
{
    Bytes out(4 + utf8.size());
    qel::storeU32LE(out.data(), uint32_t(utf8.size()));
    std::copy(utf8.begin(), utf8.end(), out.begin() + 4);
    return out;
}

} // namespace

TEST(CMemoryStream, ValuesAreLittleEndianAndEveryTruncationFails)
{
    VectorSink sink;
    ASSERT_FALSE(sink.writeU32(0x12345678));
    ASSERT_FALSE(sink.writeI32(-2));
    ASSERT_FALSE(sink.writeBool(true));
    ASSERT_FALSE(sink.writeBool(false));
    ASSERT_FALSE(sink.writeDouble(-2.5));
    ASSERT_FALSE(sink.writeString(CString("\xE9t\xE9")));
    EXPECT_EQ(sink.bytes, Bytes({0x78, 0x56, 0x34, 0x12, 0xFE, 0xFF, 0xFF, 0xFF, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                 0, 0, 0x04, 0xC0, 5, 0, 0, 0, 0xC3, 0xA9, 't', 0xC3, 0xA9}));
    for (size_t cut = 0; cut <= sink.bytes.size(); ++cut) {
        SCOPED_TRACE(cut);
        const Bytes prefix(sink.bytes.begin(), sink.bytes.begin() + cut); // exact size: ASan sees overreads
        CMemoryReader reader(prefix.data(), prefix.size());
        uint32_t u = 0;
        int32_t i = 0;
        bool yes = false, no = true;
        double d = 0;
        CString text;
        CErrorPtr error;
        const bool failed = (error = reader.readU32(u)) || (error = reader.readI32(i)) || (error = reader.readBool(yes))
                            || (error = reader.readBool(no)) || (error = reader.readDouble(d)) || (error = reader.readString(text));
        EXPECT_EQ(failed, cut < sink.bytes.size());
        if (failed)
            EXPECT_EQ(message(error).rfind("Premature end of memory resource while reading (pos ", 0), 0u);
        else
            EXPECT_TRUE(u == 0x12345678u && i == -2 && yes && !no && d == -2.5 && text == CString("\xE9t\xE9"));
    }

    // A boolean is 0 or 1; anything else is corrupt data, not "true".
    for (uint32_t bad : {2u, 0x100u, 0xFFFFFFFFu}) {
        const Bytes raw = {uint8_t(bad), uint8_t(bad >> 8), uint8_t(bad >> 16), uint8_t(bad >> 24)};
        CMemoryReader reader(raw.data(), raw.size());
        bool value;
        EXPECT_EQ(message(reader.readBool(value)), "Invalid boolean value " + std::to_string(bad) + " in stream.");
    }
}

TEST(CMemoryStream, StringsAreLengthPrefixedUtf8)
{
    const struct
    {
        CString text;
        std::string utf8;
        bool readsWide;
    } cases[] = {
        {CString(""), "", false},
        {CString("A\xE9\xFF"), "A\xC3\xA9\xC3\xBF", false}, // Latin-1 as code points
        {CString(u"\u00E9"), "\xC3\xA9", false},            // wide, but fits 8 bits
        {CString(u"\u007F\u0080\u07FF\u0800\u20AC\uFFFF"), "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xE2\x82\xAC\xEF\xBF\xBF", true},
        {CString(u"a\xD800\xDFFF" u"b"), "ab", false}, // surrogates left out
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.utf8);
        VectorSink sink;
        ASSERT_FALSE(sink.writeString(c.text));
        EXPECT_EQ(sink.bytes, withLength(c.utf8));
        CMemoryReader reader(sink.bytes.data(), sink.bytes.size());
        CString back("stale");
        ASSERT_FALSE(reader.readString(back));
        EXPECT_EQ(back.toUtf8(), c.utf8);
        EXPECT_EQ(back.isWide(), c.readsWide);
        EXPECT_EQ(positionOf(reader), int64_t(sink.bytes.size()));
    }

    // The limit is on bytes, not characters, and holds both ways.
    for (uint32_t count : {61440u, 61441u}) {
        const Bytes bytes = withLength(std::string(count, 'x'));
        CMemoryReader reader(bytes.data(), bytes.size());
        CString back;
        CErrorPtr error = reader.readString(back);
        EXPECT_EQ(message(error), count == 61440 ? "<no error>" : "String length 61441 too long in readString().");
        EXPECT_EQ(back.length(), count == 61440 ? 61440 : 0);
    }
    std::u16string euros(20480, u'\u20AC');
    VectorSink sink;
    ASSERT_FALSE(sink.writeString(CString(euros.c_str())));
    EXPECT_EQ(sink.bytes.size(), 4u + 61440u);
    sink.bytes.clear();
    euros += u'\u20AC';
    EXPECT_EQ(message(sink.writeString(CString(euros.c_str()))), "String length 61443 too long in writeString().");
    EXPECT_TRUE(sink.bytes.empty());

}

TEST(CMemoryStream, ReaderEndsPositionsAndDirectPointer)
{
    const Bytes data = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    CMemoryReader reader(data.data(), data.size());
    uint8_t buffer[16] = {};
    ASSERT_FALSE(reader.read(buffer, 4));
    EXPECT_EQ(buffer[3], 3);

    CErrorPtr error = reader.read(buffer, 7);
    EXPECT_EQ(message(error), "Premature end of memory resource while reading (pos 4, count 7, size 10).");
    ASSERT_EQ(error->lineCount(), 2);
    EXPECT_EQ(error->line(1).toUtf8().rfind("Core/CMemoryReader( ", 0), 0u);
    EXPECT_EQ(message(reader.skip(7)), "Premature end of memory resource while skipping (pos 4, count 7, size 10).");
    EXPECT_EQ(message(reader.skip(INT64_MAX)),
              "Premature end of memory resource while skipping (pos 4, count 9223372036854775807, size 10).");
    EXPECT_FALSE(reader.skip(0));
    EXPECT_FALSE(reader.skip(-3));
    EXPECT_EQ(positionOf(reader), 4);
    ASSERT_FALSE(reader.skip(2));

    size_t count = 100;
    ASSERT_FALSE(reader.readStreamed(buffer, count));
    EXPECT_EQ(Bytes(buffer, buffer + count), Bytes({6, 7, 8, 9}));
    count = 100;
    ASSERT_FALSE(reader.readStreamed(buffer, count));
    EXPECT_EQ(count, 0u);
    EXPECT_FALSE(reader.read(buffer, 0));

    int64_t size = 0;
    ASSERT_FALSE(reader.getSize(size));
    EXPECT_EQ(size, 10);
    for (int64_t bad : {int64_t(11), int64_t(-1), INT64_MAX}) {
        SCOPED_TRACE(bad);
        EXPECT_EQ(message(reader.setPosition(bad)), "@qelstr_CMemoryReader_setPosition_seek");
        EXPECT_EQ(positionOf(reader), 10);
    }
    ASSERT_FALSE(reader.setPosition(1));
    ASSERT_FALSE(reader.read(buffer, 9));
    EXPECT_EQ(buffer[8], 9);

    EXPECT_EQ(reader.getDirectPointer(), nullptr);
    CMemoryReaderStatic fixed(data.data(), data.size());
    EXPECT_EQ(fixed.getDirectPointer(), data.data());
}

TEST(CMemoryStream, WriteSeqBufferKeepsExactConcatenation)
{
    std::mt19937 rng(99);
    for (size_t chunkSize : {size_t(1), size_t(7), size_t(256), size_t(4096)}) {
        SCOPED_TRACE(chunkSize);
        CWriteSeqBuffer buffer(chunkSize);
        for (int round = 0; round < 3; ++round) { // the last round reuses a cleared buffer
            Bytes expected;
            for (int piece = 0; round > 0 && piece < 200; ++piece) {
                Bytes bytes(rng() % 3 == 0 ? 0 : rng() % 700);
                for (auto& byte : bytes)
                    byte = uint8_t(rng());
                ASSERT_FALSE(buffer.write(bytes.data(), bytes.size()));
                expected.insert(expected.end(), bytes.begin(), bytes.end());
            }
            EXPECT_EQ(buffer.size(), expected.size());
            CByteArray array;
            ASSERT_FALSE(buffer.toArray(array));
            EXPECT_EQ(Bytes(array.data(), array.data() + array.size()), expected);
            VectorSink sink;
            ASSERT_FALSE(buffer.writeTo(sink));
            EXPECT_EQ(sink.bytes, expected);
            buffer.clear();
        }
    }
}

TEST(CPosStream, Int32AccessorsRefuseAbove2GB)
{
    struct Fake : CPosStream
    {
        CErrorPtr getPosition(int64_t& out) override { return getSize(out); }
        CErrorPtr setPosition(int64_t) override { return nullptr; }
        CErrorPtr getSize(int64_t& out) override
        {
            out = value;
            return value < 0 ? QEL_ERROR(CString(), "@qelstr_Test_fake Fake failure.") : nullptr;
        }
        int64_t value = 0;
    } stream;
    for (int64_t value : {int64_t(0), int64_t(INT32_MAX), int64_t(INT32_MAX) + 1, INT64_MAX}) {
        SCOPED_TRACE(value);
        stream.value = value;
        int32_t position = -1, size = -1;
        const std::string expected = value <= INT32_MAX ? "<no error>" : "The size of the stream is above allowed 2 GB.";
        EXPECT_EQ(message(stream.getPositionInt32(position)), expected);
        EXPECT_EQ(message(stream.getSizeInt(size)), expected);
        if (value <= INT32_MAX) {
            EXPECT_TRUE(position == value && size == value);
        }
    }
    stream.value = -1;
    int32_t ignored;
    CErrorPtr error = stream.getSizeInt(ignored);
    EXPECT_EQ(message(error), "Fake failure.");
    ASSERT_EQ(error->lineCount(), 3); // message, the fake's line, then the accessor's
    EXPECT_EQ(error->line(2).toUtf8().rfind("Core/CPosStream( ", 0), 0u);
}

// The typed reads of a stream, driven by the input itself: the bytes are both a little
// program and the data it reads. Each step reads an op byte from the stream, then the op:
//
//   op % 8   0 readU32      1 readBool      2 readDouble          3 readString
//            4 skip(n)      5 setPosition(n)                      6 readCompressedData
//            7 readCompressedDataLZ4
//
// n is the next u32 of the stream taken as signed, so negative counts and positions are
// tried too. The program ends at the first error (running out of op bytes is one).
//
// A refused read must leave the output untouched, and a refused single read, skip or seek
// must leave the position where it was. What was read must come out of the writer as the
// same bytes (numbers, booleans) or read back equal (strings, block payloads).

#include "FuzzCommon.h"

#include "Core/CString.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

using namespace qel;
using namespace qel::fuzz;

// A seek backwards can make a program loop; these bound the work one input can cause.
constexpr int kMaxSteps = 512;
constexpr size_t kMaxPayloadBytes = 16u << 20;

class Program
{
public:
    Program(const uint8_t* data, size_t size) : m_data(data), m_size(size), m_reader(data, size) {}

    void run()
    {
        for (int step = 0; step < kMaxSteps && m_payloadBytes <= kMaxPayloadBytes; ++step) {
            uint8_t op = 0;
            CErrorPtr error = m_reader.read(&op, 1);
            if (error) {
                checkError(error);
                FUZZ_CHECK(positionOf(m_reader) == int64_t(m_size));
                return;
            }
            if (!runOp(op % 8))
                return;
        }
    }

private:
    // False when the op was refused.
    bool runOp(int op)
    {
        switch (op) {
        case 0: return opU32();
        case 1: return opBool();
        case 2: return opDouble();
        case 3: return opString();
        case 4: return opSkip();
        case 5: return opSetPosition();
        case 6: return opBlock(Format::Zlib);
        default: return opBlock(Format::Lz4);
        }
    }

    // The input's own bytes, to compare what was read and written again with.
    const uint8_t* at(int64_t position) const { return m_data + position; }

    // What the writer made of a value, for comparing with the input.
    static CByteArray written(CWriteSeqBuffer& sink)
    {
        CByteArray bytes;
        FUZZ_MUST_SUCCEED(sink.toArray(bytes));
        return bytes;
    }

    // A failed single read (one read() underneath) must not move the position.
    void checkRefusedInPlace(const CErrorPtr& error, int64_t before)
    {
        checkError(error);
        FUZZ_CHECK(positionOf(m_reader) == before);
    }

    bool opU32()
    {
        const int64_t before = positionOf(m_reader);
        uint32_t value = 0xA5A5A5A5u;
        CErrorPtr error = m_reader.readU32(value);
        if (error) {
            checkRefusedInPlace(error, before);
            FUZZ_CHECK(value == 0xA5A5A5A5u);
            return false;
        }
        FUZZ_CHECK(positionOf(m_reader) == before + 4);
        CWriteSeqBuffer sink;
        FUZZ_MUST_SUCCEED(sink.writeU32(value));
        const CByteArray bytes = written(sink);
        FUZZ_CHECK(bytes.size() == 4 && std::memcmp(bytes.data(), at(before), 4) == 0);
        return true;
    }

    bool opBool()
    {
        const int64_t before = positionOf(m_reader);
        // Both sentinels, so an error that sets the output either way is caught.
        bool asFalse = false;
        bool asTrue = true;
        CErrorPtr error = m_reader.readBool(asFalse);
        CMemoryReader twin(m_data, m_size);
        FUZZ_MUST_SUCCEED(twin.setPosition(before));
        CErrorPtr twinError = twin.readBool(asTrue);
        FUZZ_CHECK(bool(error) == bool(twinError));
        if (error) {
            checkError(error);
            FUZZ_CHECK(!asFalse && asTrue);
            const int64_t after = positionOf(m_reader);
            // Either there was no u32 (nothing moves) or it was neither 0 nor 1.
            FUZZ_CHECK(after == before || (after == before + 4 && (at(before)[0] > 1 || at(before)[1] != 0
                                                                   || at(before)[2] != 0 || at(before)[3] != 0)));
            return false;
        }
        FUZZ_CHECK(asFalse == asTrue);
        FUZZ_CHECK(positionOf(m_reader) == before + 4);
        CWriteSeqBuffer sink;
        FUZZ_MUST_SUCCEED(sink.writeBool(asFalse));
        const CByteArray bytes = written(sink);
        FUZZ_CHECK(bytes.size() == 4 && std::memcmp(bytes.data(), at(before), 4) == 0);
        return true;
    }

    bool opDouble()
    {
        const int64_t before = positionOf(m_reader);
        const uint64_t sentinelBits = 0x7FF4A5A5A5A5A5A5ull; // a signalling NaN, unlikely to be read
        double value;
        std::memcpy(&value, &sentinelBits, sizeof value);
        CErrorPtr error = m_reader.readDouble(value);
        if (error) {
            checkRefusedInPlace(error, before);
            FUZZ_CHECK(std::memcmp(&value, &sentinelBits, sizeof value) == 0);
            return false;
        }
        FUZZ_CHECK(positionOf(m_reader) == before + 8);
        // Every bit pattern, NaN payloads and negative zero included, must come out as read.
        CWriteSeqBuffer sink;
        FUZZ_MUST_SUCCEED(sink.writeDouble(value));
        const CByteArray bytes = written(sink);
        FUZZ_CHECK(bytes.size() == 8 && std::memcmp(bytes.data(), at(before), 8) == 0);
        CMemoryReader back(bytes.data(), bytes.size());
        double again = 0;
        FUZZ_MUST_SUCCEED(back.readDouble(again));
        FUZZ_CHECK(std::memcmp(&again, &value, sizeof value) == 0);
        return true;
    }

    bool opString()
    {
        const int64_t before = positionOf(m_reader);
        const CString sentinel("untouched");
        CString value = sentinel;
        CErrorPtr error = m_reader.readString(value);
        if (error) {
            checkError(error);
            FUZZ_CHECK(value == sentinel);
            return false;
        }
        // The length prefix, then exactly that many bytes.
        const int64_t after = positionOf(m_reader);
        FUZZ_CHECK(after >= before + 4);
        const uint32_t length = uint32_t(at(before)[0]) | uint32_t(at(before)[1]) << 8
                                | uint32_t(at(before)[2]) << 16 | uint32_t(at(before)[3]) << 24;
        FUZZ_CHECK(length <= CInputStream::kMaxStringBytes);
        FUZZ_CHECK(after == before + 4 + int64_t(length));
        // Decoding never makes more characters than there were bytes.
        FUZZ_CHECK(size_t(value.length()) <= length);

        CWriteSeqBuffer sink;
        FUZZ_MUST_SUCCEED(sink.writeString(value));
        const CByteArray bytes = written(sink);
        FUZZ_CHECK(bytes.size() == 4 + value.utf8Length());
        CMemoryReader back(bytes.data(), bytes.size());
        CString again;
        FUZZ_MUST_SUCCEED(back.readString(again));
        FUZZ_CHECK(positionOf(back) == int64_t(bytes.size()));
        FUZZ_CHECK(again == value);

        // Once through the writer the text is in its settled form: writing it again gives
        // the same bytes.
        CWriteSeqBuffer second;
        FUZZ_MUST_SUCCEED(second.writeString(again));
        FUZZ_CHECK(written(second) == bytes);
        return true;
    }

    bool opSkip()
    {
        int32_t count = 0;
        if (CErrorPtr error = m_reader.readI32(count)) {
            checkError(error);
            return false;
        }
        const int64_t before = positionOf(m_reader);
        CErrorPtr error = m_reader.skip(count);
        if (error) {
            checkRefusedInPlace(error, before);
            FUZZ_CHECK(count > 0 && int64_t(count) > int64_t(m_size) - before);
            return false;
        }
        // Counts of zero or below do nothing.
        FUZZ_CHECK(positionOf(m_reader) == before + (count > 0 ? count : 0));
        FUZZ_CHECK(positionOf(m_reader) <= int64_t(m_size));
        return true;
    }

    bool opSetPosition()
    {
        int32_t position = 0;
        if (CErrorPtr error = m_reader.readI32(position)) {
            checkError(error);
            return false;
        }
        const int64_t before = positionOf(m_reader);
        CErrorPtr error = m_reader.setPosition(position);
        if (error) {
            checkRefusedInPlace(error, before);
            FUZZ_CHECK(position < 0 || int64_t(position) > int64_t(m_size));
            return false;
        }
        FUZZ_CHECK(positionOf(m_reader) == position);
        return true;
    }

    bool opBlock(Format format)
    {
        const int64_t before = positionOf(m_reader);
        CByteArray payload;
        CErrorPtr error = readBlock(m_reader, format, payload);
        if (error) {
            checkError(error);
            return false;
        }
        const int64_t after = positionOf(m_reader);
        FUZZ_CHECK(after > before && after <= int64_t(m_size));
        m_payloadBytes += payload.size();
        checkBlockAlone(at(before), size_t(after - before), format, payload);
        checkPayloadRoundTrip(payload);
        return true;
    }

    const uint8_t* m_data;
    size_t m_size;
    CMemoryReader m_reader;
    size_t m_payloadBytes = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Program(data, size).run();
    return 0;
}

#pragma once

// What the fuzz targets share: the checks that stop a run, and the round trip that every
// block payload read successfully must survive.

#include "Core/CByteArray.h"
#include "Core/CDataTag.h"
#include "Core/CError.h"
#include "Core/CInputStream.h"
#include "Core/CMemoryReader.h"
#include "Core/COutputStream.h"
#include "Core/CWriteSeqBuffer.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace qel::fuzz {

// The tag every block in the seeds carries; any other tag must be refused.
constexpr uint32_t kTag = makeTag("adat");

enum class Format { Zlib, Lz4 };
constexpr Format kFormats[] = {Format::Zlib, Format::Lz4};

[[noreturn]] inline void violated(const char* file, int line, const char* what, const CError* error = nullptr)
{
    std::fprintf(stderr, "%s(%d): property violated: %s\n", file, line, what);
    if (error)
        std::fprintf(stderr, "%s", error->text().toUtf8().c_str());
    std::fflush(stderr);
    std::abort();
}

} // namespace qel::fuzz

// A broken property ends the run at once, so the fuzzer keeps the input that broke it.
#define FUZZ_CHECK(condition)                                          \
    do {                                                               \
        if (!(condition))                                              \
            ::qel::fuzz::violated(__FILE__, __LINE__, #condition);     \
    } while (0)

// For calls on data the target made itself: they have no reason to fail.
#define FUZZ_MUST_SUCCEED(expr)                                        \
    do {                                                               \
        if (::qel::CErrorPtr fuzzError_ = (expr))                      \
            ::qel::fuzz::violated(__FILE__, __LINE__, #expr " failed", \
                                  fuzzError_.get());                   \
    } while (0)

namespace qel::fuzz {

// A refusal must say what went wrong and where: a message line, then at least one trail
// line. Turning it into text also runs the formatting on whatever the input put into it.
inline void checkError(const CErrorPtr& error)
{
    FUZZ_CHECK(error);
    FUZZ_CHECK(error->lineCount() >= 2);
    FUZZ_CHECK(!error->line(0).isEmpty());
    const std::string text = error->text().toUtf8();
    FUZZ_CHECK(!text.empty());
}

inline CErrorPtr readBlock(CInputStream& in, Format format, CByteArray& out)
{
    return format == Format::Zlib ? in.readCompressedData(out, kTag) : in.readCompressedDataLZ4(out, kTag);
}

inline CErrorPtr writeBlock(COutputStream& out, Format format, const CByteArray& payload)
{
    return format == Format::Zlib ? out.writeCompressedData(payload, kTag)
                                  : out.writeCompressedDataLZ4(payload, kTag);
}

inline int64_t positionOf(CMemoryReader& reader)
{
    int64_t position = -1;
    FUZZ_MUST_SUCCEED(reader.getPosition(position));
    return position;
}

// Whatever a reader accepted, the writer must be able to store again, in either format,
// and reading that back must give the same payload and use up exactly the block written.
inline void checkPayloadRoundTrip(const CByteArray& payload)
{
    for (const Format format : kFormats) {
        CWriteSeqBuffer sink;
        FUZZ_MUST_SUCCEED(writeBlock(sink, format, payload));
        CByteArray packed;
        FUZZ_MUST_SUCCEED(sink.toArray(packed));
        FUZZ_CHECK(packed.size() == sink.size());

        CMemoryReader reader(packed.data(), packed.size());
        CByteArray back;
        FUZZ_MUST_SUCCEED(readBlock(reader, format, back));
        FUZZ_CHECK(back == payload);
        FUZZ_CHECK(positionOf(reader) == int64_t(packed.size()));
    }
}

// A block read from inside a larger buffer (where the zlib reader reads ahead and must
// give back what follows the block) must read the same from a buffer holding only it.
// The copy is exactly sized on the heap, so a read beyond the block's end is caught.
inline void checkBlockAlone(const uint8_t* block, size_t size, Format format, const CByteArray& payload)
{
    const std::vector<uint8_t> alone(block, block + size);
    CMemoryReader reader(alone.data(), alone.size());
    CByteArray again;
    FUZZ_MUST_SUCCEED(readBlock(reader, format, again));
    FUZZ_CHECK(again == payload);
    FUZZ_CHECK(positionOf(reader) == int64_t(size));
}

} // namespace qel::fuzz

// Compressed blocks arrive from files, presets and banks that may be damaged or hostile.
// The input is read as a run of blocks, once as zlib blocks and once as LZ4 blocks (both
// begin with the tag, so the same bytes serve both). A block is either refused with an
// error or its payload survives being written and read again.

#include "FuzzCommon.h"

#include <cstddef>
#include <cstdint>

namespace {

using namespace qel;
using namespace qel::fuzz;

// Enough to cover "block after block" without letting one input run for long.
constexpr int kMaxBlocks = 8;

void readBlocks(const uint8_t* data, size_t size, Format format)
{
    CMemoryReader reader(data, size);
    for (int i = 0; i < kMaxBlocks; ++i) {
        const int64_t before = positionOf(reader);
        CByteArray payload;
        CErrorPtr error = readBlock(reader, format, payload);
        if (error) {
            checkError(error);
            return;
        }
        const int64_t after = positionOf(reader);
        // Every block has a head, so success always uses some bytes, and never more than
        // there are.
        FUZZ_CHECK(after > before);
        FUZZ_CHECK(after <= int64_t(size));
        checkBlockAlone(data + before, size_t(after - before), format, payload);
        checkPayloadRoundTrip(payload);
        if (after == int64_t(size))
            return;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    for (const Format format : kFormats)
        readBlocks(data, size, format);
    return 0;
}

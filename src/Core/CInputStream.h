#pragma once

#include "Core/CByteArray.h"
#include "Core/CCheckedObject.h"
#include "Core/CError.h"
#include "Core/CString.h"

#include <cstddef>
#include <cstdint>

namespace qel {

// A source of bytes. Reads are all or error: a read that cannot deliver every byte fails.
// On top of read() stand the typed reads of the product's formats: little-endian u32,
// booleans as u32 0 or 1, IEEE doubles, length-prefixed UTF-8 strings and compressed blocks.
// A stream belongs to one thread at a time.
class CInputStream : public CCheckedObject
{
public:
    static constexpr uint32_t kMaxStringBytes = 61440;

    // The whole data when it lies in memory and outlives the stream, else null.
    virtual const uint8_t* getDirectPointer() const { return nullptr; }
    // Counts of 0 or below do nothing.
    virtual CErrorPtr skip(int64_t count);
    virtual CErrorPtr read(void* buffer, size_t count) = 0;
    // As much as there is, up to inOutCount; gives back the count read (0 at the end).
    virtual CErrorPtr readStreamed(void* buffer, size_t& inOutCount);

    CErrorPtr readU32(uint32_t& out);
    CErrorPtr readI32(int32_t& out);
    CErrorPtr readBool(bool& out);
    CErrorPtr readDouble(double& out);
    CErrorPtr readString(CString& out);

    // A zlib block: tag, size, Adler-32 of the size, zlib stream. The stream's own
    // checksum is verified too. A block cut short or altered fails; `out` is then unusable.
    CErrorPtr readCompressedData(CByteArray& out, uint32_t expectedTag);
    // An LZ4 block: tag, size, compressed size, Adler-32 of both sizes, LZ4 data.
    CErrorPtr readCompressedDataLZ4(CByteArray& out, uint32_t expectedTag);
};

} // namespace qel

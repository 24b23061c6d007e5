#pragma once

#include "Core/CByteArray.h"
#include "Core/CCheckedObject.h"
#include "Core/CError.h"
#include "Core/CString.h"

#include <cstddef>
#include <cstdint>

namespace qel {

// A sink of bytes, with the typed writes that mirror CInputStream's reads.
// A stream belongs to one thread at a time.
class COutputStream : public CCheckedObject
{
public:
    virtual CErrorPtr write(const void* buffer, size_t count) = 0;

    CErrorPtr writeU32(uint32_t value);
    CErrorPtr writeI32(int32_t value) { return writeU32(static_cast<uint32_t>(value)); }
    CErrorPtr writeBool(bool value) { return writeU32(value ? 1 : 0); }
    CErrorPtr writeDouble(double value);
    // Fails, writing nothing, for a text whose UTF-8 form is longer than a reader accepts.
    CErrorPtr writeString(const CString& value);

    // zlib block at the default compression level.
    CErrorPtr writeCompressedData(const void* data, size_t size, uint32_t tag);
    CErrorPtr writeCompressedData(const CByteArray& data, uint32_t tag)
    {
        return writeCompressedData(data.data(), data.size(), tag);
    }
    // LZ4 block, high compression at level 12.
    CErrorPtr writeCompressedDataLZ4(const void* data, size_t size, uint32_t tag);
    CErrorPtr writeCompressedDataLZ4(const CByteArray& data, uint32_t tag)
    {
        return writeCompressedDataLZ4(data.data(), data.size(), tag);
    }
};

} // namespace qel

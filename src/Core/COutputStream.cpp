#include "Core/COutputStream.h"

#include "Core/CInputStream.h"
#include "Core/COutputZipStream.h"

#include "Core/CByteOrder.h"
#include "Core/CZipStream.h"

#include <lz4.h>
#include <lz4hc.h>
#include <zlib.h>

#include <cstring>

namespace qel {
namespace {



CErrorPtr tooLarge(size_t size)
{
    return QEL_ERROR(CString(), "@qelstr_COutputStream_writeCompressedData_TooLarge Data of %1 bytes is too large for a compressed block.",
                     CString::number(int64_t(size)));
}

} // namespace

CErrorPtr COutputStream::writeU32(uint32_t value)
{
    uint8_t bytes[4];
    storeU32LE(bytes, value);
    return write(bytes, 4);
}

CErrorPtr COutputStream::writeDouble(double value)
{
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    uint8_t bytes[8];
    storeU32LE(bytes, uint32_t(bits));
    storeU32LE(bytes + 4, uint32_t(bits >> 32));
    return write(bytes, 8);
}

CErrorPtr COutputStream::writeString(const CString& value)
{
    const size_t length = value.utf8Length();
    if (length > CInputStream::kMaxStringBytes)
        return QEL_ERROR(CString(), "@qelstr_COutputStream_writeString_StringDataTooLong String length %1 too long in writeString().",
                         CString::number(int64_t(length)));
    QEL_RETURN_IF_ERROR(writeU32(static_cast<uint32_t>(length)), CString());
    char staging[128];
    int next = 0;
    while (next < value.length()) {
        size_t used;
        next = value.encodeUtf8(next, staging, sizeof staging, used);
        QEL_RETURN_IF_ERROR(write(staging, used), CString());
    }
    return nullptr;
}

CErrorPtr COutputStream::writeCompressedData(const void* data, size_t size, uint32_t tag)
{
    if (size > UINT32_MAX)
        return tooLarge(size);
    uint8_t head[12];
    storeU32LE(head, tag);
    storeU32LE(head + 4, static_cast<uint32_t>(size));
    storeU32LE(head + 8, CZipStream::headCheck(head + 4, 4));
    QEL_RETURN_IF_ERROR(write(head, sizeof head), CString());

    COutputZipStream zip;
    QEL_RETURN_IF_ERROR(zip.open(this, Z_DEFAULT_COMPRESSION), CString());
    QEL_RETURN_IF_ERROR(zip.write(data, size), CString());
    QEL_RETURN_IF_ERROR(zip.close(), CString());
    return nullptr;
}

CErrorPtr COutputStream::writeCompressedDataLZ4(const void* data, size_t size, uint32_t tag)
{
    if (size > size_t(LZ4_MAX_INPUT_SIZE))
        return tooLarge(size);
    const int bound = LZ4_compressBound(static_cast<int>(size));
    CByteArray packed;
    if (!packed.resize(size_t(bound)))
        return QEL_ERROR(CString(), "@qelstr_COutputStream_writeCompressedDataLZ4_OutOfMemory Not enough memory to compress %1 bytes.",
                         CString::number(int64_t(size)));
    // The HC compressor reads its source even for no bytes, and empty data may come as null.
    static const char kNothing = 0;
    const int packedSize = LZ4_compress_HC(size > 0 ? static_cast<const char*>(data) : &kNothing,
                                           reinterpret_cast<char*>(packed.data()),
                                           static_cast<int>(size), bound, 12);
    if (packedSize <= 0 && size > 0)
        return QEL_ERROR(CString(), "@qelstr_COutputStream_writeCompressedDataLZ4_Compress LZ4 compression of %1 bytes failed.",
                         CString::number(int64_t(size)));
    uint8_t head[16];
    storeU32LE(head, tag);
    storeU32LE(head + 4, static_cast<uint32_t>(size));
    storeU32LE(head + 8, static_cast<uint32_t>(packedSize));
    storeU32LE(head + 12, CZipStream::headCheck(head + 4, 8));
    QEL_RETURN_IF_ERROR(write(head, sizeof head), CString());
    QEL_RETURN_IF_ERROR(write(packed.data(), size_t(packedSize)), CString());
    return nullptr;
}

} // namespace qel

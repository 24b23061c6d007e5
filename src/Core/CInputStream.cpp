#include "Core/CInputStream.h"

#include "Core/CInputZipStream.h"

#include "Core/CByteOrder.h"
#include "Core/CZipStream.h"

#include <lz4.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>

namespace qel {
namespace {

// Length fields are only trusted as far as data actually arrives: the buffer grows with
// what has been read, so a corrupt size of gigabytes fails at the end of the data instead
// of allocating for it first.
constexpr size_t kFirstChunk = 64 * 1024;

CErrorPtr readGrowing(CInputStream& source, CByteArray& out, size_t total)
{
    out.clear();
    size_t got = 0;
    while (got < total) {
        const size_t chunk = std::min(total - got, std::max(kFirstChunk, got));
        if (!out.resize(got + chunk))
            return QEL_ERROR(CString(), "@qelstr_CInputStream_read_OutOfMemory Not enough memory to read %1 bytes.",
                             CString::number(int64_t(total)));
        QEL_RETURN_IF_ERROR(source.read(out.data() + got, chunk), CString());
        got += chunk;
    }
    return nullptr;
}



} // namespace

CErrorPtr CInputStream::skip(int64_t count)
{
    uint8_t buffer[4096];
    while (count > 0) {
        const size_t chunk = static_cast<size_t>(std::min<int64_t>(count, sizeof buffer));
        QEL_RETURN_IF_ERROR(read(buffer, chunk), CString());
        count -= static_cast<int64_t>(chunk);
    }
    return nullptr;
}

CErrorPtr CInputStream::readStreamed(void* buffer, size_t& inOutCount)
{
    return read(buffer, inOutCount);
}

CErrorPtr CInputStream::readU32(uint32_t& out)
{
    uint8_t bytes[4];
    QEL_RETURN_IF_ERROR(read(bytes, 4), CString());
    out = loadU32LE(bytes);
    return nullptr;
}

CErrorPtr CInputStream::readI32(int32_t& out)
{
    uint32_t value;
    QEL_RETURN_IF_ERROR(readU32(value), CString());
    out = static_cast<int32_t>(value);
    return nullptr;
}

CErrorPtr CInputStream::readBool(bool& out)
{
    uint32_t value;
    QEL_RETURN_IF_ERROR(readU32(value), CString());
    if (value > 1)
        return QEL_ERROR(CString(), "@qelstr_CInputStream_readBool_InvalidValue Invalid boolean value %1 in stream.",
                         CString::number(value));
    out = value != 0;
    return nullptr;
}

CErrorPtr CInputStream::readDouble(double& out)
{
    uint8_t bytes[8];
    QEL_RETURN_IF_ERROR(read(bytes, 8), CString());
    uint64_t bits = uint64_t(loadU32LE(bytes)) | uint64_t(loadU32LE(bytes + 4)) << 32;
    std::memcpy(&out, &bits, sizeof out);
    return nullptr;
}

CErrorPtr CInputStream::readString(CString& out)
{
    uint32_t length;
    QEL_RETURN_IF_ERROR(readU32(length), CString());
    if (length > kMaxStringBytes)
        return QEL_ERROR(CString(), "@qelstr_CInputStream_readString_StringDataTooLong String length %1 too long in readString().",
                         CString::number(length));
    CByteArray bytes;
    if (!bytes.resize(length))
        return QEL_ERROR(CString(), "@qelstr_CInputStream_read_OutOfMemory Not enough memory to read %1 bytes.",
                         CString::number(length));
    QEL_RETURN_IF_ERROR(read(bytes.data(), length), CString());
    out = CString::fromUtf8(reinterpret_cast<const char*>(bytes.data()), length);
    return nullptr;
}

CErrorPtr CInputStream::readCompressedData(CByteArray& out, uint32_t expectedTag)
{
    uint8_t head[12];
    QEL_RETURN_IF_ERROR(read(head, 4), CString());
    const uint32_t tag = loadU32LE(head);
    if (tag != expectedTag)
        return QEL_ERROR(CString(), "@qelstr_CInputStream_readCompressedData_InvalidData Invalid ID encountered when reading compressed data (expected %1, read %2).",
                         CString::number(expectedTag), CString::number(tag));
    QEL_RETURN_IF_ERROR(read(head + 4, 8), CString());
    const uint32_t size = loadU32LE(head + 4);
    const uint32_t expectedCheck = CZipStream::headCheck(head + 4, 4);
    const uint32_t check = loadU32LE(head + 8);
    if (check != expectedCheck)
        return QEL_ERROR(CString(), "@qelstr_CInputStream_readCompressedData_HeadCRC Invalid CRC encountered when reading compressed data (expected %1, read %2).",
                         CString::number(expectedCheck), CString::number(check));

    CInputZipStream zip;
    QEL_RETURN_IF_ERROR(zip.open(this), CString());
    QEL_RETURN_IF_ERROR(readGrowing(zip, out, size), CString());
    QEL_RETURN_IF_ERROR(zip.finish(), CString());
    QEL_RETURN_IF_ERROR(zip.close(), CString());
    return nullptr;
}

CErrorPtr CInputStream::readCompressedDataLZ4(CByteArray& out, uint32_t expectedTag)
{
    uint8_t head[16];
    QEL_RETURN_IF_ERROR(read(head, 4), CString());
    const uint32_t tag = loadU32LE(head);
    if (tag != expectedTag)
        return QEL_ERROR(CString(), "@qelstr_CInputStream_readCompressedDataLZ4_InvalidData Invalid ID encountered when reading compressed data (expected %1, read %2).",
                         CString::number(expectedTag), CString::number(tag));
    QEL_RETURN_IF_ERROR(read(head + 4, 12), CString());
    const uint32_t size = loadU32LE(head + 4);
    const uint32_t compressedSize = loadU32LE(head + 8);
    const uint32_t expectedCheck = CZipStream::headCheck(head + 4, 8);
    const uint32_t check = loadU32LE(head + 12);
    if (check != expectedCheck)
        return QEL_ERROR(CString(), "@qelstr_CInputStream_readCompressedDataLZ4_HeadCRC Invalid CRC encountered when reading compressed data (expected %1, read %2).",
                         CString::number(expectedCheck), CString::number(check));

    CByteArray packed;
    QEL_RETURN_IF_ERROR(readGrowing(*this, packed, compressedSize), CString());
    // LZ4 cannot expand a block by more than 255 times; a larger size is corrupt, and
    // refusing it here saves allocating for it.
    const uint64_t largestPossible = uint64_t(compressedSize) * 255 + 16;
    int decoded = 0;
    if (size <= uint32_t(LZ4_MAX_INPUT_SIZE) && compressedSize <= uint32_t(LZ4_MAX_INPUT_SIZE)
        && size <= largestPossible) {
        if (!out.resize(size))
            return QEL_ERROR(CString(), "@qelstr_CInputStream_read_OutOfMemory Not enough memory to read %1 bytes.",
                             CString::number(size));
        decoded = LZ4_decompress_safe(reinterpret_cast<const char*>(packed.data()),
                                      reinterpret_cast<char*>(out.data()), int(compressedSize),
                                      int(size));
    }
    if (decoded < 0 || uint32_t(decoded) != size)
        return QEL_ERROR(CString(), "@qelstr_CInputStream_readCompressedDataLZ4_InvalidData2 Invalid uncompressed data (expected %1 bytes, read %2).",
                         CString::number(size), CString::number(decoded < 0 ? 0 : decoded));
    return nullptr;
}

} // namespace qel

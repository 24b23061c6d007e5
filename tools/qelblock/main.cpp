// qelblock: packs files into the product's compressed blocks and unpacks them again.
// The build uses it to turn resources into block form; by hand it shows what a stored
// data file, preset or bank holds.
//
//   qelblock pack [--lz4] TAG IN OUT    wrap IN in a block tagged TAG
//   qelblock unpack [--lz4] TAG IN OUT  check a block and write its payload
//   qelblock info IN                    describe the block at the start of IN

#include "Core/CByteOrder.h"
#include "Core/CError.h"
#include "Core/CFileReader.h"
#include "Core/CFileWriter.h"
#include "Core/CZipStream.h"

#include <cstdio>
#include <cstring>
#include <string>

using namespace qel;

namespace {

int usage()
{
    std::fprintf(stderr,
                 "usage: qelblock pack [--lz4] TAG IN OUT\n"
                 "       qelblock unpack [--lz4] TAG IN OUT\n"
                 "       qelblock info IN\n");
    return 2;
}

int fail(CErrorPtr error)
{
    std::fprintf(stderr, "qelblock: %s", error->text().toUtf8().c_str());
    return 1;
}

bool parseTag(const char* text, uint32_t& tag)
{
    if (std::strlen(text) != 4)
        return false;
    tag = loadU32LE(reinterpret_cast<const uint8_t*>(text));
    return true;
}

std::string tagText(uint32_t tag)
{
    std::string text(4, ' ');
    for (int i = 0; i < 4; ++i) {
        const char c = static_cast<char>(tag >> (8 * i));
        text[i] = (c >= 32 && c < 127) ? c : '?';
    }
    return text;
}

CErrorPtr readWhole(const char* path, CByteArray& out)
{
    CFileReader reader;
    QEL_RETURN_IF_ERROR(reader.open(CString::fromUtf8(path), false), CString());
    uint8_t buffer[65536];
    for (;;) {
        size_t got = sizeof buffer;
        QEL_RETURN_IF_ERROR(reader.readStreamed(buffer, got), CString());
        if (got == 0)
            break;
        out.append(buffer, got);
    }
    return reader.close();
}

CErrorPtr pack(bool lz4, uint32_t tag, const char* in, const char* out, size_t& inSize, int64_t& outSize)
{
    CByteArray data;
    QEL_RETURN_IF_ERROR(readWhole(in, data), CString());
    inSize = data.size();
    CFileWriter writer;
    QEL_RETURN_IF_ERROR(writer.open(CString::fromUtf8(out), false), CString());
    QEL_RETURN_IF_ERROR(lz4 ? writer.writeCompressedDataLZ4(data, tag) : writer.writeCompressedData(data, tag), CString());
    QEL_RETURN_IF_ERROR(writer.getPosition(outSize), CString());
    return writer.close();
}

CErrorPtr unpack(bool lz4, uint32_t tag, const char* in, const char* out, size_t& outSize)
{
    CFileReader reader;
    QEL_RETURN_IF_ERROR(reader.open(CString::fromUtf8(in), false), CString());
    CByteArray data;
    QEL_RETURN_IF_ERROR(lz4 ? reader.readCompressedDataLZ4(data, tag) : reader.readCompressedData(data, tag), CString());
    outSize = data.size();
    CFileWriter writer;
    QEL_RETURN_IF_ERROR(writer.open(CString::fromUtf8(out), false), CString());
    QEL_RETURN_IF_ERROR(writer.write(data.data(), data.size()), CString());
    return writer.close();
}

CErrorPtr info(const char* in)
{
    CFileReader reader;
    QEL_RETURN_IF_ERROR(reader.open(CString::fromUtf8(in), false), CString());
    int64_t fileSize = 0;
    QEL_RETURN_IF_ERROR(reader.getSize(fileSize), CString());
    uint8_t head[16];
    QEL_RETURN_IF_ERROR(reader.read(head, 12), CString());
    const uint32_t tag = loadU32LE(head);
    const uint32_t size = loadU32LE(head + 4);
    if (loadU32LE(head + 8) == CZipStream::headCheck(head + 4, 4)) {
        std::printf("%s: zlib block '%s', %u bytes of data in %lld bytes\n", in, tagText(tag).c_str(), size,
                    static_cast<long long>(fileSize));
        return nullptr;
    }
    QEL_RETURN_IF_ERROR(reader.read(head + 12, 4), CString());
    if (loadU32LE(head + 12) == CZipStream::headCheck(head + 4, 8)) {
        std::printf("%s: LZ4 block '%s', %u bytes of data packed in %u bytes\n", in, tagText(tag).c_str(), size,
                    loadU32LE(head + 8));
        return nullptr;
    }
    return QEL_ERROR(CString(), "@qelstr_qelblock_info_NotABlock '%1' does not start with a compressed block.",
                     CString::fromUtf8(in));
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3)
        return usage();
    const std::string command = argv[1];
    int next = 2;
    const bool lz4 = std::strcmp(argv[next], "--lz4") == 0;
    if (lz4)
        ++next;

    if (command == "info" && !lz4 && argc == 3) {
        if (CErrorPtr error = info(argv[2]))
            return fail(std::move(error));
        return 0;
    }
    uint32_t tag;
    if (argc != next + 3 || !parseTag(argv[next], tag))
        return usage();
    const char* in = argv[next + 1];
    const char* out = argv[next + 2];
    if (command == "pack") {
        size_t inSize = 0;
        int64_t outSize = 0;
        if (CErrorPtr error = pack(lz4, tag, in, out, inSize, outSize))
            return fail(std::move(error));
        std::printf("packed %zu bytes of %s into %s block '%s' of %lld bytes: %s\n", inSize, in, lz4 ? "an LZ4" : "a zlib",
                    argv[next], static_cast<long long>(outSize), out);
        return 0;
    }
    if (command == "unpack") {
        size_t outSize = 0;
        if (CErrorPtr error = unpack(lz4, tag, in, out, outSize))
            return fail(std::move(error));
        std::printf("unpacked %zu bytes from %s into %s\n", outSize, in, out);
        return 0;
    }
    return usage();
}

#pragma once

// Helpers of the store tests: a user folder of each test's own, and the store's file format
// written and read by hand with zlib, independently of the product's streams.

#include "Core/CAppData.h"
#include "Core/CByteOrder.h"
#include "Core/CUserFolder.h"

#include "TestFiles.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace qel::test {

using Bytes = std::vector<uint8_t>;

// Points the user folder at a new empty folder and makes the stores forget everything,
// as a fresh process would; puts both back afterwards.
class ScratchStoreFolder
{
public:
    ScratchStoreFolder() : m_previous(CUserFolder::path())
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "qel-store-XXXXXX").string();
        if (!mkdtemp(pattern.data()))
            std::abort();
        root = pattern + "/";
        CUserFolder::setRoot(CString::fromUtf8(root));
        CAppData::resetForTests();
    }
    ~ScratchStoreFolder()
    {
        CUserFolder::setRoot(m_previous);
        CAppData::resetForTests();
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
    ScratchStoreFolder(const ScratchStoreFolder&) = delete;
    ScratchStoreFolder& operator=(const ScratchStoreFolder&) = delete;

    std::string local() const { return root + "Quelmar/Audio Plug-Ins/DLC-730/"; }
    std::string group() const { return root + "Quelmar/Audio Plug-Ins/"; }

    std::string root;

private:
    CString m_previous;
};

// A string as streams hold it: its UTF-8 byte count, then the bytes.
inline Bytes stringPayload(const std::string& utf8)
{
    Bytes out(4 + utf8.size());
    storeU32LE(out.data(), uint32_t(utf8.size()));
    std::memcpy(out.data() + 4, utf8.data(), utf8.size());
    return out;
}

// Tag, size, Adler-32 of the four size bytes, zlib stream.
inline Bytes makeBlock(uint32_t tag, const Bytes& payload)
{
    uLongf packedSize = compressBound(uLong(payload.size()));
    Bytes out(12 + packedSize);
    storeU32LE(out.data(), tag);
    storeU32LE(out.data() + 4, uint32_t(payload.size()));
    storeU32LE(out.data() + 8, uint32_t(adler32(adler32(0, nullptr, 0), out.data() + 4, 4)));
    EXPECT_EQ(compress(out.data() + 12, &packedSize, payload.data(), uLong(payload.size())), Z_OK);
    out.resize(12 + packedSize);
    return out;
}

// False unless the whole file is one intact block.
inline bool decodeBlock(const Bytes& file, uint32_t& tag, Bytes& payload)
{
    if (file.size() < 12 || loadU32LE(file.data() + 8) != uint32_t(adler32(adler32(0, nullptr, 0), file.data() + 4, 4)))
        return false;
    tag = loadU32LE(file.data());
    payload.assign(loadU32LE(file.data() + 4), 0);
    uLongf size = uLongf(payload.size());
    uLong consumed = uLong(file.size() - 12);
    return uncompress2(payload.data(), &size, file.data() + 12, &consumed) == Z_OK && size == payload.size()
           && consumed == file.size() - 12;
}

inline void writeBinaryFile(const std::string& path, const Bytes& bytes)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(bytes.data()),
                                                                  std::streamsize(bytes.size()));
}

inline Bytes toBytes(const CByteArray& array) { return Bytes(array.data(), array.data() + array.size()); }
inline CByteArray toArray(const Bytes& bytes) { return CByteArray(bytes.data(), bytes.size()); }

// Temporary files a write left behind anywhere under the folder.
inline int leftoverTempFiles(const std::string& folder)
{
    int count = 0;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder, ignored))
        if (entry.path().extension() == ".tmp")
            ++count;
    return count;
}

} // namespace qel::test

#pragma once

#include "Core/CByteArray.h"
#include "Core/CError.h"
#include "Core/CFileWriter.h"
#include "Core/CInputStream.h"
#include "Core/CMemoryReader.h"
#include "Core/COutputStream.h"
#include "Core/CResourceReader.h"
#include "Core/CWriteSeqBuffer.h"

#include <cstdint>
#include <utility>

namespace qel {

// The forms a preset, a bank or a list takes as a whole piece of data: its stream alone in
// memory, as a store hands it over, and the compressed block of its tag, in a stream or a
// file. A whole piece must end exactly where the content ends; bytes behind it mean the
// data is not what it claims to be. Readers decode into a temporary and hand it over only
// on success, so a refused piece leaves the target as it was.
//
// T has write(COutputStream&) and read(CInputStream&), and is movable.
class CAudioPresetBlock
{
public:
    template <class T>
    static CErrorPtr toBytes(const T& source, CByteArray& out)
    {
        CWriteSeqBuffer sink;
        QEL_RETURN_IF_ERROR(source.write(sink), CString());
        QEL_RETURN_IF_ERROR(sink.toArray(out), CString());
        return nullptr;
    }

    template <class T>
    static CErrorPtr fromBytes(T& target, const uint8_t* data, size_t size)
    {
        CMemoryReader in(data, size);
        T loaded;
        QEL_RETURN_IF_ERROR(loaded.read(in), CString());
        int64_t end = 0;
        QEL_RETURN_IF_ERROR(in.getPosition(end), CString());
        if (uint64_t(end) != size)
            return QEL_ERROR(CString(), "@qelstr_CAudioPresetBlock_fromBytes_TrailingData Unexpected data behind the end (%1 of %2 bytes read).",
                             CString::number(end), CString::number(int64_t(size)));
        target = std::move(loaded);
        return nullptr;
    }

    template <class T>
    static CErrorPtr writeBlock(const T& source, COutputStream& out, uint32_t tag)
    {
        CByteArray bytes;
        QEL_RETURN_IF_ERROR(toBytes(source, bytes), CString());
        QEL_RETURN_IF_ERROR(out.writeCompressedData(bytes, tag), CString());
        return nullptr;
    }

    template <class T>
    static CErrorPtr readBlock(T& target, CInputStream& in, uint32_t tag)
    {
        CByteArray bytes;
        QEL_RETURN_IF_ERROR(in.readCompressedData(bytes, tag), CString());
        QEL_RETURN_IF_ERROR(fromBytes(target, bytes.data(), bytes.size()), CString());
        return nullptr;
    }

    // A resource of the module by that name, else a file.
    template <class T>
    static CErrorPtr loadFile(T& target, const CString& path, uint32_t tag)
    {
        CResourceReader in;
        QEL_RETURN_IF_ERROR(in.open(path), path);
        QEL_RETURN_IF_ERROR(readBlock(target, in, tag), path);
        return nullptr;
    }

    // The block is made first, so a failure to make it leaves an existing file alone.
    template <class T>
    static CErrorPtr saveFile(const T& source, const CString& path, uint32_t tag)
    {
        CWriteSeqBuffer block;
        QEL_RETURN_IF_ERROR(writeBlock(source, block, tag), path);
        CFileWriter file;
        QEL_RETURN_IF_ERROR(file.open(path, false), path);
        QEL_RETURN_IF_ERROR(block.writeTo(file), path);
        QEL_RETURN_IF_ERROR(file.close(), path);
        return nullptr;
    }
};

} // namespace qel

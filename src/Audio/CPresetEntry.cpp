#include "Audio/CPresetEntry.h"

#include "Audio/CAudioParamStorage.h"
#include "Core/CInputStream.h"
#include "Core/CMemoryReader.h"
#include "Core/COutputStream.h"
#include "Core/CWriteSeqBuffer.h"

#include <algorithm>
#include <utility>

namespace qel {
namespace {

// A blob grows with what arrives, in steps of at least this much, so that a damaged size
// fails at the end of the data instead of allocating for it first.
constexpr size_t kFirstChunk = 4096;

} // namespace

CErrorPtr CPresetEntry::store(const CString& definitionName, const CAudioParamStorage& values, int32_t group)
{
    CWriteSeqBuffer out;
    QEL_RETURN_IF_ERROR(out.writeString(definitionName), definitionName);
    QEL_RETURN_IF_ERROR(values.save(out, group), definitionName);
    CByteArray bytes;
    QEL_RETURN_IF_ERROR(out.toArray(bytes), definitionName);
    blob = std::move(bytes);
    return nullptr;
}

CErrorPtr CPresetEntry::parse(CString& outDefinitionName, CAudioParamStorage& values) const
{
    CMemoryReader in(blob.data(), blob.size());
    CString name;
    QEL_RETURN_IF_ERROR(in.readString(name), CString());
    // Loaded aside, with the target's format and defaults, so a failure leaves it alone.
    CAudioParamStorage loaded = values;
    QEL_RETURN_IF_ERROR(loaded.load(in), name);
    int64_t end = 0;
    QEL_RETURN_IF_ERROR(in.getPosition(end), name);
    if (uint64_t(end) != blob.size())
        return QEL_ERROR(name, "@qelstr_CPresetEntry_parse_TrailingData Unexpected data behind the stored values (%1 of %2 bytes read).",
                         CString::number(end), CString::number(int64_t(blob.size())));
    outDefinitionName = std::move(name);
    values = std::move(loaded);
    return nullptr;
}

CErrorPtr CPresetEntry::write(COutputStream& out) const
{
    if (blob.size() > UINT32_MAX)
        return QEL_ERROR(CString(), "@qelstr_CPresetEntry_write_TooLarge Entry of %1 bytes is too large.",
                         CString::number(int64_t(blob.size())));
    QEL_RETURN_IF_ERROR(out.writeU32(uint32_t(blob.size())), CString());
    QEL_RETURN_IF_ERROR(out.write(blob.data(), blob.size()), CString());
    return nullptr;
}

CErrorPtr CPresetEntry::read(CInputStream& in)
{
    uint32_t size = 0;
    QEL_RETURN_IF_ERROR(in.readU32(size), CString());
    CByteArray bytes;
    size_t got = 0;
    while (got < size) {
        const size_t chunk = std::min(size_t(size) - got, std::max(kFirstChunk, got));
        if (!bytes.resize(got + chunk))
            return QEL_ERROR(CString(), "@qelstr_CPresetEntry_read_OutOfMemory Not enough memory to read %1 bytes.",
                             CString::number(int64_t(size)));
        QEL_RETURN_IF_ERROR(in.read(bytes.data() + got, chunk), CString());
        got += chunk;
    }
    blob = std::move(bytes);
    return nullptr;
}

} // namespace qel

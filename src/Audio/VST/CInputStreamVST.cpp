#include "Audio/VST/CInputStreamVST.h"

#include "pluginterfaces/base/ibstream.h"

#include <algorithm>
#include <cstdint>

namespace qel {
namespace {

// IBStream counts in int32.
constexpr size_t kMaxPiece = 1u << 30;

} // namespace

CErrorPtr CInputStreamVST::readSome(void* buffer, size_t count, size_t& outRead)
{
    outRead = 0;
    if (!m_stream)
        return QEL_ERROR(CString(), "@qelstr_CInputStreamVST_read_NoStream The host gave no stream to read from.");
    Steinberg::int32 got = 0;
    const Steinberg::tresult result =
        m_stream->read(buffer, static_cast<Steinberg::int32>(std::min(count, kMaxPiece)), &got);
    if (result != Steinberg::kResultOk || got < 0 || size_t(got) > count)
        return QEL_ERROR(CString(), "@qelstr_CInputStreamVST_read_ReadError Unable to read from the host's stream (error %1).",
                         CString::number(result));
    outRead = size_t(got);
    return nullptr;
}

CErrorPtr CInputStreamVST::read(void* buffer, size_t count)
{
    auto* bytes = static_cast<uint8_t*>(buffer);
    size_t done = 0;
    while (done < count) {
        size_t got = 0;
        QEL_RETURN_IF_ERROR(readSome(bytes + done, count - done, got), CString());
        if (got == 0)
            return QEL_ERROR(CString(),
                             "@qelstr_CInputStreamVST_read_EOF Premature end of the host's stream (required %1 bytes, read %2 bytes).",
                             CString::number(int64_t(count)), CString::number(int64_t(done)));
        done += got;
    }
    return nullptr;
}

CErrorPtr CInputStreamVST::readStreamed(void* buffer, size_t& inOutCount)
{
    size_t got = 0;
    CErrorPtr error = readSome(buffer, inOutCount, got);
    inOutCount = got;
    return error ? QEL_TRAIL(error, CString()) : nullptr;
}

} // namespace qel

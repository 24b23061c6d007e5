#include "Audio/VST/COutputStreamVST.h"

#include "pluginterfaces/base/ibstream.h"

#include <algorithm>
#include <cstdint>

namespace qel {
namespace {

// IBStream counts in int32.
constexpr size_t kMaxPiece = 1u << 30;

} // namespace

CErrorPtr COutputStreamVST::write(const void* buffer, size_t count)
{
    if (!m_stream)
        return QEL_ERROR(CString(), "@qelstr_COutputStreamVST_write_NoStream The host gave no stream to write to.");
    const auto* bytes = static_cast<const uint8_t*>(buffer);
    size_t done = 0;
    while (done < count) {
        const auto piece = static_cast<Steinberg::int32>(std::min(count - done, kMaxPiece));
        Steinberg::int32 written = 0;
        // The interface takes a mutable pointer but only reads through it.
        const Steinberg::tresult result = m_stream->write(const_cast<uint8_t*>(bytes + done), piece, &written);
        if (result != Steinberg::kResultOk)
            return QEL_ERROR(CString(), "@qelstr_COutputStreamVST_write_WriteError Unable to write to the host's stream (error %1).",
                             CString::number(result));
        if (written <= 0 || written > piece)
            return QEL_ERROR(CString(),
                             "@qelstr_COutputStreamVST_write_WriteErrorCount Unable to write to the host's stream (required %1 bytes, written %2 bytes).",
                             CString::number(int64_t(count)), CString::number(int64_t(done)));
        done += size_t(written);
    }
    return nullptr;
}

} // namespace qel

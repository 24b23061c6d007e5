#pragma once

#include "Core/CCheckedObject.h"
#include "Core/CString.h"

#include <zlib.h>

#include <cstddef>
#include <cstdint>

namespace qel {

// What the inflating and the deflating stream share: the zlib state, the stream on the
// other side and one 32768-byte buffer, so a block never needs a second full copy.
class CZipStream : public CCheckedObject
{
public:
    static constexpr size_t kBufferSize = 32768;

    CZipStream();
    ~CZipStream() override;
    CZipStream(const CZipStream&) = delete;
    CZipStream& operator=(const CZipStream&) = delete;

    // Adler-32 of a block's head fields.
    static uint32_t headCheck(const uint8_t* data, size_t size);

protected:
    // zlib's own text for the last failure, for error messages.
    CString zlibMessage() const { return CString(m_zip.msg ? m_zip.msg : ""); }

    z_stream m_zip{};
    uint8_t* m_buffer = nullptr;
    bool m_open = false;
};

} // namespace qel

#include "Core/COutputZipStream.h"

namespace qel {
COutputZipStream::~COutputZipStream()
{
    if (m_open)
        deflateEnd(&m_zip);
}

CErrorPtr COutputZipStream::open(COutputStream* sink, int level)
{
    if (m_open) {
        deflateEnd(&m_zip);
        m_open = false;
    }
    m_sink = sink;
    m_zip = z_stream{};
    const int result = deflateInit(&m_zip, level);
    if (result != Z_OK)
        return QEL_ERROR(CString(), "@qelstr_COutputZipStream_open_deflateInit zlib deflateInit error %1 (%2).",
                         CString::number(result), zlibMessage());
    m_open = true;
    m_zip.next_out = m_buffer;
    m_zip.avail_out = kBufferSize;
    return nullptr;
}

CErrorPtr COutputZipStream::flushBuffer()
{
    const size_t used = kBufferSize - m_zip.avail_out;
    if (used > 0)
        QEL_RETURN_IF_ERROR(m_sink->write(m_buffer, used), CString());
    m_zip.next_out = m_buffer;
    m_zip.avail_out = kBufferSize;
    return nullptr;
}

CErrorPtr COutputZipStream::write(const void* buffer, size_t count)
{
    if (!m_sink || !m_open)
        return QEL_ERROR(CString(), "@qelstr_COutputZipStream_write_NoStream Output stream not specified.");
    const auto* in = static_cast<const uint8_t*>(buffer);
    while (count > 0) {
        const uInt piece = count > 0x40000000 ? 0x40000000 : static_cast<uInt>(count);
        m_zip.next_in = const_cast<Bytef*>(in);
        m_zip.avail_in = piece;
        while (m_zip.avail_in > 0) {
            const int result = deflate(&m_zip, Z_NO_FLUSH);
            if (result != Z_OK && result != Z_BUF_ERROR)
                return QEL_ERROR(CString(), "@qelstr_COutputZipStream_write_deflate zlib deflate error %1 (%2).",
                                 CString::number(result), zlibMessage());
            if (m_zip.avail_out == 0)
                QEL_RETURN_IF_ERROR(flushBuffer(), CString());
        }
        in += piece;
        count -= piece;
    }
    return nullptr;
}

CErrorPtr COutputZipStream::close()
{
    if (!m_open)
        return nullptr;
    if (!m_sink)
        return QEL_ERROR(CString(), "@qelstr_COutputZipStream_write_NoStream Output stream not specified.");
    m_zip.next_in = nullptr;
    m_zip.avail_in = 0;
    for (;;) {
        const int result = deflate(&m_zip, Z_FINISH);
        if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR)
            return QEL_ERROR(CString(), "@qelstr_COutputZipStream_close_deflate zlib deflate error %1 (%2).",
                             CString::number(result), zlibMessage());
        if (result == Z_STREAM_END || m_zip.avail_out == 0)
            QEL_RETURN_IF_ERROR(flushBuffer(), CString());
        if (result == Z_STREAM_END)
            break;
    }
    m_open = false;
    const int result = deflateEnd(&m_zip);
    if (result != Z_OK)
        return QEL_ERROR(CString(), "@qelstr_COutputZipStream_close_deflateEnd zlib deflateEnd error %1 (%2).",
                         CString::number(result), zlibMessage());
    return nullptr;
}

} // namespace qel

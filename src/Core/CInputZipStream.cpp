#include "Core/CInputZipStream.h"

#include "Core/CPosStream.h"

namespace qel {
CInputZipStream::~CInputZipStream()
{
    if (m_open)
        inflateEnd(&m_zip);
}

CErrorPtr CInputZipStream::open(CInputStream* source)
{
    if (m_open)
        QEL_RETURN_IF_ERROR(close(), CString());
    m_source = source;
    m_zip = z_stream{};
    const int result = inflateInit(&m_zip);
    if (result != Z_OK)
        return QEL_ERROR(CString(), "@qelstr_CInputZipStream_open_inflateInit zlib inflateInit error %1 (%2).",
                         CString::number(result), zlibMessage());
    m_open = true;
    return nullptr;
}

CErrorPtr CInputZipStream::refill()
{
    size_t got = kBufferSize;
    QEL_RETURN_IF_ERROR(m_source->readStreamed(m_buffer, got), CString());
    if (got == 0)
        return QEL_ERROR(CString(), "@qelstr_CInputZipStream_read_EOF Premature end of file.");
    m_zip.next_in = m_buffer;
    m_zip.avail_in = static_cast<uInt>(got);
    return nullptr;
}

CErrorPtr CInputZipStream::read(void* buffer, size_t count)
{
    if (!m_source || !m_open)
        return QEL_ERROR(CString(), "@qelstr_CInputZipStream_read_NoStream Input stream not specified.");
    auto* out = static_cast<uint8_t*>(buffer);
    while (count > 0) {
        const uInt room = count > 0x40000000 ? 0x40000000 : static_cast<uInt>(count);
        m_zip.next_out = out;
        m_zip.avail_out = room;
        while (m_zip.avail_out > 0) {
            if (m_zip.avail_in == 0)
                QEL_RETURN_IF_ERROR(refill(), CString());
            const int result = inflate(&m_zip, Z_SYNC_FLUSH);
            if (result != Z_OK && result != Z_STREAM_END)
                return QEL_ERROR(CString(), "@qelstr_CInputZipStream_read_inflate zlib inflate error %1 (%2).",
                                 CString::number(result), zlibMessage());
            if (result == Z_STREAM_END && m_zip.avail_out > 0)
                return QEL_ERROR(CString(), "@qelstr_CInputZipStream_read_EOF Premature end of file.");
        }
        out += room;
        count -= room;
    }
    return nullptr;
}

CErrorPtr CInputZipStream::finish()
{
    if (!m_source || !m_open)
        return QEL_ERROR(CString(), "@qelstr_CInputZipStream_read_NoStream Input stream not specified.");
    // The data is all out, but the stream's end (and its checksum of the data) may still be
    // in the input: run inflate until it reports the end, with no room for more data.
    uint8_t extra;
    for (;;) {
        m_zip.next_out = &extra;
        m_zip.avail_out = 1;
        const int result = inflate(&m_zip, Z_SYNC_FLUSH);
        if (m_zip.avail_out == 0)
            return QEL_ERROR(CString(), "@qelstr_CInputZipStream_finish_TrailingData Compressed data is longer than its declared size.");
        if (result == Z_STREAM_END)
            break;
        // Without input zlib can only ask for more; with input and room it must progress.
        if ((result != Z_OK && result != Z_BUF_ERROR) || (result == Z_BUF_ERROR && m_zip.avail_in > 0))
            return QEL_ERROR(CString(), "@qelstr_CInputZipStream_read_inflate zlib inflate error %1 (%2).",
                             CString::number(result), zlibMessage());
        if (m_zip.avail_in == 0)
            QEL_RETURN_IF_ERROR(refill(), CString());
    }
    // Input read ahead past the stream's end belongs to whatever follows the block. A source
    // that can seek gets it back; from one that can't (a pipe) it is lost, so there a block
    // must be the last thing in the stream.
    if (m_zip.avail_in > 0) {
        int64_t position = 0;
        auto* positioned = dynamic_cast<CPosStream*>(m_source);
        if (positioned && !positioned->getPosition(position))
            QEL_RETURN_IF_ERROR(positioned->setPosition(position - m_zip.avail_in), CString());
        m_zip.avail_in = 0;
    }
    return nullptr;
}

CErrorPtr CInputZipStream::close()
{
    if (!m_open)
        return nullptr;
    m_open = false;
    const int result = inflateEnd(&m_zip);
    if (result != Z_OK)
        return QEL_ERROR(CString(), "@qelstr_CInputZipStream_close_inflateEnd zlib inflateEnd error %1 (%2).",
                         CString::number(result), zlibMessage());
    return nullptr;
}

} // namespace qel

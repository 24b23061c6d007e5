#include "Core/CMemoryReader.h"

#include <cstring>

namespace qel {

void CMemoryReader::setData(const void* data, size_t size)
{
    m_data = static_cast<const uint8_t*>(data);
    m_size = size;
    m_position = 0;
}

CErrorPtr CMemoryReader::skip(int64_t count)
{
    if (count <= 0)
        return nullptr;
    if (uint64_t(count) > m_size - m_position)
        return QEL_ERROR(CString(), "@qelstr_CMemoryReader_skip_EOF Premature end of memory resource while skipping (pos %1, count %2, size %3).",
                         CString::number(int64_t(m_position)), CString::number(count),
                         CString::number(int64_t(m_size)));
    m_position += size_t(count);
    return nullptr;
}

CErrorPtr CMemoryReader::read(void* buffer, size_t count)
{
    if (count > m_size - m_position)
        return QEL_ERROR(CString(), "@qelstr_CMemoryReader_read_EOF Premature end of memory resource while reading (pos %1, count %2, size %3).",
                         CString::number(int64_t(m_position)), CString::number(int64_t(count)),
                         CString::number(int64_t(m_size)));
    if (count > 0)
        std::memcpy(buffer, m_data + m_position, count);
    m_position += count;
    return nullptr;
}

CErrorPtr CMemoryReader::readStreamed(void* buffer, size_t& inOutCount)
{
    const size_t left = m_size - m_position;
    if (inOutCount > left)
        inOutCount = left;
    return read(buffer, inOutCount);
}

CErrorPtr CMemoryReader::getPosition(int64_t& outPosition)
{
    outPosition = int64_t(m_position);
    return nullptr;
}

CErrorPtr CMemoryReader::setPosition(int64_t position)
{
    if (position < 0 || uint64_t(position) > m_size)
        return QEL_ERROR(CString(), "@qelstr_CMemoryReader_setPosition_seek");
    m_position = size_t(position);
    return nullptr;
}

CErrorPtr CMemoryReader::getSize(int64_t& outSize)
{
    outSize = int64_t(m_size);
    return nullptr;
}

} // namespace qel

#include "Core/CWriteSeqBuffer.h"

#include <algorithm>
#include <cstring>

namespace qel {

CWriteSeqBuffer::CWriteSeqBuffer(size_t chunkSize) : m_chunkSize(chunkSize ? chunkSize : 256) {}

CWriteSeqBuffer::~CWriteSeqBuffer() { clear(); }

void CWriteSeqBuffer::clear()
{
    for (Chunk* chunk = m_first; chunk;) {
        Chunk* next = chunk->next;
        deallocate(chunk);
        chunk = next;
    }
    m_first = m_last = nullptr;
    m_total = 0;
}

CErrorPtr CWriteSeqBuffer::write(const void* buffer, size_t count)
{
    const auto* in = static_cast<const uint8_t*>(buffer);
    if (m_last && count > 0) {
        const size_t fits = std::min(count, m_last->capacity - m_last->used);
        if (fits > 0)
            std::memcpy(m_last->data() + m_last->used, in, fits);
        m_last->used += fits;
        in += fits;
        count -= fits;
        m_total += fits;
    }
    if (count == 0)
        return nullptr;
    const size_t capacity = std::max(count, m_chunkSize);
    auto* chunk = static_cast<Chunk*>(allocate(1, sizeof(Chunk) + capacity));
    if (!chunk)
        return QEL_ERROR(CString(), "@qelstr_CWriteSeqBuffer_write_OutOfMemory Not enough memory to buffer %1 bytes.",
                         CString::number(int64_t(count)));
    chunk->next = nullptr;
    chunk->used = count;
    chunk->capacity = capacity;
    std::memcpy(chunk->data(), in, count);
    (m_last ? m_last->next : m_first) = chunk;
    m_last = chunk;
    m_total += count;
    return nullptr;
}

CErrorPtr CWriteSeqBuffer::writeTo(COutputStream& other) const
{
    for (Chunk* chunk = m_first; chunk; chunk = chunk->next)
        QEL_RETURN_IF_ERROR(other.write(chunk->data(), chunk->used), CString());
    return nullptr;
}

CErrorPtr CWriteSeqBuffer::toArray(CByteArray& out) const
{
    out.clear();
    if (!out.reserve(m_total))
        return QEL_ERROR(CString(), "@qelstr_CWriteSeqBuffer_write_OutOfMemory Not enough memory to buffer %1 bytes.",
                         CString::number(int64_t(m_total)));
    for (Chunk* chunk = m_first; chunk; chunk = chunk->next)
        out.append(chunk->data(), chunk->used);
    return nullptr;
}

} // namespace qel

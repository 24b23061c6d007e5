#include "Core/CByteArray.h"

#include "Core/CBlockAllocator.h"

#include <cstring>

namespace qel {

CByteArray::CByteArray(const void* data, size_t size) { append(data, size); }

CByteArray::CByteArray(const CByteArray& other) { append(other.m_data, other.m_size); }

CByteArray::CByteArray(CByteArray&& other) noexcept { *this = static_cast<CByteArray&&>(other); }

CByteArray& CByteArray::operator=(const CByteArray& other)
{
    if (this != &other) {
        m_size = 0;
        append(other.m_data, other.m_size);
    }
    return *this;
}

CByteArray& CByteArray::operator=(CByteArray&& other) noexcept
{
    if (this == &other)
        return *this;
    if (other.m_data == other.m_inline) {
        m_size = 0;
        append(other.m_data, other.m_size);
    } else {
        if (m_data != m_inline)
            CBlockAllocator::free(m_data);
        m_data = other.m_data;
        m_size = other.m_size;
        m_capacity = other.m_capacity;
        other.m_data = other.m_inline;
        other.m_capacity = kInlineBytes;
    }
    other.m_size = 0;
    return *this;
}

CByteArray::~CByteArray()
{
    if (m_data != m_inline)
        CBlockAllocator::free(m_data);
}

bool CByteArray::reserve(size_t capacity)
{
    if (capacity <= m_capacity)
        return true;
    void* block = CBlockAllocator::alloc(capacity);
    if (!block)
        return false;
    std::memcpy(block, m_data, m_size);
    if (m_data != m_inline)
        CBlockAllocator::free(m_data);
    m_data = static_cast<uint8_t*>(block);
    m_capacity = capacity;
    return true;
}

bool CByteArray::resize(size_t size)
{
    if (!reserve(size))
        return false;
    m_size = size;
    return true;
}

bool CByteArray::append(const void* data, size_t size)
{
    if (size == 0)
        return true;
    if (m_size + size > m_capacity) {
        // Geometric growth keeps appends amortised constant.
        size_t capacity = m_capacity * 2;
        if (capacity < m_size + size)
            capacity = m_size + size;
        if (!reserve(capacity))
            return false;
    }
    std::memcpy(m_data + m_size, data, size);
    m_size += size;
    return true;
}

bool CByteArray::operator==(const CByteArray& other) const
{
    return m_size == other.m_size && (m_size == 0 || std::memcmp(m_data, other.m_data, m_size) == 0);
}

} // namespace qel

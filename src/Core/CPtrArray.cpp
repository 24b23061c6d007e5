#include "Core/CPtrArray.h"

#include "Core/CBlockAllocator.h"

#include <cstring>

namespace qel {

CPtrArrayBase::CPtrArrayBase(CPtrArrayBase&& other) noexcept { takeFrom(other); }

CPtrArrayBase& CPtrArrayBase::operator=(CPtrArrayBase&& other) noexcept
{
    if (this != &other) {
        releaseStorage();
        takeFrom(other);
    }
    return *this;
}

CPtrArrayBase::~CPtrArrayBase() { releaseStorage(); }

void CPtrArrayBase::takeFrom(CPtrArrayBase& other)
{
    m_count = other.m_count;
    m_capacity = other.m_capacity;
    if (other.m_data == other.m_inline) {
        std::memcpy(m_inline, other.m_inline, sizeof m_inline);
        m_data = m_inline;
    } else {
        m_data = other.m_data;
    }
    other.m_data = nullptr;
    other.m_count = 0;
    other.m_capacity = 0;
}

void CPtrArrayBase::releaseStorage()
{
    if (m_data && m_data != m_inline)
        CBlockAllocator::free(m_data);
    m_data = nullptr;
    m_count = 0;
    m_capacity = 0;
}

void CPtrArrayBase::reserveRaw(int capacity)
{
    if (capacity <= kInlineSlots) {
        m_data = m_inline;
        m_capacity = kInlineSlots;
        return;
    }
    const size_t bytes = size_t(capacity) * sizeof(void*);
    if (m_data == m_inline) {
        auto** block = static_cast<void**>(CBlockAllocator::alloc(bytes));
        std::memcpy(block, m_inline, size_t(m_count) * sizeof(void*));
        m_data = block;
    } else {
        m_data = static_cast<void**>(CBlockAllocator::realloc(m_data, bytes));
    }
    m_capacity = capacity;
}

void CPtrArrayBase::appendRaw(void* p)
{
    if (!m_data)
        reserveRaw(kInlineSlots);
    if (m_count == m_capacity)
        reserveRaw(2 * m_capacity + 1);
    m_data[m_count++] = p;
}

void CPtrArrayBase::insertRaw(int index, void* p)
{
    appendRaw(p);
    std::memmove(m_data + index + 1, m_data + index, size_t(m_count - 1 - index) * sizeof(void*));
    m_data[index] = p;
}

void* CPtrArrayBase::removeRaw(int index)
{
    void* p = m_data[index];
    std::memmove(m_data + index, m_data + index + 1, size_t(m_count - 1 - index) * sizeof(void*));
    --m_count;
    return p;
}

void CPtrArrayBase::resizeRaw(int count)
{
    if (!m_data)
        reserveRaw(kInlineSlots);
    if (count > m_capacity) {
        int capacity = m_capacity;
        while (capacity < count)
            capacity += capacity / 2 + 1;
        reserveRaw(capacity);
    }
    for (int i = m_count; i < count; ++i)
        m_data[i] = nullptr;
    m_count = count < 0 ? 0 : count;
}

} // namespace qel

#pragma once

#include <cstddef>
#include <cstdint>

namespace qel {

// A growable byte buffer: 48 bytes inline, then a block from the block allocator.
class CByteArray
{
public:
    static constexpr size_t kInlineBytes = 48;

    CByteArray() = default;
    CByteArray(const void* data, size_t size);
    CByteArray(const CByteArray& other);
    CByteArray(CByteArray&& other) noexcept;
    CByteArray& operator=(const CByteArray& other);
    CByteArray& operator=(CByteArray&& other) noexcept;
    ~CByteArray();

    size_t size() const { return m_size; }
    bool isEmpty() const { return m_size == 0; }
    size_t capacity() const { return m_capacity; }
    uint8_t* data() { return m_data; }
    const uint8_t* data() const { return m_data; }
    uint8_t& operator[](size_t i) { return m_data[i]; }
    uint8_t operator[](size_t i) const { return m_data[i]; }

    // Resizes keeping the content; false when memory is not available.
    bool resize(size_t size);
    bool reserve(size_t capacity);
    bool append(const void* data, size_t size);
    void clear() { m_size = 0; }

    bool operator==(const CByteArray& other) const;

private:
    uint8_t* m_data = m_inline;
    size_t m_size = 0;
    size_t m_capacity = kInlineBytes;
    uint8_t m_inline[kInlineBytes];
};

} // namespace qel

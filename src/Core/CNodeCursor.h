#pragma once

#include "Core/CError.h"
#include "Core/CString.h"

#include <cstddef>
#include <cstdint>

namespace qel {

class CStringPool;

// Reads the node records of a compiled definition. Definitions are build products, but a
// file given by name or a damaged module must still fail cleanly: every read is checked
// against the end of the data and every string index against the pool.
class CNodeCursor
{
public:
    static constexpr int kMaxDepth = 200;

    CNodeCursor(const uint8_t* data, size_t size, const CString& imageName)
        : m_data(data), m_size(size), m_imageName(imageName)
    {
    }

    CErrorPtr readU8(uint8_t& out);
    CErrorPtr readU16(uint16_t& out);
    CErrorPtr readU32(uint32_t& out);
    CErrorPtr skip(size_t count);
    // A u16 string index that must name a string of the pool.
    CErrorPtr readString(const CStringPool& pool, const CString*& out);
    // Nesting guard: a damaged image could otherwise recurse until the stack runs out.
    CErrorPtr enter();
    void leave() { --m_depth; }

    const uint8_t* here() const { return m_data + m_position; }
    size_t position() const { return m_position; }
    size_t remaining() const { return m_size - m_position; }
    const CString& imageName() const { return m_imageName; }

private:
    CErrorPtr truncated(size_t wanted) const;

    const uint8_t* m_data;
    size_t m_size;
    size_t m_position = 0;
    int m_depth = 0;
    CString m_imageName;
};

} // namespace qel

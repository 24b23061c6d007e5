#include "Core/CNodeCursor.h"

#include "Core/CByteOrder.h"
#include "Core/CStringPool.h"

namespace qel {

CErrorPtr CNodeCursor::truncated(size_t wanted) const
{
    return QEL_ERROR(CString(), "@qelstr_CNodeCursor_read_Truncated Compiled definition '%1' is damaged: it ends within a node (offset %2, %3 bytes wanted).",
                     m_imageName, CString::number(int64_t(m_position)), CString::number(int64_t(wanted)));
}

CErrorPtr CNodeCursor::readU8(uint8_t& out)
{
    if (remaining() < 1)
        return truncated(1);
    out = m_data[m_position++];
    return nullptr;
}

CErrorPtr CNodeCursor::readU16(uint16_t& out)
{
    if (remaining() < 2)
        return truncated(2);
    out = uint16_t(m_data[m_position] | m_data[m_position + 1] << 8);
    m_position += 2;
    return nullptr;
}

CErrorPtr CNodeCursor::readU32(uint32_t& out)
{
    if (remaining() < 4)
        return truncated(4);
    out = loadU32LE(m_data + m_position);
    m_position += 4;
    return nullptr;
}

CErrorPtr CNodeCursor::skip(size_t count)
{
    if (remaining() < count)
        return truncated(count);
    m_position += count;
    return nullptr;
}

CErrorPtr CNodeCursor::readString(const CStringPool& pool, const CString*& out)
{
    uint16_t index = 0;
    QEL_RETURN_IF_ERROR(readU16(index), CString());
    if (index >= pool.count())
        return QEL_ERROR(CString(), "@qelstr_CNodeCursor_readString_BadIndex Compiled definition '%1' is damaged: unknown string %2 at offset %3.",
                         m_imageName, CString::number(index), CString::number(int64_t(m_position - 2)));
    out = &pool.at(index);
    return nullptr;
}

CErrorPtr CNodeCursor::enter()
{
    if (++m_depth > kMaxDepth)
        return QEL_ERROR(CString(), "@qelstr_CNodeCursor_enter_TooDeep Compiled definition '%1' is damaged: nodes nest deeper than %2.",
                         m_imageName, CString::number(kMaxDepth));
    return nullptr;
}

} // namespace qel

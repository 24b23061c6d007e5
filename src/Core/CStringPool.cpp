#include "Core/CStringPool.h"

#include "Core/CByteOrder.h"

#include <cstring>

namespace qel {

CErrorPtr CStringPool::decode(const uint8_t* data, size_t size, const CString& imageName)
{
    m_strings.clear();
    if (size < 8)
        return QEL_ERROR(CString(), "@qelstr_CStringPool_decode_Truncated Compiled definition '%1' is damaged: it ends within its string pool.",
                         imageName);
    const uint32_t count = loadU32LE(data);
    m_poolSize = loadU32LE(data + 4);
    if (m_poolSize > size - 8 || count > m_poolSize / 4)
        return QEL_ERROR(CString(), "@qelstr_CStringPool_decode_Truncated Compiled definition '%1' is damaged: it ends within its string pool.",
                         imageName);
    const uint8_t* pool = data + 8;
    const size_t textStart = size_t(count) * 4;
    m_strings.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t offset = loadU32LE(pool + 4 * size_t(i));
        const void* end = offset >= textStart && offset < m_poolSize
                              ? std::memchr(pool + offset, 0, m_poolSize - offset)
                              : nullptr;
        if (!end)
            return QEL_ERROR(CString(), "@qelstr_CStringPool_decode_BadOffset Compiled definition '%1' is damaged: string %2 lies outside its pool.",
                             imageName, CString::number(i));
        const char* text = reinterpret_cast<const char*>(pool + offset);
        m_strings.push_back(CString::fromUtf8(text, static_cast<const char*>(end) - text));
    }
    return nullptr;
}

} // namespace qel

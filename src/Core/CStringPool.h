#pragma once

#include "Core/CError.h"
#include "Core/CString.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qel {

// The strings of one compiled definition, decoded once and then referred to by index.
// Shared by reference between the load and every template that keeps a body from it.
class CStringPool
{
public:
    // Decodes the pool at the start of an image: u32 count, u32 pool size, the offset
    // table and the NUL-terminated UTF-8 texts. `data` holds at least 8 + pool size bytes,
    // `size` of them; every offset and text must lie inside the pool.
    CErrorPtr decode(const uint8_t* data, size_t size, const CString& imageName);

    size_t count() const { return m_strings.size(); }
    const CString& at(size_t index) const { return m_strings[index]; }
    uint32_t poolSize() const { return m_poolSize; }

private:
    std::vector<CString> m_strings;
    uint32_t m_poolSize = 0;
};

} // namespace qel

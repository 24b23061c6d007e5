#pragma once

#include "Core/CPosInputStream.h"

namespace qel {

// Reads a memory range that it does not own. A read or skip past the end fails and
// leaves the position where it was.
class CMemoryReader : public CPosInputStream
{
public:
    CMemoryReader() = default;
    CMemoryReader(const void* data, size_t size) { setData(data, size); }

    void setData(const void* data, size_t size);

    CErrorPtr skip(int64_t count) override;
    CErrorPtr read(void* buffer, size_t count) override;
    CErrorPtr readStreamed(void* buffer, size_t& inOutCount) override;

    CErrorPtr getPosition(int64_t& outPosition) override;
    CErrorPtr setPosition(int64_t position) override;
    CErrorPtr getSize(int64_t& outSize) override;

protected:
    const uint8_t* m_data = nullptr;
    size_t m_size = 0;
    size_t m_position = 0;
};

} // namespace qel

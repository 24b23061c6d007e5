#include "Core/CZipStream.h"

#include "Core/CBlockAllocator.h"

namespace qel {

CZipStream::CZipStream() : m_buffer(static_cast<uint8_t*>(CBlockAllocator::alloc(kBufferSize))) {}

CZipStream::~CZipStream()
{
    if (m_buffer)
        CBlockAllocator::free(m_buffer);
}

uint32_t CZipStream::headCheck(const uint8_t* data, size_t size)
{
    return static_cast<uint32_t>(adler32(adler32(0, nullptr, 0), data, static_cast<uInt>(size)));
}

} // namespace qel

#include "CVst3MemoryStream.h"

#include <cstring>

namespace qel {

using namespace Steinberg;

namespace {

// A state larger than this is a runaway writer, not a state.
constexpr int64_t kMaxStreamBytes = int64_t(1) << 31;

} // namespace

tresult PLUGIN_API CVst3MemoryStream::read(void* buffer, int32 numBytes, int32* numBytesRead)
{
    if (numBytesRead)
        *numBytesRead = 0;
    if (numBytes < 0 || (numBytes > 0 && !buffer))
        return kInvalidArgument;
    const int64_t size = static_cast<int64_t>(m_bytes.size());
    const int64_t available = m_position < size ? size - m_position : 0;
    const int32 count = available < numBytes ? static_cast<int32>(available) : numBytes;
    if (count > 0)
        std::memcpy(buffer, m_bytes.data() + m_position, static_cast<size_t>(count));
    m_position += count;
    if (numBytesRead)
        *numBytesRead = count;
    return kResultOk;
}

tresult PLUGIN_API CVst3MemoryStream::write(void* buffer, int32 numBytes, int32* numBytesWritten)
{
    if (numBytesWritten)
        *numBytesWritten = 0;
    if (numBytes < 0 || (numBytes > 0 && !buffer))
        return kInvalidArgument;
    const int64_t end = m_position + numBytes;
    if (end > kMaxStreamBytes)
        return kOutOfMemory;
    if (end > static_cast<int64_t>(m_bytes.size()))
        m_bytes.resize(static_cast<size_t>(end), 0);
    if (numBytes > 0)
        std::memcpy(m_bytes.data() + m_position, buffer, static_cast<size_t>(numBytes));
    m_position = end;
    if (numBytesWritten)
        *numBytesWritten = numBytes;
    return kResultOk;
}

tresult PLUGIN_API CVst3MemoryStream::seek(int64 pos, int32 mode, int64* result)
{
    int64_t base = 0;
    switch (mode) {
    case kIBSeekSet:
        break;
    case kIBSeekCur:
        base = m_position;
        break;
    case kIBSeekEnd:
        base = static_cast<int64_t>(m_bytes.size());
        break;
    default:
        return kInvalidArgument;
    }
    if ((pos > 0 && base > kMaxStreamBytes - pos) || base + pos < 0)
        return kInvalidArgument;
    m_position = base + pos;
    if (result)
        *result = m_position;
    return kResultOk;
}

tresult PLUGIN_API CVst3MemoryStream::tell(int64* pos)
{
    if (!pos)
        return kInvalidArgument;
    *pos = m_position;
    return kResultOk;
}

tresult PLUGIN_API CVst3MemoryStream::getStreamSize(int64& size)
{
    size = static_cast<int64>(m_bytes.size());
    return kResultOk;
}

tresult PLUGIN_API CVst3MemoryStream::setStreamSize(int64 size)
{
    if (size < 0 || size > kMaxStreamBytes)
        return kInvalidArgument;
    m_bytes.resize(static_cast<size_t>(size), 0);
    return kResultOk;
}

} // namespace qel

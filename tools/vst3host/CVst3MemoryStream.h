#pragma once

#include "CVst3Object.h"

#include "pluginterfaces/base/ibstream.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace qel {

// The stream a host hands to getState and setState: bytes in memory with a position.
// Reads past the end deliver what is there (possibly nothing) and succeed, as file
// streams do; seeking before the start fails, seeking past the end is allowed and a
// later write fills the gap with zeros.
class CVst3MemoryStream : public CVst3Object<Steinberg::IBStream, Steinberg::ISizeableStream>
{
public:
    CVst3MemoryStream() = default;
    explicit CVst3MemoryStream(std::vector<uint8_t> bytes) : m_bytes(std::move(bytes)) {}

    const std::vector<uint8_t>& bytes() const { return m_bytes; }
    int64_t position() const { return m_position; }

    Steinberg::tresult PLUGIN_API read(void* buffer, Steinberg::int32 numBytes,
                                       Steinberg::int32* numBytesRead) override;
    Steinberg::tresult PLUGIN_API write(void* buffer, Steinberg::int32 numBytes,
                                        Steinberg::int32* numBytesWritten) override;
    Steinberg::tresult PLUGIN_API seek(Steinberg::int64 pos, Steinberg::int32 mode,
                                       Steinberg::int64* result) override;
    Steinberg::tresult PLUGIN_API tell(Steinberg::int64* pos) override;

    Steinberg::tresult PLUGIN_API getStreamSize(Steinberg::int64& size) override;
    Steinberg::tresult PLUGIN_API setStreamSize(Steinberg::int64 size) override;

private:
    ~CVst3MemoryStream() override = default;

    std::vector<uint8_t> m_bytes;
    int64_t m_position = 0;
};

} // namespace qel

#pragma once

#include "Core/CInputStream.h"

namespace Steinberg {
class IBStream;
}

namespace qel {

// Reads from a stream the host hands over, such as the project state. The stream stays the
// host's: this holds no reference and must not outlive the call that received it.
class CInputStreamVST : public CInputStream
{
public:
    explicit CInputStreamVST(Steinberg::IBStream* stream) : m_stream(stream) {}

    // All or error; a host stream may deliver a request in several pieces.
    CErrorPtr read(void* buffer, size_t count) override;
    // What the host has, up to inOutCount; 0 at the end.
    CErrorPtr readStreamed(void* buffer, size_t& inOutCount) override;

private:
    CErrorPtr readSome(void* buffer, size_t count, size_t& outRead);

    Steinberg::IBStream* m_stream;
};

} // namespace qel

#pragma once

#include "Core/COutputStream.h"

namespace Steinberg {
class IBStream;
}

namespace qel {

// Writes into a stream the host hands over. The stream stays the host's: this holds no
// reference and must not outlive the call that received it.
class COutputStreamVST : public COutputStream
{
public:
    explicit COutputStreamVST(Steinberg::IBStream* stream) : m_stream(stream) {}

    // All or error; a host stream may take a request in several pieces.
    CErrorPtr write(const void* buffer, size_t count) override;

private:
    Steinberg::IBStream* m_stream;
};

} // namespace qel

#pragma once

#include "Core/CInputStream.h"
#include "Core/CZipStream.h"

namespace qel {

// Inflates a zlib stream (RFC 1950) read from another stream.
class CInputZipStream : public CInputStream, public CZipStream
{
public:
    ~CInputZipStream() override;

    CErrorPtr open(CInputStream* source);
    CErrorPtr read(void* buffer, size_t count) override;
    // After the expected data: the zlib stream must end here, with a matching checksum.
    // Input read ahead past its end is given back to a source that can seek.
    CErrorPtr finish();
    CErrorPtr close();

private:
    CErrorPtr refill();

    CInputStream* m_source = nullptr;
};

} // namespace qel

#pragma once

#include "Core/COutputStream.h"
#include "Core/CZipStream.h"

namespace qel {

// Deflates into another stream as a zlib stream (RFC 1950).
class COutputZipStream : public COutputStream, public CZipStream
{
public:
    ~COutputZipStream() override;

    CErrorPtr open(COutputStream* sink, int level);
    CErrorPtr write(const void* buffer, size_t count) override;
    // Finishes the stream and writes its remainder to the sink.
    CErrorPtr close();

private:
    CErrorPtr flushBuffer();

    COutputStream* m_sink = nullptr;
};

} // namespace qel

#pragma once

#include "Core/CBlockAllocator.h"
#include "Core/CByteArray.h"
#include "Core/COutputStream.h"

namespace qel {

// A memory sink that grows by chaining chunks, so written data never moves; suited to
// messages whose size is not known ahead.
class CWriteSeqBuffer : public COutputStream, public CQelMemAllocator
{
public:
    explicit CWriteSeqBuffer(size_t chunkSize = 256);
    ~CWriteSeqBuffer() override;
    CWriteSeqBuffer(const CWriteSeqBuffer&) = delete;
    CWriteSeqBuffer& operator=(const CWriteSeqBuffer&) = delete;

    CErrorPtr write(const void* buffer, size_t count) override;
    size_t size() const { return m_total; }
    CErrorPtr writeTo(COutputStream& other) const;
    CErrorPtr toArray(CByteArray& out) const;
    void clear();

private:
    struct Chunk
    {
        Chunk* next;
        size_t used;
        size_t capacity;
        uint8_t* data() { return reinterpret_cast<uint8_t*>(this + 1); }
    };

    size_t m_chunkSize;
    size_t m_total = 0;
    Chunk* m_first = nullptr;
    Chunk* m_last = nullptr;
};

} // namespace qel

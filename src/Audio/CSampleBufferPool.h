#pragma once

#include "Core/CError.h"

#include <cstdint>

namespace qel {

// Reference-counted sample buffers for the audio graph, recycled by size class.
//
// Class c (0..127) holds buffers of (c + 1) * 512 bytes; class 128 holds anything larger,
// each buffer as big as the request that made it. A request for n bytes takes class
// (n - 1) >> 9. Freed buffers wait on their class's free list, so once the graph has run a
// few blocks at a given set-up, taking and releasing touch only those lists.
//
// Memory comes from the system heap, not from the block allocator: every buffer is at
// least 512 bytes and most are a whole block of samples, far past the block allocator's
// largest class (4080 bytes), and the block allocator would only hand such sizes on to the
// heap anyway. The heap is reached only when a free list runs dry.
//
// A buffer is handed around as a plain double*; its header stands in front of it, so
// addRef and release need no pool pointer. One audio thread owns a pool: nothing here
// takes a lock, and the counts are plain integers.
class CSampleBufferPool
{
public:
    static constexpr int32_t kClassBytes = 512;
    static constexpr int32_t kLargeClass = 128;
    static constexpr int32_t kClassCount = kLargeClass + 1;
    // Keeps capacities inside the header's i32 with room for rounding.
    static constexpr int64_t kMaxBytes = int64_t(1) << 30;
    static constexpr int32_t kAlignment = 16;

    CSampleBufferPool() = default;
    // Frees every buffer it ever made, also those still referenced: the owner of the pool
    // outlives all users of its buffers.
    ~CSampleBufferPool();
    CSampleBufferPool(const CSampleBufferPool&) = delete;
    CSampleBufferPool& operator=(const CSampleBufferPool&) = delete;

    static constexpr int32_t classForBytes(int64_t bytes)
    {
        if (bytes <= 0)
            return 0;
        const int64_t c = (bytes - 1) >> 9;
        return c < kLargeClass ? int32_t(c) : kLargeClass;
    }

    // Audio thread. A buffer of at least `bytes` bytes, 16-byte aligned, with one
    // reference, contents undefined. Null only when the heap is exhausted or the request
    // is beyond kMaxBytes: the caller keeps what it had.
    double* takeBytes(int64_t bytes);
    double* take(int32_t sampleCount) { return takeBytes(int64_t(sampleCount) * int64_t(sizeof(double))); }

    // Audio thread. Null is accepted and ignored, so empty channel slots need no test.
    static void addRef(double* buffer);
    // The last release puts the buffer back on its class's free list.
    static void release(double* buffer);

    static int32_t refCount(const double* buffer);
    static int32_t sizeClassOf(const double* buffer);
    static int32_t capacityBytes(const double* buffer);
    static CSampleBufferPool* poolOf(const double* buffer);

    // Set-up time: makes sure that `count` requests of `bytes` bytes can be met from the
    // free lists. In the large class, free buffers too small for `bytes` are dropped first,
    // since a take would drop them anyway.
    CErrorPtr reserve(int64_t bytes, int32_t count);

    // Diagnostics for tests and set-up code; freeCount walks a list.
    int32_t freeCount(int32_t sizeClass) const;
    int32_t bufferCount() const { return m_bufferCount; }
    // Calls to the system heap so far; constant once the pool is warm.
    int64_t systemAllocations() const { return m_systemAllocations; }

private:
    struct alignas(kAlignment) CHeader
    {
        void* raw;                // what malloc returned, for free
        CSampleBufferPool* pool;  // so that release needs nothing but the buffer
        int32_t sizeClass;
        int32_t capacity;         // bytes usable behind the header
        int32_t refCount;
        int32_t unused;
        CHeader* nextFree;        // link of the class's free list while free
        CHeader* prevAll;         // every buffer of the pool, for the destructor
        CHeader* nextAll;
    };
    static_assert(sizeof(CHeader) % kAlignment == 0, "the data behind the header must stay aligned");

    static CHeader* headerOf(const double* buffer)
    {
        return reinterpret_cast<CHeader*>(const_cast<double*>(buffer)) - 1;
    }
    static double* dataOf(CHeader* header) { return reinterpret_cast<double*>(header + 1); }

    static int32_t capacityFor(int32_t sizeClass, int64_t bytes);
    CHeader* allocate(int32_t sizeClass, int32_t capacity);
    void freeBuffer(CHeader* header);
    void pushFree(CHeader* header);
    CHeader* popFree(int32_t sizeClass);

    CHeader* m_free[kClassCount] = {};
    CHeader* m_all = nullptr;
    int32_t m_bufferCount = 0;
    int64_t m_systemAllocations = 0;
};

} // namespace qel

#include "Audio/CSampleBufferPool.h"

#include <cassert>
#include <cstdlib>
#include <cstring>

#if defined(QEL_ASAN)
#include <sanitizer/asan_interface.h>
#define QEL_POISON(p, n) ASAN_POISON_MEMORY_REGION((p), (n))
#define QEL_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION((p), (n))
#else
#define QEL_POISON(p, n) ((void)(p), (void)(n))
#define QEL_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace qel {

CSampleBufferPool::~CSampleBufferPool()
{
    while (m_all)
        freeBuffer(m_all);
}

double* CSampleBufferPool::takeBytes(int64_t bytes)
{
    if (bytes > kMaxBytes)
        return nullptr;
    const int32_t sizeClass = classForBytes(bytes);
    CHeader* header = popFree(sizeClass);
    if (header && header->capacity < bytes) {
        // Only the large class mixes sizes. Keeping a buffer too small for this set-up
        // would only make the next request of this size fail the same way.
        freeBuffer(header);
        header = nullptr;
    }
    if (!header) {
        header = allocate(sizeClass, capacityFor(sizeClass, bytes));
        if (!header)
            return nullptr;
    }
    header->refCount = 1;
    return dataOf(header);
}

void CSampleBufferPool::addRef(double* buffer)
{
    if (!buffer)
        return;
    CHeader* header = headerOf(buffer);
    assert(header->refCount > 0 && "reference to a free buffer");
    ++header->refCount;
}

void CSampleBufferPool::release(double* buffer)
{
    if (!buffer)
        return;
    CHeader* header = headerOf(buffer);
    assert(header->refCount > 0 && "buffer released once too often");
    if (--header->refCount == 0)
        header->pool->pushFree(header);
}

int32_t CSampleBufferPool::refCount(const double* buffer) { return headerOf(buffer)->refCount; }
int32_t CSampleBufferPool::sizeClassOf(const double* buffer) { return headerOf(buffer)->sizeClass; }
int32_t CSampleBufferPool::capacityBytes(const double* buffer) { return headerOf(buffer)->capacity; }
CSampleBufferPool* CSampleBufferPool::poolOf(const double* buffer) { return headerOf(buffer)->pool; }

CErrorPtr CSampleBufferPool::reserve(int64_t bytes, int32_t count)
{
    if (bytes > kMaxBytes)
        return QEL_ERROR(CString(),
                         CString("@qelstr_CSampleBufferPool_reserve_TooLarge A sample buffer of %1 bytes is too large."),
                         CString::number(bytes));
    const int32_t sizeClass = classForBytes(bytes);
    if (sizeClass == kLargeClass) {
        // Rebuild the list from the buffers that are big enough.
        CHeader* list = m_free[kLargeClass];
        m_free[kLargeClass] = nullptr;
        while (list) {
            CHeader* next = list->nextFree;
            if (list->capacity >= bytes)
                pushFree(list);
            else
                freeBuffer(list);
            list = next;
        }
    }
    for (int32_t missing = count - freeCount(sizeClass); missing > 0; --missing) {
        CHeader* header = allocate(sizeClass, capacityFor(sizeClass, bytes));
        if (!header)
            return QEL_ERROR(
                CString(),
                CString("@qelstr_CSampleBufferPool_reserve_NoMemory Out of memory for sample buffers of %1 bytes."),
                CString::number(bytes));
        pushFree(header);
    }
    return nullptr;
}

int32_t CSampleBufferPool::freeCount(int32_t sizeClass) const
{
    int32_t count = 0;
    for (const CHeader* h = m_free[sizeClass]; h; h = h->nextFree)
        ++count;
    return count;
}

int32_t CSampleBufferPool::capacityFor(int32_t sizeClass, int64_t bytes)
{
    if (sizeClass < kLargeClass)
        return (sizeClass + 1) * kClassBytes;
    // In 512-byte steps like the other classes, so capacities stay aligned.
    return int32_t((bytes + kClassBytes - 1) / kClassBytes * kClassBytes);
}

CSampleBufferPool::CHeader* CSampleBufferPool::allocate(int32_t sizeClass, int32_t capacity)
{
    // malloc already gives 16 bytes on this platform; the slack makes it independent of that.
    void* raw = std::malloc(sizeof(CHeader) + size_t(capacity) + kAlignment - 1);
    if (!raw)
        return nullptr;
    ++m_systemAllocations;
    const uintptr_t data =
        (reinterpret_cast<uintptr_t>(raw) + sizeof(CHeader) + kAlignment - 1) & ~uintptr_t(kAlignment - 1);
    auto* header = reinterpret_cast<CHeader*>(data) - 1;
    header->raw = raw;
    header->pool = this;
    header->sizeClass = sizeClass;
    header->capacity = capacity;
    header->refCount = 0;
    header->unused = 0;
    header->nextFree = nullptr;
    header->prevAll = nullptr;
    header->nextAll = m_all;
    if (m_all)
        m_all->prevAll = header;
    m_all = header;
    ++m_bufferCount;
    return header;
}

void CSampleBufferPool::freeBuffer(CHeader* header)
{
    if (header->prevAll)
        header->prevAll->nextAll = header->nextAll;
    else
        m_all = header->nextAll;
    if (header->nextAll)
        header->nextAll->prevAll = header->prevAll;
    --m_bufferCount;
    QEL_UNPOISON(dataOf(header), size_t(header->capacity));
    std::free(header->raw);
}

void CSampleBufferPool::pushFree(CHeader* header)
{
#if defined(QEL_DEBUG)
    // Stale reads of a released buffer show up as this pattern.
    std::memset(dataOf(header), 0xDD, size_t(header->capacity));
#endif
    QEL_POISON(dataOf(header), size_t(header->capacity));
    header->nextFree = m_free[header->sizeClass];
    m_free[header->sizeClass] = header;
}

CSampleBufferPool::CHeader* CSampleBufferPool::popFree(int32_t sizeClass)
{
    CHeader* header = m_free[sizeClass];
    if (!header)
        return nullptr;
    m_free[sizeClass] = header->nextFree;
    header->nextFree = nullptr;
    QEL_UNPOISON(dataOf(header), size_t(header->capacity));
    return header;
}

} // namespace qel

#include "Core/CBlockAllocator.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>

#if defined(__SANITIZE_THREAD__)
#define QEL_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define QEL_TSAN 1
#endif
#endif

#if defined(QEL_ASAN)
#include <sanitizer/asan_interface.h>
#define QEL_POISON(p, n) ASAN_POISON_MEMORY_REGION((p), (n))
#define QEL_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION((p), (n))
#else
#define QEL_POISON(p, n) ((void)(p), (void)(n))
#define QEL_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace qel {
namespace {

// Bytes in front of a heap block: 16 self-describing bytes, the 8-byte size and the marker.
constexpr size_t kHeapOverhead = 25;
constexpr size_t kLinkSize = sizeof(uintptr_t);

// The free list's head packs the block address (16-aligned, user space below 2^47) with a
// counter that changes on every successful exchange, so a head that was popped and pushed
// back between our read and our exchange is not mistaken for the one we read (ABA).
constexpr int kAddressShift = 4;
constexpr int kTagShift = 44;
constexpr uint64_t kAddressMask = (uint64_t(1) << kTagShift) - 1;

uint64_t packHead(void* block, uint64_t tag)
{
    return (reinterpret_cast<uintptr_t>(block) >> kAddressShift) | (tag << kTagShift);
}

void* headBlock(uint64_t head)
{
    return reinterpret_cast<void*>((head & kAddressMask) << kAddressShift);
}

[[maybe_unused]] uint64_t headTag(uint64_t head) { return head >> kTagShift; }

size_t classSize(int sizeClass) { return 16 * size_t(sizeClass + 1); }
size_t classStride(int sizeClass) { return classSize(sizeClass) + 16; }
int largestBatch(int sizeClass) { return classStride(sizeClass) < 2048 ? 128 : 64; }

struct alignas(64) SizeClass
{
    std::atomic<uint64_t> head{0};
    std::mutex refillLock;
    int batch = 2;          // guarded by refillLock
    void* chunks = nullptr; // guarded by refillLock; linked through their first bytes
    int64_t created = 0;    // guarded by refillLock; blocks carved from the chunks
#if defined(QEL_TSAN)
    std::mutex listLock;    // see push and pop
#endif
};

constinit SizeClass s_classes[CBlockAllocator::kClassCount];
constinit std::atomic<bool> s_releasing{false};

std::atomic<uintptr_t>& linkOf(void* block)
{
    // The first bytes of a free block carry the link. A pop may read the link of a block
    // that another thread has just taken; the value is then discarded by the failing
    // exchange, and the memory stays mapped because chunks are never returned.
    static_assert(sizeof(std::atomic<uintptr_t>) == kLinkSize);
    return *reinterpret_cast<std::atomic<uintptr_t>*>(block);
}

#if defined(QEL_TSAN)
// Under the thread sanitizer the lists take a short lock instead: the lock-free pop reads
// the link of a block that another thread may just have taken and be writing, a race that
// is harmless (the exchange then fails) but that the sanitizer would rightly report.
void push(SizeClass& sc, void* block)
{
    std::lock_guard<std::mutex> guard(sc.listLock);
    linkOf(block).store(reinterpret_cast<uintptr_t>(headBlock(sc.head.load())), std::memory_order_relaxed);
    sc.head.store(packHead(block, 0));
}

void* pop(SizeClass& sc)
{
    std::lock_guard<std::mutex> guard(sc.listLock);
    void* block = headBlock(sc.head.load());
    if (block)
        sc.head.store(packHead(reinterpret_cast<void*>(linkOf(block).load(std::memory_order_relaxed)), 0));
    return block;
}
#else
void push(SizeClass& sc, void* block)
{
    uint64_t old = sc.head.load(std::memory_order_relaxed);
    uint64_t next;
    do {
        linkOf(block).store(reinterpret_cast<uintptr_t>(headBlock(old)), std::memory_order_relaxed);
        next = packHead(block, headTag(old) + 1);
    } while (!sc.head.compare_exchange_weak(old, next, std::memory_order_release,
                                            std::memory_order_relaxed));
}

void* pop(SizeClass& sc)
{
    uint64_t old = sc.head.load(std::memory_order_acquire);
    while (void* block = headBlock(old)) {
        void* after = reinterpret_cast<void*>(linkOf(block).load(std::memory_order_relaxed));
        if (sc.head.compare_exchange_weak(old, packHead(after, headTag(old) + 1),
                                          std::memory_order_acquire, std::memory_order_acquire))
            return block;
    }
    return nullptr;
}
#endif

void* alignBlock(unsigned char* raw, size_t overhead)
{
    return reinterpret_cast<void*>((reinterpret_cast<uintptr_t>(raw) + overhead) & ~uintptr_t(15));
}

void* allocHeap(size_t size)
{
    if (size > SIZE_MAX - kHeapOverhead)
        return nullptr;
    auto* raw = static_cast<unsigned char*>(std::malloc(size + kHeapOverhead));
    if (!raw)
        return nullptr;
    // Bytes 0..15 hold their own positions; the block starts 10 to 25 bytes in, so the
    // byte 10 before it is one of them and tells free() where the raw block begins.
    for (unsigned char i = 0; i < 16; ++i)
        raw[i] = i;
    auto* block = static_cast<unsigned char*>(alignBlock(raw, kHeapOverhead));
    uint64_t stored = size;
    std::memcpy(block - 9, &stored, sizeof stored);
    block[-1] = CBlockAllocator::kHeapMarker;
    return block;
}

void* refill(SizeClass& sc, int sizeClass)
{
    // Never sleep behind another thread's refill: keep trying the list it is filling.
    while (!sc.refillLock.try_lock()) {
        if (void* block = pop(sc))
            return block;
    }
    std::lock_guard<std::mutex> guard(sc.refillLock, std::adopt_lock);
    if (void* block = pop(sc))
        return block;

    const size_t stride = classStride(sizeClass);
    const int count = sc.batch;
    auto* raw = static_cast<unsigned char*>(std::malloc(count * stride + kHeapOverhead));
    if (!raw)
        return nullptr;
    *reinterpret_cast<void**>(raw) = sc.chunks;
    sc.chunks = raw;
    sc.created += count;

    auto* first = static_cast<unsigned char*>(alignBlock(raw, kHeapOverhead));
    assert(reinterpret_cast<uintptr_t>(first) >> 47 == 0);
    for (int i = 0; i < count; ++i) {
        unsigned char* block = first + i * stride;
        block[-1] = static_cast<unsigned char>(sizeClass);
        if (i > 0) {
            QEL_POISON(block + kLinkSize, classSize(sizeClass) - kLinkSize);
            push(sc, block);
        }
    }
    if (sc.batch < largestBatch(sizeClass))
        sc.batch = std::min(sc.batch * 9 / 5, largestBatch(sizeClass));
    return first;
}

// Gives a class's chunks back when all its blocks are on the free list.
void releaseIfUnused(SizeClass& sc)
{
    std::lock_guard<std::mutex> guard(sc.refillLock);
    int64_t free = 0;
    for (void* block = headBlock(sc.head.load(std::memory_order_acquire)); block;
         block = reinterpret_cast<void*>(linkOf(block).load(std::memory_order_relaxed)))
        ++free;
    if (free != sc.created || sc.created == 0)
        return;
    sc.head.store(0, std::memory_order_release);
    for (void* chunk = sc.chunks; chunk;) {
        void* next = *static_cast<void**>(chunk);
        std::free(chunk);
        chunk = next;
    }
    sc.chunks = nullptr;
    sc.created = 0;
    sc.batch = 2;
}

} // namespace

void CBlockAllocator::releaseChunksWhenUnused()
{
    s_releasing = true;
    for (SizeClass& sc : s_classes)
        releaseIfUnused(sc);
}

void* CBlockAllocator::alloc(size_t size)
{
    const size_t sizeClass = size == 0 ? 0 : (size + 15) / 16 - 1;
    if (sizeClass >= kClassCount)
        return allocHeap(size);
    SizeClass& sc = s_classes[sizeClass];
    void* block = pop(sc);
    if (!block)
        block = refill(sc, static_cast<int>(sizeClass));
    if (block)
        QEL_UNPOISON(block, classSize(static_cast<int>(sizeClass)));
    return block;
}

void CBlockAllocator::free(void* block)
{
    auto* bytes = static_cast<unsigned char*>(block);
    const unsigned char sizeClass = bytes[-1];
    if (sizeClass == kHeapMarker) {
        std::free(bytes - bytes[-10] - 10);
        return;
    }
#if defined(QEL_DEBUG)
    // Stale reads of freed memory show up as this pattern.
    std::memset(bytes + kLinkSize, 0xDD, classSize(sizeClass) - kLinkSize);
#endif
    QEL_POISON(bytes + kLinkSize, classSize(sizeClass) - kLinkSize);
    push(s_classes[sizeClass], block);
    if (s_releasing.load(std::memory_order_relaxed))
        releaseIfUnused(s_classes[sizeClass]);
}

void* CBlockAllocator::realloc(void* block, size_t size)
{
    if (!block)
        return alloc(size);
    void* moved = alloc(size);
    if (!moved)
        return nullptr;
    std::memcpy(moved, block, std::min(blockSize(block), size));
    free(block);
    return moved;
}

size_t CBlockAllocator::blockSize(const void* block)
{
    const auto* bytes = static_cast<const unsigned char*>(block);
    if (bytes[-1] != kHeapMarker)
        return classSize(bytes[-1]);
    uint64_t stored;
    std::memcpy(&stored, bytes - 9, sizeof stored);
    return static_cast<size_t>(stored);
}

int CBlockAllocator::blockClass(const void* block)
{
    return static_cast<const unsigned char*>(block)[-1];
}

void* CQelMemAllocator::allocate(size_t count, size_t size)
{
    if (size != 0 && count > SIZE_MAX / size)
        return nullptr;
    return CBlockAllocator::alloc(count * size);
}

void CQelMemAllocator::deallocate(void* block)
{
    if (block)
        CBlockAllocator::free(block);
}

} // namespace qel

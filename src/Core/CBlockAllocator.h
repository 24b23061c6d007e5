#pragma once

#include <cstddef>

namespace qel {

// Size-class allocator shared by the framework's strings, arrays and maps.
//
// Class i holds blocks of 16 * (i + 1) bytes (16 to 4080). Each block carries its class
// in the byte before it, so free() needs no lookup and no lock: a block made on one
// thread is pushed back onto its class's lock-free list by whichever thread frees it.
// Larger requests go to the system heap and carry the marker 255 and their size instead.
// Chunks taken from the system for a class are never given back while the process lives.
//
// Any thread. The audio thread must not call it (a refill takes a per-class lock and
// may call the system heap).
class CBlockAllocator
{
public:
    static constexpr int kClassCount = 255;
    static constexpr int kLargestClassSize = 16 * kClassCount; // 4080
    static constexpr unsigned char kHeapMarker = 255;

    static void* alloc(size_t size);
    // Always moves the block, even to the same class, and copies the lesser size.
    static void* realloc(void* block, size_t size);
    static void free(void* block);

    // Usable size of a block: the class size, or the requested size of a heap block.
    static size_t blockSize(const void* block);
    // Size class of a block, or kHeapMarker for a heap block.
    static int blockClass(const void* block);

    // For a module that is about to be unloaded: from now on, the chunks of a class go back
    // to the system as soon as every block of the class is free again. Without this, each
    // unload would lose them. Call it when nothing of the module runs any more.
    static void releaseChunksWhenUnused();

    static constexpr int classForSize(size_t size)
    {
        return size == 0 ? 0 : static_cast<int>((size + 15) / 16 - 1);
    }
};

// Base of classes that take their memory in counted elements from the block allocator.
class CQelMemAllocator
{
public:
    static void* allocate(size_t count, size_t size);
    static void deallocate(void* block);
};

} // namespace qel

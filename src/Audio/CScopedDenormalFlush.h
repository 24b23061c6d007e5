#pragma once

#include <cstdint>

#if defined(__x86_64__) || defined(__i386__)
#include <xmmintrin.h>
#endif

namespace qel {

// Flush-to-zero and denormals-are-zero for one scope on this thread, then the host's own
// setting again. The audio block and the graph's set-up run under it; nothing else does,
// so the host's floating-point state is never changed behind its back.
class CScopedDenormalFlush
{
public:
#if defined(__x86_64__) || defined(__i386__)
    // MXCSR bit 15 flushes results, bit 6 treats denormal operands as zero.
    static constexpr uint32_t kFlushBits = 0x8040;

    CScopedDenormalFlush() : m_saved(_mm_getcsr()) { _mm_setcsr(m_saved | kFlushBits); }
    ~CScopedDenormalFlush() { _mm_setcsr(m_saved); }
    static bool isActive() { return (_mm_getcsr() & kFlushBits) == kFlushBits; }

private:
    uint32_t m_saved;
#elif defined(__aarch64__)
    // FPCR bit 24 flushes both results and operands.
    static constexpr uint64_t kFlushBits = uint64_t(1) << 24;

    CScopedDenormalFlush() : m_saved(read()) { write(m_saved | kFlushBits); }
    ~CScopedDenormalFlush() { write(m_saved); }
    static bool isActive() { return (read() & kFlushBits) != 0; }

private:
    static uint64_t read()
    {
        uint64_t value;
        __asm__ __volatile__("mrs %0, fpcr" : "=r"(value));
        return value;
    }
    static void write(uint64_t value) { __asm__ __volatile__("msr fpcr, %0" : : "r"(value)); }

    uint64_t m_saved;
#else
    CScopedDenormalFlush() = default;
    static bool isActive() { return false; }
#endif

public:
    CScopedDenormalFlush(const CScopedDenormalFlush&) = delete;
    CScopedDenormalFlush& operator=(const CScopedDenormalFlush&) = delete;
};

} // namespace qel

#pragma once

#include "Core/CString.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>

namespace qel {

// What the audio thread noticed and would log if it could: a process made on that thread
// without a parameter row, a cycle in a plan, a rate the latency table lacks. The audio
// thread may not write the log, and the process that noticed may be gone when the log is
// written, so a notice carries its own copy of the name and the figures it tells. One queue
// per instance, emptied into the log by a thread that may write it (the host's run loop).
class CAudioDiagnostics
{
public:
    // Writes one notice to the log: the process's full name and the two figures noted.
    using Teller = void (*)(const CString& fullName, int32_t integer, double real);

    static constexpr int32_t kCapacity = 64;
    // Longer names are cut; the log line still says which kind of process it was.
    static constexpr size_t kNameBytes = 192;

    CAudioDiagnostics();

    // Any thread, the audio thread included: no lock, no allocation, no log. When the queue
    // is full the notice is dropped and counted.
    void note(const CString& fullName, Teller teller, int32_t integer = 0, double real = 0.0);
    // Not the audio thread: tells every notice in the order noted, and how many were
    // dropped since the last flush. Returns the number of lines written.
    int32_t flush();

private:
    struct CCell
    {
        std::atomic<uint64_t> sequence{0};
        Teller teller = nullptr;
        int32_t integer = 0;
        double real = 0.0;
        char name[kNameBytes] = {};
        size_t nameLength = 0;
    };

    std::array<CCell, kCapacity> m_cells;
    std::atomic<uint64_t> m_head{0}; // next cell to write
    uint64_t m_tail = 0;             // next cell to read; under m_flushLock
    std::atomic<int32_t> m_dropped{0};
    std::mutex m_flushLock;
};

} // namespace qel

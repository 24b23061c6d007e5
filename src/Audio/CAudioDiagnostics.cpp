#include "Audio/CAudioDiagnostics.h"

#include "Core/CLog.h"

namespace qel {

// A bounded queue in which every cell carries the turn it is waiting for: a writer claims
// a turn by moving the head on, fills the cell and then publishes it, so several writers
// (the audio thread, a set-up thread) never meet in one cell and the reader never sees
// one half written.
CAudioDiagnostics::CAudioDiagnostics()
{
    for (size_t i = 0; i < m_cells.size(); ++i)
        m_cells[i].sequence.store(i, std::memory_order_relaxed);
}

void CAudioDiagnostics::note(const CString& fullName, Teller teller, int32_t integer, double real)
{
    uint64_t at = m_head.load(std::memory_order_relaxed);
    for (;;) {
        CCell& cell = m_cells[at % kCapacity];
        const uint64_t turn = cell.sequence.load(std::memory_order_acquire);
        if (turn == at) {
            if (m_head.compare_exchange_weak(at, at + 1, std::memory_order_relaxed))
                break;
        } else if (turn < at) {
            // The reader has not yet emptied this cell from the round before: full.
            m_dropped.fetch_add(1, std::memory_order_relaxed);
            return;
        } else {
            at = m_head.load(std::memory_order_relaxed);
        }
    }
    CCell& cell = m_cells[at % kCapacity];
    cell.teller = teller;
    cell.integer = integer;
    cell.real = real;
    size_t used = 0;
    fullName.encodeUtf8(0, cell.name, kNameBytes, used);
    cell.nameLength = used;
    cell.sequence.store(at + 1, std::memory_order_release);
}

int32_t CAudioDiagnostics::flush()
{
    std::lock_guard<std::mutex> guard(m_flushLock);
    int32_t written = 0;
    for (;;) {
        CCell& cell = m_cells[m_tail % kCapacity];
        if (cell.sequence.load(std::memory_order_acquire) != m_tail + 1)
            break;
        const CString name = CString::fromUtf8(cell.name, cell.nameLength);
        if (cell.teller) {
            cell.teller(name, cell.integer, cell.real);
            ++written;
        }
        cell.sequence.store(m_tail + kCapacity, std::memory_order_release);
        ++m_tail;
    }
    if (const int32_t dropped = m_dropped.exchange(0, std::memory_order_relaxed); dropped > 0) {
        CLog::printf("%i further audio notices were dropped", int(dropped));
        ++written;
    }
    return written;
}

} // namespace qel

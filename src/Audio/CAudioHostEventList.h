#pragma once

#include <cstdint>
#include <memory>

namespace qel {

// One host event, 24 bytes: kind 0 MIDI, 1 parameter; value normalised.
struct CAudioHostEvent
{
    static constexpr int32_t KindMidi = 0;
    static constexpr int32_t KindParam = 1;

    int32_t offset;
    int32_t kind;
    int32_t index;
    double value;
};
static_assert(sizeof(CAudioHostEvent) == 24, "a host event is a 24-byte record");

// The events the host hands in for the next block, in a room made once: the audio thread
// adds, sorts and reads them without allocating. The binding adds them and the block then
// consumes them on the same thread.
class CAudioHostEventList
{
public:
    static constexpr int32_t kCapacity = 4096;

    CAudioHostEventList() : m_events(new CAudioHostEvent[kCapacity]) {}

    // False when the room is full; the event is dropped.
    bool add(const CAudioHostEvent& event)
    {
        if (m_count >= kCapacity)
            return false;
        m_events[m_count++] = event;
        return true;
    }

    // Before a block of `sampleCount` samples: offsets outside the block are moved to its
    // nearest end, so that every event is applied, and the events not yet applied are put
    // in order of offset. Equal offsets keep the host's order; an insertion sort does that
    // without memory, and the host's lists come nearly sorted.
    void prepare(int32_t sampleCount);

    // The next event not yet applied, or null.
    const CAudioHostEvent* next() const { return m_read < m_count ? &m_events[m_read] : nullptr; }
    void advance() { ++m_read; }

    int32_t count() const { return m_count; }
    int32_t pendingCount() const { return m_count - m_read; }
    void clear() { m_count = m_read = 0; }

private:
    std::unique_ptr<CAudioHostEvent[]> m_events;
    int32_t m_count = 0;
    int32_t m_read = 0;
};

} // namespace qel

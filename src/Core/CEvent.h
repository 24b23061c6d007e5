#pragma once

#include <condition_variable>
#include <mutex>

namespace qel {

// A signal that one waiter consumes: set() lets exactly one wait through, and the event
// is clear again once that waiter has gone. It starts clear. A set() with nobody waiting
// is kept until the next wait; setting it twice before then counts once.
class CEvent
{
public:
    CEvent() = default;
    CEvent(const CEvent&) = delete;
    CEvent& operator=(const CEvent&) = delete;

    // Any thread.
    void set();
    // Waits until the event is set, then clears it.
    void wait();
    // As wait(), giving up after `seconds` (none or less: only looks); true when the
    // event was set and is now consumed. Measured on the monotonic clock.
    bool waitFor(double seconds);
    // Clears a set() that no wait has consumed yet.
    void reset();

private:
    std::mutex m_lock;
    std::condition_variable m_signal;
    bool m_set = false;
};

} // namespace qel

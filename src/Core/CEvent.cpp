#include "Core/CEvent.h"

#include <chrono>

namespace qel {

void CEvent::set()
{
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_set = true;
    }
    m_signal.notify_one();
}

void CEvent::wait()
{
    std::unique_lock<std::mutex> guard(m_lock);
    m_signal.wait(guard, [this] { return m_set; });
    m_set = false;
}

bool CEvent::waitFor(double seconds)
{
    // Past about three years a wait is as good as endless, and the deadline stays far from
    // the clock's range; a NaN only looks.
    constexpr double kLongest = 1e8;
    if (!(seconds > 0.0))
        seconds = 0.0;
    else if (seconds > kLongest)
        seconds = kLongest;
    const auto deadline = std::chrono::steady_clock::now()
                        + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                              std::chrono::duration<double>(seconds));
    std::unique_lock<std::mutex> guard(m_lock);
    if (!m_signal.wait_until(guard, deadline, [this] { return m_set; }))
        return false;
    m_set = false;
    return true;
}

void CEvent::reset()
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_set = false;
}

} // namespace qel

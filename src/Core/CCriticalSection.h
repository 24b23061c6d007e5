#pragma once

#include <mutex>

namespace qel {

// A lock that the owning thread may take again while holding it; callers rely on that.
// The spin count is kept as a statement of intent (50 for very short sections, 4000
// elsewhere); the mutex does its own spinning.
class CCriticalSection
{
public:
    explicit CCriticalSection(int spinCount = 4000) : m_spinCount(spinCount) {}
    CCriticalSection(const CCriticalSection&) = delete;
    CCriticalSection& operator=(const CCriticalSection&) = delete;

    void lock() { m_mutex.lock(); }
    bool try_lock() { return m_mutex.try_lock(); }
    void unlock() { m_mutex.unlock(); }
    int spinCount() const { return m_spinCount; }

private:
    std::recursive_mutex m_mutex;
    int m_spinCount;
};

using CLockGuard = std::lock_guard<CCriticalSection>;

} // namespace qel

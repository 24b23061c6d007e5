#pragma once

#include "Core/CObject.h"

#include <atomic>
#include <mutex>

namespace qel {

// What the root of an instance's graph shares (tag audio:audio-env). For parameters: the
// lock of the queue of changes towards the audio thread, held only to exchange pointers,
// and whether audio is running.
class CAudioEnv : public CObject
{
public:
    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }

    std::mutex& queueLock() { return m_queueLock; }
    // Between the wrapper's start and stop of processing. Any thread reads it.
    bool isActive() const { return m_isActive.load(std::memory_order_acquire); }
    void setActive(bool active) { m_isActive.store(active, std::memory_order_release); }

private:
    std::mutex m_queueLock;
    std::atomic<bool> m_isActive{false};
};

} // namespace qel

#pragma once

#include "Core/CObject.h"

#include <atomic>
#include <cstdint>
#include <mutex>

namespace qel {

class CAudioParamCollector;

// What the root of an instance's graph shares (tag audio:audio-env). For parameters: the
// lock of the queue of changes towards the audio thread, held only to exchange pointers,
// and whether audio is running. For the graph: the collector its processes bind their
// parameters in, and the latency that the output process found.
class CAudioEnv : public CObject
{
public:
    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }

    // Set by whoever builds the graph, before any process is made; processes bind their
    // parameters there at set-up. Without one they run on their parameters' fallbacks.
    CAudioParamCollector* paramCollector() const { return m_paramCollector; }
    void setParamCollector(CAudioParamCollector* collector) { m_paramCollector = collector; }

    // In samples at the output process's input rate. Written on the audio thread when that
    // process is reconfigured; the wrapper reads it from any thread to report it.
    int32_t latency() const { return m_latency.load(std::memory_order_acquire); }
    void setLatency(int32_t samples) { m_latency.store(samples, std::memory_order_release); }

    std::mutex& queueLock() { return m_queueLock; }
    // Between the wrapper's start and stop of processing. Any thread reads it.
    bool isActive() const { return m_isActive.load(std::memory_order_acquire); }
    void setActive(bool active) { m_isActive.store(active, std::memory_order_release); }

private:
    CAudioParamCollector* m_paramCollector = nullptr;
    std::atomic<int32_t> m_latency{0};
    std::mutex m_queueLock;
    std::atomic<bool> m_isActive{false};
};

} // namespace qel

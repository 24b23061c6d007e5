#pragma once

#include "Audio/CAudioDiagnostics.h"
#include "Core/CObject.h"

#include <atomic>
#include <cstdint>
#include <mutex>

namespace qel {

class CAudioParamCollector;
class CAudioVizReceiver;

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
    // Where processes hand their visual data; set, like the collector, before any process is
    // made, which asks it for its source at set-up. Without one, meters measure and drop.
    CAudioVizReceiver* vizReceiver() const { return m_vizReceiver; }
    void setVizReceiver(CAudioVizReceiver* receiver) { m_vizReceiver = receiver; }

    // In samples at the output process's input rate. Written on the audio thread when that
    // process is reconfigured; the wrapper reads it from any thread to report it.
    int32_t latency() const { return m_latency.load(std::memory_order_acquire); }
    void setLatency(int32_t samples) { m_latency.store(samples, std::memory_order_release); }

    std::mutex& queueLock() { return m_queueLock; }

    // What the audio thread noticed, for a thread that may write the log to tell.
    CAudioDiagnostics& diagnostics() { return m_diagnostics; }
    // Between the wrapper's start and stop of processing. Any thread reads it.
    bool isActive() const { return m_isActive.load(std::memory_order_acquire); }
    void setActive(bool active) { m_isActive.store(active, std::memory_order_release); }

    // ---- what the wrapper shares about the running audio
    // The host's rate. Guarded by queueLock().
    double sampleRate() const { return m_sampleRate; }
    void setSampleRate(double rate) { m_sampleRate = rate; }
    // Seconds of audio run through the graph so far, and where the slice under way ends.
    // Written by the audio thread.
    double streamPosition() const { return m_streamPosition.load(std::memory_order_relaxed); }
    void setStreamPosition(double seconds) { m_streamPosition.store(seconds, std::memory_order_relaxed); }
    double sliceEnd() const { return m_sliceEnd.load(std::memory_order_relaxed); }
    void setSliceEnd(double seconds) { m_sliceEnd.store(seconds, std::memory_order_relaxed); }
    // Frames per second of visual data: the rate in force, and the rate last asked for,
    // which the audio thread puts in force at its next exchange. Guarded by queueLock().
    double updateRate() const { return m_updateRate; }
    void setUpdateRate(double rate) { m_updateRate = rate; }
    double requestedUpdateRate() const { return m_requestedUpdateRate; }
    void setRequestedUpdateRate(double rate) { m_requestedUpdateRate = rate; }

private:
    CAudioParamCollector* m_paramCollector = nullptr;
    CAudioVizReceiver* m_vizReceiver = nullptr;
    std::atomic<int32_t> m_latency{0};
    std::mutex m_queueLock;
    CAudioDiagnostics m_diagnostics;
    std::atomic<bool> m_isActive{false};
    double m_sampleRate = 44100.0;
    std::atomic<double> m_streamPosition{0.0};
    std::atomic<double> m_sliceEnd{0.0};
    double m_updateRate = 30.0;
    double m_requestedUpdateRate = 30.0;
};

} // namespace qel

#pragma once

#include "Core/CCriticalSection.h"
#include "Core/CHighResCounter.h"
#include "Core/CObject.h"

#include <cstdint>

namespace qel {

struct CQueueTimer;

using CWindowTimerCallback = void (*)(uint64_t timerId);

// Timers that tick on the thread of a window's run loop, made by whoever owns that loop.
// Installed once per process (see CTimerQueued::setWindowTimerService).
class IWindowTimerService
{
public:
    virtual ~IWindowTimerService() = default;
    // Calls `callback` with the new timer's id every `periodMs` on the run loop's thread,
    // until the id is unregistered. Returns 0 with the id (never 0), or an error code.
    virtual int32_t registerTimer(uint32_t periodMs, CWindowTimerCallback callback, uint64_t& outId) = 0;
    virtual void unregisterTimer(uint64_t id) = 0;
};

// A periodic `tick` event for its subscribers (tag core:timer). Set `fps` or `interval`
// (seconds) to run it; until one of them is set there is no timer.
//
// High precision (the default) takes the process's timer thread, which only posts a
// `sys-tick` over the event bridge: `tick` is fired on the bridge owner's thread. While a
// tick is on its way or being handled no other is posted, and a tick whose handlers took
// several intervals lets as many firings pass, so a slow tree is not flooded. Otherwise a
// window timer of the installed service fires `tick` on the run loop's thread.
class CTimerQueued : public CObject
{
public:
    // A posted tick that has not been handled after this long counts as lost.
    static constexpr double kLostTickSeconds = 2.0;

    CTimerQueued() = default;
    ~CTimerQueued() override;

    static void initClassInfo(CClassInfo& info);
    void releaseLinks() override;

    CErrorPtr attrFps(CAttrValue& value);
    CErrorPtr attrInterval(CAttrValue& value);
    CErrorPtr attrIsHighPrecision(CAttrValue& value);
    CErrorPtr onSysTick();

    double interval() const { return m_interval; }
    bool isHighPrecision() const { return m_highPrecision; }
    bool isRunning() const { return m_running; }

    // Process-wide; null removes it. Timers made before keep the service they have.
    static void setWindowTimerService(IWindowTimerService* service);

protected:
    using CCounterSource = int64_t (*)();
    // The clock of the tick accounting, in high-resolution counter units. Tests set their
    // own before the timer first runs.
    void setCounterSource(CCounterSource source) { m_counter = source; }
    // A firing of the queue timer, on the timer thread.
    void onQueueTimer();

private:
    static void queueTimerCallback(void* self);
    static void windowTimerCallback(uint64_t timerId);

    CErrorPtr setIntervalValue(double interval);
    CErrorPtr initTimer();
    void stopTimer();
    void prepareTickPost();
    void postTick();
    void leaveTimerQueue();

    double m_interval = 0.0;
    bool m_highPrecision = true;
    bool m_running = false;
    bool m_queueUser = false; // holds a user count of the timer queue
    CQueueTimer* m_queueTimer = nullptr;
    uint64_t m_windowTimerId = 0;
    IWindowTimerService* m_windowService = nullptr; // the one the window timer came from
    CCounterSource m_counter = &CHighResCounter::now;

    // What the timer thread posts, made on the owner thread while no timer runs: the
    // thread never reads the attributes, which the owner may be changing meanwhile.
    CAttrMap m_tickParams;

    CCriticalSection m_lock{50}; // guards the three below
    bool m_ready = true;         // no tick in flight
    int64_t m_lastPost = 0;
    int32_t m_skipCount = 0;
};

} // namespace qel

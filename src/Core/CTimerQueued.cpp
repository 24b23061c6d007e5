#include "Core/CTimerQueued.h"

#include "Core/CMap.h"
#include "Core/CObjectEventBridge.h"
#include "Core/CTimerQueue.h"

#include <cerrno>
#include <climits>
#include <cmath>

namespace qel {
namespace {

constexpr double kMinFps = 0.001;
constexpr double kMaxFps = 1000.0;
constexpr double kMinInterval = 0.001;
// Intervals this close are the same: setting one again must not restart the timer.
constexpr double kSameInterval = 2.220446049250313e-16;

struct WindowTimers
{
    CCriticalSection lock{50};
    IWindowTimerService* service = nullptr;
    CMap<uint64_t, CTimerQueued*> byId;
};

WindowTimers& windowTimers()
{
    static WindowTimers s_timers;
    return s_timers;
}

uint32_t periodMsOf(double interval)
{
    // std::round takes halves away from zero.
    const double ms = std::round(interval * 1000.0);
    if (!(ms >= 1.0))
        return 1;
    if (ms >= double(UINT32_MAX))
        return UINT32_MAX;
    return static_cast<uint32_t>(ms);
}

} // namespace

CTimerQueued::~CTimerQueued()
{
    // Before any member goes: the timer thread may be inside our callback right now.
    stopTimer();
    leaveTimerQueue();
}

void CTimerQueued::initClassInfo(CClassInfo& info)
{
    CObject::initClassInfo(info);
    info.addAttr<CTimerQueued, &CTimerQueued::attrFps>(CString("fps"));
    info.addAttr<CTimerQueued, &CTimerQueued::attrInterval>(CString("interval"));
    info.addAttr<CTimerQueued, &CTimerQueued::attrIsHighPrecision>(CString("is-high-precision"));
    info.addEvent<CTimerQueued, &CTimerQueued::onSysTick>(CString("sys-tick"));
}

void CTimerQueued::releaseLinks()
{
    stopTimer();
    leaveTimerQueue();
    CObject::releaseLinks();
}

void CTimerQueued::setWindowTimerService(IWindowTimerService* service)
{
    WindowTimers& timers = windowTimers();
    CLockGuard guard(timers.lock);
    timers.service = service;
}

// ---- attributes

CErrorPtr CTimerQueued::attrFps(CAttrValue& value)
{
    double fps = value.toReal();
    if (!(fps >= kMinFps))
        fps = kMinFps;
    else if (fps > kMaxFps)
        fps = kMaxFps;
    QEL_RETURN_IF_ERROR(setIntervalValue(1.0 / fps), getFullName());
    return nullptr;
}

CErrorPtr CTimerQueued::attrInterval(CAttrValue& value)
{
    double interval = value.toReal();
    if (!(interval >= kMinInterval))
        interval = kMinInterval;
    QEL_RETURN_IF_ERROR(setIntervalValue(interval), getFullName());
    return nullptr;
}

CErrorPtr CTimerQueued::attrIsHighPrecision(CAttrValue& value)
{
    const bool highPrecision = value.toBool();
    if (highPrecision == m_highPrecision)
        return nullptr;
    m_highPrecision = highPrecision;
    QEL_RETURN_IF_ERROR(initTimer(), getFullName());
    return nullptr;
}

CErrorPtr CTimerQueued::setIntervalValue(double interval)
{
    if (std::fabs(interval - m_interval) <= kSameInterval)
        return nullptr;
    m_interval = interval;
    QEL_RETURN_IF_ERROR(initTimer(), getFullName());
    return nullptr;
}

// ---- the system timer

CErrorPtr CTimerQueued::initTimer()
{
    stopTimer();
    if (!(m_interval > 0.0))
        return nullptr;
    const uint32_t periodMs = periodMsOf(m_interval);

    if (m_highPrecision) {
        m_windowTimerId = 0;
        if (!m_queueUser) {
            if (CErrorPtr error = CTimerQueue::addUser())
                return appendError(std::move(error), __FILE__, __LINE__, getFullName(),
                                   "@qelstr_CTimerQueued_initTimer_createTimerQueue Timer queue creation error.");
            m_queueUser = true;
        }
        prepareTickPost();
        {
            CLockGuard guard(m_lock);
            m_ready = true;
            m_skipCount = 0;
        }
        const int result = CTimerQueue::createTimer(m_queueTimer, 0, periodMs, &CTimerQueued::queueTimerCallback, this);
        if (result != 0)
            return QEL_ERROR(getFullName(), "@qelstr_CTimerQueued_initTimer_createTimer Timer creation error %1.",
                             CString::number(result));
    } else {
        // A window timer needs no timer thread.
        leaveTimerQueue();
        WindowTimers& timers = windowTimers();
        // Held while registering: a first tick on another thread finds the id known.
        CLockGuard guard(timers.lock);
        int32_t result = ENOSYS; // no service: nothing in this process can make the timer
        uint64_t id = 0;
        if (timers.service) {
            result = timers.service->registerTimer(periodMs, &CTimerQueued::windowTimerCallback, id);
            if (result == 0 && id == 0)
                result = EINVAL;
        }
        if (result != 0)
            return QEL_ERROR(getFullName(), "@qelstr_CTimerQueued_initTimer_createTimerHWND Timer creation error %1.",
                             CString::number(result));
        m_windowTimerId = id;
        m_windowService = timers.service;
        timers.byId[id] = this;
    }
    m_running = true;
    return nullptr;
}

void CTimerQueued::stopTimer()
{
    if (!m_running)
        return;
    if (m_windowTimerId != 0) {
        {
            WindowTimers& timers = windowTimers();
            CLockGuard guard(timers.lock);
            timers.byId.erase(m_windowTimerId);
        }
        m_windowService->unregisterTimer(m_windowTimerId);
        m_windowTimerId = 0;
        m_windowService = nullptr;
    } else if (m_queueTimer) {
        // Waits for a firing in progress; never called under m_lock, which the firing takes.
        CTimerQueue::deleteTimer(m_queueTimer);
        m_queueTimer = nullptr;
    }
    m_running = false;
}

void CTimerQueued::leaveTimerQueue()
{
    if (!m_queueUser)
        return;
    m_queueUser = false;
    CTimerQueue::removeUser();
}

void CTimerQueued::prepareTickPost()
{
    m_tickParams = prepareBridgeEvent(CString("timer"), CString("sys-tick"));
}

// ---- ticks

void CTimerQueued::queueTimerCallback(void* self)
{
    static_cast<CTimerQueued*>(self)->onQueueTimer();
}

void CTimerQueued::onQueueTimer()
{
    const int64_t now = m_counter();
    {
        CLockGuard guard(m_lock);
        if (!m_ready && double(now - m_lastPost) / CHighResCounter::frequency() < kLostTickSeconds)
            return;
        if (m_skipCount >= 1) {
            --m_skipCount;
            return;
        }
        m_ready = false;
        m_lastPost = now;
    }
    postTick();
}

void CTimerQueued::postTick()
{
    // A failed post is dropped: ready stays false, and a firing after the lost-tick time
    // posts again.
    CErrorPtr ignored = postBridgeEvent(m_tickParams);
}

CErrorPtr CTimerQueued::onSysTick()
{
    const int64_t start = m_counter();
    CErrorPtr error = fireEvent(CString("tick"), false);
    const int64_t end = m_counter();
    {
        CLockGuard guard(m_lock);
        double load = 0.0;
        if (m_interval > 0.0)
            load = double(end - start) / CHighResCounter::frequency() / m_interval;
        m_ready = true;
        // The handlers took `load` intervals: that many firings pass without a tick.
        m_skipCount = load <= 0.0 ? 0 : load >= double(INT32_MAX) ? INT32_MAX : static_cast<int32_t>(load);
    }
    if (error)
        return QEL_TRAIL(error, getFullName());
    return nullptr;
}

void CTimerQueued::windowTimerCallback(uint64_t timerId)
{
    CTimerQueued* timer = nullptr;
    {
        WindowTimers& timers = windowTimers();
        CLockGuard guard(timers.lock);
        auto it = timers.byId.find(timerId);
        if (it == timers.byId.end())
            return;
        timer = it->second;
    }
    // The run loop's thread is the tree's: the timer can't be deleted between the look-up
    // and here.
    if (CErrorPtr error = timer->fireEvent(CString("tick"), true))
        logError(error.get());
}

} // namespace qel

#include "Core/CTimerQueue.h"

#include "Core/CHighResCounter.h"
#include "Core/CThread.h"

#include <sys/prctl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace qel {

struct CQueueTimer
{
    CTimerQueue::Callback callback;
    void* context;
    int64_t period; // counter units; 0 for a timer that fires once
    bool armed;     // has its deadline in the heap
    bool deleted;   // deleted while its callback ran: the timer thread frees it
};

namespace {

thread_local bool t_onTimerThread = false;

struct Deadline
{
    int64_t due;
    uint64_t order; // equal due times fire in the order they were set
    CQueueTimer* timer;
};

// A max-heap with this order has the earliest deadline on top.
bool later(const Deadline& a, const Deadline& b)
{
    return a.due != b.due ? a.due > b.due : a.order > b.order;
}

struct QueueState;

class CTimerThread : public CThread
{
public:
    explicit CTimerThread(QueueState& state) : CThread(CString("timer-thread")), m_state(state) {}
    ~CTimerThread() override { stop(); }

protected:
    CErrorPtr run() override;

private:
    QueueState& m_state;
};

struct QueueState
{
    std::mutex lock; // everything below but the users
    std::condition_variable changed;  // a new deadline, or quit
    std::condition_variable finished; // a callback returned
    std::vector<Deadline> heap;
    uint64_t order = 0;
    CQueueTimer* current = nullptr;   // whose callback is running
    uint64_t callbacksDone = 0;
    bool quit = true;                 // no thread, or it is to end

    std::mutex usersLock;
    int users = 0;
    CTimerThread thread{*this};

    ~QueueState()
    {
        // Users that never left: their thread must not outlive the state it works on.
        {
            std::lock_guard<std::mutex> guard(lock);
            quit = true;
        }
        changed.notify_all();
        thread.stop();
    }

    void arm(CQueueTimer* timer, int64_t due)
    {
        timer->armed = true;
        heap.push_back(Deadline{due, order++, timer});
        std::push_heap(heap.begin(), heap.end(), later);
    }

    void disarm(CQueueTimer* timer)
    {
        auto it = std::find_if(heap.begin(), heap.end(), [timer](const Deadline& d) { return d.timer == timer; });
        if (it == heap.end())
            return;
        *it = heap.back();
        heap.pop_back();
        std::make_heap(heap.begin(), heap.end(), later);
        timer->armed = false;
    }

    void loop();
};

QueueState& queue()
{
    static QueueState s_queue;
    return s_queue;
}

std::chrono::steady_clock::time_point toTimePoint(int64_t counter)
{
    // The counter is the steady clock's own count in nanoseconds.
    return std::chrono::steady_clock::time_point(
        std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::nanoseconds(counter)));
}

void QueueState::loop()
{
    t_onTimerThread = true;
    // The system lets a timed wait of an ordinary thread end up to 50 us late so that
    // wake-ups can be merged; a timer thread wants its deadlines, so it asks for the least.
    (void)prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    std::unique_lock<std::mutex> guard(lock);
    while (!quit) {
        if (heap.empty()) {
            changed.wait(guard);
            continue;
        }
        const Deadline next = heap.front();
        if (next.due > CHighResCounter::now()) {
            changed.wait_until(guard, toTimePoint(next.due));
            continue;
        }
        std::pop_heap(heap.begin(), heap.end(), later);
        heap.pop_back();
        CQueueTimer* timer = next.timer;
        timer->armed = false;
        current = timer;
        guard.unlock();
        timer->callback(timer->context);
        guard.lock();
        current = nullptr;
        ++callbacksDone;
        if (timer->deleted) {
            delete timer;
        } else if (timer->period > 0) {
            const int64_t now = CHighResCounter::now();
            int64_t due = next.due + timer->period;
            if (due <= now)
                due += ((now - due) / timer->period + 1) * timer->period;
            arm(timer, due);
        }
        finished.notify_all();
    }
}

CErrorPtr CTimerThread::run()
{
    m_state.loop();
    return nullptr;
}

} // namespace

CErrorPtr CTimerQueue::addUser()
{
    QueueState& state = queue();
    std::lock_guard<std::mutex> users(state.usersLock);
    if (state.users == 0) {
        {
            std::lock_guard<std::mutex> guard(state.lock);
            state.quit = false;
        }
        if (CErrorPtr error = state.thread.runThread(true)) {
            std::lock_guard<std::mutex> guard(state.lock);
            state.quit = true;
            return QEL_TRAIL(error, CString());
        }
    }
    ++state.users;
    return nullptr;
}

void CTimerQueue::removeUser()
{
    QueueState& state = queue();
    std::lock_guard<std::mutex> users(state.usersLock);
    if (state.users == 0 || --state.users > 0)
        return;
    {
        std::lock_guard<std::mutex> guard(state.lock);
        state.quit = true;
    }
    state.changed.notify_all();
    state.thread.stop();
}

int CTimerQueue::userCount()
{
    QueueState& state = queue();
    std::lock_guard<std::mutex> users(state.usersLock);
    return state.users;
}

int CTimerQueue::createTimer(CQueueTimer*& outTimer, uint32_t dueMs, uint32_t periodMs, Callback callback,
                             void* context)
{
    outTimer = nullptr;
    if (!callback)
        return EINVAL;
    QueueState& state = queue();
    constexpr int64_t kCounterPerMs = 1000000;
    {
        std::lock_guard<std::mutex> guard(state.lock);
        if (state.quit)
            return ESRCH; // there is no timer thread: the caller is not a user
        CQueueTimer* timer = new CQueueTimer{callback, context, int64_t(periodMs) * kCounterPerMs, false, false};
        state.arm(timer, CHighResCounter::now() + int64_t(dueMs) * kCounterPerMs);
        outTimer = timer;
    }
    state.changed.notify_one();
    return 0;
}

void CTimerQueue::deleteTimer(CQueueTimer* timer)
{
    if (!timer)
        return;
    QueueState& state = queue();
    std::unique_lock<std::mutex> guard(state.lock);
    if (state.current != timer) {
        state.disarm(timer);
        delete timer;
        return;
    }
    timer->deleted = true;
    if (t_onTimerThread)
        return;
    // By count, not by pointer: once freed, the timer's address may come back as another
    // timer's while we wait.
    const uint64_t running = state.callbacksDone;
    state.finished.wait(guard, [&state, running] { return state.callbacksDone != running; });
}

bool CTimerQueue::isTimerThread()
{
    return t_onTimerThread;
}

} // namespace qel

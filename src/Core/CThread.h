#pragma once

#include "Core/CCheckedObject.h"
#include "Core/CCriticalSection.h"
#include "Core/CError.h"
#include "Core/CEvent.h"
#include "Core/CString.h"

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <mutex>

namespace qel {

// A system thread that runs the object's run(). runThread starts it, stop asks it to end
// and waits until it has. run() watches stopRequested() and waits on wakeEvent(), which
// stop() sets so that a sleeping thread notices.
//
// A derived class whose run() uses its own members must call stop() in its destructor:
// by the time this base's destructor stops the thread, those members are gone.
class CThread : public CCheckedObject
{
public:
    explicit CThread(const CString& name = CString());
    ~CThread() override;
    CThread(const CThread&) = delete;
    CThread& operator=(const CThread&) = delete;

    // Starts the thread. With highPriority the thread asks the system for a better share of
    // the processor; refused, it simply runs at the normal one.
    CErrorPtr runThread(bool highPriority);
    // Nothing when the thread isn't running. From the thread itself it only asks: the
    // thread is let go instead of waited for, and run() must return promptly.
    void stop();

    bool isRunning() const { return m_running.load(); }
    bool stopRequested() const { return m_stop.load(); }
    // The system's id of the thread, once it has started; 0 before.
    uint32_t id() const { return m_id.load(); }
    const CString& name() const { return m_name; }
    // Takes effect at the next runThread.
    void setName(const CString& name) { m_name = name; }
    CEvent& wakeEvent() { return m_wake; }

protected:
    // The thread's work. An error is shown to the user and ends the thread.
    virtual CErrorPtr run() = 0;

private:
    static void* entry(void* self);

    std::atomic<uint32_t> m_id{0};
    CEvent m_wake;
    pthread_t m_thread{};
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_stop{false};
    CString m_name;
    // What the new thread reads at its start; written before it is created.
    char m_systemName[16] = {};
    bool m_highPriority = false;
    // Keeps runThread and stop of different threads apart.
    std::mutex m_control;
};

class CWorkerThread;

// A thread that stays and is handed work: wake() starts its next round.
class CPersistentThreadBase : public CThread
{
public:
    using CThread::CThread;
    virtual void wake() = 0;
};

// A pooled thread. Each wake() runs its job once: busy is set by wake() and cleared when
// the job has returned and its result is stored in the job.
class CPersistentThread : public CPersistentThreadBase
{
public:
    explicit CPersistentThread(const CString& name = CString("worker-thread"));
    // Stops the thread, deletes its job, and every thread behind it in its list.
    ~CPersistentThread() override;

    void wake() override;
    bool isBusy();
    // Deletes the job it had; the thread must not be busy.
    void setJob(CWorkerThread* job);
    CWorkerThread* job() const { return m_job; }

    // The free list's link; owned: deleting the head of a list deletes it all.
    CPersistentThread* next = nullptr;

protected:
    CErrorPtr run() override;

private:
    CCriticalSection m_lock{50}; // guards m_busy
    bool m_busy = false;
    CWorkerThread* m_job = nullptr;
};

// One share of a parallel piece of work, run on a pooled thread (see CWorkerPool).
class CWorkerThread : public CCheckedObject
{
public:
    virtual CErrorPtr run() = 0;

    // The error of the last run; null after success.
    CErrorPtr result;
    // The pooled thread that carries this job while it is handed out.
    CPersistentThread* thread = nullptr;
};

} // namespace qel

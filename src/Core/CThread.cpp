#include "Core/CThread.h"

#include "Core/CThreadId.h"

#include <sys/resource.h>

#include <cstring>
#include <string>

namespace qel {
namespace {

// The nice value a high-priority thread asks for: ahead of ordinary work without taking
// the processor from the system. Refused without the right to it, which is fine.
constexpr int kHighPriorityNice = -5;

// The system keeps 15 bytes of a thread name; a cut never splits a UTF-8 sequence.
void makeSystemName(const CString& name, char (&out)[16])
{
    const std::string utf8 = name.toUtf8();
    size_t length = utf8.size() < 15 ? utf8.size() : 15;
    if (length < utf8.size())
        while (length > 0 && (static_cast<unsigned char>(utf8[length]) & 0xC0) == 0x80)
            --length;
    std::memcpy(out, utf8.data(), length);
    out[length] = '\0';
}

} // namespace

CThread::CThread(const CString& name) : m_name(name) {}

CThread::~CThread()
{
    stop();
}

CErrorPtr CThread::runThread(bool highPriority)
{
    std::lock_guard<std::mutex> guard(m_control);
    if (m_running)
        return QEL_ERROR(m_name, "@qelstr_CThread_runThread_AlreadyRunning Thread is already running.");
    m_running = true;
    m_stop = false;
    m_id = 0;
    // A stop() of the last run that the thread never waited for must not wake this one.
    m_wake.reset();
    makeSystemName(m_name, m_systemName);
    m_highPriority = highPriority;
    const int result = pthread_create(&m_thread, nullptr, &CThread::entry, this);
    if (result != 0) {
        m_running = false;
        return QEL_ERROR(m_name, "@qelstr_CThread_runThread_createThreadError Thread creation error %1.",
                         CString::number(result));
    }
    return nullptr;
}

void CThread::stop()
{
    std::lock_guard<std::mutex> guard(m_control);
    if (!m_running)
        return;
    m_stop = true;
    m_wake.set();
    if (pthread_equal(m_thread, pthread_self()))
        pthread_detach(m_thread); // joining ourselves could never end
    else
        pthread_join(m_thread, nullptr);
    m_running = false;
}

void* CThread::entry(void* self)
{
    CThread* thread = static_cast<CThread*>(self);
    thread->m_id = currentThreadId();
    if (thread->m_systemName[0])
        pthread_setname_np(pthread_self(), thread->m_systemName);
    if (thread->m_highPriority)
        (void)setpriority(PRIO_PROCESS, static_cast<id_t>(thread->m_id.load()), kHighPriorityNice);
    if (CErrorPtr error = thread->run())
        showError(std::move(error));
    return nullptr;
}

// ---- CPersistentThread

CPersistentThread::CPersistentThread(const CString& name) : CPersistentThreadBase(name) {}

CPersistentThread::~CPersistentThread()
{
    stop();
    delete m_job;
    // One by one rather than each deleting its successor, so a long list can't exhaust
    // the stack.
    CPersistentThread* rest = next;
    next = nullptr;
    while (rest) {
        CPersistentThread* after = rest->next;
        rest->next = nullptr;
        delete rest;
        rest = after;
    }
}

void CPersistentThread::wake()
{
    {
        CLockGuard guard(m_lock);
        m_busy = true;
    }
    wakeEvent().set();
}

bool CPersistentThread::isBusy()
{
    CLockGuard guard(m_lock);
    return m_busy;
}

void CPersistentThread::setJob(CWorkerThread* job)
{
    if (m_job != job)
        delete m_job;
    m_job = job;
    if (job)
        job->thread = this;
}

CErrorPtr CPersistentThread::run()
{
    for (;;) {
        wakeEvent().wait();
        if (stopRequested())
            return nullptr;
        // The job and its result are handed over through the lock: whoever sees busy
        // cleared also sees the result.
        if (m_job)
            m_job->result = m_job->run();
        CLockGuard guard(m_lock);
        m_busy = false;
    }
}

} // namespace qel

#include "Core/CWorkerPool.h"

#include "Core/CCriticalSection.h"
#include "Core/CThread.h"

#include <thread>
#include <vector>

namespace qel {
namespace {

struct PoolState
{
    CCriticalSection lock{4000};
    CPersistentThread* idle = nullptr; // the free list; owns its threads
    // A module unloaded without shutdown() must not leave threads behind in its code.
    ~PoolState() { delete idle; }
};

PoolState& pool()
{
    static PoolState s_pool;
    return s_pool;
}

// Takes an idle thread, or makes and starts one; the lock is held throughout so that two
// callers can't both find the list empty and race each other to fill it.
CErrorPtr takeWorker(PoolState& state, CPersistentThread*& outWorker)
{
    CLockGuard guard(state.lock);
    outWorker = state.idle;
    if (outWorker) {
        state.idle = outWorker->next;
        outWorker->next = nullptr;
        return nullptr;
    }
    CPersistentThread* made = new CPersistentThread(CString("worker-thread"));
    if (CErrorPtr error = made->runThread(false)) {
        delete made;
        return QEL_TRAIL(error, CString());
    }
    outWorker = made;
    return nullptr;
}

void giveBack(PoolState& state, const std::vector<CPersistentThread*>& workers)
{
    for (CPersistentThread* worker : workers) {
        worker->setJob(nullptr);
        CLockGuard guard(state.lock);
        worker->next = state.idle;
        state.idle = worker;
    }
}

} // namespace

CErrorPtr CWorkerPool::run(CWorkerThread* const* jobs, int count, CWorkerThread* callerShare)
{
    PoolState& state = pool();
    std::vector<CPersistentThread*> active;
    active.reserve(count > 0 ? size_t(count) : 0);
    for (int i = 0; i < count; ++i) {
        CPersistentThread* worker = nullptr;
        if (CErrorPtr error = takeWorker(state, worker)) {
            // Nothing has been woken yet, so nothing runs: the jobs that found no thread
            // go here, the others with their threads.
            for (int j = i; j < count; ++j)
                delete jobs[j];
            giveBack(state, active);
            return QEL_TRAIL(error, CString());
        }
        worker->setJob(jobs[i]);
        active.push_back(worker);
    }
    for (CPersistentThread* worker : active)
        worker->wake();

    CErrorPtr error;
    if (callerShare)
        error = callerShare->run();

    // Every job must have finished before any is deleted, even after a failure: the
    // others are still working on the caller's data.
    size_t finished = 0;
    std::vector<bool> done(active.size(), false);
    while (finished < active.size()) {
        for (size_t i = 0; i < active.size(); ++i) {
            if (!done[i] && !active[i]->isBusy()) {
                done[i] = true;
                ++finished;
            }
        }
        if (finished < active.size())
            std::this_thread::yield();
    }
    for (CPersistentThread* worker : active) {
        CErrorPtr& result = worker->job()->result;
        if (!result)
            continue;
        if (!error)
            error = std::move(result);
        else
            logError(result.get());
    }
    giveBack(state, active);
    if (error)
        return QEL_TRAIL(error, CString());
    return nullptr;
}

void CWorkerPool::shutdown()
{
    PoolState& state = pool();
    CLockGuard guard(state.lock);
    delete state.idle;
    state.idle = nullptr;
}

int CWorkerPool::idleCount()
{
    PoolState& state = pool();
    CLockGuard guard(state.lock);
    int count = 0;
    for (const CPersistentThread* worker = state.idle; worker; worker = worker->next)
        ++count;
    return count;
}

} // namespace qel

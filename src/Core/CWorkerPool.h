#pragma once

#include "Core/CError.h"

namespace qel {

class CWorkerThread;

// The process's idle worker threads, kept for the next piece of parallel work: a thread is
// made the first time more are needed than are idle, and stays until shutdown().
class CWorkerPool
{
public:
    // Runs each of `jobs` on its own pooled thread, and `callerShare` (if any; not taken
    // over) on the calling thread meanwhile; returns when every one has finished. The jobs
    // are taken over and deleted, so they leave their results with the caller. The error
    // returned is the caller's share's, else that of the first failing job in order; any
    // others go to the log. When a thread can't be made nothing runs, the jobs are
    // deleted and that error is returned.
    //
    // The caller waits by yielding, not sleeping: the shares are meant to be short and
    // the wake-up fast. Any thread; several callers may run work at the same time.
    static CErrorPtr run(CWorkerThread* const* jobs, int count, CWorkerThread* callerShare);

    // Stops and deletes the idle threads; for the end of the process, or of whatever was
    // their last user. Work that is running keeps its threads and returns them afterwards.
    static void shutdown();
    static int idleCount();
};

} // namespace qel

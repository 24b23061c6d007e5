#pragma once

#include "Core/CError.h"

#include <cstdint>

namespace qel {

struct CQueueTimer;

// The process's timer thread: one thread that runs the callbacks of every queued timer at
// their due times, taken from a heap of deadlines. The thread exists while there are
// users: the first addUser() starts it and the last removeUser() ends it.
//
// A periodic timer keeps its grid: each firing is due one period after the previous one
// was due, however late that one ran, and firings the thread could not run in time are
// dropped rather than run in a burst. Callbacks run one at a time, so they must be brief.
class CTimerQueue
{
public:
    using Callback = void (*)(void* context);

    // Any thread. Fails when the first user's thread can't be started.
    static CErrorPtr addUser();
    // Any thread but the timer thread. The user's timers must be deleted before.
    static void removeUser();
    static int userCount();

    // A timer first due `dueMs` from now, then every `periodMs` (0: once). Any thread,
    // while the caller is a user. Returns 0, or an error code of the system's kind.
    static int createTimer(CQueueTimer*& outTimer, uint32_t dueMs, uint32_t periodMs, Callback callback,
                           void* context);
    // Any thread. When it returns, the callback is not running and never runs again, so
    // its context may go. The exception is a callback that deletes its own timer: it does
    // not wait for itself, and the timer is gone once it returns.
    static void deleteTimer(CQueueTimer* timer);

    static bool isTimerThread();
};

} // namespace qel

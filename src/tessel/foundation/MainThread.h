// The host's main thread and its task queue. The host names its main thread once
// (SetCurrent) and pumps the queue (RunPending / RunOne / RunUntil); work posted from any
// thread runs there, in the order it was posted. Messages to the host are delivered this way.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>

#include <tessel/platform/Export.h>

namespace Tessel {

class TESSEL_API MainThread {
public:
    // Names the calling thread as the main thread.
    static void SetCurrent();
    static bool IsCurrent();
    static bool IsSet();

    // Queues TASK to run on the main thread. Callable from any thread.
    static void Post(std::function<void()> task);

    // Runs every task that is ready now. Returns how many ran. Main thread only (elsewhere
    // it runs nothing and returns 0).
    static std::size_t RunPending();
    // Waits up to TIMEOUT for one task and runs it; true when one ran. Main thread only.
    static bool RunOne(std::chrono::milliseconds timeout);
    // Pumps the queue until DONE() is true or TIMEOUT passed; returns DONE()'s last answer.
    static bool RunUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout);
};

// Runs TASK on the main thread and blocks the caller until it has run, or until TIMEOUT
// passes (then the task is cancelled if it has not started and false is returned). On the
// main thread itself TASK runs at once. A host that never pumps its queue therefore costs
// a caller at most TIMEOUT, never a hang.
TESSEL_API bool CallOnMainThreadAndWait(const std::function<void()>& task,
                                        std::chrono::milliseconds timeout);

}  // namespace Tessel

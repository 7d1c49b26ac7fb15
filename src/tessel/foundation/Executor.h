// A pool of worker threads that runs posted tasks. Requests run on two of them, one for
// high and one for low priority.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <tessel/platform/Export.h>

namespace Tessel {

class TESSEL_API Executor {
public:
    // WORKERS threads; -1 (or any value below 1) means the platform's default:
    // the number of hardware threads, at least two.
    Executor(std::string name, int workers);
    ~Executor();  // stops and waits
    Executor(const Executor&) = delete;
    Executor& operator=(const Executor&) = delete;

    // Queues TASK; false when the executor has been stopped (the task is dropped). A task
    // that throws is traced in the category "Executor" and the worker goes on with the
    // next one; tasks that must answer someone catch their own failures first.
    bool Post(std::function<void()> task);
    // Takes no more tasks; tasks that have not started are dropped (destroyed unrun)
    // once the workers are joined. Tasks that are running finish.
    void Stop();
    // Joins the workers. Call after Stop; before Stop it waits until the queue is empty
    // and then stops.
    void Wait();

    const std::string& GetName() const { return mName; }
    int GetWorkerCount() const { return mWorkers; }
    static int DefaultWorkerCount();

private:
    struct Impl;
    std::string mName;
    int mWorkers;
    std::unique_ptr<Impl> mImpl;
};

}  // namespace Tessel

#include <tessel/foundation/MainThread.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>

namespace Tessel {

namespace {

struct MainQueue {
    asio::io_context context;
    asio::executor_work_guard<asio::io_context::executor_type> guard{context.get_executor()};
    std::atomic<std::thread::id> owner{};
    std::atomic<bool> ownerSet{false};
    // Tasks posted and not yet started, so RunPending can stop at the ones it found.
    std::atomic<std::size_t> queued{0};
};

// Never destroyed: tasks may still be posted while statics are torn down at exit.
MainQueue& Queue() {
    static auto* queue = new MainQueue();
    return *queue;
}

}  // namespace

void MainThread::SetCurrent() {
    Queue().owner.store(std::this_thread::get_id());
    Queue().ownerSet.store(true);
}

bool MainThread::IsCurrent() {
    return Queue().ownerSet.load() && Queue().owner.load() == std::this_thread::get_id();
}

bool MainThread::IsSet() {
    return Queue().ownerSet.load();
}

void MainThread::Post(std::function<void()> task) {
    Queue().queued.fetch_add(1);
    asio::post(Queue().context, [task = std::move(task)] {
        Queue().queued.fetch_sub(1);
        if (task)
            task();
    });
}

std::size_t MainThread::RunPending() {
    if (!IsCurrent())
        return 0;
    // Tasks posted meanwhile wait for the next pump: a task that posts itself again must
    // not keep the host from getting back to its own event loop.
    const std::size_t ready = Queue().queued.load();
    std::size_t ran = 0;
    while (ran < ready && Queue().context.poll_one() > 0)
        ++ran;
    return ran;
}

bool MainThread::RunOne(std::chrono::milliseconds timeout) {
    if (!IsCurrent())
        return false;
    // run_one_for does not look at the queue once its time is up, so a host polling with
    // no time-out would never run anything without this first look.
    if (Queue().context.poll_one() > 0)
        return true;
    if (timeout <= std::chrono::milliseconds::zero())
        return false;
    return Queue().context.run_one_for(timeout) > 0;
}

bool MainThread::RunUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        const auto now = std::chrono::steady_clock::now();
        if (now >= deadline)
            return done();
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now);
        RunOne(std::min(left, std::chrono::milliseconds(50)));
    }
    return true;
}

bool CallOnMainThreadAndWait(const std::function<void()>& task, std::chrono::milliseconds timeout) {
    if (MainThread::IsCurrent()) {
        task();
        return true;
    }
    // The gate is shared with the posted work, so a late run after a time-out finds the
    // cancelled flag instead of a dead stack frame.
    struct Gate {
        std::mutex mutex;
        std::condition_variable done;
        bool started = false;
        bool finished = false;
        bool cancelled = false;
        std::function<void()> task;
    };
    auto gate = std::make_shared<Gate>();
    gate->task = task;
    MainThread::Post([gate] {
        {
            std::lock_guard lock(gate->mutex);
            if (gate->cancelled)
                return;
            gate->started = true;
        }
        gate->task();
        std::lock_guard lock(gate->mutex);
        gate->finished = true;
        gate->done.notify_all();
    });
    std::unique_lock lock(gate->mutex);
    if (gate->done.wait_for(lock, timeout, [&] { return gate->finished; }))
        return true;
    if (!gate->started) {
        gate->cancelled = true;
        return false;
    }
    // It started just in time: the caller's data is in use on the main thread, so wait.
    gate->done.wait(lock, [&] { return gate->finished; });
    return true;
}

}  // namespace Tessel

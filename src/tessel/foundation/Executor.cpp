#include <tessel/foundation/Executor.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <tessel/platform/ThreadSetup.h>

namespace Tessel {

// The workers are threads of our own, so that each can set itself up for the platform (COM
// on Windows) before its first task and undo that after its last.
struct Executor::Impl {
    explicit Impl(int workers) {
        threads.reserve(static_cast<std::size_t>(workers));
        for (int i = 0; i < workers; ++i) {
            threads.emplace_back([this] {
                Platform::InitializeThread();
                Work();
                Platform::UninitializeThread();
            });
        }
    }

    // Runs tasks until Stop, or until Wait finds the queue empty with no task running (a
    // running task may still post more).
    void Work() {
        std::unique_lock lock(mutex);
        for (;;) {
            wake.wait(lock,
                      [this] { return stopped || !queue.empty() || (draining && running == 0); });
            if (stopped || queue.empty())
                return;
            std::function<void()> task = std::move(queue.front());
            queue.pop_front();
            ++running;
            lock.unlock();
            task();
            task = nullptr;  // what the task holds goes before the next one starts
            lock.lock();
            if (--running == 0 && draining && queue.empty())
                wake.notify_all();
        }
    }

    // Orders Post against Stop and Wait: a task is either refused or queued where a worker or
    // the end of Wait will take it.
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> queue;
    int running = 0;
    bool draining = false;  // Wait has begun: the workers end once nothing is left
    bool stopped = false;   // no more tasks are taken; queued ones are dropped
    std::vector<std::thread> threads;
    std::once_flag joined;
};

int Executor::DefaultWorkerCount() {
    return std::max(2, static_cast<int>(std::thread::hardware_concurrency()));
}

Executor::Executor(std::string name, int workers)
    : mName(std::move(name)),
      mWorkers(workers >= 1 ? workers : DefaultWorkerCount()),
      mImpl(std::make_unique<Impl>(mWorkers)) {}

Executor::~Executor() {
    Stop();
    Wait();
}

bool Executor::Post(std::function<void()> task) {
    {
        std::lock_guard lock(mImpl->mutex);
        if (mImpl->stopped)
            return false;
        mImpl->queue.push_back(std::move(task));
    }
    mImpl->wake.notify_one();
    return true;
}

void Executor::Stop() {
    {
        std::lock_guard lock(mImpl->mutex);
        mImpl->stopped = true;
    }
    mImpl->wake.notify_all();
}

void Executor::Wait() {
    std::call_once(mImpl->joined, [this] {
        {
            std::lock_guard lock(mImpl->mutex);
            mImpl->draining = true;
        }
        mImpl->wake.notify_all();
        for (std::thread& thread : mImpl->threads)
            thread.join();
        std::deque<std::function<void()>> dropped;
        {
            std::lock_guard lock(mImpl->mutex);
            mImpl->stopped = true;
            dropped.swap(mImpl->queue);
        }
        // The tasks that never started are destroyed now, not when the executor object goes
        // (a host may still hold it), so that what they hold (requests, providers) does not
        // outlive the shut-down.
        dropped.clear();
    });
}

}  // namespace Tessel

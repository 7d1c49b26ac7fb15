#include <tessel/foundation/Executor.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <tessel/foundation/Trace.h>
#include <tessel/platform/ThreadSetup.h>

namespace Tessel {

namespace {

const std::string_view kTraceCategory = Trace::DeclareCategory("Executor");

}  // namespace

// The workers are threads of our own, so that each can set itself up for the platform (COM
// on Windows) before its first task and undo that after its last.
struct Executor::Impl {
    Impl(const std::string& executorName, int workers) : name(executorName) {
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
            RunGuarded(task);
            task = nullptr;  // what the task holds goes before the next one starts
            lock.lock();
            if (--running == 0 && draining && queue.empty())
                wake.notify_all();
        }
    }

    // An exception must not end the worker (and with it the process).
    void RunGuarded(const std::function<void()>& task) noexcept {
        try {
            task();
        } catch (const std::exception& error) {
            TraceFailure(error.what());
        } catch (...) {
            TraceFailure("an exception of unknown type");
        }
    }
    void TraceFailure(const char* what) noexcept {
        try {
            Trace::Write(kTraceCategory, name + ": a task failed: " + what);
        } catch (...) {
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
    std::string name;
};

int Executor::DefaultWorkerCount() {
    return std::max(2, static_cast<int>(std::thread::hardware_concurrency()));
}

Executor::Executor(std::string name, int workers)
    : mName(std::move(name)),
      mWorkers(workers >= 1 ? workers : DefaultWorkerCount()),
      mImpl(std::make_unique<Impl>(mName, mWorkers)) {}

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

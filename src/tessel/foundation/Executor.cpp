#include <tessel/foundation/Executor.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <thread>

#include <asio/post.hpp>
#include <asio/thread_pool.hpp>

namespace Tessel {

struct Executor::Impl {
    explicit Impl(int workers)
        : pool(std::make_unique<asio::thread_pool>(static_cast<std::size_t>(workers))) {}
    // Orders Post against Stop and the end of Wait: a task is either refused or queued on a
    // pool that still exists.
    std::mutex mutex;
    std::unique_ptr<asio::thread_pool> pool;
    bool stopped = false;
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
    std::lock_guard lock(mImpl->mutex);
    if (mImpl->stopped) return false;
    asio::post(*mImpl->pool, std::move(task));
    return true;
}

void Executor::Stop() {
    std::lock_guard lock(mImpl->mutex);
    mImpl->stopped = true;
    if (mImpl->pool) mImpl->pool->stop();
}

void Executor::Wait() {
    std::call_once(mImpl->joined, [this] {
        mImpl->pool->join();  // without the lock: running tasks may still post
        std::unique_ptr<asio::thread_pool> joined;
        {
            std::lock_guard lock(mImpl->mutex);
            mImpl->stopped = true;
            joined = std::move(mImpl->pool);
        }
        // The pool destroys the tasks it never started when it goes. That must happen now,
        // not when the executor object goes (a host may still hold it), so that what the
        // tasks hold (requests, providers) does not outlive the shut-down.
        joined.reset();
    });
}

}  // namespace Tessel

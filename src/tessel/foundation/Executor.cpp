#include <tessel/foundation/Executor.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

#include <asio/post.hpp>
#include <asio/thread_pool.hpp>

namespace Tessel {

struct Executor::Impl {
    explicit Impl(int workers) : pool(static_cast<std::size_t>(workers)) {}
    asio::thread_pool pool;
    std::atomic<bool> stopped{false};
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
    if (mImpl->stopped.load()) return false;
    asio::post(mImpl->pool, std::move(task));
    return true;
}

void Executor::Stop() {
    mImpl->stopped.store(true);
    mImpl->pool.stop();
}

void Executor::Wait() {
    std::call_once(mImpl->joined, [this] { mImpl->pool.join(); });
}

}  // namespace Tessel

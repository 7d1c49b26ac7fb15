// The main thread's queue, message stations and executors, driven from real threads
// sequenced with latches rather than sleeps.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <tessel/foundation/Executor.h>
#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Messaging.h>

#include "support/CaptureTrace.h"

namespace Tessel {
namespace {

using namespace std::chrono_literals;

// A one-shot gate between threads. (Latch waits forever under MinGW's libstdc++ on
// Wine, so the tests keep to a mutex and a condition variable.)
class Latch {
public:
    explicit Latch(int count) : mCount(count) {}
    void count_down() {
        const std::lock_guard<std::mutex> lock(mMutex);
        if (--mCount <= 0)
            mOpened.notify_all();
    }
    void wait() {
        std::unique_lock<std::mutex> lock(mMutex);
        mOpened.wait(lock, [this] { return mCount <= 0; });
    }

private:
    std::mutex mMutex;
    std::condition_variable mOpened;
    int mCount;
};

// Runs body(t) for t = 0..count-1 on threads released together, and joins them.
template <class Body>
void OnThreads(int count, Body body) {
    Latch start(1);
    std::vector<std::thread> threads;
    for (int t = 0; t < count; ++t)
        threads.emplace_back([&, t] { start.wait(), body(t); });
    start.count_down();
    for (auto& thread : threads)
        thread.join();
}

// Every test here owns the main thread and leaves its queue empty.
class MainThreadTest : public ::testing::Test {
protected:
    void SetUp() override {
        MainThread::SetCurrent();
        while (MainThread::RunPending() != 0) {
        }
    }
    void TearDown() override { SetUp(); }
};

TEST_F(MainThreadTest, TasksRunInPostingOrderOnlyWhenTheMainThreadPumps) {
    std::vector<int> ran;
    for (int i = 0; i < 10; ++i)
        MainThread::Post([&ran, i] { ran.push_back(i); });
    MainThread::Post(nullptr);  // an empty task is tolerated and counts as run
    std::thread([] {
        EXPECT_EQ(MainThread::RunPending(), 0u);
        EXPECT_FALSE(MainThread::RunOne(1ms));
    }).join();
    EXPECT_TRUE(ran.empty()) << "pumping off the main thread runs nothing";
    EXPECT_TRUE(MainThread::RunOne(0ms)) << "a host polling without waiting gets what is ready";
    EXPECT_TRUE(MainThread::RunUntil([&] { return ran.size() == 5; }, 10s));
    EXPECT_EQ(ran, (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(MainThread::RunPending(), 6u);
    EXPECT_FALSE(MainThread::RunOne(0ms));
    EXPECT_FALSE(MainThread::RunUntil([] { return false; }, 1ms));
    // A task that posts itself again ("continue later") must not keep the pump from
    // returning to the host's own event loop.
    int runs = 0;
    std::function<void()> again = [&] {
        if (++runs < 1000)
            MainThread::Post(again);
    };
    MainThread::Post(again);
    EXPECT_EQ(MainThread::RunPending(), 1u);
    EXPECT_EQ(MainThread::RunPending(), 1u);
    EXPECT_TRUE(MainThread::RunUntil([&] { return runs == 1000; }, 60s));
}

// A call runs on the main thread exactly when it answers true; one that timed out is never
// run later (its task refers to the caller's stack frame, which ASan would catch).
TEST_F(MainThreadTest, CallAndWaitRacingItsTimeOutRunsExactlyWhenItAnswersTrue) {
    bool ranAtOnce = false;
    EXPECT_TRUE(CallOnMainThreadAndWait([&] { ranAtOnce = true; }, 0ms));
    EXPECT_TRUE(ranAtOnce);
    EXPECT_EQ(MainThread::RunPending(), 0u) << "a call from the main thread queues nothing";
    constexpr int kCalls = 200;
    std::vector<std::atomic<int>> runs(kCalls);
    std::vector<char> answers(kCalls, 0);
    std::atomic<bool> workerDone{false};
    std::thread worker([&] {
        for (int i = 0; i < kCalls; ++i) {
            // Time-outs up to the pump's pace make both outcomes common, sometimes the task
            // starts as time runs out; the last mostly finds the main thread no longer pumping.
            const auto timeout = std::chrono::milliseconds(i == kCalls - 1 ? 20 : i % 3);
            int onWorkerStack = 0;
            answers[i] = CallOnMainThreadAndWait(
                [&, i] {
                    EXPECT_TRUE(MainThread::IsCurrent());
                    onWorkerStack = ++runs[i];
                },
                timeout);
            if (i == kCalls - 2)
                workerDone = true;
        }
    });
    while (!workerDone.load())
        MainThread::RunOne(1ms);
    worker.join();
    MainThread::RunPending();  // late runs of cancelled calls would show up now
    for (int i = 0; i < kCalls; ++i)
        EXPECT_EQ(runs[i].load(), answers[i] ? 1 : 0) << "call " << i;
}

struct MessageNameForTestCountMessage {};
struct MessageNameForTestOtherMessage {};

struct CountMessage : MessageBase {
    using Name = MessageNameForTestCountMessage;
    CountMessage(int senderIn, int sequenceIn) : sender(senderIn), sequence(sequenceIn) {}
    int sender, sequence;
};

struct OtherMessage : MessageBase {
    using Name = MessageNameForTestOtherMessage;
};

// Records what a listener received; used on the main thread only.
struct Received {
    std::vector<std::pair<int, int>> messages;
    int offMainThread = 0;
    ScopedListener Listen(const ImmutableString& station) {
        return ScopedListener(
            Messaging::Listen<CountMessage>(station, [this](const CountMessage& message) {
                offMainThread += MainThread::IsCurrent() ? 0 : 1;
                messages.emplace_back(message.sender, message.sequence);
            }));
    }
};

class MessagingTest : public MainThreadTest {
protected:
    void SetUp() override {
        MainThreadTest::SetUp();
        station = ImmutableString(std::string("Tests.Threading.") +
                                  ::testing::UnitTest::GetInstance()->current_test_info()->name());
        Messaging::RegisterStation(station);
    }
    void TearDown() override {
        Messaging::DisposeStation(station);
        MainThreadTest::TearDown();
    }
    // Broadcasts CountMessage(sender, 0..count-1) from the calling thread.
    void BroadcastCounts(int sender, int count) {
        for (int i = 0; i < count; ++i)
            Messaging::Broadcast(station, std::make_shared<const CountMessage>(sender, i));
    }
    ImmutableString station;
};

TEST_F(MessagingTest, BroadcastsArriveOnTheMainThreadInOrderAndOnlyWhereAddressed) {
    const ImmutableString elsewhere("Tests.Threading.Elsewhere");
    Messaging::RegisterStation(elsewhere);
    Received here, there;
    ScopedListener hereListener = here.Listen(station);
    ScopedListener thereListener = there.Listen(elsewhere);
    ScopedListener otherListener(Messaging::Listen<OtherMessage>(station, [&](const OtherMessage&) {
        // A listener may broadcast in turn; the station's lock is not held.
        Messaging::BroadcastOnMainThread(station, CountMessage(9, 9));
    }));
    Messaging::Broadcast(station, std::make_shared<const CountMessage>(0, 1));
    EXPECT_EQ(here.messages.size(), 1u) << "Broadcast on the main thread is immediate";
    Messaging::Broadcast(station, std::make_shared<const OtherMessage>());
    EXPECT_EQ(here.messages.back(), std::make_pair(9, 9));
    Messaging::BroadcastAsync(station, std::make_shared<const CountMessage>(0, 3));
    EXPECT_EQ(here.messages.size(), 2u) << "BroadcastAsync waits for the pump";
    MainThread::RunPending();
    EXPECT_EQ(here.messages.size(), 3u);
    here.messages.clear();
    OnThreads(4, [&](int t) { BroadcastCounts(t, 100); });
    EXPECT_TRUE(here.messages.empty());
    MainThread::RunPending();
    ASSERT_EQ(here.messages.size(), 400u);
    std::map<int, int> next;  // each sender's messages arrive in its order 0, 1, 2, ...
    for (const auto& [sender, sequence] : here.messages)
        EXPECT_EQ(sequence, next[sender]++) << "sender " << sender;
    EXPECT_EQ(here.offMainThread, 0);
    EXPECT_TRUE(there.messages.empty());
    Messaging::DisposeStation(elsewhere);
}

// A station nobody registered delivers nothing, also once registered later, and says so.
TEST_F(MessagingTest, MessagesToAStationNobodyRegisteredAreDroppedAndTraced) {
    const ImmutableString unregistered("Tests.Threading.Unregistered");
    Received late;
    ScopedListener lateListener = late.Listen(unregistered);
    const auto trace = Tessel::Test::CaptureTrace("Messaging", [&] {
        Messaging::BroadcastOnMainThread(unregistered, CountMessage(0, 0));
        std::thread([&] {
            Messaging::Broadcast(unregistered, std::make_shared<const CountMessage>(0, 1));
        }).join();
        // On its way when the station goes: dropped on arrival.
        Messaging::BroadcastAsync(station, std::make_shared<const CountMessage>(0, 2));
        Messaging::DisposeStation(station);
        Messaging::RegisterStation(unregistered);
        MainThread::RunPending();
    });
    EXPECT_TRUE(late.messages.empty());
    Messaging::DisposeStation(unregistered);
    const std::string unknown = "\"Tests.Threading.Unregistered\" dropped: the station is not";
    std::size_t lines = 0;
    for (std::size_t at = 0; trace && (at = trace->find(unknown, at)) != std::string::npos; ++at)
        ++lines;
    EXPECT_EQ(lines, trace ? 2u : 0u) << trace.value_or("");
    EXPECT_TRUE(!trace || trace->find(station.str() + "\" dropped: the station was disposed") !=
                              std::string::npos);
}

TEST_F(MessagingTest, RemovedListenersAndDisposedStationsDeliverNothingMoreAlsoOnItsWay) {
    Received kept, removed;
    ScopedListener keptListener = kept.Listen(station);
    ScopedListener removedListener = removed.Listen(station);
    OnThreads(1, [&](int) { BroadcastCounts(1, 3); });
    removedListener.Reset();
    MainThread::RunPending();
    EXPECT_EQ(kept.messages.size(), 3u);
    EXPECT_TRUE(removed.messages.empty());
    // During one delivery: a listener that removes itself and one the delivery has not
    // reached yet, and a worker that removes a listener while the delivery is held.
    int selfCalls = 0, laterCalls = 0, workerRemovedCalls = 0;
    Messaging::ListenerId self = 0, later = 0, workerRemoved = 0;
    Latch removedByWorker(1);
    std::thread worker;
    self = Messaging::Listen<CountMessage>(station, [&](const CountMessage&) {
        ++selfCalls;
        Messaging::RemoveListener(self);
        Messaging::RemoveListener(later);
        worker = std::thread([&] {
            Messaging::RemoveListener(workerRemoved);
            removedByWorker.count_down();
        });
        removedByWorker.wait();
    });
    later = Messaging::Listen<CountMessage>(station, [&](const CountMessage&) { ++laterCalls; });
    workerRemoved = Messaging::Listen<CountMessage>(
        station, [&](const CountMessage&) { ++workerRemovedCalls; });
    Messaging::BroadcastOnMainThread(station, CountMessage(3, 0));
    Messaging::BroadcastOnMainThread(station, CountMessage(3, 1));
    worker.join();
    EXPECT_EQ(selfCalls, 1);
    EXPECT_EQ(laterCalls + workerRemovedCalls, 0);

    // A disposed station delivers nothing, also of what was on its way, and one registered
    // again starts afresh.
    Received& received = kept;
    received.messages.clear();
    OnThreads(1, [&](int) { BroadcastCounts(1, 3); });
    Messaging::DisposeStation(station);
    EXPECT_FALSE(Messaging::IsStationRegistered(station));
    Messaging::BroadcastOnMainThread(station, CountMessage(2, 0));
    MainThread::RunPending();
    EXPECT_TRUE(received.messages.empty());
    // Posted before the dispose, pumped after the station came back: still not delivered.
    Messaging::RegisterStation(station);
    Messaging::BroadcastAsync(station, std::make_shared<const CountMessage>(3, 0));
    Messaging::DisposeStation(station);
    Messaging::RegisterStation(station);
    Messaging::BroadcastAsync(station, std::make_shared<const CountMessage>(4, 0));
    MainThread::RunPending();
    EXPECT_EQ(received.messages, (std::vector<std::pair<int, int>>{{4, 0}}));
    // Registering a registered station again is no dispose: what is on its way arrives.
    Messaging::BroadcastAsync(station, std::make_shared<const CountMessage>(5, 0));
    Messaging::RegisterStation(station);
    MainThread::RunPending();
    EXPECT_EQ(received.messages.back(), std::make_pair(5, 0));
}

TEST(Executor, RunsTasksOnItsOwnWorkersAllAtOnce) {
    Executor executor("Tests.Workers", 3);
    // Each task waits for all the others to have started, which only three concurrent
    // workers can satisfy. A generous limit turns a missing worker into a failure, not a hang.
    std::mutex mutex;
    std::condition_variable changed;
    int arrived = 0;
    std::set<std::thread::id> workers;
    std::vector<char> sawAll;
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(executor.Post([&] {
            std::unique_lock lock(mutex);
            ++arrived;
            workers.insert(std::this_thread::get_id());
            changed.notify_all();
            sawAll.push_back(changed.wait_for(lock, 60s, [&] { return arrived == 3; }));
            changed.notify_all();
        }));
    }
    std::unique_lock lock(mutex);  // held to the end: the tasks have nothing left to do
    changed.wait(lock, [&] { return sawAll.size() == 3; });
    EXPECT_EQ(sawAll, std::vector<char>(3, 1));
    EXPECT_EQ(workers.size(), 3u);
    EXPECT_EQ(workers.count(std::this_thread::get_id()), 0u);
}

TEST(Executor, StopLetsTheRunningTaskFinishAndDestroysTheQueuedOnesUnrun) {
    Executor executor("Tests.Stop", 1);
    Latch started(1), release(1);
    std::atomic<bool> runningFinished{false};
    ASSERT_TRUE(executor.Post([&] {
        started.count_down();
        release.wait();
        runningFinished = true;
    }));
    started.wait();  // the only worker is now busy, so what follows stays queued
    auto token = std::make_shared<int>(0);
    std::atomic<int> queuedRuns{0};
    for (int i = 0; i < 10; ++i)
        ASSERT_TRUE(executor.Post([token, &queuedRuns] { ++queuedRuns; }));
    executor.Stop();
    EXPECT_FALSE(executor.Post([token, &queuedRuns] { ++queuedRuns; }));
    release.count_down();
    executor.Wait();
    EXPECT_TRUE(runningFinished);
    EXPECT_EQ(queuedRuns, 0);
    // Dropped tasks are destroyed with the join, not when the executor object goes: what
    // they hold (requests, providers) must not outlive a host's shut-down.
    EXPECT_EQ(token.use_count(), 1);
    executor.Stop();  // stopping and waiting again changes nothing
    executor.Wait();
}

// A task that throws is traced and its worker goes on with the next one.
TEST(Executor, WaitWithoutStopRunsEverythingQueuedAndThenRefusesWork) {
    Executor executor("Tests.Drain", 2);
    std::atomic<int> runs{0};
    const auto trace = Tessel::Test::CaptureTrace("Executor", [&] {
        executor.Post([] { throw std::runtime_error("task trouble"); });
        for (int i = 0; i < 100; ++i) {
            ASSERT_TRUE(executor.Post([&] {
                // Work queued by a running task still belongs to the drain.
                if (runs.fetch_add(1) == 0)
                    executor.Post([&] { ++runs; });
                if (runs % 10 == 0)
                    throw 7;
            }));
        }
        executor.Wait();
    });
    EXPECT_EQ(runs, 101);
    EXPECT_TRUE(!trace ||
                trace->find("Tests.Drain: a task failed: task trouble") != std::string::npos);
    auto token = std::make_shared<int>(0);
    EXPECT_FALSE(executor.Post([token] {})) << "a joined executor runs nothing more";
    EXPECT_EQ(token.use_count(), 1);
}

}  // namespace
}  // namespace Tessel

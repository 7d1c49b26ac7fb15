// The main thread's queue, message stations and executors, driven from real threads.
// Threads are sequenced with gates rather than sleeps, and no test depends on how long
// anything takes.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <tessel/foundation/Executor.h>
#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Messaging.h>

namespace Tessel {
namespace {

using namespace std::chrono_literals;

// A one-way gate: threads wait until someone opens it.
class Gate {
public:
    void Open() {
        std::lock_guard lock(mMutex);
        mOpen = true;
        mChanged.notify_all();
    }
    void Wait() {
        std::unique_lock lock(mMutex);
        mChanged.wait(lock, [&] { return mOpen; });
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mOpen = false;
};

// Runs body(t) for t = 0..count-1 on threads released together, and joins them.
template <class Body>
void OnThreads(int count, Body body) {
    Gate start;
    std::vector<std::thread> threads;
    for (int t = 0; t < count; ++t)
        threads.emplace_back([&, t] {
            start.Wait();
            body(t);
        });
    start.Open();
    for (auto& thread : threads)
        thread.join();
}

// Each (sender, sequence) pair must arrive in the sender's order 0, 1, 2, ...
void ExpectEachSendersOrder(const std::vector<std::pair<int, int>>& arrived) {
    std::map<int, int> next;
    for (const auto& [sender, sequence] : arrived)
        EXPECT_EQ(sequence, next[sender]++) << "sender " << sender;
}

// Every test here owns the main thread and leaves its queue empty.
class MainThreadTest : public ::testing::Test {
protected:
    void SetUp() override {
        MainThread::SetCurrent();
        while (MainThread::RunPending() != 0) {
        }
    }
    void TearDown() override {
        while (MainThread::RunPending() != 0) {
        }
    }
};

// ---------------------------------------------------------------------------------------
// MainThread

TEST_F(MainThreadTest, TasksRunInPostingOrderWhicheverWayThePumpIsDriven) {
    std::vector<int> ran;
    for (int i = 0; i < 10; ++i)
        MainThread::Post([&ran, i] { ran.push_back(i); });
    MainThread::Post(nullptr);  // an empty task is tolerated and counts as run

    // A host polling without waiting still gets the task that is ready.
    EXPECT_TRUE(MainThread::RunOne(0ms));
    EXPECT_EQ(ran, std::vector<int>{0});
    EXPECT_TRUE(MainThread::RunOne(1s));
    EXPECT_EQ(ran, (std::vector<int>{0, 1}));
    EXPECT_TRUE(MainThread::RunUntil([&] { return ran.size() == 5; }, 10s));
    EXPECT_EQ(ran, (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(MainThread::RunPending(), 6u);
    EXPECT_EQ(ran, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));

    EXPECT_EQ(MainThread::RunPending(), 0u);
    EXPECT_FALSE(MainThread::RunOne(0ms));
    EXPECT_FALSE(MainThread::RunOne(1ms));
    EXPECT_FALSE(MainThread::RunUntil([] { return false; }, 1ms));
}

TEST_F(MainThreadTest, TasksFromManyThreadsKeepEachThreadsOrder) {
    constexpr int kThreads = 4;
    constexpr int kEach = 250;
    std::vector<std::pair<int, int>> ran;  // (thread, sequence); only the main thread writes
    OnThreads(kThreads, [&](int t) {
        for (int i = 0; i < kEach; ++i) {
            MainThread::Post([&ran, t, i] {
                EXPECT_TRUE(MainThread::IsCurrent());
                ran.emplace_back(t, i);
            });
        }
    });
    EXPECT_TRUE(ran.empty()) << "tasks run only when the main thread pumps";
    EXPECT_EQ(MainThread::RunPending(), std::size_t(kThreads * kEach));
    ASSERT_EQ(ran.size(), std::size_t(kThreads * kEach));
    ExpectEachSendersOrder(ran);

    // RunUntil waits for work posted while it waits.
    std::atomic<bool> done{false};
    std::thread worker([&] { MainThread::Post([&] { done = true; }); });
    EXPECT_TRUE(MainThread::RunUntil([&] { return done.load(); }, 60s));
    worker.join();
}

TEST_F(MainThreadTest, PumpingOffTheMainThreadRunsNothing) {
    bool ran = false;
    MainThread::Post([&] { ran = true; });
    std::thread worker([&] {
        EXPECT_FALSE(MainThread::IsCurrent());
        EXPECT_TRUE(MainThread::IsSet());
        EXPECT_EQ(MainThread::RunPending(), 0u);
        EXPECT_FALSE(MainThread::RunOne(0ms));
        EXPECT_FALSE(MainThread::RunOne(1ms));
    });
    worker.join();
    EXPECT_FALSE(ran);
    EXPECT_TRUE(MainThread::IsCurrent());
    EXPECT_EQ(MainThread::RunPending(), 1u);
    EXPECT_TRUE(ran);
}

TEST_F(MainThreadTest, RunPendingLeavesTasksPostedWhileItRunsForTheNextPump) {
    // A task that posts itself again ("continue later") must not keep the pump from
    // returning to the host's own event loop.
    int runs = 0;
    std::function<void()> again = [&] {
        ++runs;
        if (runs < 1000)
            MainThread::Post(again);
    };
    MainThread::Post(again);
    MainThread::Post([] {});
    EXPECT_EQ(MainThread::RunPending(), 2u);
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(MainThread::RunPending(), 1u);
    EXPECT_EQ(runs, 2);
    EXPECT_TRUE(MainThread::RunUntil([&] { return runs == 1000; }, 60s));
}

// ---------------------------------------------------------------------------------------
// CallOnMainThreadAndWait

TEST_F(MainThreadTest, CallAndWaitRunsOnTheMainThreadAtOnceOrWhenItPumps) {
    bool ranAtOnce = false;
    EXPECT_TRUE(CallOnMainThreadAndWait([&] { ranAtOnce = true; }, 0ms));
    EXPECT_TRUE(ranAtOnce);
    EXPECT_EQ(MainThread::RunPending(), 0u) << "a call from the main thread queues nothing";

    const std::thread::id mainId = std::this_thread::get_id();
    std::atomic<bool> workerDone{false};
    bool answer = false;
    std::thread::id ranOn;
    std::vector<int> data;  // the worker's own data, used by the main thread meanwhile
    std::thread worker([&] {
        answer = CallOnMainThreadAndWait(
            [&] {
                ranOn = std::this_thread::get_id();
                data = {1, 2, 3};
            },
            60s);
        // The call returns only after the task finished, so its writes are visible here.
        EXPECT_EQ(data.size(), 3u);
        workerDone = true;
    });
    EXPECT_TRUE(MainThread::RunUntil([&] { return workerDone.load(); }, 60s));
    worker.join();
    EXPECT_TRUE(answer);
    EXPECT_EQ(ranOn, mainId);
}

TEST_F(MainThreadTest, CallAndWaitTimesOutWhenTheMainThreadDoesNotPump) {
    auto ran = std::make_shared<std::atomic<bool>>(false);
    bool answer = true;
    std::thread worker([&] {
        int onWorkerStack = 0;
        // The task refers to the worker's stack: running it after the time-out would write
        // into a frame that is gone (ASan reports it, or the test crashes).
        answer = CallOnMainThreadAndWait(
            [ran, &onWorkerStack] {
                onWorkerStack = 1;
                *ran = true;
            },
            20ms);
    });
    worker.join();  // the main thread does not pump meanwhile
    EXPECT_FALSE(answer);
    // The late pump finds the cancelled call: it is taken off the queue but not run.
    EXPECT_EQ(MainThread::RunPending(), 1u);
    EXPECT_FALSE(*ran);
}

TEST_F(MainThreadTest, CallAndWaitRacingItsTimeOutRunsExactlyWhenItAnswersTrue) {
    constexpr int kCalls = 200;
    std::vector<std::atomic<int>> runs(kCalls);
    std::vector<char> answers(kCalls, 0);
    std::atomic<bool> workerDone{false};
    std::thread worker([&] {
        for (int i = 0; i < kCalls; ++i) {
            // Time-outs of none to about the pump's own pace make both outcomes common,
            // and now and then the task starts just as the time runs out.
            const auto timeout = std::chrono::milliseconds(i % 3);
            answers[i] = CallOnMainThreadAndWait([&runs, i] { ++runs[i]; }, timeout);
        }
        workerDone = true;
    });
    while (!workerDone.load())
        MainThread::RunOne(1ms);
    worker.join();
    MainThread::RunPending();  // late runs of cancelled calls would show up now
    for (int i = 0; i < kCalls; ++i) {
        EXPECT_EQ(runs[i].load(), answers[i] ? 1 : 0) << "call " << i;
    }
}

// ---------------------------------------------------------------------------------------
// Messaging

struct MessageNameForTestCountMessage {};
struct MessageNameForTestOtherMessage {};

struct CountMessage : MessageBase {
    using Name = MessageNameForTestCountMessage;
    CountMessage(int senderIn, int sequenceIn) : sender(senderIn), sequence(sequenceIn) {}
    int sender = 0;
    int sequence = 0;
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
                if (!MainThread::IsCurrent())
                    ++offMainThread;
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

TEST_F(MessagingTest, BroadcastsOnTheMainThreadArriveAtOnceAndOnlyWhereAddressed) {
    const ImmutableString elsewhere("Tests.Threading.Elsewhere");
    Messaging::RegisterStation(elsewhere);
    Received here, there;
    ScopedListener hereListener = here.Listen(station);
    ScopedListener thereListener = there.Listen(elsewhere);
    int others = 0;
    ScopedListener otherListener(Messaging::Listen<OtherMessage>(station, [&](const OtherMessage&) {
        ++others;
        // A listener may broadcast in turn; the station's lock is not held.
        Messaging::BroadcastOnMainThread(station, CountMessage(9, 9));
    }));

    Messaging::BroadcastOnMainThread(station, CountMessage(0, 1));
    EXPECT_EQ(here.messages, (std::vector<std::pair<int, int>>{{0, 1}}));
    Messaging::Broadcast(station, std::make_shared<const CountMessage>(0, 2));
    EXPECT_EQ(here.messages.size(), 2u) << "Broadcast on the main thread is immediate";
    Messaging::Broadcast(station, std::make_shared<const OtherMessage>());
    EXPECT_EQ(others, 1);
    EXPECT_EQ(here.messages.back(), std::make_pair(9, 9));

    // BroadcastAsync waits for the pump even on the main thread.
    Messaging::BroadcastAsync(station, std::make_shared<const CountMessage>(0, 3));
    EXPECT_EQ(here.messages.size(), 3u);
    MainThread::RunPending();
    EXPECT_EQ(here.messages.size(), 4u);
    EXPECT_TRUE(there.messages.empty());
    EXPECT_EQ(here.offMainThread, 0);

    // A station nobody registered delivers nothing, also once it is registered later.
    const ImmutableString unregistered("Tests.Threading.Unregistered");
    Received late;
    ScopedListener lateListener = late.Listen(unregistered);
    Messaging::BroadcastOnMainThread(unregistered, CountMessage(0, 0));
    Messaging::BroadcastAsync(unregistered, std::make_shared<const CountMessage>(0, 0));
    Messaging::RegisterStation(unregistered);
    MainThread::RunPending();
    EXPECT_TRUE(late.messages.empty());
    Messaging::DisposeStation(unregistered);
    Messaging::DisposeStation(elsewhere);
}

TEST_F(MessagingTest, BroadcastsFromWorkersArriveInOrderOnTheMainThreadOnly) {
    constexpr int kThreads = 4;
    constexpr int kEach = 100;
    Received received;
    ScopedListener listener = received.Listen(station);
    OnThreads(kThreads, [&](int t) { BroadcastCounts(t, kEach); });
    EXPECT_TRUE(received.messages.empty());
    MainThread::RunPending();
    ASSERT_EQ(received.messages.size(), std::size_t(kThreads * kEach));
    EXPECT_EQ(received.offMainThread, 0);
    ExpectEachSendersOrder(received.messages);
}

TEST_F(MessagingTest, RemovedListenersHearNothingMoreAlsoOfMessagesOnTheirWay) {
    Received kept, removed;
    ScopedListener keptListener = kept.Listen(station);
    ScopedListener removedListener = removed.Listen(station);
    OnThreads(1, [&](int) { BroadcastCounts(1, 3); });
    removedListener.Reset();
    MainThread::RunPending();
    EXPECT_EQ(kept.messages.size(), 3u);
    EXPECT_TRUE(removed.messages.empty());

    // Moving a listener keeps it; assigning over one removes the old one.
    Received moved, replaced;
    ScopedListener first = moved.Listen(station);
    ScopedListener second(std::move(first));
    first.Reset();  // moved-from: removes nothing
    ScopedListener third = replaced.Listen(station);
    third = std::move(second);
    Messaging::BroadcastOnMainThread(station, CountMessage(2, 0));
    EXPECT_EQ(moved.messages.size(), 1u);
    EXPECT_TRUE(replaced.messages.empty());

    // During one delivery: a listener that removes itself, and one that removes a listener
    // the delivery has not reached yet.
    int selfCalls = 0;
    int laterCalls = 0;
    Messaging::ListenerId self = 0;
    Messaging::ListenerId later = 0;
    self = Messaging::Listen<CountMessage>(station, [&](const CountMessage&) {
        ++selfCalls;
        Messaging::RemoveListener(self);
        Messaging::RemoveListener(later);
    });
    later = Messaging::Listen<CountMessage>(station, [&](const CountMessage&) { ++laterCalls; });
    Messaging::BroadcastOnMainThread(station, CountMessage(3, 0));
    Messaging::BroadcastOnMainThread(station, CountMessage(3, 1));
    EXPECT_EQ(selfCalls, 1);
    EXPECT_EQ(laterCalls, 0);
}

TEST_F(MessagingTest, ListenerRemovedFromAWorkerDuringADeliveryIsNotReached) {
    // The first listener holds the delivery until a worker has removed the second one.
    int secondCalls = 0;
    Messaging::ListenerId second = 0;
    Gate removed;
    std::thread worker;
    ScopedListener first(Messaging::Listen<CountMessage>(station, [&](const CountMessage&) {
        worker = std::thread([&] {
            Messaging::RemoveListener(second);
            removed.Open();
        });
        removed.Wait();
    }));
    second = Messaging::Listen<CountMessage>(station, [&](const CountMessage&) { ++secondCalls; });
    Messaging::BroadcastOnMainThread(station, CountMessage(0, 0));
    worker.join();
    EXPECT_EQ(secondCalls, 0);
}

TEST_F(MessagingTest, ListenersComeAndGoOnWorkersWhileTheMainThreadDelivers) {
    constexpr int kThreads = 2;
    constexpr int kEach = 500;
    std::atomic<int> finished{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < kThreads; ++t) {
        workers.emplace_back([&] {
            for (int i = 0; i < kEach; ++i) {
                auto calls = std::make_shared<std::atomic<int>>(0);
                ScopedListener listener(Messaging::Listen<CountMessage>(
                    station, [calls](const CountMessage&) { ++*calls; }));
                Messaging::Broadcast(station, std::make_shared<const CountMessage>(1, i));
            }
            ++finished;
        });
    }
    Received received;
    ScopedListener listener = received.Listen(station);
    int sent = 0;
    // Bounded, so a starved worker on a loaded machine cannot make the main thread pile up
    // messages without end.
    while (finished.load() < kThreads) {
        if (sent < 20000)
            Messaging::BroadcastOnMainThread(station, CountMessage(0, sent++));
        MainThread::RunPending();
        std::this_thread::yield();
    }
    for (auto& worker : workers)
        worker.join();
    MainThread::RunPending();
    EXPECT_EQ(received.messages.size(), std::size_t(sent + kThreads * kEach));
}

TEST_F(MessagingTest, ADisposedStationDeliversNothingAndARegisteredAgainOneStartsAfresh) {
    Received received;
    ScopedListener listener = received.Listen(station);
    OnThreads(1, [&](int) { BroadcastCounts(1, 3); });
    Messaging::DisposeStation(station);
    EXPECT_FALSE(Messaging::IsStationRegistered(station));
    MainThread::RunPending();
    Messaging::BroadcastOnMainThread(station, CountMessage(2, 0));
    Messaging::BroadcastAsync(station, std::make_shared<const CountMessage>(2, 1));
    MainThread::RunPending();
    EXPECT_TRUE(received.messages.empty());

    // Posted before the dispose, pumped after the station came back: still not delivered.
    Messaging::RegisterStation(station);
    Messaging::BroadcastAsync(station, std::make_shared<const CountMessage>(3, 0));
    Messaging::DisposeStation(station);
    Messaging::RegisterStation(station);
    EXPECT_TRUE(Messaging::IsStationRegistered(station));
    Messaging::BroadcastAsync(station, std::make_shared<const CountMessage>(4, 0));
    MainThread::RunPending();
    Messaging::BroadcastOnMainThread(station, CountMessage(4, 1));
    EXPECT_EQ(received.messages, (std::vector<std::pair<int, int>>{{4, 0}, {4, 1}}));

    // Registering a registered station again is no dispose: what is on its way arrives.
    Messaging::BroadcastAsync(station, std::make_shared<const CountMessage>(5, 0));
    Messaging::RegisterStation(station);
    MainThread::RunPending();
    EXPECT_EQ(received.messages.back(), std::make_pair(5, 0));
}

// ---------------------------------------------------------------------------------------
// Executor

TEST(Executor, RunsTasksOnItsOwnWorkersAllAtOnce) {
    Executor executor("Tests.Workers", 3);
    ASSERT_EQ(executor.GetWorkerCount(), 3);

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
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return sawAll.size() == 3; });
    }
    EXPECT_EQ(sawAll, std::vector<char>(3, 1));
    EXPECT_EQ(workers.size(), 3u);
    EXPECT_EQ(workers.count(std::this_thread::get_id()), 0u);
}

TEST(Executor, ADefaultWorkerCountIsTheMachinesWithAtLeastTwo) {
    EXPECT_GE(Executor::DefaultWorkerCount(), 2);
    EXPECT_GE(Executor::DefaultWorkerCount(), int(std::thread::hardware_concurrency()));
    for (int asked : {-1, 0, -100}) {
        Executor executor("Tests.Default", asked);
        EXPECT_EQ(executor.GetWorkerCount(), Executor::DefaultWorkerCount()) << asked;
    }
    Executor one("Tests.One", 1);
    EXPECT_EQ(one.GetWorkerCount(), 1);
}

TEST(Executor, StopLetsTheRunningTaskFinishAndDestroysTheQueuedOnesUnrun) {
    Executor executor("Tests.Stop", 1);
    Gate started, release;
    std::atomic<bool> runningFinished{false};
    ASSERT_TRUE(executor.Post([&] {
        started.Open();
        release.Wait();
        runningFinished = true;
    }));
    started.Wait();  // the only worker is now busy, so what follows stays queued

    auto token = std::make_shared<int>(0);
    std::atomic<int> queuedRuns{0};
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(executor.Post([token, &queuedRuns] { ++queuedRuns; }));
    }
    EXPECT_EQ(token.use_count(), 11);

    executor.Stop();
    EXPECT_FALSE(executor.Post([token, &queuedRuns] { ++queuedRuns; }));
    release.Open();
    executor.Wait();
    EXPECT_TRUE(runningFinished);
    EXPECT_EQ(queuedRuns, 0);
    // Dropped tasks are destroyed with the join, not when the executor object goes: what
    // they hold (requests, providers) must not outlive a host's shut-down.
    EXPECT_EQ(token.use_count(), 1);
    executor.Stop();  // stopping and waiting again changes nothing
    executor.Wait();
}

TEST(Executor, WaitWithoutStopRunsEverythingQueuedAndThenRefusesWork) {
    Executor executor("Tests.Drain", 2);
    std::atomic<int> runs{0};
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(executor.Post([&] {
            // Work queued by a running task still belongs to the drain.
            if (runs.fetch_add(1) == 0)
                executor.Post([&] { ++runs; });
        }));
    }
    executor.Wait();
    EXPECT_EQ(runs, 101);
    auto token = std::make_shared<int>(0);
    EXPECT_FALSE(executor.Post([token] {})) << "a joined executor runs nothing more";
    EXPECT_EQ(token.use_count(), 1);
}

}  // namespace
}  // namespace Tessel

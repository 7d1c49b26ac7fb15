// Change notification on real folders. Deliveries come from the notification thread: the
// tests wait with generous limits and never assert how long it took.
#include <tessel/platform/ChangeNotification.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/FileKinds.h"
#include "support/TempDir.h"

#if defined(_WIN32)
#include <windows.h>
#endif

namespace {

namespace fs = std::filesystem;
using Tessel::Platform::ChangeKind;
using Tessel::Platform::ChangeWatchId;
using Tessel::Platform::DirectoryChange;
using Tessel::Test::TempDir;
namespace P = Tessel::Platform;

constexpr auto kPatience = std::chrono::seconds(20);
using Seen = std::set<std::pair<ChangeKind, P::NativeString>>;

P::NativeString N(const fs::path& name) {
    return name.native();
}

// Gathers what one watch reports.
class Recorder {
public:
    P::DirectoryChangeCallback Callback() {
        return
            [this](const P::NativeString& directory, const std::vector<DirectoryChange>& changes) {
                std::lock_guard lock(mMutex);
                directories.insert(directory);
                Seen call;
                for (const DirectoryChange& change : changes) {
                    // A rename as "OLD>NEW".
                    const P::NativeString name =
                        change.previousName.empty()
                            ? change.name
                            : change.previousName + P::NativeString(1, '>') + change.name;
                    repeated |= !call.emplace(change.kind, name).second;
                    mSeen.emplace(change.kind, name);
                }
                mChanged.notify_all();
            };
    }
    bool WaitFor(const Seen& wanted) {
        std::unique_lock lock(mMutex);
        return mChanged.wait_for(lock, kPatience, [&] {
            return std::includes(mSeen.begin(), mSeen.end(), wanted.begin(), wanted.end());
        });
    }
    bool SawName(const P::NativeString& name) {
        std::lock_guard lock(mMutex);
        return std::any_of(mSeen.begin(), mSeen.end(),
                           [&](const auto& c) { return c.second == name; });
    }
    // Read once the watch has stopped (written under the lock by the callback).
    bool repeated = false;
    std::set<P::NativeString> directories;

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    Seen mSeen;
};

void Write(const fs::path& path, const std::string& content = "x") {
    std::ofstream(path, std::ios::binary) << content;
}

bool WaitUntil(const std::atomic<int>& calls, int above = 0) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (calls.load() <= above && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return calls.load() > above;
}

TEST(ChangeNotification, EntryChangesReachEveryWatchOfTheFolderUntilItStops) {
    TempDir dir;
    dir.MakeDir("sub");
    Recorder first, second;
    const ChangeWatchId a = P::WatchDirectory(dir.path().native(), first.Callback());
    // The same folder spelled otherwise may share the system's watch but not the callback.
    const P::NativeString otherSpelling = (dir.path() / ".").native();
    const ChangeWatchId b = P::WatchDirectory(otherSpelling, second.Callback());
    ASSERT_TRUE(a != 0 && b != 0 && a != b);
    {
        std::ofstream out(dir.path() / "clip.mov", std::ios::binary);
        for (int i = 0; i < 200; ++i)
            out << std::string(1000, 'x') << std::flush;  // a burst of modifications
    }
    fs::rename(dir.path() / "clip.mov", dir.path() / "renamed.mov");
    Write(dir.path() / "sub" / "deep.txt");  // one level only
#if defined(_WIN32)
    const fs::path odd = u"caf\u00e9 \U0001F3AC";  // reported in UTF-16, the pair kept whole
#else
    const fs::path odd = "bad\xff";  // reported as its bytes
#endif
    Write(dir.path() / odd);
    fs::remove(dir.path() / "renamed.mov");
    const Seen wanted = {{ChangeKind::Added, N("clip.mov")},
                         {ChangeKind::Modified, N("clip.mov")},
                         {ChangeKind::Removed, N("renamed.mov")},
                         {ChangeKind::Added, N(odd)}};
    ASSERT_TRUE(first.WaitFor(wanted));
    ASSERT_TRUE(second.WaitFor(wanted));
    // The rename's two halves, as one change (or, when the system's report of them was
    // split between two reads, as a removal and an addition).
    for (Recorder* recorder : {&first, &second}) {
        EXPECT_TRUE(recorder->WaitFor({{ChangeKind::Renamed, N("clip.mov>renamed.mov")}}) ||
                    recorder->WaitFor({{ChangeKind::Removed, N("clip.mov")},
                                       {ChangeKind::Added, N("renamed.mov")}}));
    }
    EXPECT_FALSE(first.SawName(N("deep.txt")));
    P::StopWatching(a);
    EXPECT_FALSE(first.repeated) << "a burst reports each change once";
    Write(dir.path() / "after.txt");
    ASSERT_TRUE(second.WaitFor({{ChangeKind::Added, N("after.txt")}}));
    EXPECT_FALSE(first.SawName(N("after.txt"))) << "reported after its stop";
    P::StopWatching(b);
    EXPECT_EQ(second.directories, (std::set<P::NativeString>{otherSpelling}));
    P::StopWatching(b);  // twice, and unknown ids, change nothing
    P::StopWatching(0);
    EXPECT_FALSE(P::IsChangeNotificationRunning()) << "the last stop joins the thread";
}

TEST(ChangeNotification, WhatIsNoFolderIsRefusedUnopenedAndMountWatchesShareTheThread) {
    TempDir dir;
    const fs::path file = dir.WriteFile("file.txt", "x");
    Recorder recorder;
    for (const fs::path& path : {file, dir.path() / "missing", fs::path()})
        EXPECT_EQ(P::WatchDirectory(path.native(), recorder.Callback()), 0u) << path;
#if !defined(_WIN32)
    ASSERT_TRUE(Tessel::Test::MakeFifo(dir.path() / "fifo"));
    Tessel::Test::FifoReaderWatch fifoWatch(dir.path() / "fifo");
    EXPECT_EQ(P::WatchDirectory((dir.path() / "fifo").native(), recorder.Callback()), 0u);
    EXPECT_FALSE(fifoWatch.Stop()) << "the FIFO was opened";
#endif
    EXPECT_EQ(P::WatchDirectory(dir.path().native(), {}), 0u);
    EXPECT_FALSE(P::IsChangeNotificationRunning()) << "failed watches leave no thread behind";
    const ChangeWatchId mounts = P::WatchMountTable([] {});
    ASSERT_NE(mounts, 0u);
    const ChangeWatchId folder = P::WatchDirectory(dir.path().native(), recorder.Callback());
    P::StopWatching(mounts);
    Write(dir.path() / "x");
    EXPECT_TRUE(recorder.WaitFor({{ChangeKind::Added, N("x")}})) << "the folder is still watched";
    P::StopWatching(folder);
    EXPECT_FALSE(P::IsChangeNotificationRunning());
    EXPECT_EQ(P::WatchMountTable({}), 0u);
}

#if defined(_WIN32)
TEST(ChangeNotification, ADriveLetterComingAndGoingIsAMountTableChange) {
    wchar_t drive[] = L"M:";
    for (const DWORD used = GetLogicalDrives(); drive[0] < L'Z' && (used >> (drive[0] - L'A')) & 1;)
        ++drive[0];
    std::atomic<int> calls{0};
    const ChangeWatchId id = P::WatchMountTable([&] { ++calls; });
    ASSERT_NE(id, 0u);
    ASSERT_TRUE(DefineDosDeviceW(0, drive, L"C:\\windows"));  // as subst makes one
    ASSERT_TRUE(WaitUntil(calls));
    const int afterAdding = calls.load();
    DefineDosDeviceW(DDD_REMOVE_DEFINITION | DDD_EXACT_MATCH_ON_REMOVE, drive, L"C:\\windows");
    EXPECT_TRUE(WaitUntil(calls, afterAdding)) << "the letter going away";
    P::StopWatching(id);
    EXPECT_FALSE(P::IsChangeNotificationRunning());
}
#endif

TEST(ChangeNotification, NoCallbackOnceStopReturnsAndCallbacksMayOnlyStop) {
    TempDir dir;
    std::atomic<bool> writing{true};
    std::thread writer([&] {
        for (int i = 0; writing.load(); ++i)
            Write(dir.path() / ("f" + std::to_string(i % 50)));
    });
    for (int round = 0; round < 5; ++round) {
        std::atomic<bool> stopped{false}, calledAfterStop{false}, startRefused{true};
        std::atomic<int> calls{0};
        const ChangeWatchId id = P::WatchDirectory(
            dir.path().native(), [&](const P::NativeString& directory, const auto&) {
                calledAfterStop = calledAfterStop || stopped.load();
                startRefused =
                    startRefused && P::WatchDirectory(directory, [](auto&, auto&) {}) == 0;
                std::this_thread::sleep_for(std::chrono::milliseconds(5));  // stop mid-call
                ++calls;
            });
        ASSERT_NE(id, 0u);
        ASSERT_TRUE(WaitUntil(calls));
        P::StopWatching(id);
        stopped = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        EXPECT_FALSE(calledAfterStop.load()) << "round " << round;
        EXPECT_TRUE(startRefused.load());
    }
    // A callback that stops its own watch: the thread idles until the next stop from here.
    std::atomic<ChangeWatchId> self{0};
    std::atomic<int> calls{0};
    self = P::WatchDirectory(dir.path().native(), [&](const auto&, const auto&) {
        if (self.load() == 0)
            return;  // called before its id was known here
        P::StopWatching(self.load());
        ++calls;
    });
    EXPECT_TRUE(WaitUntil(calls));
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    writing = false;
    writer.join();
    EXPECT_EQ(calls.load(), 1);
    P::StopWatching(self.load());
    EXPECT_FALSE(P::IsChangeNotificationRunning());
}

}  // namespace

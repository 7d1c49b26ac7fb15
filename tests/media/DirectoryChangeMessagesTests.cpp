// Directory watches are counted per path; a watched folder's changes reach the main thread
// as messages for as long as someone watches it, and not a moment longer.
#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Messaging.h>
#include <tessel/foundation/Path.h>
#include <tessel/media/DirectoryChangeMonitor.h>
#include <tessel/platform/ChangeNotification.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "support/TempDir.h"

namespace Tessel::MF {
namespace {

namespace fs = std::filesystem;
using Tessel::Test::TempDir;

constexpr std::chrono::milliseconds kPatience{20000};
using DCM = DirectoryChangeMonitor;

void Write(const fs::path& path, const std::string& content = "x") {
    std::ofstream(path, std::ios::binary) << content;
}

class DirectoryChangeMessages : public ::testing::Test {
protected:
    void SetUp() override {
        MainThread::SetCurrent();
        DCM::StopAll();
        mListener = ScopedListener(Messaging::Listen<DirectoryChangedMessage>(
            DCM::sChangeStation, [this](const DirectoryChangedMessage& message) {
                EXPECT_TRUE(MainThread::IsCurrent());
                mMessages.push_back(message);
            }));
    }
    void TearDown() override {
        DCM::StopAll();
        EXPECT_FALSE(Platform::IsChangeNotificationRunning()) << "StopAll ends the thread";
        MainThread::RunPending();
    }
    // Pumps until a message about DIRECTORY names ENTRY (none: says the directory is gone).
    bool WaitForMessage(const std::u16string& directory, const std::u16string& entry) {
        return MainThread::RunUntil(
            [&] {
                return std::any_of(mMessages.begin(), mMessages.end(), [&](const auto& message) {
                    const auto& names = message.entries;
                    return message.directory == directory &&
                           (entry.empty()
                                ? message.directoryGone
                                : std::find(names.begin(), names.end(), entry) != names.end());
                });
            },
            kPatience);
    }
    TempDir mDir;
    std::vector<DirectoryChangedMessage> mMessages;
    ScopedListener mListener;
};

TEST_F(DirectoryChangeMessages, NamesInTheHostsFormAndAFolderGoneIsWatchedAgainOnRequest) {
    const fs::path sub = mDir.MakeDir("card");
    const std::u16string folder = sub.u16string();
    DCM::MonitorDirectory(folder, 0, 0);
    // A name that is not ASCII arrives in the host's form (POSIX: of its bytes, not UTF-8).
#if defined(_WIN32)
    const fs::path odd = u"caf\u00e9 \U0001F3AC.mov";
#else
    const fs::path odd = "bad\xff.mov";
#endif
    Write(sub / odd);
    ASSERT_TRUE(WaitForMessage(folder, Path::FromNative(odd.native())));
    EXPECT_FALSE(mMessages.front().directoryGone);
    // Moved away as a whole (Wine would delete it only once the watch lets go).
    fs::rename(sub, mDir.path() / "elsewhere");
    ASSERT_TRUE(WaitForMessage(folder, u""));
    EXPECT_TRUE(DCM::IsMonitoring(folder)) << "the asker has not stopped";
    fs::create_directory(sub);  // the card comes back and is asked for again
    DCM::MonitorDirectory(folder, 0, 0);
    mMessages.clear();
    Write(sub / "CONTENTS");
    ASSERT_TRUE(WaitForMessage(folder, u"CONTENTS"));
}

TEST_F(DirectoryChangeMessages, NothingArrivesAfterAStopWhileChangesPourIn) {
    const std::u16string folder = mDir.u16();
    std::atomic<bool> writing{true};
    std::thread writer([&] {
        for (int i = 0; writing.load(); ++i)
            Write(mDir.path() / ("f" + std::to_string(i % 100)));
    });
    for (int round = 0; round < 5; ++round) {
        mMessages.clear();
        DCM::MonitorDirectory(folder, 0, 0);
        ASSERT_TRUE(MainThread::RunUntil([&] { return !mMessages.empty(); }, kPatience));
        // Messages already posted are on the queue now; none of them may be delivered.
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        DCM::StopMonitoringDirectory(folder, 0);
        const std::size_t delivered = mMessages.size();
        MainThread::RunUntil([] { return false; }, std::chrono::milliseconds(200));
        EXPECT_EQ(mMessages.size(), delivered) << "round " << round;
    }
    writing = false;
    writer.join();
}

TEST_F(DirectoryChangeMessages, WatchesAreCountedPerPathAndStopAllEndsEverything) {
    const std::u16string a = mDir.MakeDir("a").u16string();
    const std::u16string b = mDir.MakeDir("b").u16string();
    DCM::MonitorDirectory(a, 0, 0);
    DCM::MonitorDirectory(a, 0, 0);
    DCM::MonitorDirectory(b, 0, 0);
    DCM::MonitorDirectory(u"", 0, 0);  // no path, no watch
    // Balanced requests from many threads leave the counts as they were.
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                DCM::MonitorDirectory(b, 0, 0);
                EXPECT_TRUE(DCM::IsMonitoring(b));
                DCM::StopMonitoringDirectory(b, 0);
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(DCM::GetMonitoredDirectories(), (std::vector<std::u16string>{a, b}));
    DCM::StopMonitoringDirectory(a, 0);
    EXPECT_TRUE(DCM::IsMonitoring(a)) << "one asker is still watching";
    DCM::StopMonitoringDirectory(a, 0);
    EXPECT_FALSE(DCM::IsMonitoring(a));
    // A stop too many is not owed by the next request, and unknown paths change nothing.
    DCM::StopMonitoringDirectory(a, 0);
    DCM::StopMonitoringDirectory(mDir.u16() + u"/never", 0);
    DCM::MonitorDirectory(a, 0, 0);
    DCM::StopMonitoringDirectory(a, 0);
    EXPECT_FALSE(DCM::IsMonitoring(a));
    EXPECT_FALSE(DCM::IsMonitoring(b + u"/")) << "paths are compared as given";
    // The list is sorted whatever the order of requests.
    const std::u16string base = (mDir.path() / "").u16string();  // with its separator
    for (const char* name : {"zeta", "Alpha", "alpha"})
        DCM::MonitorDirectory(mDir.MakeDir(name).u16string(), 0, 0);
    EXPECT_EQ(DCM::GetMonitoredDirectories(),
              (std::vector<std::u16string>{base + u"Alpha", base + u"alpha", b, base + u"zeta"}));
    DCM::MonitorVolumeChanges();
    DCM::MonitorVolumeChanges();
    DCM::StopMonitoringVolumeChanges();
    EXPECT_TRUE(DCM::IsMonitoringVolumeChanges());
    DCM::StopMonitoringVolumeChanges();
    DCM::StopMonitoringVolumeChanges();  // one too many changes nothing
    EXPECT_FALSE(DCM::IsMonitoringVolumeChanges());
    DCM::MonitorVolumeChanges();
    DCM::StopAll();  // TearDown checks the thread has ended
    EXPECT_FALSE(DCM::IsMonitoringVolumeChanges());
    EXPECT_TRUE(DCM::GetMonitoredDirectories().empty());
}

}  // namespace
}  // namespace Tessel::MF

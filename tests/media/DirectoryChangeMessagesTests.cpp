// A watched folder's changes reach the host as messages on its main thread, for as long as
// someone watches it, and not a moment longer.
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
#include <string>
#include <thread>
#include <vector>

#include "support/TempDir.h"

#if defined(__linux__)

namespace Tessel::MF {
namespace {

namespace fs = std::filesystem;
using Tessel::Test::TempDir;

constexpr auto kPatience = std::chrono::seconds(20);

void Write(const fs::path& path, const std::string& content = "x") {
    std::ofstream(path, std::ios::binary) << content;
}

class DirectoryChangeMessages : public ::testing::Test {
protected:
    void SetUp() override {
        MainThread::SetCurrent();
        DirectoryChangeMonitor::StopAll();
        mListener = ScopedListener(Messaging::Listen<DirectoryChangedMessage>(
            DirectoryChangeMonitor::sChangeStation, [this](const DirectoryChangedMessage& message) {
                EXPECT_TRUE(MainThread::IsCurrent());
                mMessages.push_back(message);
            }));
    }
    void TearDown() override {
        DirectoryChangeMonitor::StopAll();
        EXPECT_FALSE(Platform::IsChangeNotificationRunning()) << "StopAll ends the thread";
        MainThread::RunPending();
    }

    // Pumps the main thread until a message about DIRECTORY names ENTRY (or, with an empty
    // ENTRY, says the directory is gone).
    bool WaitForMessage(const std::u16string& directory, const std::u16string& entry) {
        return MainThread::RunUntil(
            [&] {
                return std::any_of(mMessages.begin(), mMessages.end(), [&](const auto& message) {
                    if (message.directory != directory)
                        return false;
                    if (entry.empty())
                        return message.directoryGone;
                    const auto& names = message.entries;
                    return std::find(names.begin(), names.end(), entry) != names.end();
                });
            },
            std::chrono::duration_cast<std::chrono::milliseconds>(kPatience));
    }

    TempDir mDir;
    std::vector<DirectoryChangedMessage> mMessages;
    ScopedListener mListener;
};

TEST_F(DirectoryChangeMessages, ChangesArriveOnTheMainThreadUntilTheLastAskerStops) {
    const std::u16string folder = mDir.u16();
    DirectoryChangeMonitor::MonitorDirectory(folder, 0, 0);
    DirectoryChangeMonitor::MonitorDirectory(folder, 0, 0);
    DirectoryChangeMonitor::StopMonitoringDirectory(folder, 0);

    // One asker is still watching. A name that is not UTF-8 arrives in the host's form of
    // its bytes.
    Write(mDir.path() / "clip.mxf");
    Write(mDir.path() / "bad\xff.mov");
    ASSERT_TRUE(WaitForMessage(folder, u"clip.mxf"));
    ASSERT_TRUE(WaitForMessage(folder, Path::FromNative("bad\xff.mov")));
    fs::remove(mDir.path() / "clip.mxf");
    mMessages.clear();
    ASSERT_TRUE(WaitForMessage(folder, u"clip.mxf"));
    EXPECT_FALSE(mMessages.front().directoryGone);

    DirectoryChangeMonitor::StopMonitoringDirectory(folder, 0);
    EXPECT_FALSE(Platform::IsChangeNotificationRunning());
    mMessages.clear();
    Write(mDir.path() / "unwatched.txt");
    MainThread::RunUntil([] { return false; }, std::chrono::milliseconds(400));
    EXPECT_TRUE(mMessages.empty());
}

TEST_F(DirectoryChangeMessages, AFolderThatGoesAwayIsWatchedAgainWhenAskedAgain) {
    const fs::path sub = mDir.MakeDir("card");
    const std::u16string folder = sub.u16string();
    DirectoryChangeMonitor::MonitorDirectory(folder, 0, 0);
    fs::remove_all(sub);
    ASSERT_TRUE(WaitForMessage(folder, u""));
    EXPECT_TRUE(DirectoryChangeMonitor::IsMonitoring(folder)) << "the asker has not stopped";

    // The card comes back and the provider looks at it again.
    fs::create_directory(sub);
    DirectoryChangeMonitor::MonitorDirectory(folder, 0, 0);
    mMessages.clear();
    Write(sub / "CONTENTS");
    ASSERT_TRUE(WaitForMessage(folder, u"CONTENTS"));
    DirectoryChangeMonitor::StopMonitoringDirectory(folder, 0);
    EXPECT_TRUE(DirectoryChangeMonitor::IsMonitoring(folder));
    DirectoryChangeMonitor::StopMonitoringDirectory(folder, 0);
    EXPECT_FALSE(DirectoryChangeMonitor::IsMonitoring(folder));
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
        DirectoryChangeMonitor::MonitorDirectory(folder, 0, 0);
        ASSERT_TRUE(
            MainThread::RunUntil([&] { return !mMessages.empty(); },
                                 std::chrono::duration_cast<std::chrono::milliseconds>(kPatience)));
        // Messages already posted are on the queue now; none of them may be delivered.
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        DirectoryChangeMonitor::StopMonitoringDirectory(folder, 0);
        const std::size_t delivered = mMessages.size();
        MainThread::RunUntil([] { return false; }, std::chrono::milliseconds(200));
        EXPECT_EQ(mMessages.size(), delivered) << "round " << round;
    }
    writing = false;
    writer.join();
}

TEST_F(DirectoryChangeMessages, VolumeMonitoringIsCountedAndStopAllEndsEverything) {
    EXPECT_FALSE(DirectoryChangeMonitor::IsMonitoringVolumeChanges());
    DirectoryChangeMonitor::MonitorVolumeChanges();
    DirectoryChangeMonitor::MonitorVolumeChanges();
    EXPECT_TRUE(Messaging::IsStationRegistered(DirectoryChangeMonitor::sChangeStation));
    EXPECT_TRUE(Platform::IsChangeNotificationRunning());
    DirectoryChangeMonitor::StopMonitoringVolumeChanges();
    EXPECT_TRUE(DirectoryChangeMonitor::IsMonitoringVolumeChanges());
    DirectoryChangeMonitor::StopMonitoringVolumeChanges();
    EXPECT_FALSE(Platform::IsChangeNotificationRunning());
    DirectoryChangeMonitor::StopMonitoringVolumeChanges();  // one too many changes nothing
    DirectoryChangeMonitor::MonitorVolumeChanges();
    DirectoryChangeMonitor::MonitorDirectory(mDir.u16(), 0, 0);
    DirectoryChangeMonitor::StopAll();
    EXPECT_FALSE(DirectoryChangeMonitor::IsMonitoringVolumeChanges());
    EXPECT_FALSE(DirectoryChangeMonitor::IsMonitoring(mDir.u16()));
    EXPECT_FALSE(Platform::IsChangeNotificationRunning());
}

}  // namespace
}  // namespace Tessel::MF

#endif  // __linux__

// Directory watches are counted per path: a folder asked for twice stays watched until both
// askers have stopped.
#include <tessel/media/DirectoryChangeMonitor.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/TempDir.h"

namespace Tessel::MF {
namespace {

using Tessel::Test::TempDir;

class DirectoryChangeMonitorTest : public ::testing::Test {
protected:
    void SetUp() override { DirectoryChangeMonitor::StopAll(); }
    void TearDown() override { DirectoryChangeMonitor::StopAll(); }

    TempDir dir;
};

TEST_F(DirectoryChangeMonitorTest, CountsRequestsPerPathAndListsThemSorted) {
    const std::u16string a = dir.u16() + u"/a";
    const std::u16string b = dir.u16() + u"/b";
    dir.MakeDir("a");
    dir.MakeDir("b");

    DirectoryChangeMonitor::MonitorDirectory(a, 0, 0);
    DirectoryChangeMonitor::MonitorDirectory(a, 0, 0);
    DirectoryChangeMonitor::MonitorDirectory(b, 0, 0);
    EXPECT_EQ(DirectoryChangeMonitor::GetMonitoredDirectories(),
              (std::vector<std::u16string>{a, b}));

    DirectoryChangeMonitor::StopMonitoringDirectory(a, 0);
    EXPECT_TRUE(DirectoryChangeMonitor::IsMonitoring(a)) << "one asker is still watching";
    DirectoryChangeMonitor::StopMonitoringDirectory(a, 0);
    EXPECT_FALSE(DirectoryChangeMonitor::IsMonitoring(a));
    EXPECT_TRUE(DirectoryChangeMonitor::IsMonitoring(b));

    // A stop too many is not owed by the next request, and unknown paths change nothing.
    DirectoryChangeMonitor::StopMonitoringDirectory(a, 0);
    DirectoryChangeMonitor::StopMonitoringDirectory(dir.u16() + u"/never", 0);
    DirectoryChangeMonitor::MonitorDirectory(a, 0, 0);
    EXPECT_TRUE(DirectoryChangeMonitor::IsMonitoring(a));
    DirectoryChangeMonitor::StopMonitoringDirectory(a, 0);
    EXPECT_FALSE(DirectoryChangeMonitor::IsMonitoring(a));

    // Paths are compared as given: a trailing separator names another watch.
    EXPECT_FALSE(DirectoryChangeMonitor::IsMonitoring(b + u"/"));

    DirectoryChangeMonitor::MonitorDirectory(u"", 0, 0);  // no path, no watch
    EXPECT_EQ(DirectoryChangeMonitor::GetMonitoredDirectories(), (std::vector<std::u16string>{b}));

    DirectoryChangeMonitor::MonitorDirectory(a, 0, 0);
    DirectoryChangeMonitor::MonitorDirectory(b, 0, 0);
    DirectoryChangeMonitor::StopAll();
    EXPECT_TRUE(DirectoryChangeMonitor::GetMonitoredDirectories().empty());
    EXPECT_FALSE(DirectoryChangeMonitor::IsMonitoring(b));

    // The list is sorted whatever the order of requests.
    const std::u16string base = (dir.path() / "").u16string();  // with its separator
    for (const char* name : {"zeta", "Alpha", "beta", "alpha"})
        DirectoryChangeMonitor::MonitorDirectory(dir.MakeDir(name).u16string(), 0, 0);
    EXPECT_EQ(DirectoryChangeMonitor::GetMonitoredDirectories(),
              (std::vector<std::u16string>{base + u"Alpha", base + u"alpha", base + u"beta",
                                           base + u"zeta"}));
}

TEST_F(DirectoryChangeMonitorTest, BalancedRequestsFromManyThreadsLeaveNoWatch) {
    const std::u16string shared = dir.MakeDir("shared").u16string();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                DirectoryChangeMonitor::MonitorDirectory(shared, 0, 0);
                EXPECT_TRUE(DirectoryChangeMonitor::IsMonitoring(shared));
                DirectoryChangeMonitor::StopMonitoringDirectory(shared, 0);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_FALSE(DirectoryChangeMonitor::IsMonitoring(shared));
    EXPECT_TRUE(DirectoryChangeMonitor::GetMonitoredDirectories().empty());
}

}  // namespace
}  // namespace Tessel::MF

// The tool's file-system commands, run in process: the volume, network and cloud lists,
// the favorites, and watching a folder.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include <tessel/foundation/Preferences.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/media/DirectoryChangeMonitor.h>
#include <tessel/providers/filesystem/ProviderCloudSync.h>
#include <tessel/providers/filesystem/ProviderFavorites.h>
#include <tessel/providers/filesystem/WinProviderNetworkVolume.h>
#include <tessel/providers/filesystem/WinProviderVolume.h>
#include <tessel/providers/filesystem/WinVolumeUtils.h>

#include "Interrupt.h"
#include "Tool.h"
#include "support/TempDir.h"
#include "support/TestProvider.h"

namespace Tessel {
namespace {

namespace fs = std::filesystem;

struct Result {
    int status;
    std::string out;
    std::string err;
};

Result RunTool(std::vector<std::string> args) {
    std::ostringstream out, err;
    const int status = Tool::Run(args, out, err);
    return {status, out.str(), err.str()};
}

// Registers the file-system list providers the host does not have yet.
void RegisterListProviders() {
    const auto add = [](const char* className, auto make) {
        if (!ProviderHost::FindProvider(Utf8ToUtf16(std::string(kProviderIDPrefix) + className)))
            Tessel::Test::Register(make());
    };
    add("WinProviderVolume", [] { return std::make_shared<WinProviderVolume>(); });
    add("WinProviderNetworkVolume", [] { return std::make_shared<WinProviderNetworkVolume>(); });
    add("ProviderFavorites", [] { return std::make_shared<ProviderFavorites>(); });
    add("ProviderCloudSync", [] { return std::make_shared<ProviderCloudSync>(); });
}

// Preferences in a temporary folder, read before the host starts; forgotten at the end.
struct PrefsFile {
    explicit PrefsFile(const fs::path& file) : path(file.string()) {
        Preferences::UseFile(path);
        EXPECT_TRUE(Preferences::Load().IsOk());
    }
    ~PrefsFile() { Preferences::UseFile({}); }
    const std::string path;
};

// A folder as the tool shows it: on Windows in the long-path form the library takes.
std::string Location(std::string path) {
#if defined(_WIN32)
    std::replace(path.begin(), path.end(), '/', '\\');
    return "\\\\?\\" + path;
#else
    return path;
#endif
}

const char* const kCloudServices[] = {"Dropbox",      "Dropbox (Business)", "Google Drive",
                                      "iCloud Drive", "One Drive",          "One Drive (Business)",
                                      "Framecast"};

TEST(FileSystemCommands, FavoritesAreListedAddedAndRemoved) {
    Tessel::Test::TempDir dir;
    const std::string a = dir.MakeDir("A").string();
    const std::string b = dir.MakeDir("B").string();
    PrefsFile prefs(dir.path() / "prefs.json");
    Tessel::Test::HostFixture host;
    RegisterListProviders();

    Result empty = RunTool({"--prefs", prefs.path, "favorites"});
    EXPECT_EQ(empty.status, 0);
    EXPECT_EQ(empty.err, "tessel: there are no favorites\n");

    // Spellings of one folder are one favorite.
    Result added = RunTool({"--prefs", prefs.path, "favorites", "add", b, a + "/", b + "/../A/."});
    ASSERT_EQ(added.status, 0) << added.err;
    EXPECT_EQ(added.out, Location(a) + "\n" + Location(b) + "\n");

    Result refused = RunTool({"favorites", "add", dir.str(), dir.str() + "/missing"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "tessel: " + Location(dir.str() + "/missing") +
                               ": not a folder; no favorites were added\n");

    Result removed = RunTool({"favorites", "remove", a + "/./", dir.str() + "/never"});
    EXPECT_EQ(removed.status, 0);
    EXPECT_EQ(removed.out, Location(b) + "\n");
    EXPECT_EQ(removed.err,
              "tessel: warning: " + Location(dir.str() + "/never") + " is not a favorite\n");

    std::ifstream in(prefs.path);
    EXPECT_EQ(nlohmann::json::parse(in).at(kFavoritesPreference),
              nlohmann::json({{"SerializerWrappedObject", {Location(b)}}}).dump());
    for (const std::vector<std::string>& usage : {std::vector<std::string>{"favorites", "add"},
                                                  {"favorites", "list", a},
                                                  {"favorites", "forget", a}})
        EXPECT_EQ(RunTool(usage).status, 2) << usage[1];
}

TEST(FileSystemCommands, AMalformedFavoritesValueIsKeptAsideWhenTheListChanges) {
    Tessel::Test::TempDir dir;
    const fs::path file = dir.path() / "prefs.json";
    const std::string original = R"({"be.prefs.mediabrowser.favorites": "[\"/a\""})";
    std::ofstream(file) << original;
    PrefsFile prefs(file);
    Tessel::Test::HostFixture host;
    RegisterListProviders();

    Result listed = RunTool({"--prefs", prefs.path, "favorites", "--json"});
    ASSERT_EQ(listed.status, 0) << listed.err;
    const nlohmann::json doc = nlohmann::json::parse(listed.out);
    EXPECT_TRUE(doc.at("favorites").empty());
    const std::string key = doc.at("problem").at("setAsidePreference");
    EXPECT_NE(listed.err.find("stay as they are until the list is changed, and are then kept in "
                              "the preference " +
                              key),
              std::string::npos)
        << listed.err;
    std::ifstream before(prefs.path);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(before), {}), original);

    Result added = RunTool({"favorites", "add", dir.str()});
    EXPECT_EQ(added.status, 0) << added.err;
    EXPECT_NE(added.err.find("were kept in the preference " + key + " of " + prefs.path),
              std::string::npos)
        << added.err;
    std::ifstream after(prefs.path);
    EXPECT_EQ(nlohmann::json::parse(after).at(key), "[\"/a\"");
}

TEST(FileSystemCommands, ListsGoThroughTheirProviders) {
    Tessel::Test::TempDir dir;
    Tessel::Test::HostFixture host;
    RegisterListProviders();

    for (const char* service : kCloudServices)
        Settings::Set(std::string("Tessel.CloudSync.") + service, dir.str() + "/none");
    Settings::Set("Tessel.CloudSync.One Drive", dir.MakeDir("OD").string());
    Settings::Set("Tessel.CloudSync.Dropbox", dir.MakeDir("DB").string());
    Result cloud = RunTool({"cloud", "--json"});
    ASSERT_EQ(cloud.status, 0) << cloud.err;
    nlohmann::json doc = nlohmann::json::parse(cloud.out);
    EXPECT_EQ(doc.at("provider"), std::string(kProviderIDPrefix) + "ProviderCloudSync");
    ASSERT_EQ(doc.at("items").size(), 2u);
    EXPECT_EQ(doc["items"][0]["fields"]["Name"], "Dropbox");
    EXPECT_EQ(doc["items"][1]["fields"]["Path"], Location(dir.str() + "/OD"));
    for (const char* service : kCloudServices)
        Settings::Reset(std::string("Tessel.CloudSync.") + service);
    Result volumes = RunTool({"volumes", "--json"});
    ASSERT_EQ(volumes.status, 0) << volumes.err;
    doc = nlohmann::json::parse(volumes.out);
    SDKContentMap expected;
    WinVolumeUtils::GetDriveLetterContent(expected, {kSDKNameField}, {});
    ASSERT_EQ(doc.at("items").size(), expected.size());
    if (!expected.empty()) {
        EXPECT_EQ(doc["items"][0]["key"], expected.begin()->first);
        EXPECT_TRUE(doc["items"][0]["fields"].contains("ExtraPath")) << "programs get every column";
    }
    EXPECT_EQ(RunTool({"network-volumes", "--json"}).status, 0);
}

// Runs the tool's watch while ACT changes things once STARTED says the watch is on.
Result WatchWhile(const std::vector<std::string>& args, const std::function<bool()>& started,
                  const std::function<void()>& act) {
    std::atomic<bool> done{false};
    std::thread helper([&] {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!done && !started() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        if (!done)
            act();
        // Should the change never be seen, the test still ends.
        while (!done && std::chrono::steady_clock::now() < deadline + std::chrono::seconds(10))
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        if (!done)
            Tool::SetInterruptRequested(true);
    });
    Result result = RunTool(args);
    done = true;
    helper.join();
    Tool::SetInterruptRequested(false);
    return result;
}

TEST(FileSystemCommands, WatchPrintsOneLinePerChangeUntilStopped) {
    Tessel::Test::TempDir dir;
    Tessel::Test::HostFixture host;
    RegisterListProviders();

    const auto watching = [](const std::string& path) {
        return [path] {
            return MF::DirectoryChangeMonitor::IsMonitoring(Utf8ToUtf16(Location(path)));
        };
    };
    Result created = WatchWhile({"watch", dir.str(), "--count", "1"}, watching(dir.str()),
                                [&] { std::ofstream(dir.path() / "new.mov") << "x"; });
    EXPECT_EQ(created.status, 0) << created.err;
    EXPECT_EQ(created.out, Location(dir.str()) + ": new.mov\n");
    EXPECT_EQ(created.err, "tessel: watching " + Location(dir.str()) + "; press Ctrl-C to stop\n");
    EXPECT_FALSE(MF::DirectoryChangeMonitor::IsMonitoring(Utf8ToUtf16(Location(dir.str()))))
        << "stopped at the end";

    // Moved away as a whole (Wine would delete it only once the watch lets go).
    const std::string sub = dir.MakeDir("sub").string();
    Result gone = WatchWhile({"watch", sub}, watching(sub),
                             [&] { fs::rename(sub, dir.path() / "elsewhere"); });
    EXPECT_EQ(gone.status, 1);
    EXPECT_EQ(gone.out, Location(sub) + ": gone\n");

    // Ctrl-C is how a watch normally ends.
    Result stopped =
        WatchWhile({"watch", "volumes:"}, MF::DirectoryChangeMonitor::IsMonitoringVolumeChanges,
                   [] { Tool::SetInterruptRequested(true); });
    EXPECT_EQ(stopped.status, 0) << stopped.err;
    EXPECT_EQ(stopped.err, "tessel: watching volumes:; press Ctrl-C to stop\n");
    EXPECT_FALSE(MF::DirectoryChangeMonitor::IsMonitoringVolumeChanges());

    Result missing = RunTool({"watch", dir.str() + "/missing"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err,
              "tessel: " + Location(dir.str() + "/missing") + ": no such file or folder\n");
    Result list = RunTool({"watch", "favorites:"});
    EXPECT_EQ(list.status, 1);
    EXPECT_EQ(list.err, "tessel: favorites: cannot be watched\n");
}

}  // namespace
}  // namespace Tessel

// The tool's favorites command with a malformed stored list, run in process (the commands' other
// answers are checked by the golden outputs).
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include <tessel/foundation/Preferences.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/providers/filesystem/ProviderFavorites.h>

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

// Registers the favorites provider when the host does not have it yet.
void RegisterFavorites() {
    if (!ProviderHost::FindProvider(
            Utf8ToUtf16(std::string(kProviderIDPrefix) + "ProviderFavorites")))
        Tessel::Test::Register(std::make_shared<ProviderFavorites>());
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

TEST(FileSystemCommands, AMalformedFavoritesValueIsKeptAsideWhenTheListChanges) {
    Tessel::Test::TempDir dir;
    const fs::path file = dir.path() / "prefs.json";
    const std::string original = R"({"be.prefs.mediabrowser.favorites": "[\"/a\""})";
    std::ofstream(file) << original;
    PrefsFile prefs(file);
    Tessel::Test::HostFixture host;
    RegisterFavorites();

    Result listed = RunTool({"--prefs", prefs.path, "favorites", "--json"});
    ASSERT_EQ(listed.status, 0) << listed.err;
    const nlohmann::json doc = nlohmann::json::parse(listed.out);
    EXPECT_TRUE(doc.at("favorites").empty());
    const std::string key = doc.at("problem").at("setAsidePreference");
    EXPECT_NE(listed.err.find("stay as they are until the list is changed"), std::string::npos);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(std::ifstream(prefs.path).rdbuf()), {}),
              original);  // closed again at once: Windows replaces no open file

    Result added = RunTool({"favorites", "add", dir.str()});
    EXPECT_EQ(added.status, 0) << added.err;
    EXPECT_NE(added.err.find("were kept in the preference " + key + " of " + prefs.path),
              std::string::npos)
        << added.err;
    std::ifstream after(prefs.path);
    EXPECT_EQ(nlohmann::json::parse(after).at(key), "[\"/a\"");
}

}  // namespace
}  // namespace Tessel

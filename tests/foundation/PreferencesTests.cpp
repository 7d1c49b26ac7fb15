#include <tessel/foundation/Preferences.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/Environment.h"
#include "support/TempDir.h"

#if !defined(_WIN32)
#include "support/FileKinds.h"
#endif

namespace Tessel {
namespace {

namespace fs = std::filesystem;
using array_t = any_regular_t::array_t;

std::string ReadBytes(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::size_t EntriesIn(const fs::path& folder) {
    const fs::directory_iterator entries(folder);
    return static_cast<std::size_t>(std::distance(fs::begin(entries), fs::end(entries)));
}

struct NotSerialisable {
    friend bool operator==(const NotSerialisable&, const NotSerialisable&) { return true; }
};

class PreferencesTest : public ::testing::Test {
protected:
    void SetUp() override { Preferences::UseFile(mFile.string()); }
    void TearDown() override { Preferences::UseFile(""); }

    Status Reload() {
        Preferences::UseFile(mFile.string());
        return Preferences::Load();
    }

    Tessel::Test::TempDir mDir;
    fs::path mFile = mDir.path() / "prefs.json";
};

#define EXPECT_OK(expression) EXPECT_EQ((expression).Code(), StatusCode::kOk)

TEST_F(PreferencesTest, SavedValuesComeBackWithTheirTypes) {
    std::u16string undecodablePath = u"/media/card/clip";
    undecodablePath.push_back(char16_t(0xDCFF));  // a file name byte that is not UTF-8
    const std::map<std::string, any_regular_t> values = {
        {"favorites", array_t{std::u16string(u"/Volumes/\U0001F600 Card"), undecodablePath}},
        {"narrow", std::string("bytes \xFF\xFE")},
        {"count", 12},
        {"zoom", 2.0},
        {"window", any_regular_t::dictionary_t{{"x", 10}, {"title", u"Media"}}},
        {"lastOpened", DateTime{1'795'250'000'123'456}},
        {"", u"empty key"},
    };
    // A missing file is an empty store; saving makes the folders it needs.
    mFile = mDir.path() / "not" / "yet" / "prefs.json";
    Preferences::UseFile(mFile.string());
    EXPECT_OK(Preferences::Load());
    for (const auto& [key, value] : values)
        Preferences::SetValue(key, value);
    EXPECT_OK(Preferences::Save());

    // One JSON object, readable by any JSON tool, with no temporary files left behind.
    EXPECT_EQ(nlohmann::json::parse(ReadBytes(mFile))["count"], 12);
    EXPECT_EQ(EntriesIn(mFile.parent_path()), 1u);

    EXPECT_OK(Reload());
    EXPECT_EQ(Preferences::Keys().size(), values.size());
    for (const auto& [key, value] : values) {
        EXPECT_EQ(Preferences::GetValue(key).type(), value.type()) << key;
        EXPECT_TRUE(Preferences::GetValue(key) == value) << key;
    }

    // A value or key that cannot be written fails the save and leaves the file as it was.
    const std::string before = ReadBytes(mFile);
    Preferences::SetValue("odd", NotSerialisable{});
    EXPECT_EQ(Preferences::Save().Code(), StatusCode::kUnsupported);
    Preferences::RemoveValue("odd");
    Preferences::SetValue("key \xFF", 1);  // JSON cannot name it
    EXPECT_EQ(Preferences::Save().Code(), StatusCode::kInvalidArgument);
    EXPECT_EQ(ReadBytes(mFile), before);
    EXPECT_EQ(EntriesIn(mFile.parent_path()), 1u);
}

TEST_F(PreferencesTest, AnUnusableFileIsLeftAloneUntilASaveSetsItAside) {
    // Names the set-aside file may get in the next seconds, taken already: none may be replaced.
    std::map<std::string, std::string> kept;  // path -> bytes that must stay
    for (std::time_t now = std::time(nullptr), t = now; t <= now + 3; ++t) {
        char stamp[32];
        std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", std::localtime(&t));
        const std::string name = "prefs.json.unreadable-" + std::string(stamp);
        kept[mDir.WriteFile(name, name).string()] = name;
    }
    const std::string unusable[] = {
        "{\"favorites\": [\"/Volumes/Card",  // cut off mid-write by another program
        "[\"not\", \"an object\"]",         "", std::string("\xFF\xFE{\0}\0", 6),  // UTF-16 text
        std::string(100000, '['),
    };
    for (const std::string& bytes : unusable) {
        SCOPED_TRACE(bytes.substr(0, 30));
        mDir.WriteFile("prefs.json", bytes);
        // Programs that only read report it each time, start empty and change nothing.
        for (int run = 0; run < 2; ++run) {
            Preferences::SetValue("in memory", 1);
            const Status loaded = Reload();
            EXPECT_EQ(loaded.Code(), StatusCode::kMalformed);
            EXPECT_NE(loaded.Message().find(mFile.string()), std::string::npos);
            EXPECT_TRUE(Preferences::Keys().empty());
            EXPECT_EQ(ReadBytes(mFile), bytes);
        }
        // The first save moves it aside, then writes.
        Preferences::SetValue("after", true);
        EXPECT_OK(Preferences::Save());
        const std::string aside = Preferences::GetSetAsidePath();
        EXPECT_EQ(aside.rfind(mFile.string() + ".unreadable-", 0), 0u) << aside;
        EXPECT_EQ(ReadBytes(aside), bytes);
        EXPECT_TRUE(kept.emplace(aside, bytes).second) << "reused " << aside;
        EXPECT_OK(Reload());
        EXPECT_TRUE(Preferences::GetValue("after") == any_regular_t(true));
    }
    for (const auto& [path, bytes] : kept)
        EXPECT_EQ(ReadBytes(path), bytes) << path;

#if !defined(_WIN32)
    // A file that cannot be moved aside (name too long) is never overwritten: the save fails.
    mFile = mDir.WriteFile(std::string(240, 'p'), "{\"favorites\": [\"/Volumes/Ca");
    EXPECT_EQ(Reload().Code(), StatusCode::kMalformed);
    Preferences::SetValue("new", 1);
    const Status saved = Preferences::Save();
    EXPECT_NE(saved.Message().find("not overwritten"), std::string::npos) << saved.Message();
    EXPECT_EQ(ReadBytes(mFile), "{\"favorites\": [\"/Volumes/Ca");
#endif
}

TEST_F(PreferencesTest, WhatIsNoRegularFileIsNeverOpenedMovedOrReplaced) {
    const fs::path folder = mDir.MakeDir("folder.json");
    mDir.WriteFile("folder.json/inside.txt", "kept");
    using Case = std::pair<fs::path, StatusCode>;  // a path and what CheckFile says of it
    std::vector<Case> cases = {
        {mDir.WriteFile("file.json", "{}"), StatusCode::kOk},
        {mDir.path() / "new.json", StatusCode::kOk},
        {"bare-name.json", StatusCode::kOk},  // in the current folder
        {folder, StatusCode::kInvalidArgument},
        {mDir.path() / "missing" / "p.json", StatusCode::kNotFound},
        {mDir.path() / "file.json" / "p.json", StatusCode::kNotFound},
        {"", StatusCode::kInvalidArgument},
    };
#if !defined(_WIN32)
    ASSERT_TRUE(Tessel::Test::MakeFifo(mDir.path() / "fifo.json"));
    Tessel::Test::FifoReaderWatch watch(mDir.path() / "fifo.json");
    cases.push_back({mDir.path() / "fifo.json", StatusCode::kInvalidArgument});
    fs::create_symlink(mDir.path() / "nowhere", mDir.path() / "dangling.json");
    cases.push_back({mDir.path() / "dangling.json", StatusCode::kInvalidArgument});
#endif
    const std::size_t entries = EntriesIn(mDir.path());
    for (const auto& [path, check] : cases) {
        EXPECT_EQ(Preferences::CheckFile(path.string()).Code(), check) << path;
        if (check != StatusCode::kInvalidArgument || path.empty())
            continue;
        // Named anyway (TESSEL_PREFS): reported, and refused on save.
        Preferences::UseFile(path.string());
        EXPECT_EQ(Preferences::Load().Code(), StatusCode::kInvalidArgument) << path;
        Preferences::SetValue("new", 1);
        EXPECT_EQ(Preferences::Save().Code(), StatusCode::kInvalidArgument) << path;
    }
#if !defined(_WIN32)
    EXPECT_FALSE(watch.Stop()) << "the FIFO was opened";
#endif
    EXPECT_EQ(ReadBytes(folder / "inside.txt"), "kept");
    EXPECT_EQ(EntriesIn(mDir.path()), entries) << "nothing set aside or made";
}

TEST_F(PreferencesTest, SavingKeepsUnknownEntriesAndRemovesOldTemporaries) {
    mDir.WriteFile("prefs.json", R"({"k": 1, "later": {"$type": "test.unknown", "value": 7}})");
    const fs::path fresh = mDir.WriteFile("prefs.json.tmp-123-4-5", R"({"k": 2)");
    const fs::path old = mDir.WriteFile("prefs.json.tmp-678-9-0", R"({"k": 3})");
    const fs::path unrelated = mDir.WriteFile("other.json.tmp-1-2-3", "x");
    for (const fs::path& aged : {old, unrelated})
        fs::last_write_time(aged, fs::file_time_type::clock::now() - std::chrono::hours(3));

    EXPECT_OK(Preferences::Load());
    EXPECT_TRUE(Preferences::GetValue("k") == any_regular_t(1));
    EXPECT_EQ(Preferences::Keys(), (std::vector<std::string>{"k", "later"}));
    EXPECT_TRUE(fs::exists(old)) << "reading changes nothing";
    Preferences::SetValue("k", 6);
    EXPECT_OK(Preferences::Save());
    const nlohmann::json document = nlohmann::json::parse(ReadBytes(mFile));
    EXPECT_EQ(document["later"], nlohmann::json::parse(R"({"$type": "test.unknown", "value": 7})"));
    EXPECT_EQ(document["k"], 6);
    // A recent one may belong to a save still running in another process.
    EXPECT_TRUE(fs::exists(fresh));
    EXPECT_FALSE(fs::exists(old));
    EXPECT_TRUE(fs::exists(unrelated));
}

TEST_F(PreferencesTest, ConcurrentChangesWhileSaving) {
    std::thread writer([] {
        for (int i = 0; i <= 400; ++i) {
            Preferences::SetValue("writer", i);
            (void)Preferences::Keys();
        }
    });
    for (int i = 0; i < 10; ++i)
        EXPECT_OK(Preferences::Save());
    writer.join();
    EXPECT_OK(Preferences::Save());
    EXPECT_OK(Reload());
    EXPECT_TRUE(Preferences::GetValue("writer") == any_regular_t(400));
}

TEST_F(PreferencesTest, FileLocationFollowsTheEnvironment) {
    using Tessel::Test::SetEnvironment;
    std::map<std::string, std::string> saved;  // put back at the end
    for (const char* name : {"TESSEL_PREFS", "XDG_CONFIG_HOME", "HOME", "APPDATA"})
        saved[name] = std::getenv(name) ? std::getenv(name) : "";
    Preferences::UseFile("");
#if defined(_WIN32)
    SetEnvironment("APPDATA", mDir.str());
    const fs::path made = mDir.path() / "Tessel" / "preferences.json";
#else
    SetEnvironment("TESSEL_PREFS", "/explicit/p.json");
    EXPECT_EQ(Preferences::GetFilePath(), "/explicit/p.json");
    SetEnvironment("HOME", "/home/someone");
    SetEnvironment("XDG_CONFIG_HOME", "relative/config");  // not absolute: ignored
    SetEnvironment("TESSEL_PREFS", "");
    EXPECT_EQ(Preferences::GetFilePath(), "/home/someone/.config/tessel/preferences.json");
    SetEnvironment("XDG_CONFIG_HOME", mDir.str() + "/");
    const fs::path made = mDir.path() / "tessel" / "preferences.json";
#endif
    SetEnvironment("TESSEL_PREFS", "");
    Preferences::SetValue("where", u"environment");
    EXPECT_OK(Preferences::Save());  // makes the folder
    EXPECT_TRUE(fs::is_regular_file(made));
    for (const auto& [name, value] : saved)
        SetEnvironment(name.c_str(), value);
}

}  // namespace
}  // namespace Tessel

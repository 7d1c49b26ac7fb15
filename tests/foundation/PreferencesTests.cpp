#include <tessel/foundation/Preferences.h>

#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <tessel/foundation/Unicode.h>

#include "support/TempDir.h"

#if !defined(_WIN32)
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif
#if defined(__linux__)
#include <linux/fs.h>
#include <sys/ioctl.h>
#endif

namespace Tessel {
namespace {

namespace fs = std::filesystem;
using array_t = any_regular_t::array_t;
using dictionary_t = any_regular_t::dictionary_t;

std::string ReadBytes(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

std::vector<std::string> Names(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// "prefs.json.unreadable-YYYYMMDD-HHMMSS", optionally followed by "-N".
bool IsSetAsideName(const std::string& name) {
    const std::string prefix = "prefs.json.unreadable-";
    const std::string shape = "99999999-999999";
    if (name.compare(0, prefix.size(), prefix) != 0)
        return false;
    std::string rest = name.substr(prefix.size());
    if (rest.size() < shape.size())
        return false;
    for (std::size_t i = 0; i < shape.size(); ++i) {
        if (shape[i] == '9' ? !std::isdigit(static_cast<unsigned char>(rest[i]))
                            : rest[i] != shape[i]) {
            return false;
        }
    }
    rest = rest.substr(shape.size());
    if (rest.empty())
        return true;
    return rest.size() >= 2 && rest[0] == '-' &&
           rest.find_first_not_of("0123456789", 1) == std::string::npos;
}

std::string LocalStamp(std::time_t when) {
    std::tm parts{};
#if defined(_WIN32)
    localtime_s(&parts, &when);
#else
    localtime_r(&when, &parts);
#endif
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &parts);
    return text;
}

struct NotSerialisable {
    friend bool operator==(const NotSerialisable&, const NotSerialisable&) { return true; }
};
struct Later {
    std::int64_t n = 0;
    friend bool operator==(const Later&, const Later&) = default;
};

class PreferencesTest : public ::testing::Test {
protected:
    void SetUp() override {
        mFile = mDir.path() / "prefs.json";
        Preferences::UseFile(mFile.string());
    }
    void TearDown() override { Preferences::UseFile(""); }

    // Forgets the values in memory and reads the file again.
    std::optional<std::string> Reload() {
        Preferences::UseFile(mFile.string());
        return Preferences::Load();
    }

    Tessel::Test::TempDir mDir;
    fs::path mFile;
};

TEST_F(PreferencesTest, SavedValuesComeBackWithTheirTypes) {
    std::u16string undecodablePath = u"/media/card/clip";
    undecodablePath.push_back(char16_t(0xDCFF));  // a file name byte that is not UTF-8
    const std::map<std::string, any_regular_t> values = {
        {"favorites", array_t{std::u16string(u"/Volumes/\U0001F600 Card"), undecodablePath}},
        {"narrow", std::string("bytes \xFF\xFE")},
        {"count", 12},
        {"zoom", 2.0},
        {"showHidden", false},
        {"window", dictionary_t{{"x", 10}, {"y", -20}, {"title", u"Media"}}},
        {"lastOpened", DateTime{1'795'250'000'123'456}},
        {"empty list", array_t{}},
        {"", u"empty key"},
    };
    for (const auto& [key, value] : values)
        Preferences::SetValue(key, value);
    ASSERT_EQ(Preferences::Save(), std::nullopt);

    // One JSON object, readable by any JSON tool, with no temporary files left behind.
    const nlohmann::json document = nlohmann::json::parse(ReadBytes(mFile), nullptr, false);
    ASSERT_TRUE(document.is_object());
    EXPECT_EQ(document.size(), values.size());
    EXPECT_EQ(document["count"], 12);
    EXPECT_EQ(Names(mDir.path()), std::vector<std::string>{"prefs.json"});

    ASSERT_EQ(Reload(), std::nullopt);
    std::vector<std::string> expectedKeys;
    for (const auto& [key, value] : values) {
        expectedKeys.push_back(key);
        const any_regular_t loaded = Preferences::GetValue(key);
        EXPECT_EQ(loaded.type(), value.type()) << key;
        EXPECT_TRUE(loaded == value) << key;
    }
    EXPECT_EQ(Preferences::Keys(), expectedKeys);

    // Removing (or setting empty) and saving drops the key from the file.
    Preferences::RemoveValue("count");
    Preferences::SetValue("zoom", any_regular_t());
    ASSERT_EQ(Preferences::Save(), std::nullopt);
    ASSERT_EQ(Reload(), std::nullopt);
    EXPECT_TRUE(Preferences::GetValue("count").empty());
    EXPECT_TRUE(Preferences::GetValue("zoom").empty());
    EXPECT_EQ(Preferences::Keys().size(), values.size() - 2);

    // A value that cannot be written fails the save and leaves the file as it was.
    const std::string before = ReadBytes(mFile);
    Preferences::SetValue("odd", NotSerialisable{});
    EXPECT_TRUE(Preferences::Save().has_value());
    EXPECT_EQ(ReadBytes(mFile), before);
    Preferences::RemoveValue("odd");
    Preferences::SetValue("key \xFF", 1);  // JSON cannot name it
    EXPECT_TRUE(Preferences::Save().has_value());
    EXPECT_EQ(ReadBytes(mFile), before);
    EXPECT_EQ(Names(mDir.path()), std::vector<std::string>{"prefs.json"});
}

TEST_F(PreferencesTest, MissingFileIsAnEmptyStoreAndSavingMakesTheFolders) {
    mFile = mDir.path() / "not" / "yet" / "prefs.json";
    Preferences::UseFile(mFile.string());
    Preferences::SetValue("stale", 1);
    EXPECT_EQ(Preferences::Load(), std::nullopt);
    EXPECT_TRUE(Preferences::Keys().empty());

    Preferences::SetValue("fresh", u"value");
    ASSERT_EQ(Preferences::Save(), std::nullopt);
    ASSERT_EQ(Reload(), std::nullopt);
    EXPECT_TRUE(Preferences::GetValue("fresh") == any_regular_t(u"value"));
}

TEST_F(PreferencesTest, UnusableFilesAreSetAsideAndNeverOverwritten) {
    // Names the set-aside file may get in the next seconds, taken already: none may be replaced.
    const std::time_t now = std::time(nullptr);
    std::map<fs::path, std::string> occupied;
    for (std::time_t t = now; t <= now + 3; ++t) {
        const fs::path name = mFile.string() + ".unreadable-" + LocalStamp(t);
        occupied[name] = "occupied " + std::to_string(t);
        mDir.WriteFile(name.filename().string(), occupied[name]);
    }

    const std::string unusable[] = {
        "{\"favorites\": [\"/Volumes/Card",  // cut off mid-write by another program
        "[\"not\", \"an object\"]",         "", std::string("\xFF\xFE{\0}\0", 6),  // UTF-16 text
        std::string(100000, '['),
    };
    std::map<std::string, std::string> setAside;  // path -> original bytes
    for (const std::string& bytes : unusable) {
        SCOPED_TRACE(bytes.substr(0, 30));
        mDir.WriteFile("prefs.json", bytes);
        Preferences::SetValue("in memory", 1);
        const std::optional<std::string> error = Preferences::Load();
        ASSERT_TRUE(error.has_value());
        const std::string aside = Preferences::GetSetAsidePath();
        EXPECT_NE(error->find(aside), std::string::npos) << *error;
        EXPECT_TRUE(IsSetAsideName(fs::path(aside).filename().string())) << aside;
        EXPECT_EQ(fs::path(aside).parent_path(), mDir.path());
        EXPECT_FALSE(fs::exists(mFile));
        EXPECT_EQ(ReadBytes(aside), bytes);
        EXPECT_TRUE(Preferences::Keys().empty());
        EXPECT_TRUE(setAside.emplace(aside, bytes).second) << "reused " << aside;

        // The store is usable again right away.
        Preferences::SetValue("after", true);
        ASSERT_EQ(Preferences::Save(), std::nullopt);
        ASSERT_EQ(Reload(), std::nullopt);
        EXPECT_TRUE(Preferences::GetValue("after") == any_regular_t(true));
    }
    for (const auto& [path, bytes] : setAside)
        EXPECT_EQ(ReadBytes(path), bytes) << path;
    for (const auto& [path, bytes] : occupied)
        EXPECT_EQ(ReadBytes(path), bytes) << path;

    // Something that is no file at all is moved aside the same way, contents included.
    fs::remove(mFile);
    mDir.WriteFile("prefs.json/inside.txt", "kept");
    EXPECT_TRUE(Preferences::Load().has_value());
    EXPECT_EQ(ReadBytes(fs::path(Preferences::GetSetAsidePath()) / "inside.txt"), "kept");
}

TEST_F(PreferencesTest, StaleTemporaryFilesAreIgnoredAndOldOnesRemoved) {
    mDir.WriteFile("prefs.json", R"({"k": 1})");
    const fs::path fresh = mDir.WriteFile("prefs.json.tmp-123-4-5", R"({"k": 2)");
    const fs::path old = mDir.WriteFile("prefs.json.tmp-678-9-0", R"({"k": 3})");
    fs::last_write_time(old, fs::file_time_type::clock::now() - std::chrono::hours(3));
    const fs::path unrelated = mDir.WriteFile("other.json.tmp-1-2-3", "x");
    fs::last_write_time(unrelated, fs::file_time_type::clock::now() - std::chrono::hours(3));

    ASSERT_EQ(Preferences::Load(), std::nullopt);
    EXPECT_TRUE(Preferences::GetValue("k") == any_regular_t(1));
    EXPECT_EQ(Preferences::GetSetAsidePath().find(mDir.str()), std::string::npos);
    // A recent one may belong to a save still running in another process.
    EXPECT_TRUE(fs::exists(fresh));
    EXPECT_FALSE(fs::exists(old));
    EXPECT_TRUE(fs::exists(unrelated));
}

TEST_F(PreferencesTest, EntriesOfUnknownTypesSurviveASave) {
    mDir.WriteFile("prefs.json",
                   R"({"plain": 5, "later": {"$type": "test.prefs.later", "value": {"n": 7}}})");
    ASSERT_EQ(Preferences::Load(), std::nullopt);
    EXPECT_EQ(Preferences::Keys(), (std::vector<std::string>{"later", "plain"}));
    EXPECT_TRUE(Preferences::GetValue("later").empty());

    Preferences::SetValue("plain", 6);
    ASSERT_EQ(Preferences::Save(), std::nullopt);
    const nlohmann::json document = nlohmann::json::parse(ReadBytes(mFile));
    EXPECT_EQ(document["later"], nlohmann::json::parse(R"({"$type": "test.prefs.later",
                                                           "value": {"n": 7}})"));
    EXPECT_EQ(document["plain"], 6);

    // Once the type is known, the stored entry reads as a value.
    RegisterValueType(typeid(Later),
                      {"test.prefs.later",
                       [](const void* p) -> std::optional<std::string> {
                           return nlohmann::json{{"n", static_cast<const Later*>(p)->n}}.dump();
                       },
                       [](std::string_view text) -> std::optional<any_regular_t> {
                           const auto json = nlohmann::json::parse(text, nullptr, false);
                           if (!json.is_object() || !json.contains("n"))
                               return std::nullopt;
                           return any_regular_t(Later{json["n"].get<std::int64_t>()});
                       }});
    EXPECT_TRUE(Preferences::GetValue("later") == any_regular_t(Later{7}));

    // A value decoded while the type was known cannot be written once it is forgotten; the
    // save says so and leaves the file as it was.
    UnregisterValueType(typeid(Later));
    EXPECT_FALSE(IsValueTypeRegistered(typeid(Later)));
    EXPECT_NE(Preferences::Save(), std::nullopt);
    EXPECT_EQ(nlohmann::json::parse(ReadBytes(mFile))["later"]["value"]["n"], 7);
}

TEST_F(PreferencesTest, ConcurrentChangesWhileSaving) {
    std::vector<std::thread> writers;
    for (int w = 0; w < 2; ++w) {
        writers.emplace_back([w] {
            for (int i = 0; i <= 200; ++i) {
                Preferences::SetValue("writer" + std::to_string(w), i);
                (void)Preferences::GetValue("writer" + std::to_string(1 - w));
                (void)Preferences::Keys();
            }
        });
    }
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(Preferences::Save(), std::nullopt);
    for (std::thread& writer : writers)
        writer.join();
    ASSERT_EQ(Preferences::Save(), std::nullopt);
    ASSERT_EQ(Reload(), std::nullopt);
    EXPECT_TRUE(Preferences::GetValue("writer0") == any_regular_t(200));
    EXPECT_TRUE(Preferences::GetValue("writer1") == any_regular_t(200));
}

#if !defined(_WIN32)

// Restores environment variables at the end of a test.
class EnvironmentGuard {
public:
    explicit EnvironmentGuard(std::vector<std::string> names) {
        for (std::string& name : names) {
            const char* value = std::getenv(name.c_str());
            mSaved.emplace_back(std::move(name),
                                value ? std::optional<std::string>(value) : std::nullopt);
        }
    }
    ~EnvironmentGuard() {
        for (const auto& [name, value] : mSaved) {
            if (value) {
                setenv(name.c_str(), value->c_str(), 1);
            } else {
                unsetenv(name.c_str());
            }
        }
    }

private:
    std::vector<std::pair<std::string, std::optional<std::string>>> mSaved;
};

TEST_F(PreferencesTest, FileLocationFollowsTheEnvironment) {
    EnvironmentGuard guard({"TESSEL_PREFS", "XDG_CONFIG_HOME", "HOME"});
    Preferences::UseFile("");
    setenv("HOME", "/home/someone", 1);
    setenv("XDG_CONFIG_HOME", "/xdg", 1);
    setenv("TESSEL_PREFS", "/explicit/p.json", 1);
    EXPECT_EQ(Preferences::GetFilePath(), "/explicit/p.json");
    unsetenv("TESSEL_PREFS");
    EXPECT_EQ(Preferences::GetFilePath(), "/xdg/tessel/preferences.json");
    setenv("XDG_CONFIG_HOME", "/xdg/", 1);
    EXPECT_EQ(Preferences::GetFilePath(), "/xdg/tessel/preferences.json");
    setenv("XDG_CONFIG_HOME", "relative/config", 1);  // not absolute: ignored
    EXPECT_EQ(Preferences::GetFilePath(), "/home/someone/.config/tessel/preferences.json");
    setenv("XDG_CONFIG_HOME", "", 1);
    EXPECT_EQ(Preferences::GetFilePath(), "/home/someone/.config/tessel/preferences.json");
    Preferences::UseFile("/given/prefs.json");
    EXPECT_EQ(Preferences::GetFilePath(), "/given/prefs.json");

    // Saving through the environment's location makes the tessel folder.
    Preferences::UseFile("");
    setenv("XDG_CONFIG_HOME", mDir.str().c_str(), 1);
    Preferences::SetValue("where", u"xdg");
    ASSERT_EQ(Preferences::Save(), std::nullopt);
    EXPECT_TRUE(fs::is_regular_file(mDir.path() / "tessel" / "preferences.json"));
}

// Makes a folder refuse renames inside it: read-only permissions for ordinary users, the
// immutable attribute for root (which ignores permissions). Unlocks on destruction.
class FolderLock {
public:
    explicit FolderLock(const fs::path& folder) : mFolder(folder) {
        ::chmod(folder.c_str(), 0555);
        mChmod = true;
        if (Probe())
            return;
        Unlock();
#if defined(__linux__)
        mImmutable = SetImmutable(true);
        if (mImmutable && !Probe())
            Unlock();
#endif
    }
    ~FolderLock() {
        Unlock();
    }
    bool locked() const {
        return mChmod || mImmutable;
    }

    void Unlock() {
        if (mChmod)
            ::chmod(mFolder.c_str(), 0755);
        mChmod = false;
#if defined(__linux__)
        if (mImmutable)
            SetImmutable(false);
        mImmutable = false;
#endif
    }

private:
#if defined(__linux__)
    bool SetImmutable(bool on) {
        const int fd = ::open(mFolder.c_str(), O_RDONLY | O_DIRECTORY);
        int flags = 0;
        bool done = false;
        if (fd >= 0 && ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0) {
            flags = on ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
            done = ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
        }
        if (fd >= 0)
            ::close(fd);
        return done;
    }
#endif

    // True when the lock holds: creating a file in the folder fails.
    bool Probe() {
        const fs::path probe = mFolder / "probe";
        const int fd = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
        if (fd < 0)
            return true;
        ::close(fd);
        ::unlink(probe.c_str());
        return false;
    }

    fs::path mFolder;
    bool mChmod = false;
    bool mImmutable = false;
};

TEST_F(PreferencesTest, AFileThatCannotBeSetAsideIsNotOverwrittenLater) {
    const fs::path folder = mDir.MakeDir("locked");
    mFile = folder / "prefs.json";
    const std::string original = "{\"favorites\": [\"/Volumes/Ca";
    mDir.WriteFile("locked/prefs.json", original);
    Preferences::UseFile(mFile.string());
    {
        FolderLock lock(folder);
        if (!lock.locked())
            GTEST_SKIP() << "cannot make a folder refuse renames here";
        const std::optional<std::string> error = Preferences::Load();
        ASSERT_TRUE(error.has_value());
        EXPECT_NE(error->find("not be overwritten"), std::string::npos) << *error;
        EXPECT_TRUE(Preferences::Keys().empty());
    }
    // The folder is writable again, but this store never read the file: it must not replace it.
    Preferences::SetValue("new", 1);
    EXPECT_TRUE(Preferences::Save().has_value());
    EXPECT_EQ(ReadBytes(mFile), original);

    // A later load that can set the file aside clears the way.
    EXPECT_TRUE(Preferences::Load().has_value());
    EXPECT_EQ(ReadBytes(Preferences::GetSetAsidePath()), original);
    Preferences::SetValue("new", 1);
    EXPECT_EQ(Preferences::Save(), std::nullopt);
}

// What a saved file must look like whatever moment a crash picks: generation N comes with the
// payload of generation N.
std::u16string PayloadOf(std::int64_t generation) {
    std::u16string payload(static_cast<std::size_t>(generation % 400) * 1024 + 1,
                           static_cast<char16_t>(u'a' + generation % 26));
    payload.back() = u'\u00e9';
    return payload;
}

TEST_F(PreferencesTest, KillingASaveAtAnyMomentLeavesACompleteFile) {
    Preferences::SetValue("generation", 0);
    Preferences::SetValue("payload", PayloadOf(0));
    ASSERT_EQ(Preferences::Save(), std::nullopt);

    std::mt19937 random(std::random_device{}());
    std::int64_t lastGeneration = 0;
    for (int round = 0; round < 12; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            // Saves as fast as it can until killed, every file larger than the one before.
            for (std::int64_t generation = lastGeneration + 1;; ++generation) {
                Preferences::SetValue("generation", generation);
                Preferences::SetValue("payload", PayloadOf(generation));
                if (Preferences::Save())
                    ::_exit(3);
            }
        }
        std::this_thread::sleep_for(
            std::chrono::milliseconds(std::uniform_int_distribution<int>(1, 40)(random)));
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the saving child stopped on its own: " << status;

        ASSERT_EQ(Reload(), std::nullopt);
        const any_regular_t generation = Preferences::GetValue("generation");
        ASSERT_NE(generation.get_if<std::int64_t>(), nullptr);
        const std::int64_t g = *generation.get_if<std::int64_t>();
        EXPECT_GE(g, lastGeneration);
        EXPECT_TRUE(Preferences::GetValue("payload") == any_regular_t(PayloadOf(g)));
        lastGeneration = g;
    }
    for (const std::string& name : Names(mDir.path())) {
        EXPECT_EQ(name.find("unreadable"), std::string::npos) << name;
    }
}

#endif  // !_WIN32

#if defined(_WIN32)
TEST_F(PreferencesTest, FileLocationFollowsTheEnvironment) {
    Preferences::UseFile("");
    _putenv_s("TESSEL_PREFS", "");
    _putenv_s("APPDATA", mDir.str().c_str());
    EXPECT_EQ(Preferences::GetFilePath(), mDir.str() + "\\Tessel\\preferences.json");
    Preferences::SetValue("where", u"appdata");
    ASSERT_EQ(Preferences::Save(), std::nullopt);
    EXPECT_TRUE(fs::is_regular_file(mDir.path() / "Tessel" / "preferences.json"));
}
#endif

}  // namespace
}  // namespace Tessel

#include <tessel/foundation/Settings.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include "support/Environment.h"
#include "support/TempDir.h"

namespace Tessel {
namespace {

using array_t = any_regular_t::array_t;
using Tessel::Test::SetEnvironment;

// The settings are process-wide; every test starts from no overrides and uses its own keys.
class SettingsTest : public ::testing::Test {
protected:
    void SetUp() override { Settings::ClearOverrides(); }
    void TearDown() override { Settings::ClearOverrides(); }
    Tessel::Test::TempDir mDir;
};

TEST_F(SettingsTest, TypedReadersAndTheirFallbacks) {
    ASSERT_TRUE(Settings::LoadFile(mDir.WriteFile("s.json", R"({"test.file.ratio": 2.0,
        "test.file.flag": 1,
        "test.file.name": "Gr\u00fc\u00dfe \ud83d\ude00"})")
                                       .string())
                    .IsOk());
    EXPECT_EQ(Settings::GetInt("test.file.ratio", 0), 2);
    EXPECT_TRUE(Settings::GetBool("test.file.flag", false));  // files written by hand say 1
    EXPECT_EQ(Settings::GetString("test.file.name", ""), "Gr\u00fc\u00dfe \U0001F600");
    // Readers of the wrong type get their fallback; out-of-range doubles do not wrap.
    EXPECT_EQ(Settings::GetString("test.file.ratio", "fallback"), "fallback");
    EXPECT_TRUE(Settings::GetBool("test.file.name", true));
    for (const double huge : {1e300, -1e300, std::nan(""), 9223372036854775808.0}) {
        Settings::Set("test.file.huge", huge);
        EXPECT_EQ(Settings::GetInt("test.file.huge", 7), 7) << huge;
    }
    Settings::Set("test.file.negative", -2.9);
    EXPECT_EQ(Settings::GetInt("test.file.negative", 7), -2);
}

TEST_F(SettingsTest, AFailedLoadChangesNothing) {
    Settings::Set("test.atomic.kept", 1);
    const std::uint64_t before = Settings::ChangeCount();
    for (const std::string& text : {std::string("{\"test.atomic.new\": 1, "), std::string("[1, 2]"),
                                    std::string("{\"test.atomic.new\": 1, \"test.atomic.kept\": "
                                                "{\"$type\": \"no.such\", \"value\": 0}}"),
                                    std::string(), std::string(100000, '{')})
        EXPECT_EQ(Settings::LoadFile(mDir.WriteFile("bad.json", text).string()).Code(),
                  StatusCode::kMalformed)
            << text;
    EXPECT_EQ(Settings::LoadFile((mDir.path() / "missing.json").string()).Code(),
              StatusCode::kNotFound);
    EXPECT_EQ(Settings::LoadFile(mDir.str()).Code(), StatusCode::kIOError);  // a folder

    // The environment names the file; unset, nothing is loaded and nothing is wrong.
    SetEnvironment("TESSEL_SETTINGS", "");
    EXPECT_TRUE(Settings::LoadFromEnvironment().IsOk());
    SetEnvironment("TESSEL_SETTINGS", (mDir.path() / "missing.json").string());
    EXPECT_EQ(Settings::LoadFromEnvironment().Code(), StatusCode::kNotFound);
    EXPECT_EQ(Settings::ChangeCount(), before);
    EXPECT_TRUE(Settings::Get("test.atomic.new").empty());
    EXPECT_EQ(Settings::GetInt("test.atomic.kept", 0), 1);

    SetEnvironment("TESSEL_SETTINGS",
                   mDir.WriteFile("env.json", R"({"test.env.value": "from env"})").string());
    EXPECT_TRUE(Settings::LoadFromEnvironment().IsOk());
    EXPECT_EQ(Settings::GetString("test.env.value", ""), "from env");
    SetEnvironment("TESSEL_SETTINGS", "");
}

// Later sources win (default < file < Set); the change count moves only when the value in
// effect changes.
TEST_F(SettingsTest, PrecedenceAndTheChangeCount) {
    const char* key = "test.count";
    for (const char* other : {"test.count.a", "test.count.b"})
        Settings::DeclareDefault(other, any_regular_t());  // defaults outlive tests
    Settings::DeclareDefault(key, 1);
    const std::string file =
        mDir.WriteFile("s.json", R"({"test.count": 6, "test.count.a": 1, "test.count.b": 2})")
            .string();
    const auto load = [&] { ASSERT_TRUE(Settings::LoadFile(file).IsOk()); };
    const std::tuple<std::function<void()>, std::int64_t, std::uint64_t> steps[] = {
        {[&] { Settings::Set(key, 2); }, 2, 1},
        {[&] { Settings::Set(key, 2); }, 2, 0},
        {[&] { Settings::Set(key, 2.0); }, 2, 1},  // same number, other type: readers may see it
        {[&] { Settings::Reset(key); }, 1, 1},
        {[&] { Settings::Set(key, 1); }, 1, 0},  // equal to the default: nothing visible changes
        {[&] { Settings::Set(key, any_regular_t()); }, 1, 0},  // the same as a reset
        {[&] { Settings::Reset("test.count.never.set"); }, 1, 0},
        {[&] { Settings::Set(key, 9); }, 9, 1},
        {[&] { Settings::DeclareDefault(key, 5); }, 9, 0},  // hidden behind the override
        {[&] { Settings::ClearOverrides(); }, 5, 1},
        {[&] { Settings::ClearOverrides(); }, 5, 0},
        {[&] { Settings::DeclareDefault(key, 4); }, 4, 1},
        {load, 6, 1},  // one load is one change, however many values it changes
        {load, 6, 0},
        {[&] { Settings::Set(key, 7); }, 7, 1},  // a call of the API wins over the file
    };
    int step = 0;  // each: action, value of KEY afterwards, change count moves
    for (const auto& [action, value, moves] : steps) {
        const std::uint64_t before = Settings::ChangeCount();
        action();
        EXPECT_EQ(Settings::GetInt(key, -1), value) << "step " << step;
        EXPECT_EQ(Settings::ChangeCount() - before, moves) << "step " << step++;
    }
}

TEST_F(SettingsTest, AssignmentsFromTheCommandLine) {
    const std::pair<const char*, any_regular_t> cases[] = {
        {"test.assign=4", std::int64_t{4}},
        {"test.assign=-1.5", -1.5},
        {"test.assign=true", true},
        {"test.assign=\"quoted words\"", u"quoted words"},
        {"test.assign=plain words", std::string("plain words")},
        {"test.assign=a=b", std::string("a=b")},
        {"test.assign=", std::string()},
        {"test.assign=[1,2]", array_t{1, 2}},
        {"test.assign={\"$type\":\"no.such\",\"value\":1}",
         std::string("{\"$type\":\"no.such\",\"value\":1}")},
        {"test.assign=4 apples", std::string("4 apples")},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_TRUE(Settings::SetFromAssignment(text));
        EXPECT_TRUE(Settings::Get("test.assign") == expected) << text;
        EXPECT_EQ(Settings::Get("test.assign").type(), expected.type()) << text;
    }
    const std::uint64_t before = Settings::ChangeCount();
    for (const char* refused : {"no equals sign", "=value without key", ""})
        EXPECT_FALSE(Settings::SetFromAssignment(refused)) << refused;
    EXPECT_EQ(Settings::ChangeCount(), before);
}

TEST_F(SettingsTest, ConcurrentWritersAndReaders) {
    constexpr int kChanges = 400;
    Settings::Set("test.concurrent.0", 0);
    const std::uint64_t before = Settings::ChangeCount();
    std::atomic<bool> wrong{false};
    std::thread reader([&] {
        for (std::uint64_t last = 0, count; Settings::GetInt("test.concurrent.1", 0) < kChanges;
             last = count) {
            count = Settings::ChangeCount();
            wrong =
                wrong || count < last || !Settings::Get("test.concurrent.0").get_if<std::int64_t>();
        }
    });
    std::thread other([] {
        for (int i = 1; i <= kChanges; ++i)
            Settings::Set("test.concurrent.1", i);
    });
    for (int i = 1; i <= kChanges; ++i)
        Settings::Set("test.concurrent.0", i);
    other.join();
    reader.join();
    EXPECT_FALSE(wrong) << "a reader saw a torn value or a count going back";
    // Every Set changed a value, and none of the changes was lost or counted twice.
    EXPECT_EQ(Settings::ChangeCount() - before, 2u * kChanges);
}

}  // namespace
}  // namespace Tessel

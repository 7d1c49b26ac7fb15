#include <tessel/foundation/Settings.h>
#include "support/Environment.h"

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <thread>

#include <gtest/gtest.h>

#include "support/TempDir.h"

namespace Tessel {
namespace {

using array_t = any_regular_t::array_t;
using dictionary_t = any_regular_t::dictionary_t;

using Tessel::Test::SetEnvironment;

void UnsetEnvironment(const char* name) {
#if defined(_WIN32)
    _putenv_s(name, "");
#else
    unsetenv(name);
#endif
}

// The settings are process-wide; every test starts from no overrides and uses its own keys.
class SettingsTest : public ::testing::Test {
protected:
    void SetUp() override { Settings::ClearOverrides(); }
    void TearDown() override { Settings::ClearOverrides(); }
    Tessel::Test::TempDir mDir;
};

TEST_F(SettingsTest, LaterSourcesWinAndResetUncoversTheDefault) {
    const char* key = "test.precedence";
    Settings::DeclareDefault(key, any_regular_t());  // defaults outlive tests; start clean
    EXPECT_TRUE(Settings::Get(key).empty());
    EXPECT_EQ(Settings::GetInt(key, -5), -5);

    Settings::DeclareDefault(key, 1);
    EXPECT_EQ(Settings::GetInt(key, -5), 1);

    const auto file = mDir.WriteFile("settings.json", R"({"test.precedence": 2})");
    ASSERT_EQ(Settings::LoadFile(file.string()), std::nullopt);
    EXPECT_EQ(Settings::GetInt(key, -5), 2);

    Settings::Set(key, 3);
    EXPECT_EQ(Settings::GetInt(key, -5), 3);
    // A new default does not push through an override.
    Settings::DeclareDefault(key, 10);
    EXPECT_EQ(Settings::GetInt(key, -5), 3);

    Settings::Reset(key);
    EXPECT_EQ(Settings::GetInt(key, -5), 10);
    Settings::Set(key, 4);
    Settings::ClearOverrides();
    EXPECT_EQ(Settings::GetInt(key, -5), 10);

    // Setting an empty value is the same as a reset.
    Settings::Set(key, 5);
    Settings::Set(key, any_regular_t());
    EXPECT_EQ(Settings::GetInt(key, -5), 10);

    const std::vector<std::string> keys = Settings::Keys();
    EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
    EXPECT_NE(std::find(keys.begin(), keys.end(), key), keys.end());
}

TEST_F(SettingsTest, FileValuesKeepTheirJsonTypes) {
    const auto file = mDir.WriteFile("settings.json", R"({
        "zebmediabrowser.threads.ContentLowPriority": 4,
        "test.file.ratio": 2.0,
        "test.file.flag": true,
        "test.file.name": "Gr\u00fc\u00dfe \ud83d\ude00",
        "test.file.list": [1, "a"],
        "test.file.map": {"x": null},
        "test.file.narrow": {"$type": "utf8", "hex": "61ff"}
    })");
    ASSERT_EQ(Settings::LoadFile(file.string()), std::nullopt);

    const any_regular_t threads = Settings::Get(kSettingContentLowPriorityThreads);
    ASSERT_NE(threads.get_if<std::int64_t>(), nullptr);
    EXPECT_EQ(*threads.get_if<std::int64_t>(), 4);
    EXPECT_EQ(Settings::GetInt(kSettingContentLowPriorityThreads, 0), 4);

    EXPECT_NE(Settings::Get("test.file.ratio").get_if<double>(), nullptr);
    EXPECT_EQ(Settings::GetInt("test.file.ratio", 0), 2);
    EXPECT_TRUE(Settings::GetBool("test.file.flag", false));
    EXPECT_EQ(Settings::GetString("test.file.name", ""), "Gr\u00fc\u00dfe \U0001F600");
    EXPECT_TRUE(Settings::Get("test.file.list") == any_regular_t(array_t{1, u"a"}));
    EXPECT_TRUE(Settings::Get("test.file.map") ==
                any_regular_t(dictionary_t{{"x", any_regular_t()}}));
    EXPECT_EQ(Settings::GetString("test.file.narrow", ""), "a\xFF");

    // Readers of the wrong type get their fallback; out-of-range doubles do not wrap.
    EXPECT_EQ(Settings::GetString("test.file.list", "fallback"), "fallback");
    EXPECT_TRUE(Settings::GetBool("test.file.name", true));
    Settings::Set("test.file.huge", 1e300);
    EXPECT_EQ(Settings::GetInt("test.file.huge", 7), 7);
    Settings::Set("test.file.nan", std::nan(""));
    EXPECT_EQ(Settings::GetInt("test.file.nan", 7), 7);
    Settings::Set("test.file.negative", -2.9);
    EXPECT_EQ(Settings::GetInt("test.file.negative", 7), -2);
}

TEST_F(SettingsTest, AFailedLoadChangesNothing) {
    Settings::Set("test.atomic.kept", 1);
    const std::uint64_t before = Settings::ChangeCount();
    const std::string rejected[] = {
        "{\"test.atomic.new\": 1, ",  // truncated
        "[1, 2]",                     // not an object
        "{\"test.atomic.new\": 1, \"test.atomic.kept\": {\"$type\": \"no.such\", \"value\": 0}}",
        "",
        std::string(100000, '{'),
    };
    for (const std::string& text : rejected) {
        const auto file = mDir.WriteFile("bad.json", text);
        const std::optional<std::string> error = Settings::LoadFile(file.string());
        EXPECT_TRUE(error.has_value()) << text.substr(0, 40);
    }
    EXPECT_TRUE(Settings::LoadFile((mDir.path() / "missing.json").string()).has_value());
    EXPECT_TRUE(Settings::LoadFile(mDir.str()).has_value());  // a folder

    EXPECT_EQ(Settings::ChangeCount(), before);
    EXPECT_TRUE(Settings::Get("test.atomic.new").empty());
    EXPECT_EQ(Settings::GetInt("test.atomic.kept", 0), 1);
}

TEST_F(SettingsTest, ChangeCountMovesOnlyWhenAValueInEffectChanges) {
    const char* key = "test.count";
    Settings::DeclareDefault(key, 1);
    Settings::DeclareDefault("test.count.a", any_regular_t());
    Settings::DeclareDefault("test.count.b", any_regular_t());
    auto moved = [last = Settings::ChangeCount()]() mutable {
        const std::uint64_t now = Settings::ChangeCount();
        const std::uint64_t delta = now - last;
        last = now;
        return delta;
    };

    Settings::Set(key, 2);
    EXPECT_EQ(moved(), 1u);
    Settings::Set(key, 2);
    EXPECT_EQ(moved(), 0u);
    Settings::Set(key, 2.0);  // same number, other type: readers may see a difference
    EXPECT_EQ(moved(), 1u);
    Settings::Reset(key);
    EXPECT_EQ(moved(), 1u);
    Settings::Set(key, 1);  // equal to the default: nothing visible changes
    EXPECT_EQ(moved(), 0u);
    Settings::Reset(key);
    EXPECT_EQ(moved(), 0u);
    Settings::Reset("test.count.never.set");
    EXPECT_EQ(moved(), 0u);
    Settings::Set(key, 9);
    moved();
    Settings::DeclareDefault(key, 5);  // hidden behind the override
    EXPECT_EQ(moved(), 0u);
    Settings::ClearOverrides();
    EXPECT_EQ(moved(), 1u);
    Settings::ClearOverrides();
    EXPECT_EQ(moved(), 0u);
    Settings::DeclareDefault(key, 6);
    EXPECT_EQ(moved(), 1u);

    // One load is one change, however many values it changes; an unchanged load is none.
    const auto file =
        mDir.WriteFile("s.json", R"({"test.count": 6, "test.count.a": 1, "test.count.b": 2})");
    ASSERT_EQ(Settings::LoadFile(file.string()), std::nullopt);
    EXPECT_EQ(moved(), 1u);
    ASSERT_EQ(Settings::LoadFile(file.string()), std::nullopt);
    EXPECT_EQ(moved(), 0u);
}

TEST_F(SettingsTest, AssignmentsFromTheCommandLine) {
    struct Case {
        const char* text;
        any_regular_t expected;
    };
    const Case cases[] = {
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
    for (const Case& c : cases) {
        EXPECT_TRUE(Settings::SetFromAssignment(c.text));
        const any_regular_t value = Settings::Get("test.assign");
        EXPECT_TRUE(value == c.expected) << c.text;
        EXPECT_EQ(value.type(), c.expected.type()) << c.text;
    }
    EXPECT_EQ(Settings::GetString("test.assign", ""), "4 apples");

    const std::uint64_t before = Settings::ChangeCount();
    EXPECT_FALSE(Settings::SetFromAssignment("no equals sign"));
    EXPECT_FALSE(Settings::SetFromAssignment("=value without key"));
    EXPECT_FALSE(Settings::SetFromAssignment(""));
    EXPECT_EQ(Settings::ChangeCount(), before);
}

TEST_F(SettingsTest, FeatureSwitchesLiveInTheSameStore) {
    DeclareFeature({"test.feature.on", "$$$/Test/On=On", "$$$/Test/OnDesc=Starts on", true});
    DeclareFeature({"test.feature.off", "$$$/Test/Off=Off", "$$$/Test/OffDesc=Starts off", false});
    EXPECT_TRUE(IsFeatureEnabled("test.feature.on"));
    EXPECT_FALSE(IsFeatureEnabled("test.feature.off"));
    EXPECT_FALSE(IsFeatureEnabled("test.feature.undeclared"));

    SetFeatureEnabled("test.feature.on", false);
    EXPECT_FALSE(IsFeatureEnabled("test.feature.on"));
    EXPECT_TRUE(Settings::SetFromAssignment("test.feature.off=true"));
    EXPECT_TRUE(IsFeatureEnabled("test.feature.off"));
    EXPECT_TRUE(Settings::SetFromAssignment("ZEBFM-3873=true"));
    EXPECT_TRUE(IsFeatureEnabled("ZEBFM-3873"));
    Settings::ClearOverrides();
    EXPECT_TRUE(IsFeatureEnabled("test.feature.on"));
    EXPECT_FALSE(IsFeatureEnabled("test.feature.off"));
    EXPECT_FALSE(IsFeatureEnabled("ZEBFM-3873"));

    // Declaring again replaces the description instead of listing the switch twice.
    DeclareFeature({"test.feature.on", "$$$/Test/On2=On again", "", false});
    int listed = 0;
    for (const FeatureDescription& feature : GetDeclaredFeatures()) {
        if (feature.name != "test.feature.on")
            continue;
        ++listed;
        EXPECT_EQ(feature.title, "$$$/Test/On2=On again");
        EXPECT_FALSE(feature.enabledByDefault);
    }
    EXPECT_EQ(listed, 1);
    EXPECT_FALSE(IsFeatureEnabled("test.feature.on"));
}

TEST_F(SettingsTest, EnvironmentNamesTheSettingsFile) {
    UnsetEnvironment("TESSEL_SETTINGS");
    const std::uint64_t before = Settings::ChangeCount();
    EXPECT_EQ(Settings::LoadFromEnvironment(), std::nullopt);
    EXPECT_EQ(Settings::ChangeCount(), before);

    const auto file = mDir.WriteFile("env.json", R"({"test.env.value": "from env"})");
    SetEnvironment("TESSEL_SETTINGS", file.string());
    EXPECT_EQ(Settings::LoadFromEnvironment(), std::nullopt);
    EXPECT_EQ(Settings::GetString("test.env.value", ""), "from env");

    SetEnvironment("TESSEL_SETTINGS", (mDir.path() / "missing.json").string());
    EXPECT_TRUE(Settings::LoadFromEnvironment().has_value());
    UnsetEnvironment("TESSEL_SETTINGS");
}

TEST_F(SettingsTest, ConcurrentWritersAndReaders) {
    constexpr int kWriters = 3;
    constexpr int kChanges = 400;
    const std::uint64_t before = Settings::ChangeCount();
    std::atomic<bool> done{false};
    std::atomic<bool> readerSawGarbage{false};
    std::atomic<bool> countWentBack{false};

    std::thread reader([&] {
        std::uint64_t last = 0;
        while (!done) {
            const any_regular_t value = Settings::Get("test.concurrent.0");
            if (!value.empty() && !value.get_if<std::int64_t>())
                readerSawGarbage = true;
            const std::uint64_t count = Settings::ChangeCount();
            if (count < last)
                countWentBack = true;
            last = count;
            (void)Settings::Keys();
        }
    });
    std::vector<std::thread> writers;
    for (int w = 0; w < kWriters; ++w) {
        writers.emplace_back([w] {
            const std::string key = "test.concurrent." + std::to_string(w);
            for (int i = 1; i <= kChanges; ++i)
                Settings::Set(key, i);
        });
    }
    for (std::thread& writer : writers)
        writer.join();
    done = true;
    reader.join();

    EXPECT_FALSE(readerSawGarbage);
    EXPECT_FALSE(countWentBack);
    // Every Set changed a value, and none of the changes was lost or counted twice.
    EXPECT_EQ(Settings::ChangeCount() - before, std::uint64_t{kWriters} * kChanges);
    for (int w = 0; w < kWriters; ++w) {
        EXPECT_EQ(Settings::GetInt("test.concurrent." + std::to_string(w), 0), kChanges);
    }
}

}  // namespace
}  // namespace Tessel

#include <tessel/foundation/Localizer.h>

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "support/Environment.h"
#include "support/TempDir.h"

namespace Tessel {
namespace {

class LocalizerTest : public ::testing::Test {
protected:
    void SetUp() override { Localizer::ClearTable(); }
    void TearDown() override { Localizer::ClearTable(); }
};

TEST_F(LocalizerTest, DefaultsKeysArgumentsAndPlainText) {
    EXPECT_EQ(Localize("$$$/Browser/Equation=a=b"), "a=b");  // only the first '=' splits
    EXPECT_EQ(Localize("$$$/T=^1"), "^1");  // without arguments nothing is replaced
    for (const char* same :
         {"$$$/Browser/NoDefault", "Plain text = not a key", " $$$/Lead/Space=x", "$$/Short=x", ""})
        EXPECT_EQ(Localize(same), same);
    EXPECT_EQ(LocalizeUtf16("$$$/Greeting=Gr\u00fc\u00dfe \U0001F600"),
              u"Gr\u00fc\u00dfe \U0001F600");
    EXPECT_EQ(LocalizationKeyOf("$$$/A/B=Default"), "$$$/A/B");
    EXPECT_EQ(LocalizationKeyOf("$$$/A/B"), "$$$/A/B");
    EXPECT_EQ(LocalizationKeyOf("$$$/=x"), "$$$/");
    EXPECT_TRUE(LocalizationKeyOf("x$$$/A=B").empty());

    EXPECT_EQ(Localize("$$$/T=^2^1^2", {"a", "b"}), "bab");
    EXPECT_EQ(Localize("$$$/T=^1 and ^2", {"^2", "x"}), "^2 and x");  // not expanded again
    EXPECT_EQ(Localize("$$$/T=^1 ^3 ^0 ^^ ^", {"a"}), "a ^3 ^0 ^^ ^");
    EXPECT_EQ(Localize("$$$/T=^9", {"1", "2", "3", "4", "5", "6", "7", "8", "nine"}), "nine");
    EXPECT_EQ(Localize("$$$/T=^10", {"a"}), "a0");
    EXPECT_EQ(Localize("Copying ^1", {"clip.mxf"}), "Copying clip.mxf");  // plain text too
}

TEST_F(LocalizerTest, TranslationsReplaceDefaultsByKey) {
    ASSERT_TRUE(Localizer::LoadTable(R"({"$$$/Browser/Name": "Nom",
        "$$$/Browser/Copied=Copied from the code": "Copi\u00e9", "$$$/Browser/Count": "^2 sur ^1"})")
                    .IsOk());
    EXPECT_EQ(Localize("$$$/Browser/Name"), "Nom");
    EXPECT_EQ(Localize("$$$/Browser/Copied=Copied"), "Copi\u00e9");
    EXPECT_EQ(Localize("$$$/browser/name=Name"), "Name");  // keys match exactly
    EXPECT_EQ(Localize("$$$/Browser/Count=^1 of ^2", {"3", "5"}), "5 sur 3");

    // A rejected table leaves the previous one in place.
    const std::string rejected[] = {"{\"$$$/Browser/Name\": \"Name\"",
                                    "[\"$$$/Browser/Name\"]",
                                    "{\"$$$/Browser/Name\": 5}",
                                    "{\"$$$/Browser/Other\": null}",
                                    "",
                                    "\"\xFF\"",
                                    std::string(1'000'000, '[') + std::string(1'000'000, ']')};
    for (const std::string& text : rejected)
        EXPECT_EQ(Localizer::LoadTable(text).Code(), StatusCode::kMalformed) << text.substr(0, 40);
    EXPECT_EQ(Localize("$$$/Browser/Name=Name"), "Nom");

    // A new table replaces the old one completely.
    ASSERT_TRUE(Localizer::LoadTable(R"({"$$$/Browser/Other": "Autre"})").IsOk());
    EXPECT_EQ(Localize("$$$/Browser/Name=Name"), "Name");
    EXPECT_EQ(Localize("$$$/Browser/Other=Other"), "Autre");
}

TEST_F(LocalizerTest, TablesFromFiles) {
    using Tessel::Test::SetEnvironment;
    Tessel::Test::TempDir dir;
    SetEnvironment("TESSEL_LOCALE_FILE",
                   dir.WriteFile("fr.json", R"({"$$$/Browser/Name": "Nom"})").string());
    EXPECT_TRUE(Localizer::LoadFromEnvironment().IsOk());
    EXPECT_EQ(Localize("$$$/Browser/Name=Name"), "Nom");
    SetEnvironment("TESSEL_LOCALE_FILE", (dir.path() / "missing.json").string());
    EXPECT_EQ(Localizer::LoadFromEnvironment().Code(), StatusCode::kNotFound);
    EXPECT_EQ(Localize("$$$/Browser/Name=Name"), "Nom");  // the table in use stays
    SetEnvironment("TESSEL_LOCALE_FILE", "");
    EXPECT_TRUE(Localizer::LoadFromEnvironment().IsOk());

    const Status bad = Localizer::LoadTableFromFile(dir.WriteFile("bad.json", "{").string());
    EXPECT_EQ(bad.Code(), StatusCode::kMalformed);
    EXPECT_NE(bad.Message().find("bad.json"), std::string::npos) << bad.Message();
    EXPECT_EQ(Localizer::LoadTableFromFile(dir.str()).Code(), StatusCode::kIOError);  // a folder
}

TEST_F(LocalizerTest, LookupsWhileTheTableChanges) {
    std::atomic<bool> done{false}, wrong{false};
    std::thread reader([&] {
        while (!done) {
            const std::string text = Localize("$$$/T/Name=Name ^1", {"x"});
            wrong = wrong || (text != "Name x" && text != "Nom x");
        }
    });
    for (int i = 0; i < 200; ++i)
        Localizer::LoadTable(i % 2 ? R"({"$$$/T/Name": "Nom ^1"})" : "{}").Ignore();
    done = true;
    reader.join();
    EXPECT_FALSE(wrong);
}

}  // namespace
}  // namespace Tessel

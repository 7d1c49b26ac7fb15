// The cloud-sync list: the client files' parsers, the folder lookups in a home folder made
// for the test, the settings that point services elsewhere, and the provider's answers.
#include <tessel/providers/filesystem/ProviderCloudSync.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderRequests.h>

#include "support/TempDir.h"

namespace Tessel {
namespace {

const std::vector<std::string> kServices{
    "Dropbox",   "Dropbox (Business)",   "Google Drive", "iCloud Drive",
    "One Drive", "One Drive (Business)", "Framecast"};

std::string SettingOf(const std::string& service) {
    return "Tessel.CloudSync." + service;
}

// Clears the service settings on both ends of a test.
class CloudSync : public ::testing::Test {
protected:
    void SetUp() override { ClearSettings(); }
    void TearDown() override { ClearSettings(); }
    static void ClearSettings() {
        for (const auto& service : kServices)
            Settings::Reset(SettingOf(service));
    }

    CloudSyncEnvironment Environment() const { return {mHome.str(), mHome.str() + "/.config"}; }

    Tessel::Test::TempDir mHome;
};

TEST(CloudSyncParsing, DropboxInfoGivesEachAccountsPathOnlyWhenWellFormed) {
    DropboxFolders both = ParseDropboxInfo(
        R"json({"personal": {"path": "/home/u/Dropbox", "host": 1, "is_team": false},
            "business": {"path": "/home/u/Dropbox (Acme)", "subscription_type": "Business"}})json");
    EXPECT_EQ(both.personal, "/home/u/Dropbox");
    EXPECT_EQ(both.business, "/home/u/Dropbox (Acme)");

    DropboxFolders personalOnly = ParseDropboxInfo(R"({"personal": {"path": "/d"}})");
    EXPECT_EQ(personalOnly.personal, "/d");
    EXPECT_EQ(personalOnly.business, "");

    for (const std::string& text :
         {std::string(), std::string("{"), std::string("[]"), std::string("null"),
          std::string(R"({"personal": "/d"})"), std::string(R"({"personal": {"path": 5}})"),
          std::string(R"({"personal": {"path": ["/d"]}})"),
          std::string(R"({"personal": {"path": "/d"}} trailing)"),
          std::string("{\"personal\": {\"path\": \"/d\xFF\"}}"),
          std::string(100000, '[') + std::string(100000, ']'), std::string(1, '\0')}) {
        DropboxFolders folders = ParseDropboxInfo(text);
        EXPECT_EQ(folders.personal, "") << text.substr(0, 40);
        EXPECT_EQ(folders.business, "") << text.substr(0, 40);
    }
}

TEST(CloudSyncParsing, OneDriveConfigGivesTheLastSyncDir) {
    const std::pair<const char*, std::optional<std::string>> cases[] = {
        {"# sync_dir = \"~/Commented\"\nskip_file = \"~*|.~*\"\r\n"
         "  sync_dir   =   \"~/One Drive\"  \r\nsync_dir_permissions = \"700\"\n",
         "~/One Drive"},
        {"sync_dir = \"/a\"\nsync_dir=/b", "/b"},
        {"sync_dir = \"\"", ""},
        {"sync_dir = \"", "\""},
        {"", std::nullopt},
        {"sync_dir", std::nullopt},
        {"monitor_interval = \"300\"\n=\n\n", std::nullopt}};
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(ParseOneDriveSyncDir(text), expected) << text;
}

TEST_F(CloudSync, LookupsFindTheClientsFoldersInTheHomeFolder) {
    const CloudSyncEnvironment environment = Environment();
    const std::string home = mHome.str();
    EXPECT_EQ(DropboxSyncDir(true, environment), "") << "no info.json";
    mHome.WriteFile(".dropbox/info.json", R"({"personal": {"path": ")" + home + R"(/Dropbox"},
                        "business": {"path": "relative/Dropbox"}})");
    EXPECT_EQ(DropboxSyncDir(true, environment), home + "/Dropbox");
    EXPECT_EQ(DropboxSyncDir(false, environment), "") << "a relative folder is refused";

    EXPECT_EQ(OneDriveSyncDir(true, environment), home + "/OneDrive") << "the client's default";
    EXPECT_EQ(OneDriveSyncDir(false, environment), "") << "no business configuration";
    mHome.WriteFile(".config/onedrive/config", "sync_dir = \"~/Cloud/OneDrive\"\n");
    mHome.WriteFile(".config/onedrive-business/config", "sync_dir = \"$HOME/Work\"\n");
    EXPECT_EQ(OneDriveSyncDir(true, environment), home + "/Cloud/OneDrive");
    EXPECT_EQ(OneDriveSyncDir(false, environment), home + "/Work");
    mHome.WriteFile(".config/onedrive-business/config", "# only comments\n");
    EXPECT_EQ(OneDriveSyncDir(false, environment), home + "/OneDrive");
    mHome.WriteFile(".config/onedrive/config", "sync_dir = \"~user/elsewhere\"\n");
    EXPECT_EQ(OneDriveSyncDir(true, environment), "") << "another user's home is not guessed";

    EXPECT_EQ(GoogleDriveSyncDir(environment), "");
    mHome.MakeDir("GoogleDrive");
    EXPECT_EQ(GoogleDriveSyncDir(environment), home + "/GoogleDrive");
    mHome.MakeDir("Google Drive");
    EXPECT_EQ(GoogleDriveSyncDir(environment), home + "/Google Drive");
    mHome.MakeDir("iCloudDrive");
    EXPECT_EQ(ICloudSyncDir(environment), home + "/iCloudDrive");
    EXPECT_EQ(FramecastSyncDir(environment), home + "/Framecast");

    EXPECT_EQ(OneDriveSyncDir(true, CloudSyncEnvironment{"", ""}), "") << "no home, no folder";
}

TEST_F(CloudSync, ServicesAreListedInTheirOrderWhenTheirFoldersExist) {
    const std::string home = mHome.str();
    mHome.WriteFile(".dropbox/info.json", R"({"personal": {"path": ")" + home +
                                              R"(/Dropbox"}, "business": {"path": ")" + home +
                                              R"json(/Dropbox (Acme)"}})json");
    mHome.MakeDir("Dropbox");
    mHome.MakeDir("Framecast");
    mHome.MakeDir("OneDrive");
    mHome.WriteFile("iCloud Drive", "a file, not a folder");
    const auto names = [](const std::vector<CloudSyncFolder>& found) {
        std::vector<std::string> names;
        for (const auto& folder : found)
            names.push_back(folder.serviceName);
        return names;
    };
    std::vector<CloudSyncFolder> found = ProviderCloudSync::GetCloudSyncPaths(Environment());
    EXPECT_EQ(names(found), (std::vector<std::string>{"Dropbox", "One Drive", "Framecast"}));
    EXPECT_EQ(found.at(0).folder, home + "/Dropbox");

    // Settings point services at other folders; a missing folder leaves its service out.
    mHome.MakeDir("elsewhere/Z");
    mHome.MakeDir("elsewhere/A");
    Settings::Set(SettingOf("Google Drive"), home + "/elsewhere/Z");
    Settings::Set(SettingOf("One Drive (Business)"), std::string("~/elsewhere/A"));
    Settings::Set(SettingOf("Framecast"), home + "/missing");
    Settings::Set(SettingOf("One Drive"), 7);  // not text: the lookup stays
    found = ProviderCloudSync::GetCloudSyncPaths(Environment());
    ASSERT_EQ(names(found), (std::vector<std::string>{"Dropbox", "Google Drive", "One Drive",
                                                      "One Drive (Business)"}));
    EXPECT_EQ(found[1].folder, home + "/elsewhere/Z");
    EXPECT_EQ(found[3].folder, home + "/elsewhere/A");
}

TEST_F(CloudSync, ProviderListsTheFoldersAndClaimsOnlyItsListPath) {
    ProviderCloudSync provider;
    const std::string home = mHome.str();
    // Every service pointed at the test's folders, so the machine's own clients stay out.
    for (const auto& service : kServices)
        Settings::Set(SettingOf(service), home + "/none");
    EXPECT_TRUE(provider.GetContent("cloudsync:", any_regular_t(), {}, nullptr).empty());
    EXPECT_FALSE(provider.IsUserLoggedIn());

    mHome.MakeDir("Frame/Card");
    mHome.MakeDir("iCloud");
    Settings::Set(SettingOf("Framecast"), home + "/Frame");
    Settings::Set(SettingOf("iCloud Drive"), home + "/iCloud");
    Settings::Set(SettingOf("Dropbox"), home + "/iCloud");  // shared: listed under the first
    const SDKContentMap content =
        provider.GetContent("cloudsync:", any_regular_t(), {kSDKNameField}, nullptr);
    ASSERT_EQ(content.size(), 2u);
    EXPECT_EQ(content.at(home + "/Frame").at(kSDKNameField),
              any_regular_t(std::u16string(u"Framecast")));
    EXPECT_EQ(content.at(home + "/Frame").at(kSDKPathField),
              any_regular_t(Utf8ToUtf16(home + "/Frame")));
    EXPECT_EQ(content.at(home + "/iCloud").at(kSDKNameField),
              any_regular_t(std::u16string(u"Dropbox")));
    EXPECT_TRUE(provider.IsUserLoggedIn());

    auto aborted = ProviderContentRequest::CreateClassRef();
    aborted->Abort();
    EXPECT_TRUE(provider.GetContent("cloudsync:", any_regular_t(), {}, aborted.get()).empty());

    DirectoryContents contents(u"");
    EXPECT_EQ(provider.CanProvideFor("cloudsync:", any_regular_t(), contents, {}), 100);
    for (const std::string& path : {std::string("CloudSync:"), std::string("cloudsync:/"),
                                    home + "/Frame", home + "/Frame/Card", std::string()}) {
        EXPECT_EQ(provider.CanProvideFor(path, any_regular_t(), contents, {}), 0) << path;
    }
}

}  // namespace
}  // namespace Tessel

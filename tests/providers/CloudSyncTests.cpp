// The cloud-sync list: the client files' parsers, the folder lookups in a test home folder
// (and on Windows a registry key of the test's own), settings, and the provider's answers.
#include <tessel/providers/filesystem/ProviderCloudSync.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <string>
#include <vector>

#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderRequests.h>

#include "support/Environment.h"
#include "support/TempDir.h"

#if defined(_WIN32)
#include <windows.h>
#endif

namespace Tessel {
namespace {

const std::vector<std::string> kServices{
    "Dropbox",   "Dropbox (Business)",   "Google Drive", "iCloud Drive",
    "One Drive", "One Drive (Business)", "Framecast"};

std::string SettingOf(const std::string& service) {
    return "Tessel.CloudSync." + service;
}

#if defined(_WIN32)

// A registry key of the test's own under HKEY_CURRENT_USER, deleted with its contents.
class ScratchRegistryKey {
public:
    ScratchRegistryKey()
        : mPath(L"Software\\Tessel tests\\" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                std::to_wstring(sCount++)) {}
    ~ScratchRegistryKey() {
        RegDeleteTreeW(HKEY_CURRENT_USER, mPath.c_str());
        RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\Tessel tests");  // only when empty
    }
    std::string Path() const { return Utf16ToUtf8(std::u16string(mPath.begin(), mPath.end())); }
    void Set(const std::string& subkey, const std::string& name, const std::string& value,
             DWORD type = REG_SZ) {
        const auto wide = [](const std::string& text) {
            const std::u16string u16 = Utf8ToUtf16(text);
            return std::wstring(u16.begin(), u16.end());
        };
        const std::wstring path = subkey.empty() ? mPath : mPath + L"\\" + wide(subkey);
        const std::wstring text = wide(value);
        ASSERT_EQ(RegSetKeyValueW(HKEY_CURRENT_USER, path.c_str(), wide(name).c_str(), type,
                                  text.c_str(), static_cast<DWORD>((text.size() + 1) * 2)),
                  ERROR_SUCCESS);
    }

private:
    static inline int sCount = 0;
    std::wstring mPath;
};

#endif

class CloudSync : public ::testing::Test {
protected:
    void SetUp() override { ClearSettings(); }
    void TearDown() override { ClearSettings(); }
    static void ClearSettings() {
        for (const auto& service : kServices)
            Settings::Reset(SettingOf(service));
    }

    // Dropbox's info.json with the folders of its two accounts (an empty one is left out),
    // at RELATIVE in the home folder.
    void WriteDropboxInfo(const std::string& personal, const std::string& business,
                          const std::string& relative = kDropboxInfo) {
        nlohmann::json info = nlohmann::json::object();
        for (const auto& [account, folder] :
             {std::pair{"personal", personal}, {"business", business}})
            if (!folder.empty())
                info[account]["path"] = folder;
        mHome.WriteFile(relative, info.dump());
    }
#if defined(_WIN32)
    static constexpr const char* kDropboxInfo = "AppData/Local/Dropbox/info.json";
    static constexpr const char* kFramecastState = "AppData/Roaming/Framecast/sync-state";
    // A folder in the test's home folder ("a/b" is "a\b" here), and as the list gives it.
    std::string InHome(std::string relative) const {
        std::replace(relative.begin(), relative.end(), '/', '\\');
        return mHome.str() + "\\" + relative;
    }
    static std::string Listed(const std::string& folder) {
        return "\\\\?\\" + folder;
    }
    CloudSyncEnvironment Environment() const {
        CloudSyncEnvironment environment;
        environment.homeDirectory = mHome.str();
        environment.configDirectory = InHome("AppData/Roaming");
        environment.localDataDirectory = InHome("AppData/Local");
        environment.oneDriveAccountsKey = mOneDriveKey.Path();
        environment.googleDriveKey = mGoogleKey.Path();
        return environment;
    }
    ScratchRegistryKey mOneDriveKey;
    ScratchRegistryKey mGoogleKey;
#else
    static constexpr const char* kDropboxInfo = ".dropbox/info.json";
    static constexpr const char* kFramecastState = ".config/Framecast/sync-state";
    std::string InHome(const std::string& relative) const {
        return mHome.str() + "/" + relative;
    }
    static std::string Listed(const std::string& folder) {
        return folder;
    }
    CloudSyncEnvironment Environment() const {
        return {mHome.str(), mHome.str() + "/.config"};
    }
#endif

    Tessel::Test::TempDir mHome;
};

TEST(CloudSyncParsing, DropboxInfoGivesEachAccountsPathOnlyWhenWellFormed) {
    DropboxFolders both = ParseDropboxInfo(
        R"json({"personal": {"path": "/home/u/Dropbox", "host": 1, "is_team": false},
            "business": {"path": "/home/u/Dropbox (Acme)", "subscription_type": "Business"}})json");
    EXPECT_EQ(both.personal + "|" + both.business, "/home/u/Dropbox|/home/u/Dropbox (Acme)");

    using namespace std::string_literals;
    for (const std::string& text :
         {""s, "{"s, "[]"s, "null"s, R"({"personal": "/d"})"s, R"({"personal": {"path": 5}})"s,
          R"({"personal": {"path": ["/d"]}})"s, R"({"personal": {"path": "/d"}} trailing)"s,
          "{\"personal\": {\"path\": \"/d\xFF\"}}"s,
          std::string(100000, '[') + std::string(100000, ']'), std::string(1, '\0')}) {
        DropboxFolders folders = ParseDropboxInfo(text);
        EXPECT_TRUE(folders.personal.empty() && folders.business.empty()) << text.substr(0, 40);
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

#if defined(_WIN32)

TEST_F(CloudSync, WindowsLookupsReadTheClientsFilesRegistryValuesAndVariables) {
    CloudSyncEnvironment environment = Environment();

    // Dropbox: the roaming info.json first, then the local one, account by account.
    EXPECT_EQ(DropboxSyncDir(true, environment), "") << "no info.json";
    WriteDropboxInfo(InHome("Dropbox"), "relative\\Dropbox");
    EXPECT_EQ(DropboxSyncDir(true, environment), InHome("Dropbox"));
    EXPECT_EQ(DropboxSyncDir(false, environment), "") << "a relative folder is refused";
    WriteDropboxInfo("", InHome("Dropbox (Acme)"), "AppData/Roaming/Dropbox/info.json");
    EXPECT_EQ(DropboxSyncDir(false, environment), InHome("Dropbox (Acme)"));
    EXPECT_EQ(DropboxSyncDir(true, environment), InHome("Dropbox"));

    // OneDrive: the account keys' UserFolder, else the client's variables, else its default.
    EXPECT_EQ(OneDriveSyncDir(true, environment), InHome("OneDrive")) << "the client's default";
    EXPECT_EQ(OneDriveSyncDir(false, environment), "");
    environment.oneDriveCommercial = InHome("OneDrive - Acme");
    environment.oneDrive = InHome("OneDrive - Acme");
    EXPECT_EQ(OneDriveSyncDir(false, environment), InHome("OneDrive - Acme"));
    EXPECT_EQ(OneDriveSyncDir(true, environment), InHome("OneDrive"))
        << "OneDrive names the business folder here";
    environment.oneDriveConsumer = InHome("OneDrive Home");
    EXPECT_EQ(OneDriveSyncDir(true, environment), InHome("OneDrive Home"));
    mOneDriveKey.Set("Personal", "UserFolder", InHome("Personal Files"));
    Tessel::Test::SetEnvironment("TESSEL_TEST_ONEDRIVE", mHome.str());
    mOneDriveKey.Set("Business1", "UserFolder", "%TESSEL_TEST_ONEDRIVE%\\Acme Files",
                     REG_EXPAND_SZ);
    EXPECT_EQ(OneDriveSyncDir(true, environment), InHome("Personal Files"));
    EXPECT_EQ(OneDriveSyncDir(false, environment), InHome("Acme Files"));
    mOneDriveKey.Set("Personal", "UserFolder", "relative");
    EXPECT_EQ(OneDriveSyncDir(true, environment), InHome("OneDrive Home"));

    // Google Drive: "My Drive" in the drive or folder DriveFS mounts, else in the profile
    // (mirroring), else the older client's folder.
    EXPECT_EQ(GoogleDriveSyncDir(environment), "");
    mHome.MakeDir("Google Drive");
    EXPECT_EQ(GoogleDriveSyncDir(environment), InHome("Google Drive"));
    mHome.MakeDir("My Drive");
    EXPECT_EQ(GoogleDriveSyncDir(environment), InHome("My Drive"));
    mHome.MakeDir("Stream/My Drive");
    mGoogleKey.Set("", "DefaultMountPoint", InHome("Stream"));
    EXPECT_EQ(GoogleDriveSyncDir(environment), InHome("Stream\\My Drive"));
    mGoogleKey.Set("", "DefaultMountPoint", "C");
    EXPECT_EQ(GoogleDriveSyncDir(environment), InHome("My Drive")) << "C:\\My Drive is missing";

    mHome.MakeDir("iCloudDrive");
    EXPECT_EQ(ICloudSyncDir(environment), InHome("iCloudDrive"));
    EXPECT_EQ(FramecastSyncDir(environment), InHome("Framecast"));
}

TEST(CloudSyncEnvironment, TheProcessesFoldersAreTheUsersKnownFolders) {
    const CloudSyncEnvironment environment = CloudSyncEnvironment::FromProcess();
    for (const std::string* folder : {&environment.homeDirectory, &environment.configDirectory,
                                      &environment.localDataDirectory})
        EXPECT_TRUE(folder->size() > 3 && folder->substr(1, 2) == ":\\") << *folder;
    EXPECT_EQ(environment.configDirectory.rfind(environment.homeDirectory, 0), 0u);
}

#else

TEST_F(CloudSync, LookupsFindTheClientsFoldersInTheHomeFolder) {
    const CloudSyncEnvironment environment = Environment();
    const std::string home = mHome.str();
    // The personal account alone; a relative folder is refused.
    EXPECT_EQ(DropboxSyncDir(true, environment), "") << "no info.json";
    WriteDropboxInfo(home + "/Dropbox", "relative/Dropbox");
    EXPECT_EQ(DropboxSyncDir(true, environment) + "|" + DropboxSyncDir(false, environment),
              home + "/Dropbox|");
    EXPECT_EQ(OneDriveSyncDir(true, environment), home + "/OneDrive") << "the client's default";
    EXPECT_EQ(OneDriveSyncDir(false, environment), "") << "no business configuration";
    mHome.WriteFile(".config/onedrive/config", "sync_dir = \"~/Cloud/OneDrive\"\n");
    mHome.WriteFile(".config/onedrive-business/config", "sync_dir = \"$HOME/Work\"\n");
    EXPECT_EQ(OneDriveSyncDir(true, environment) + "|" + OneDriveSyncDir(false, environment),
              home + "/Cloud/OneDrive|" + home + "/Work");
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
    EXPECT_EQ(OneDriveSyncDir(true, CloudSyncEnvironment{"", ""}), "") << "no home, no folder";
}

#endif

TEST_F(CloudSync, ServicesAreListedInTheirOrderWhenTheirFoldersExist) {
    WriteDropboxInfo(InHome("Dropbox"), InHome("Dropbox (Acme)"));
    mHome.MakeDir("Dropbox");
    mHome.MakeDir("Framecast");
    mHome.MakeDir("OneDrive");
#if defined(_WIN32)
    mHome.WriteFile("iCloudDrive", "a file, not a folder");
#else
    mHome.WriteFile("iCloud Drive", "a file, not a folder");
#endif
    const auto names = [](const std::vector<CloudSyncFolder>& found) {
        std::vector<std::string> names;
        std::transform(found.begin(), found.end(), std::back_inserter(names),
                       [](const CloudSyncFolder& folder) { return folder.serviceName; });
        return names;
    };
    std::vector<CloudSyncFolder> found = ProviderCloudSync::GetCloudSyncPaths(Environment());
    EXPECT_EQ(names(found), (std::vector<std::string>{"Dropbox", "One Drive", "Framecast"}));
    EXPECT_EQ(found.at(0).folder, Listed(InHome("Dropbox")));

    // Settings point services at other folders; a missing folder leaves its service out.
    mHome.MakeDir("elsewhere/Z");
    mHome.MakeDir("elsewhere/A");
    Settings::Set(SettingOf("Google Drive"), mHome.str() + "/elsewhere/Z");
    Settings::Set(SettingOf("One Drive (Business)"), std::string("~/elsewhere/A"));
    Settings::Set(SettingOf("Framecast"), mHome.str() + "/missing");
    Settings::Set(SettingOf("One Drive"), 7);  // not text: the lookup stays
    found = ProviderCloudSync::GetCloudSyncPaths(Environment());
    ASSERT_EQ(names(found), (std::vector<std::string>{"Dropbox", "Google Drive", "One Drive",
                                                      "One Drive (Business)"}));
    EXPECT_EQ(found[1].folder, Listed(InHome("elsewhere/Z")));
    EXPECT_EQ(found[3].folder, Listed(InHome("elsewhere/A")));
}

TEST_F(CloudSync, ProviderListsTheFoldersWithTheirStatesAndClaimsOnlyItsListPath) {
    ProviderCloudSync provider(Environment());
    EXPECT_TRUE(provider.GetContent("cloudsync:", any_regular_t(), {}, nullptr).empty());
    EXPECT_FALSE(provider.IsUserLoggedIn());

    mHome.MakeDir("Frame/Card");
    mHome.MakeDir("iCloud");
    Settings::Set(SettingOf("Framecast"), InHome("Frame"));
    Settings::Set(SettingOf("iCloud Drive"), InHome("iCloud"));
    Settings::Set(SettingOf("Dropbox"), InHome("iCloud"));  // shared: listed under the first
    // The Framecast client's state file: its first word, in any case, else no state.
    const std::pair<std::string, const char16_t*> states[] = {
        {"error\n", u"Could not sync"},
        {" Synced since 10:00", u"In sync"},
        {"syncing", u"Syncing"},
        {"WAITING\r\n", u"Waiting to sync"},
        {"", nullptr},
        {"synced-ish", nullptr},
        {"\xFF\xFE", nullptr},
        {std::string(2 << 20, 's'), nullptr}};  // too large
    const std::string frame = Listed(InHome("Frame"));
    const std::string shared = Listed(InHome("iCloud"));
    for (const auto& [text, expected] : states) {
        SCOPED_TRACE(text.substr(0, 20));
        const auto stateFile = mHome.WriteFile(kFramecastState, text);
        const SDKContentMap content =
            provider.GetContent("cloudsync:", any_regular_t(), {kSDKNameField}, nullptr);
        ASSERT_EQ(content.size(), 2u);
        SDKPropertyMap framecast{{kSDKNameField, std::u16string(u"Framecast")},
                                 {kSDKPathField, Utf8ToUtf16(frame)}};
        if (expected)
            framecast[kSDKSyncStateField] = std::u16string(expected);
        EXPECT_EQ(content.at(frame), framecast);
        // No other client tells its state.
        EXPECT_EQ(content.at(shared), (SDKPropertyMap{{kSDKNameField, std::u16string(u"Dropbox")},
                                                      {kSDKPathField, Utf8ToUtf16(shared)}}));
        if (text.empty()) {
            std::filesystem::remove(stateFile);
            std::filesystem::create_directory(stateFile);  // a folder in the file's place
            EXPECT_EQ(ProviderCloudSync::GetCloudSyncPaths(Environment()).back().state,
                      CloudSyncState::Unknown);
            std::filesystem::remove(stateFile);
        }
    }
    EXPECT_TRUE(provider.IsUserLoggedIn());

    auto aborted = ProviderContentRequest::CreateClassRef();
    aborted->Abort();
    EXPECT_TRUE(provider.GetContent("cloudsync:", any_regular_t(), {}, aborted.get()).empty());

    DirectoryContents contents(u"");
    using namespace std::string_literals;
    for (const std::string& path : {"cloudsync:"s, "CloudSync:"s, "cloudsync:/"s, frame, ""s})
        EXPECT_EQ(provider.CanProvideFor(path, any_regular_t(), contents, {}),
                  path == "cloudsync:" ? 100 : 0)
            << path;
}

}  // namespace
}  // namespace Tessel

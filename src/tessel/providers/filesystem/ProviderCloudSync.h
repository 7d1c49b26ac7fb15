// The cloud-sync list: the virtual container "cloudsync:" holding the local folders that
// cloud storage clients keep in sync with their services, one item per service whose folder
// exists. Opening an item hands the folder to the file directory provider; the provider
// claims nothing but "cloudsync:" itself, so cards and folders inside a sync folder are
// still shown by their own providers.
//
// The services, in list order, and where their folders are looked for on Linux:
// - "Dropbox", "Dropbox (Business)": the "path" of the "personal" and the "business" entry
//   of the Dropbox client's ~/.dropbox/info.json.
// - "Google Drive": ~/Google Drive, else ~/GoogleDrive (the usual mount points of the
//   third-party clients; there is no official one).
// - "iCloud Drive": ~/iCloud Drive, else ~/iCloudDrive. "iCloud" names the service in
//   traces only; nothing is appended to the folder found.
// - "One Drive": the sync_dir of the onedrive client's configuration
//   ($XDG_CONFIG_HOME or ~/.config)/onedrive/config, ~/OneDrive when it sets none.
// - "One Drive (Business)": the same client run for a second account with the
//   configuration folder onedrive-business beside it, as its documentation suggests; its
//   sync_dir, or the client's default ~/OneDrive. Without that configuration file there is
//   no business folder.
// - "Framecast": ~/Framecast.
// And on Windows (~ is the profile folder, %APPDATA% and %LOCALAPPDATA% the roaming and
// local application data):
// - "Dropbox", "Dropbox (Business)": the same entries of %APPDATA%\Dropbox\info.json, else
//   of %LOCALAPPDATA%\Dropbox\info.json (where newer clients write it).
// - "Google Drive": Drive for desktop shows "My Drive" inside a virtual drive, G: unless
//   the value DefaultMountPoint of HKEY_CURRENT_USER (else HKEY_LOCAL_MACHINE)
//   \Software\Google\DriveFS names another drive letter or a folder; in its mirroring mode
//   the folder is ~\My Drive; the older Backup and Sync client used ~\Google Drive. The
//   first of these that exists.
// - "iCloud Drive": ~\iCloudDrive, where iCloud for Windows keeps it.
// - "One Drive", "One Drive (Business)": the value UserFolder of the client's account keys
//   HKEY_CURRENT_USER\Software\Microsoft\OneDrive\Accounts\Personal and ...\Business1;
//   else the variables the client sets, OneDriveConsumer and OneDriveCommercial (for the
//   personal account also OneDrive, unless it names the business folder); else, for the
//   personal account, the client's default ~\OneDrive.
// - "Framecast": ~\Framecast.
// On Windows the folders are given in the long form the file directory provider opens
// ("\\?\C:\Users\u\Dropbox").
// The setting "Tessel.CloudSync.<service name>" (for example "Tessel.CloudSync.Dropbox" or
// "Tessel.CloudSync.One Drive (Business)"), when it holds a non-empty text, is the folder
// of that service instead (a leading "~" is the home folder).
//
// Records carry Name (the service name), Path (the folder) and, where the service's client
// tells its state in a form that can be read without talking to the running client,
// SyncState (one of the four localized texts "Could not sync", "In sync", "Syncing",
// "Waiting to sync"); an absent SyncState means the state is unknown. Per service:
// - Framecast: its client writes the state of its folder into the file
//   Framecast/sync-state of the configuration folder ($XDG_CONFIG_HOME or ~/.config;
//   %APPDATA% on Windows). Its first word, in any case: "error" (could not sync), "synced",
//   "syncing" or "waiting"; anything else, or no file, is no state.
// - Dropbox, Dropbox (Business): the client tells its state only to programs that ask its
//   running daemon (through its command socket on Linux); a listing does not wait on
//   another program, so no state.
// - One Drive, One Drive (Business): the Linux onedrive client keeps its state in its
//   item database and reports it only when run itself; on Windows the client shows it per
//   file through the shell's cloud-file properties, not for the folder. No state.
// - Google Drive, iCloud Drive: no client on Linux writes one (the folders belong to
//   third-party tools); on Windows, per file through the shell as above. No state.
// The provider is a cloud
// storage provider; the user counts as logged in when at least one service has a folder,
// and Login does nothing (each client has its own sign-in).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tessel/framework/CapabilityInterfaces.h>
#include <tessel/framework/Provider.h>
#include <tessel/platform/Export.h>

namespace Tessel {

// Where the clients keep their files and settings (UTF-8). Tests point every part at
// places of their own.
struct TESSEL_API CloudSyncEnvironment {
    // POSIX: $HOME. Windows: the profile folder.
    std::string homeDirectory;
    // POSIX: $XDG_CONFIG_HOME when absolute, else $HOME/.config. Windows: the roaming
    // application data (%APPDATA%).
    std::string configDirectory;
    // Windows: the local application data (%LOCALAPPDATA%). Unused on POSIX.
    std::string localDataDirectory;
    // Windows: the OneDrive client's variables OneDrive, OneDriveConsumer and
    // OneDriveCommercial. Unused on POSIX.
    std::string oneDrive;
    std::string oneDriveConsumer;
    std::string oneDriveCommercial;
    // Windows: the registry keys the clients write (OneDrive under HKEY_CURRENT_USER, Google
    // Drive under HKEY_CURRENT_USER and HKEY_LOCAL_MACHINE). Unused on POSIX.
    std::string oneDriveAccountsKey = "Software\\Microsoft\\OneDrive\\Accounts";
    std::string googleDriveKey = "Software\\Google\\DriveFS";

    // The running process's; empty strings for what is not known (HOME unset).
    static CloudSyncEnvironment FromProcess();
};

// The field of a record holding the sync state's text.
inline constexpr const char* kSDKSyncStateField = "SyncState";

enum class CloudSyncState { Unknown, CouldNotSync, InSync, Syncing, WaitingToSync };

// The localized text of STATE; empty for Unknown.
TESSEL_API std::u16string CloudSyncStateText(CloudSyncState state);

struct CloudSyncFolder {
    std::string serviceName;
    // UTF-8; on POSIX the bytes of the path as it is on disk, on Windows its long form.
    std::string folder;
    CloudSyncState state = CloudSyncState::Unknown;
};

// The client files are read only up to this size; larger ones are not theirs.
inline constexpr std::size_t kMaximumCloudConfigBytes = 1 << 20;

// The folders of Dropbox's info.json; an entry that is missing or not of the expected shape,
// or text that is not JSON, leaves its folder empty.
struct DropboxFolders {
    std::string personal;
    std::string business;
};
TESSEL_API DropboxFolders ParseDropboxInfo(std::string_view jsonText);

// The sync_dir value of an onedrive client configuration ("key = "value"" lines, '#' starts
// a comment; the last sync_dir wins), quotes removed and not yet expanded; none when unset.
TESSEL_API std::optional<std::string> ParseOneDriveSyncDir(std::string_view configText);

// The lookups: the folder each client uses (not checked for existence), or an empty string
// when it cannot be known. PERSONAL selects the personal account when set and the business
// account when clear.
TESSEL_API std::string DropboxSyncDir(bool personal, const CloudSyncEnvironment& environment);
TESSEL_API std::string GoogleDriveSyncDir(const CloudSyncEnvironment& environment);
TESSEL_API std::string ICloudSyncDir(const CloudSyncEnvironment& environment);
TESSEL_API std::string OneDriveSyncDir(bool personal, const CloudSyncEnvironment& environment);
TESSEL_API std::string FramecastSyncDir(const CloudSyncEnvironment& environment);
// The state the Framecast client wrote, as described above.
TESSEL_API CloudSyncState FramecastSyncState(const CloudSyncEnvironment& environment);

class TESSEL_API ProviderCloudSync : public Provider, public MenuProviderInterface {
public:
    // Looks for the clients where the running process's user keeps them.
    ProviderCloudSync() = default;
    // Looks for them in ENVIRONMENT instead (a host that knows better, or a test).
    explicit ProviderCloudSync(CloudSyncEnvironment environment);

    // The services whose folder exists, in list order, settings applied, with their states.
    static std::vector<CloudSyncFolder> GetCloudSyncPaths();
    static std::vector<CloudSyncFolder> GetCloudSyncPaths(const CloudSyncEnvironment& environment);

    // One record per service whose folder exists, keyed by the folder (a folder two services
    // share is listed once, under the first). An abort observed during the listing empties it.
    SDKContentMap GetContent(const std::string& path, const any_regular_t& state,
                             const SDKFieldSet& fields, ProviderRequest* request) override;
    SDKFieldSet GetFieldList() override;
    std::vector<std::string> GetDefaultFieldList() override;
    std::map<std::u16string, std::u16string> GetFieldLabelList() override;
    // 100 for exactly "cloudsync:", 0 for everything else (paths inside the folders too).
    int CanProvideFor(const std::string& path, const any_regular_t& state,
                      DirectoryContents& contents, const AbortPredicate& abort) override;
    std::string GetIdentification() override;
    std::string GetUIString() override;
    std::uint32_t GetMaximumThumbnailHeight(std::uint32_t requestedHeight) override;
    // The folder's icon; null when the request has been aborted.
    PelPixHandle GetThumbnail(const std::string& itemPath, const std::string& extraPath,
                              const any_regular_t& state, std::uint32_t width, std::uint32_t height,
                              ProviderRequest* request) override;
    bool ShouldCheckFilter() override;
    bool IsSelectable() override;
    bool IsCloudStorageType() override;
    bool IsUserLoggedIn() override;
    void Login() override;

    // The list has no menu entries of its own.
    void PostProcessContextMenu(Menu& menu, const SelectedPaths& paths,
                                const SelectedStates& states) override;
    bool OnMenuItemID(std::int32_t id, const SelectedPaths& paths,
                      const SelectedStates& states) override;
    bool OnMenuItemIDStatus(std::int32_t id, const SelectedPaths& paths,
                            const SelectedStates& states, bool& enabled) override;

private:
    std::vector<CloudSyncFolder> Folders() const;

    std::optional<CloudSyncEnvironment> mEnvironment;
};

}  // namespace Tessel

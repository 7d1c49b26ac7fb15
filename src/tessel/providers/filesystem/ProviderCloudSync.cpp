#include <tessel/providers/filesystem/ProviderCloudSync.h>

#include <algorithm>
#include <functional>
#include <set>

#include <nlohmann/json.hpp>

#include <tessel/foundation/JsonNesting.h>
#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/PathStyle.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Trace.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/platform/AtomicFile.h>
#include <tessel/platform/KnownFolders.h>
#include <tessel/providers/filesystem/ListIconThumbnail.h>

namespace Tessel {

namespace {

const std::string_view kTraceCategory = Trace::DeclareCategory("CloudSync");
const std::string_view kSettingPrefix = Settings::DeclareKey("Tessel.CloudSync.");
constexpr const char* kNameLabel = "$$$/Pelimar/Provider/CloudSync/Column/Name=Name";
constexpr const char* kPathLabel = "$$$/Pelimar/Provider/CloudSync/Column/Path=Path";
constexpr const char* kSyncStateLabel =
    "$$$/Pelimar/Provider/CloudSync/Column/SyncState=Sync State";

struct Service {
    const char* name;
    std::function<std::string(const CloudSyncEnvironment&)> lookup;
    // Null where the client tells no state (see the header).
    CloudSyncState (*state)(const CloudSyncEnvironment&) = nullptr;
};

// In list order. The flag of the Dropbox and OneDrive lookups is set for the personal
// account and clear for the business one.
const std::vector<Service>& Services() {
    static const std::vector<Service> services{
        {"Dropbox", [](const CloudSyncEnvironment& e) { return DropboxSyncDir(true, e); }},
        {"Dropbox (Business)",
         [](const CloudSyncEnvironment& e) { return DropboxSyncDir(false, e); }},
        {"Google Drive", [](const CloudSyncEnvironment& e) { return GoogleDriveSyncDir(e); }},
        {"iCloud Drive", [](const CloudSyncEnvironment& e) { return ICloudSyncDir(e); }},
        {"One Drive", [](const CloudSyncEnvironment& e) { return OneDriveSyncDir(true, e); }},
        {"One Drive (Business)",
         [](const CloudSyncEnvironment& e) { return OneDriveSyncDir(false, e); }},
        {"Framecast", [](const CloudSyncEnvironment& e) { return FramecastSyncDir(e); },
         &FramecastSyncState},
    };
    return services;
}

std::string_view Trim(std::string_view text) {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

// A client's small text file, or none when it is missing, not a regular file, or too large.
std::optional<std::string> ReadClientFile(const std::string& path) {
    if (path.empty())
        return std::nullopt;
    const Platform::NativeString native = Path::ToNative(std::string_view(path));
    if (Platform::GetPathKind(native) != Platform::PathKind::File)
        return std::nullopt;
    std::string bytes;
    std::string message;
    if (Platform::ReadWholeFile(native, bytes, message, kMaximumCloudConfigBytes) !=
        Platform::ReadFileStatus::Ok) {
        Trace::Write(kTraceCategory, "cannot read " + ToDisplayUtf8(path) + ": " + message);
        return std::nullopt;
    }
    return bytes;
}

// "~" and "~/..." (and "$HOME", "$HOME/...") against the home folder; other paths unchanged.
// On Windows "~\..." too.
std::string ExpandHome(std::string_view path, const std::string& home) {
    for (std::string_view prefix : {std::string_view("~"), std::string_view("$HOME")}) {
        if (path.substr(0, prefix.size()) != prefix)
            continue;
        const std::string_view rest = path.substr(prefix.size());
        if (rest.empty())
            return home;
        if (!Path::IsSeparator(static_cast<char16_t>(static_cast<unsigned char>(rest.front()))))
            continue;
        return home.empty() ? std::string() : home + std::string(rest);
    }
    return std::string(path);
}

// A relative folder would be found against whatever the current directory is.
bool IsAbsolute(const std::string& path) {
    return Path::IsAbsolute(Path::kNativePathStyle, Utf8ToUtf16(path));
}

std::string InHome(const CloudSyncEnvironment& environment, std::string_view leaf) {
    if (!IsAbsolute(environment.homeDirectory))
        return {};
    return Path::Join(std::string_view(environment.homeDirectory), leaf);
}

// The first of FOLDERS that exists; empty when none does.
std::string FirstExisting(std::initializer_list<std::string> folders) {
    for (const std::string& folder : folders) {
        if (!folder.empty() && Path::DirectoryExists(std::string_view(folder)))
            return folder;
    }
    return {};
}

// The first of the folders LEAVES in the home folder that exists; empty when none does.
std::string FirstExistingInHome(const CloudSyncEnvironment& environment,
                                std::initializer_list<std::string_view> leaves) {
    for (std::string_view leaf : leaves) {
        std::string folder = FirstExisting({InHome(environment, leaf)});
        if (!folder.empty())
            return folder;
    }
    return {};
}

// A folder as the providers open it: on Windows its long form, without a trailing
// separator unless it is a root.
std::string OpenableFolder(const std::string& folder) {
    if (folder.empty() || Path::kNativePathStyle == Path::PathStyle::Posix)
        return folder;
    return Utf16ToUtf8(Path::StripTrailingSeparator(Path::ToLongPath(Utf8ToUtf16(folder))));
}

#if defined(_WIN32)

std::string Environment(const char* name) {
    return Path::FromNativeUtf8(Platform::GetEnvironmentValue(Path::ToNative(name)).value_or(L""));
}

std::optional<std::string> RegistryText(Platform::RegistryRoot root, const std::string& key,
                                        const char* valueName) {
    const std::optional<Platform::NativeString> text = Platform::ReadRegistryString(
        root, Path::ToNative(std::string_view(key)), Path::ToNative(valueName));
    if (!text)
        return std::nullopt;
    return Path::FromNativeUtf8(*text);
}

// The folder a DriveFS mount point names: a drive letter ("G", "G:" or "G:\") is that
// drive's root; anything else is taken as a folder.
std::string DriveFSMountFolder(std::string_view value) {
    const bool letter = !value.empty() && ((value[0] >= 'A' && value[0] <= 'Z') ||
                                           (value[0] >= 'a' && value[0] <= 'z'));
    if (letter && (value.size() == 1 || (value[1] == ':' && value.size() <= 3 &&
                                         (value.size() == 2 || Path::IsSeparator(value[2]))))) {
        return std::string(1, value[0]) + ":\\";
    }
    return std::string(value);
}

#endif

}  // namespace

CloudSyncEnvironment CloudSyncEnvironment::FromProcess() {
    CloudSyncEnvironment environment;
    using Platform::KnownFolder;
    environment.homeDirectory = Path::FromNativeUtf8(Platform::GetKnownFolder(KnownFolder::Home));
    environment.configDirectory =
        Path::FromNativeUtf8(Platform::GetKnownFolder(KnownFolder::RoamingAppData));
    environment.localDataDirectory =
        Path::FromNativeUtf8(Platform::GetKnownFolder(KnownFolder::LocalAppData));
#if defined(_WIN32)
    environment.oneDrive = Environment("OneDrive");
    environment.oneDriveConsumer = Environment("OneDriveConsumer");
    environment.oneDriveCommercial = Environment("OneDriveCommercial");
#endif
    return environment;
}

DropboxFolders ParseDropboxInfo(std::string_view jsonText) {
    DropboxFolders folders;
    // The parser keeps its own stack, but walking a hostile document must stay bounded too.
    if (!detail::JsonNestingWithin(jsonText, detail::kMaxJsonTextDepth))
        return folders;
    const nlohmann::json document = nlohmann::json::parse(jsonText, nullptr, false);
    if (document.is_discarded() || !document.is_object())
        return folders;
    const auto pathOf = [&](const char* account) -> std::string {
        const auto entry = document.find(account);
        if (entry == document.end() || !entry->is_object())
            return {};
        const auto path = entry->find("path");
        if (path == entry->end() || !path->is_string())
            return {};
        return path->get<std::string>();
    };
    folders.personal = pathOf("personal");
    folders.business = pathOf("business");
    return folders;
}

std::optional<std::string> ParseOneDriveSyncDir(std::string_view configText) {
    std::optional<std::string> syncDir;
    while (!configText.empty()) {
        const std::size_t end = configText.find('\n');
        std::string_view line = Trim(configText.substr(0, end));
        configText =
            end == std::string_view::npos ? std::string_view() : configText.substr(end + 1);
        if (line.empty() || line.front() == '#')
            continue;
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos || Trim(line.substr(0, equals)) != "sync_dir") {
            continue;
        }
        std::string_view value = Trim(line.substr(equals + 1));
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
            value = value.substr(1, value.size() - 2);
        }
        syncDir = std::string(value);
    }
    return syncDir;
}

#if defined(_WIN32)

std::string DropboxSyncDir(bool personal, const CloudSyncEnvironment& environment) {
    for (const std::string* base :
         {&environment.configDirectory, &environment.localDataDirectory}) {
        if (!IsAbsolute(*base))
            continue;
        const std::optional<std::string> text =
            ReadClientFile(Path::Join(std::string_view(*base), "Dropbox\\info.json"));
        if (!text)
            continue;
        const DropboxFolders folders = ParseDropboxInfo(*text);
        std::string folder = personal ? folders.personal : folders.business;
        if (IsAbsolute(folder))
            return folder;
    }
    return {};
}

std::string GoogleDriveSyncDir(const CloudSyncEnvironment& environment) {
    // Drive for desktop's own default letter.
    std::string mountFolder = "G:\\";
    for (Platform::RegistryRoot root :
         {Platform::RegistryRoot::CurrentUser, Platform::RegistryRoot::LocalMachine}) {
        const std::optional<std::string> value =
            RegistryText(root, environment.googleDriveKey, "DefaultMountPoint");
        if (value && !Trim(*value).empty()) {
            mountFolder = DriveFSMountFolder(Trim(*value));
            break;
        }
    }
    return FirstExisting({IsAbsolute(mountFolder)
                              ? Path::Join(std::string_view(mountFolder), "My Drive")
                              : std::string(),
                          InHome(environment, "My Drive"), InHome(environment, "Google Drive")});
}

std::string ICloudSyncDir(const CloudSyncEnvironment& environment) {
    return FirstExistingInHome(environment, {"iCloudDrive"});
}

std::string OneDriveSyncDir(bool personal, const CloudSyncEnvironment& environment) {
    const std::string key =
        environment.oneDriveAccountsKey + (personal ? "\\Personal" : "\\Business1");
    const std::optional<std::string> userFolder =
        RegistryText(Platform::RegistryRoot::CurrentUser, key, "UserFolder");
    if (userFolder && IsAbsolute(*userFolder))
        return *userFolder;
    if (!personal)
        return IsAbsolute(environment.oneDriveCommercial) ? environment.oneDriveCommercial
                                                          : std::string();
    if (IsAbsolute(environment.oneDriveConsumer))
        return environment.oneDriveConsumer;
    // OneDrive names the business folder while a business account is signed in.
    if (IsAbsolute(environment.oneDrive) && environment.oneDrive != environment.oneDriveCommercial)
        return environment.oneDrive;
    return InHome(environment, "OneDrive");
}

#else

std::string DropboxSyncDir(bool personal, const CloudSyncEnvironment& environment) {
    const std::string infoPath = InHome(environment, ".dropbox/info.json");
    const std::optional<std::string> text = ReadClientFile(infoPath);
    if (!text)
        return {};
    const DropboxFolders folders = ParseDropboxInfo(*text);
    std::string folder = personal ? folders.personal : folders.business;
    return IsAbsolute(folder) ? folder : std::string();
}

std::string GoogleDriveSyncDir(const CloudSyncEnvironment& environment) {
    return FirstExistingInHome(environment, {"Google Drive", "GoogleDrive"});
}

std::string ICloudSyncDir(const CloudSyncEnvironment& environment) {
    return FirstExistingInHome(environment, {"iCloud Drive", "iCloudDrive"});
}

std::string OneDriveSyncDir(bool personal, const CloudSyncEnvironment& environment) {
    if (!IsAbsolute(environment.configDirectory))
        return {};
    const std::string configPath =
        Path::Join(std::string_view(environment.configDirectory),
                   personal ? "onedrive/config" : "onedrive-business/config");
    const std::optional<std::string> text = ReadClientFile(configPath);
    // The business account exists only where a configuration was made for it.
    if (!text && !personal)
        return {};
    const std::optional<std::string> syncDir = text ? ParseOneDriveSyncDir(*text) : std::nullopt;
    if (!syncDir || syncDir->empty())
        return InHome(environment, "OneDrive");
    std::string folder = ExpandHome(*syncDir, environment.homeDirectory);
    return IsAbsolute(folder) ? folder : std::string();
}

#endif

std::string FramecastSyncDir(const CloudSyncEnvironment& environment) {
    return InHome(environment, "Framecast");
}

CloudSyncState FramecastSyncState(const CloudSyncEnvironment& environment) {
    if (!IsAbsolute(environment.configDirectory))
        return CloudSyncState::Unknown;
    const std::string folder =
        Path::Join(std::string_view(environment.configDirectory), "Framecast");
    const std::optional<std::string> text =
        ReadClientFile(Path::Join(std::string_view(folder), "sync-state"));
    if (!text)
        return CloudSyncState::Unknown;
    std::string_view word = *text;
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!word.empty() && isBlank(word.front()))
        word.remove_prefix(1);
    word = word.substr(0, std::find_if(word.begin(), word.end(), isBlank) - word.begin());
    std::string lower(word);
    for (char& c : lower)
        c = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
    static constexpr std::pair<std::string_view, CloudSyncState> kWords[] = {
        {"error", CloudSyncState::CouldNotSync},
        {"synced", CloudSyncState::InSync},
        {"syncing", CloudSyncState::Syncing},
        {"waiting", CloudSyncState::WaitingToSync},
    };
    for (const auto& [name, state] : kWords) {
        if (lower == name)
            return state;
    }
    return CloudSyncState::Unknown;
}

std::u16string CloudSyncStateText(CloudSyncState state) {
    switch (state) {
        case CloudSyncState::Unknown:
            return {};
        case CloudSyncState::CouldNotSync:
            return LocalizeUtf16(
                "$$$/Pelimar/Provider/CloudSync/SyncState/CouldNotSync=Could not sync");
        case CloudSyncState::InSync:
            return LocalizeUtf16("$$$/Pelimar/Provider/CloudSync/SyncState/InSync=In sync");
        case CloudSyncState::Syncing:
            return LocalizeUtf16("$$$/Pelimar/Provider/CloudSync/SyncState/Syncing=Syncing");
        case CloudSyncState::WaitingToSync:
            return LocalizeUtf16(
                "$$$/Pelimar/Provider/CloudSync/SyncState/WaitingToSync=Waiting to sync");
    }
    return {};
}

std::vector<CloudSyncFolder> ProviderCloudSync::GetCloudSyncPaths() {
    return GetCloudSyncPaths(CloudSyncEnvironment::FromProcess());
}

std::vector<CloudSyncFolder> ProviderCloudSync::GetCloudSyncPaths(
    const CloudSyncEnvironment& environment) {
    std::vector<CloudSyncFolder> folders;
    for (const Service& service : Services()) {
        const std::string configured =
            Settings::GetString(std::string(kSettingPrefix) + service.name, "");
        std::string folder =
            OpenableFolder(configured.empty() ? service.lookup(environment)
                                              : ExpandHome(configured, environment.homeDirectory));
        if (folder.empty() || !Path::DirectoryExists(std::string_view(folder)))
            continue;
        folders.push_back({service.name, std::move(folder),
                           service.state ? service.state(environment) : CloudSyncState::Unknown});
    }
    return folders;
}

ProviderCloudSync::ProviderCloudSync(CloudSyncEnvironment environment)
    : mEnvironment(std::move(environment)) {}

std::vector<CloudSyncFolder> ProviderCloudSync::Folders() const {
    return mEnvironment ? GetCloudSyncPaths(*mEnvironment) : GetCloudSyncPaths();
}

SDKContentMap ProviderCloudSync::GetContent(const std::string&, const any_regular_t&,
                                            const SDKFieldSet&, ProviderRequest* request) {
    SDKContentMap content;
    for (const CloudSyncFolder& folder : Folders()) {
        if (IsRequestAborted(request))
            return {};
        auto [it, added] = content.try_emplace(folder.folder);
        if (!added)
            continue;
        it->second[kSDKNameField] = Utf8ToUtf16(folder.serviceName);
        it->second[kSDKPathField] = Utf8ToUtf16(folder.folder);
        if (folder.state != CloudSyncState::Unknown)
            it->second[kSDKSyncStateField] = CloudSyncStateText(folder.state);
    }
    if (IsRequestAborted(request))
        return {};
    return content;
}

SDKFieldSet ProviderCloudSync::GetFieldList() {
    return {kSDKNameField, kSDKPathField, kSDKSyncStateField};
}

std::vector<std::string> ProviderCloudSync::GetDefaultFieldList() {
    return {kSDKNameField, kSDKPathField, kSDKSyncStateField};
}

std::map<std::u16string, std::u16string> ProviderCloudSync::GetFieldLabelList() {
    return {{kNameField, LocalizeUtf16(kNameLabel)},
            {kPathField, LocalizeUtf16(kPathLabel)},
            {Utf8ToUtf16(kSDKSyncStateField), LocalizeUtf16(kSyncStateLabel)}};
}

int ProviderCloudSync::CanProvideFor(const std::string& path, const any_regular_t&,
                                     DirectoryContents&, const AbortPredicate&) {
    return path == kSDKCloudSyncListPath ? 100 : 0;
}

std::string ProviderCloudSync::GetIdentification() {
    return std::string(kProviderIDPrefix) + "ProviderCloudSync";
}

std::string ProviderCloudSync::GetUIString() {
    return Localize("$$$/Farreach/Libraries/Tessel/CloudSyncUIString=CloudSync");
}

std::uint32_t ProviderCloudSync::GetMaximumThumbnailHeight(std::uint32_t requestedHeight) {
    return ListItemIconHeight(requestedHeight);
}

PelPixHandle ProviderCloudSync::GetThumbnail(const std::string& itemPath, const std::string&,
                                             const any_regular_t&, std::uint32_t width,
                                             std::uint32_t height, ProviderRequest* request) {
    if (IsRequestAborted(request))
        return nullptr;
    return RenderListItemIcon(itemPath, width, height);
}

bool ProviderCloudSync::ShouldCheckFilter() {
    return false;
}
bool ProviderCloudSync::IsSelectable() {
    return true;
}
bool ProviderCloudSync::IsCloudStorageType() {
    return true;
}
bool ProviderCloudSync::IsUserLoggedIn() {
    return !Folders().empty();
}
void ProviderCloudSync::Login() {}

void ProviderCloudSync::PostProcessContextMenu(Menu&, const SelectedPaths&, const SelectedStates&) {
}

bool ProviderCloudSync::OnMenuItemID(std::int32_t, const SelectedPaths&, const SelectedStates&) {
    return false;
}

bool ProviderCloudSync::OnMenuItemIDStatus(std::int32_t, const SelectedPaths&,
                                           const SelectedStates&, bool& enabled) {
    enabled = false;
    return false;
}

}  // namespace Tessel

#include <tessel/framework/Provider.h>

#include <charconv>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderRequest.h>
#include <tessel/media/DirectoryChangeMonitor.h>
#include <tessel/platform/FileSystem.h>

namespace Tessel {

namespace {

template <class Integer>
std::optional<Integer> ParseInteger(std::string_view text) {
    Integer value{};
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

// Sizes and icon types serialise as plain numbers inside their type tags.
const bool kValueTypesRegistered = [] {
    RegisterValueType(
        typeid(Provider::ByteSize_t),
        ValueTypeCodec{"ByteSize",
                       [](const void* value) -> std::optional<std::string> {
                           return std::to_string(
                               static_cast<const Provider::ByteSize_t*>(value)->GetCount());
                       },
                       [](std::string_view json) -> std::optional<any_regular_t> {
                           auto count = ParseInteger<std::uint64_t>(json);
                           if (!count)
                               return std::nullopt;
                           return any_regular_t(Provider::ByteSize_t(*count));
                       }});
    RegisterValueType(typeid(IconType),
                      ValueTypeCodec{"IconType",
                                     [](const void* value) -> std::optional<std::string> {
                                         return std::to_string(static_cast<std::int32_t>(
                                             *static_cast<const IconType*>(value)));
                                     },
                                     [](std::string_view json) -> std::optional<any_regular_t> {
                                         auto number = ParseInteger<std::int32_t>(json);
                                         if (!number || *number < 0 ||
                                             *number > static_cast<std::int32_t>(IconType::File)) {
                                             return std::nullopt;
                                         }
                                         return any_regular_t(static_cast<IconType>(*number));
                                     }});
    return true;
}();

}  // namespace

Provider::ByteSize_t::~ByteSize_t() = default;

Provider::Provider() {
    (void)kValueTypesRegistered;
}
Provider::~Provider() = default;

std::optional<ContentMap> Provider::GetHostContent(const std::u16string&, const any_regular_t&,
                                                   const FieldSet&, ProviderRequest*) {
    return std::nullopt;
}

bool Provider::GetHasPossibleDirectoryContent(const std::string&, const any_regular_t&) {
    return true;
}

bool Provider::IsDefaultDirectoryAssetProvider() {
    return false;
}
bool Provider::IsProjectBasedProvider() {
    return false;
}
bool Provider::IsRestrictedToMediaOnlyViews() {
    return false;
}
bool Provider::IsCloudStorageType() {
    return false;
}
bool Provider::IsUserLoggedIn() {
    return false;
}
void Provider::Login() {}

bool Provider::PathHasAccessPermission(const std::string& path) {
    if (path == kSDKVolumeListPath)
        return true;
    if (IsCloudStorageType())
        return true;
    return Platform::HasReadAccess(Path::ToNative(Utf8ToUtf16(path)));
}

bool Provider::ShouldMonitorPath(const std::u16string& path) {
    // The framecast list is deliberately not among these: it is monitored like a folder.
    for (const std::u16string* listPath :
         {&kVolumeListPath, &kFRServerListPath, &kNetworkVolumeListPath, &kFavoritesListPath,
          &kCloudSyncListPath}) {
        if (path == *listPath)
            return false;
    }
    return true;
}

bool Provider::IsCurrentOrDescendentDirectory(const std::u16string& directory,
                                              const std::u16string& candidate) {
    if (directory == candidate)
        return true;
    if (!Path::FileOrDirectoryExists(directory) || !Path::FileOrDirectoryExists(candidate)) {
        return false;
    }
    std::u16string relative;
    if (!Path::ArePathsRelative(Path::AddTrailingSeparator(directory),
                                Path::AddTrailingSeparator(candidate), &relative)) {
        return false;
    }
    return relative.find(u"..") == std::u16string::npos;
}

void Provider::MonitorPath(const std::u16string& path, const any_regular_t&) {
    if (ShouldMonitorPath(path))
        MF::DirectoryChangeMonitor::MonitorDirectory(path, 0, 0);
}

void Provider::StopMonitoringPath(const std::u16string& path, const any_regular_t&) {
    if (ShouldMonitorPath(path))
        MF::DirectoryChangeMonitor::StopMonitoringDirectory(path, 0);
}

void Provider::AddProviderManagedPaths(const std::list<std::u16string>& paths) {
    std::lock_guard lock(mManagedPathsMutex);
    mManagedPaths.insert(paths.begin(), paths.end());
}

void Provider::RemoveProviderManagedPaths(const std::list<std::u16string>& paths) {
    std::lock_guard lock(mManagedPathsMutex);
    for (const auto& path : paths)
        mManagedPaths.erase(path);
}

void Provider::GetProviderManagedPaths(std::list<std::u16string>& paths) {
    std::lock_guard lock(mManagedPathsMutex);
    paths.insert(paths.end(), mManagedPaths.begin(), mManagedPaths.end());
}

void Provider::SetGetContentProgressCallback(std::shared_ptr<ContentProgressCallback> callback) {
    std::lock_guard lock(mCallbackMutex);
    mProgressCallback = std::move(callback);
}

void Provider::SetGetContentUnavailableCallback(
    std::shared_ptr<ContentUnavailableCallback> callback) {
    std::lock_guard lock(mCallbackMutex);
    mUnavailableCallback = std::move(callback);
}

void Provider::NotifyGetContentProgress(const std::u16string& path, double progress) {
    std::lock_guard lock(mCallbackMutex);
    if (mProgressCallback)
        (*mProgressCallback)(path, progress);
}

void Provider::NotifyGetContentUnavailable(const std::u16string& path) {
    std::lock_guard lock(mCallbackMutex);
    if (mUnavailableCallback)
        (*mUnavailableCallback)(path);
}

bool IsRequestAborted(ProviderRequest* request) {
    return request && request->GetAbort();
}

const AbortPredicate& NeverAbort() {
    static const AbortPredicate never = [] { return false; };
    return never;
}

}  // namespace Tessel

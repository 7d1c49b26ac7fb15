#include <tessel/framework/ProviderWrapper.h>

#include <exception>
#include <string>
#include <utility>
#include <vector>

#include <tessel/foundation/Trace.h>
#include <tessel/foundation/Unicode.h>

namespace Tessel {

namespace {

const std::string_view kProvidersTrace = Trace::DeclareCategory("Providers");

template <class Interface>
Interface* CapabilityOf(const std::shared_ptr<Provider>& provider) {
    return dynamic_cast<Interface*>(provider.get());
}

// What an exception thrown by a provider says, for the trace.
std::string Describe(std::exception_ptr failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "an exception of unknown type";
    }
}

}  // namespace

ProviderWrapper::ProviderWrapper(std::shared_ptr<Provider> provider)
    : mProvider(std::move(provider)) {}

ProviderWrapper::~ProviderWrapper() = default;

int ProviderWrapper::CanProvideFor(const std::u16string& path, const any_regular_t& state,
                                   DirectoryContents& contents, const AbortPredicate& abort) const {
    // Ranking asks every provider in turn, on the host's own thread as well as in requests:
    // one that throws cannot show the path, and the others still answer.
    try {
        return mProvider->CanProvideFor(Utf16ToUtf8(path), state, contents,
                                        abort ? abort : NeverAbort());
    } catch (...) {
        const std::exception_ptr failure = std::current_exception();
        try {
            if (Trace::IsEnabled(kProvidersTrace)) {
                Trace::Write(kProvidersTrace, mProvider->GetIdentification() + " failed to rank " +
                                                  Utf16ToUtf8(path) + ": " + Describe(failure));
            }
        } catch (...) {
        }
        return 0;
    }
}

ContentMap ProviderWrapper::GetContent(const std::u16string& path, const any_regular_t& state,
                                       const FieldSet& fields, ProviderRequest* request) const {
    if (std::optional<ContentMap> direct = mProvider->GetHostContent(path, state, fields, request))
        return std::move(*direct);
    SDKFieldSet narrowFields;
    for (const auto& field : fields)
        narrowFields.insert(Utf16ToUtf8(field));
    SDKContentMap listing = mProvider->GetContent(Utf16ToUtf8(path), state, narrowFields, request);
    // Listings can hold a hundred thousand records of many fields: field names are converted
    // once each, and records are appended in order (UTF-8 and UTF-16 sort alike but for rare
    // characters, where the hint is merely ignored).
    std::vector<std::pair<std::string, std::u16string>> wideFields;
    const auto wideField = [&](const std::string& field) -> const std::u16string& {
        for (const auto& [narrow, wide] : wideFields) {
            if (narrow == field)
                return wide;
        }
        return wideFields.emplace_back(field, Utf8ToUtf16(field)).second;
    };
    ContentMap content;
    for (auto item = listing.begin(); item != listing.end(); item = listing.erase(item)) {
        PropertyMap record;
        for (auto& [field, value] : item->second) {
            record.emplace_hint(record.end(), wideField(field), std::move(value));
        }
        content.emplace_hint(content.end(), Utf8ToUtf16(item->first), std::move(record));
    }
    return content;
}

bool ProviderWrapper::GetHasPossibleDirectoryContent(const std::u16string& path,
                                                     const any_regular_t& state) const {
    return mProvider->GetHasPossibleDirectoryContent(Utf16ToUtf8(path), state);
}

FieldSet ProviderWrapper::GetFieldList() const {
    FieldSet fields;
    for (const auto& field : mProvider->GetFieldList())
        fields.insert(Utf8ToUtf16(field));
    return fields;
}

std::vector<std::u16string> ProviderWrapper::GetDefaultFieldList() const {
    std::vector<std::u16string> fields;
    for (const auto& field : mProvider->GetDefaultFieldList())
        fields.push_back(Utf8ToUtf16(field));
    return fields;
}

std::map<std::u16string, std::u16string> ProviderWrapper::GetFieldLabelList() const {
    return mProvider->GetFieldLabelList();
}

std::u16string ProviderWrapper::GetIdentification() const {
    return Utf8ToUtf16(mProvider->GetIdentification());
}

std::u16string ProviderWrapper::GetUIString() const {
    return Utf8ToUtf16(mProvider->GetUIString());
}

std::uint32_t ProviderWrapper::GetMaximumThumbnailHeight(std::uint32_t requestedHeight) const {
    return mProvider->GetMaximumThumbnailHeight(requestedHeight);
}

MF::IVideoFrameRef ProviderWrapper::GetThumbnail(const std::u16string& itemPath,
                                                 const std::u16string& extraPath,
                                                 const any_regular_t& state, std::uint32_t width,
                                                 std::uint32_t height,
                                                 ProviderRequest* request) const {
    // Owned from here on, also a handle to no buffer and when the copy throws.
    const OwnedPelPix buffer(mProvider->GetThumbnail(Utf16ToUtf8(itemPath), Utf16ToUtf8(extraPath),
                                                     state, width, height, request));
    return MF::CreateVideoFrameFromPelPix(buffer.get());
}

bool ProviderWrapper::PathHasAccessPermission(const std::u16string& path) const {
    return mProvider->PathHasAccessPermission(Utf16ToUtf8(path));
}

bool ProviderWrapper::IsDefaultDirectoryAssetProvider() const {
    return mProvider->IsDefaultDirectoryAssetProvider();
}
bool ProviderWrapper::ShouldCheckFilter() const {
    return mProvider->ShouldCheckFilter();
}
bool ProviderWrapper::IsSelectable() const {
    return mProvider->IsSelectable();
}
bool ProviderWrapper::IsProjectBasedProvider() const {
    return mProvider->IsProjectBasedProvider();
}
bool ProviderWrapper::IsRestrictedToMediaOnlyViews() const {
    return mProvider->IsRestrictedToMediaOnlyViews();
}
bool ProviderWrapper::IsCloudStorageProvider() const {
    return mProvider->IsCloudStorageType();
}
bool ProviderWrapper::IsUserLoggedIn() const {
    return mProvider->IsUserLoggedIn();
}
void ProviderWrapper::Login() const {
    mProvider->Login();
}

bool ProviderWrapper::ShouldMonitorPath(const std::u16string& path) const {
    return mProvider->ShouldMonitorPath(path);
}
bool ProviderWrapper::IsCurrentOrDescendentDirectory(const std::u16string& directory,
                                                     const std::u16string& candidate) const {
    return mProvider->IsCurrentOrDescendentDirectory(directory, candidate);
}
void ProviderWrapper::MonitorPath(const std::u16string& path, const any_regular_t& state) const {
    mProvider->MonitorPath(path, state);
}
void ProviderWrapper::StopMonitoringPath(const std::u16string& path,
                                         const any_regular_t& state) const {
    mProvider->StopMonitoringPath(path, state);
}
void ProviderWrapper::AddProviderManagedPaths(const std::list<std::u16string>& paths) const {
    mProvider->AddProviderManagedPaths(paths);
}
void ProviderWrapper::RemoveProviderManagedPaths(const std::list<std::u16string>& paths) const {
    mProvider->RemoveProviderManagedPaths(paths);
}
void ProviderWrapper::GetProviderManagedPaths(std::list<std::u16string>& paths) const {
    mProvider->GetProviderManagedPaths(paths);
}
void ProviderWrapper::SetGetContentProgressCallback(
    std::shared_ptr<ContentProgressCallback> callback) const {
    mProvider->SetGetContentProgressCallback(std::move(callback));
}
void ProviderWrapper::SetGetContentUnavailableCallback(
    std::shared_ptr<ContentUnavailableCallback> callback) const {
    mProvider->SetGetContentUnavailableCallback(std::move(callback));
}

std::shared_ptr<ProjectItemProviderInterface> ProviderWrapper::GetProjectItemProvider() const {
    return std::dynamic_pointer_cast<ProjectItemProviderInterface>(mProvider);
}

bool ProviderWrapper::HasCustomSidebarUI(const std::u16string& path,
                                         const any_regular_t& state) const {
    auto* ui = CapabilityOf<CustomUIProviderInterface>(mProvider);
    return ui && ui->HasCustomSidebarUI(path, state);
}
CustomUIViewRef ProviderWrapper::GetCustomSidebarUI(const std::u16string& path,
                                                    const any_regular_t& state) const {
    auto* ui = CapabilityOf<CustomUIProviderInterface>(mProvider);
    return ui ? ui->GetCustomSidebarUI(path, state) : nullptr;
}
bool ProviderWrapper::HasCustomContentUI(const std::u16string& path,
                                         const any_regular_t& state) const {
    auto* ui = CapabilityOf<CustomUIProviderInterface>(mProvider);
    return ui && ui->HasCustomContentUI(path, state);
}
CustomUIViewRef ProviderWrapper::GetCustomContentUI(const std::u16string& path,
                                                    const any_regular_t& state) const {
    auto* ui = CapabilityOf<CustomUIProviderInterface>(mProvider);
    return ui ? ui->GetCustomContentUI(path, state) : nullptr;
}

void ProviderWrapper::PostProcessContextMenu(Menu& menu, const SelectedPaths& paths,
                                             const SelectedStates& states) const {
    if (auto* menus = CapabilityOf<MenuProviderInterface>(mProvider)) {
        menus->PostProcessContextMenu(menu, paths, states);
    }
}
bool ProviderWrapper::OnMenuItemID(std::int32_t id, const SelectedPaths& paths,
                                   const SelectedStates& states) const {
    auto* menus = CapabilityOf<MenuProviderInterface>(mProvider);
    return menus && menus->OnMenuItemID(id, paths, states);
}
bool ProviderWrapper::OnMenuItemIDStatus(std::int32_t id, const SelectedPaths& paths,
                                         const SelectedStates& states, bool& enabled) const {
    auto* menus = CapabilityOf<MenuProviderInterface>(mProvider);
    return menus && menus->OnMenuItemIDStatus(id, paths, states, enabled);
}
void ProviderWrapper::PostProcessProjectItemForMenuItemID(std::int32_t id,
                                                          ProjectItem& item) const {
    if (auto* menus = CapabilityOf<MenuProviderInterface>(mProvider)) {
        menus->PostProcessProjectItemForMenuItemID(id, item);
    }
}

ClassRef<ProviderContentRequest> ProviderWrapper::RequestContent(const std::u16string& path,
                                                                 const any_regular_t& state,
                                                                 const FieldSet& fields,
                                                                 const ImmutableString& station) {
    ClassRef<ProviderContentRequest> request = ProviderContentRequest::CreateClassRef();
    request->Initialize(station, this);
    request->SetRequestParams(path, state, fields);
    request->Start();
    return request;
}

ClassRef<ProviderThumbnailRequest> ProviderWrapper::RequestThumbnail(
    std::shared_ptr<ProviderThumbnailRequestData> data, const ImmutableString& station) {
    ClassRef<ProviderThumbnailRequest> request = ProviderThumbnailRequest::CreateClassRef();
    request->Initialize(station, this);
    request->SetRequestParams(std::move(data));
    request->Start();
    return request;
}

}  // namespace Tessel

// The host-side face of one provider. Hosts, requests and scripts call the wrapper, never
// the provider: it owns the provider, converts between the host's UTF-16 strings and the
// provider's UTF-8 strings, turns thumbnails into video frames, finds the provider's
// optional capabilities, and makes the requests that concern this provider. It has no
// state of its own and is called from the main thread and executor threads at once.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <tessel/foundation/AnyRegular.h>
#include <tessel/foundation/ClassRef.h>
#include <tessel/foundation/ImmutableString.h>
#include <tessel/framework/CapabilityInterfaces.h>
#include <tessel/framework/ContentRecord.h>
#include <tessel/framework/DirectoryContents.h>
#include <tessel/framework/Provider.h>
#include <tessel/framework/ProviderRequests.h>
#include <tessel/media/VideoFrame.h>
#include <tessel/platform/Export.h>

namespace Tessel {

class TESSEL_API ProviderWrapper {
public:
    explicit ProviderWrapper(std::shared_ptr<Provider> provider);
    ~ProviderWrapper();
    ProviderWrapper(const ProviderWrapper&) = delete;
    ProviderWrapper& operator=(const ProviderWrapper&) = delete;

    // An empty ABORT reaches the provider as NeverAbort().
    int CanProvideFor(const std::u16string& path, const any_regular_t& state,
                      DirectoryContents& contents, const AbortPredicate& abort) const;
    ContentMap GetContent(const std::u16string& path, const any_regular_t& state,
                          const FieldSet& fields, ProviderRequest* request) const;
    bool GetHasPossibleDirectoryContent(const std::u16string& path,
                                        const any_regular_t& state) const;
    FieldSet GetFieldList() const;
    std::vector<std::u16string> GetDefaultFieldList() const;
    std::map<std::u16string, std::u16string> GetFieldLabelList() const;
    std::u16string GetIdentification() const;
    std::u16string GetUIString() const;
    std::uint32_t GetMaximumThumbnailHeight(std::uint32_t requestedHeight) const;
    // The provider's thumbnail as a video frame; whatever handle the provider returned is
    // disposed, also one to no buffer.
    MF::IVideoFrameRef GetThumbnail(const std::u16string& itemPath, const std::u16string& extraPath,
                                    const any_regular_t& state, std::uint32_t width,
                                    std::uint32_t height, ProviderRequest* request) const;
    bool PathHasAccessPermission(const std::u16string& path) const;

    bool IsDefaultDirectoryAssetProvider() const;
    bool ShouldCheckFilter() const;
    bool IsSelectable() const;
    bool IsProjectBasedProvider() const;
    bool IsRestrictedToMediaOnlyViews() const;
    bool IsCloudStorageProvider() const;
    bool IsUserLoggedIn() const;
    void Login() const;

    bool ShouldMonitorPath(const std::u16string& path) const;
    bool IsCurrentOrDescendentDirectory(const std::u16string& directory,
                                        const std::u16string& candidate) const;
    void MonitorPath(const std::u16string& path, const any_regular_t& state) const;
    void StopMonitoringPath(const std::u16string& path, const any_regular_t& state) const;
    void AddProviderManagedPaths(const std::list<std::u16string>& paths) const;
    void RemoveProviderManagedPaths(const std::list<std::u16string>& paths) const;
    void GetProviderManagedPaths(std::list<std::u16string>& paths) const;
    void SetGetContentProgressCallback(std::shared_ptr<ContentProgressCallback> callback) const;
    void SetGetContentUnavailableCallback(
        std::shared_ptr<ContentUnavailableCallback> callback) const;

    // Null when the provider has no project items.
    std::shared_ptr<ProjectItemProviderInterface> GetProjectItemProvider() const;

    bool HasCustomSidebarUI(const std::u16string& path, const any_regular_t& state) const;
    CustomUIViewRef GetCustomSidebarUI(const std::u16string& path,
                                       const any_regular_t& state) const;
    bool HasCustomContentUI(const std::u16string& path, const any_regular_t& state) const;
    CustomUIViewRef GetCustomContentUI(const std::u16string& path,
                                       const any_regular_t& state) const;

    void PostProcessContextMenu(Menu& menu, const SelectedPaths& paths,
                                const SelectedStates& states) const;
    bool OnMenuItemID(std::int32_t id, const SelectedPaths& paths,
                      const SelectedStates& states) const;
    bool OnMenuItemIDStatus(std::int32_t id, const SelectedPaths& paths,
                            const SelectedStates& states, bool& enabled) const;
    void PostProcessProjectItemForMenuItemID(std::int32_t id, ProjectItem& item) const;

    ClassRef<ProviderContentRequest> RequestContent(const std::u16string& path,
                                                    const any_regular_t& state,
                                                    const FieldSet& fields,
                                                    const ImmutableString& station);
    ClassRef<ProviderThumbnailRequest> RequestThumbnail(
        std::shared_ptr<ProviderThumbnailRequestData> data, const ImmutableString& station);

    // The provider itself, for tests and tools that need its concrete type.
    const std::shared_ptr<Provider>& GetProvider() const { return mProvider; }

private:
    std::shared_ptr<Provider> mProvider;
};

}  // namespace Tessel

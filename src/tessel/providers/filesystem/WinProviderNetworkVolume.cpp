#include <tessel/providers/filesystem/WinProviderNetworkVolume.h>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/providers/filesystem/ListIconThumbnail.h>
#include <tessel/providers/filesystem/WinProviderVolume.h>
#include <tessel/providers/filesystem/WinVolumeUtils.h>

namespace Tessel {

SDKContentMap WinProviderNetworkVolume::GetContent(const std::string&, const any_regular_t&,
                                                   const SDKFieldSet& fields,
                                                   ProviderRequest* request) {
    SDKContentMap content;
    WinVolumeUtils::GetNetUseContent(content, fields,
                                     [request] { return IsRequestAborted(request); });
    return content;
}

SDKFieldSet WinProviderNetworkVolume::GetFieldList() {
    return VolumeListFields();
}

std::vector<std::string> WinProviderNetworkVolume::GetDefaultFieldList() {
    return {kSDKNameField, kSDKPathField};
}

std::map<std::u16string, std::u16string> WinProviderNetworkVolume::GetFieldLabelList() {
    return VolumeListLabels();
}

int WinProviderNetworkVolume::CanProvideFor(const std::string& path, const any_regular_t&,
                                            DirectoryContents&, const AbortPredicate&) {
    return path == kSDKNetworkVolumeListPath ? 100 : 0;
}

std::string WinProviderNetworkVolume::GetIdentification() {
    return std::string(kProviderIDPrefix) + "WinProviderNetworkVolume";
}

std::string WinProviderNetworkVolume::GetUIString() {
    return Localize("$$$/Pelimar/Libraries/Tessel/WinNetworkVolumeUIString=Network Volume");
}

std::uint32_t WinProviderNetworkVolume::GetMaximumThumbnailHeight(std::uint32_t requestedHeight) {
    return ListItemIconHeight(requestedHeight);
}

PelPixHandle WinProviderNetworkVolume::GetThumbnail(const std::string& itemPath, const std::string&,
                                                    const any_regular_t&, std::uint32_t width,
                                                    std::uint32_t height,
                                                    ProviderRequest* request) {
    if (IsRequestAborted(request) || itemPath.empty())
        return nullptr;
    return RenderListItemIcon(Path::AddTrailingSeparator(std::string_view(itemPath)), width,
                              height);
}

bool WinProviderNetworkVolume::ShouldCheckFilter() {
    return false;
}
bool WinProviderNetworkVolume::IsSelectable() {
    return true;
}

}  // namespace Tessel

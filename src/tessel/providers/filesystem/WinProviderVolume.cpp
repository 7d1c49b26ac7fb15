#include <tessel/providers/filesystem/WinProviderVolume.h>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/media/DirectoryChangeMonitor.h>
#include <tessel/providers/filesystem/ListIconThumbnail.h>
#include <tessel/providers/filesystem/WinVolumeUtils.h>

namespace Tessel {

const std::vector<std::pair<std::string, std::string>>& VolumeListColumns() {
    static const std::vector<std::pair<std::string, std::string>> columns{
        {kSDKNameField, "$$$/Pelimar/Provider/WinVolume/Column/Name=Name"},
        {kSDKPathField, "$$$/Pelimar/Provider/WinVolume/Column/Path=Path"},
        {kSDKExtraPathField, "$$$/Pelimar/Provider/WinVolume/Column/ExtraPath=Additional Path"},
    };
    return columns;
}

SDKContentMap WinProviderVolume::GetContent(const std::string&, const any_regular_t&,
                                            const SDKFieldSet& fields, ProviderRequest* request) {
    SDKContentMap content;
    WinVolumeUtils::GetDriveLetterContent(content, fields,
                                          [request] { return IsRequestAborted(request); });
    return content;
}

SDKFieldSet VolumeListFields() {
    SDKFieldSet fields;
    for (const auto& column : VolumeListColumns())
        fields.insert(column.first);
    return fields;
}

std::map<std::u16string, std::u16string> VolumeListLabels() {
    std::map<std::u16string, std::u16string> labels;
    for (const auto& [key, label] : VolumeListColumns()) {
        labels.emplace(Utf8ToUtf16(key), LocalizeUtf16(label));
    }
    return labels;
}

SDKFieldSet WinProviderVolume::GetFieldList() {
    return VolumeListFields();
}

std::vector<std::string> WinProviderVolume::GetDefaultFieldList() {
    return {kSDKNameField, kSDKPathField};
}

std::map<std::u16string, std::u16string> WinProviderVolume::GetFieldLabelList() {
    return VolumeListLabels();
}

int WinProviderVolume::CanProvideFor(const std::string& path, const any_regular_t&,
                                     DirectoryContents&, const AbortPredicate&) {
    return path == kSDKVolumeListPath ? 100 : 0;
}

std::string WinProviderVolume::GetIdentification() {
    return std::string(kProviderIDPrefix) + "WinProviderVolume";
}

std::string WinProviderVolume::GetUIString() {
    return Localize("$$$/Pelimar/Libraries/Tessel/WinVolumeUIString=Volume");
}

std::uint32_t WinProviderVolume::GetMaximumThumbnailHeight(std::uint32_t requestedHeight) {
    return ListItemIconHeight(requestedHeight);
}

PelPixHandle WinProviderVolume::GetThumbnail(const std::string& itemPath, const std::string&,
                                             const any_regular_t&, std::uint32_t width,
                                             std::uint32_t height, ProviderRequest* request) {
    if (IsRequestAborted(request))
        return nullptr;
    return RenderListItemIcon(itemPath, width, height);
}

bool WinProviderVolume::ShouldCheckFilter() {
    return false;
}
bool WinProviderVolume::IsSelectable() {
    return true;
}

void WinProviderVolume::MonitorPath(const std::u16string&, const any_regular_t&) {
    MF::DirectoryChangeMonitor::MonitorVolumeChanges();
}

void WinProviderVolume::StopMonitoringPath(const std::u16string&, const any_regular_t&) {
    MF::DirectoryChangeMonitor::StopMonitoringVolumeChanges();
}

}  // namespace Tessel

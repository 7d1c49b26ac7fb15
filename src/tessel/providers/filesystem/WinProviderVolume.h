// The volume list: the virtual container "volumes:" holding the machine's mounted file
// systems (see WinVolumeUtils.h). Its items are plain folder paths that the file directory
// provider then opens. While a host shows the list, the provider has volume changes
// (mounts and unmounts) reported, so the host knows when to list it again.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <tessel/framework/Provider.h>
#include <tessel/platform/Export.h>

namespace Tessel {

// The column table of both volume lists, in bit order: (field key, localization key).
TESSEL_API const std::vector<std::pair<std::string, std::string>>& VolumeListColumns();
// Its field keys, and each key with its localized label.
TESSEL_API SDKFieldSet VolumeListFields();
TESSEL_API std::map<std::u16string, std::u16string> VolumeListLabels();

class TESSEL_API WinProviderVolume : public Provider {
public:
    SDKContentMap GetContent(const std::string& path, const any_regular_t& state,
                             const SDKFieldSet& fields, ProviderRequest* request) override;
    SDKFieldSet GetFieldList() override;
    std::vector<std::string> GetDefaultFieldList() override;
    std::map<std::u16string, std::u16string> GetFieldLabelList() override;
    // 100 for exactly "volumes:" (byte for byte), otherwise 0.
    int CanProvideFor(const std::string& path, const any_regular_t& state,
                      DirectoryContents& contents, const AbortPredicate& abort) override;
    std::string GetIdentification() override;
    std::string GetUIString() override;
    std::uint32_t GetMaximumThumbnailHeight(std::uint32_t requestedHeight) override;
    // The volume's icon; null when the request has been aborted.
    PelPixHandle GetThumbnail(const std::string& itemPath, const std::string& extraPath,
                              const any_regular_t& state, std::uint32_t width, std::uint32_t height,
                              ProviderRequest* request) override;
    bool ShouldCheckFilter() override;
    bool IsSelectable() override;
    // Volume-change monitoring on and off; the path is ignored.
    void MonitorPath(const std::u16string& path, const any_regular_t& state) override;
    void StopMonitoringPath(const std::u16string& path, const any_regular_t& state) override;
};

}  // namespace Tessel

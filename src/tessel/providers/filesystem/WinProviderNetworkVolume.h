// The network-volume list: the virtual container "networkvolumes:" holding the machine's
// network mounts (see WinVolumeUtils.h). Its items are plain folder paths that the file
// directory provider then opens. It keeps the base behaviour for monitoring: the list path
// itself is never watched.
#pragma once

#include <tessel/framework/Provider.h>
#include <tessel/platform/Export.h>

namespace Tessel {

class TESSEL_API WinProviderNetworkVolume : public Provider {
public:
    SDKContentMap GetContent(const std::string& path, const any_regular_t& state,
                             const SDKFieldSet& fields, ProviderRequest* request) override;
    // The same three columns as the volume list (VolumeListColumns).
    SDKFieldSet GetFieldList() override;
    std::vector<std::string> GetDefaultFieldList() override;
    std::map<std::u16string, std::u16string> GetFieldLabelList() override;
    // 100 for exactly "networkvolumes:" (byte for byte), otherwise 0.
    int CanProvideFor(const std::string& path, const any_regular_t& state,
                      DirectoryContents& contents, const AbortPredicate& abort) override;
    std::string GetIdentification() override;
    std::string GetUIString() override;
    std::uint32_t GetMaximumThumbnailHeight(std::uint32_t requestedHeight) override;
    // The share's icon, asked for the path with a trailing separator so that the share root
    // is the directory part and the file part is empty; null when the request was aborted.
    PelPixHandle GetThumbnail(const std::string& itemPath, const std::string& extraPath,
                              const any_regular_t& state, std::uint32_t width, std::uint32_t height,
                              ProviderRequest* request) override;
    bool ShouldCheckFilter() override;
    bool IsSelectable() override;
};

}  // namespace Tessel

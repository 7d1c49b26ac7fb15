// RED clips. A RED camera records each clip into a clip folder named after it with ".RDC"
// ("A001_C002_0101AB.RDC"), holding the clip's ".R3D" segments (a new one each time the
// current one reaches the file system's size limit: A001_C002_0101AB_001.R3D, _002.R3D, ...)
// and the camera's files of the clip (".RMD" metadata, proxies), all named after the clip.
// The clip folders sit in a reel folder (".RDM") on the card.
//
// Recognition (CanProvideFor): a folder with a sub-folder whose extension is ".rdc" (letter
// case aside) holding an ".r3d" file scores 100; 0 otherwise. Only the ".rdc" folders are
// read, each until its first segment.
//
// Listing (GetContent of the reel folder): one item per sub-folder that holds an ".r3d" file,
// whatever the sub-folder's extension, in walk order. The item is the sub-folder's first
// segment in walk order (sorted, so _001.R3D stands for the clip); its key and Path are that
// file, Name its file name; metadata fields come from it through exempi. ExtraPath, when asked
// for: every other file of the clip folder whose title (name without extension) begins with
// the clip's title, the folder's name without its extension, compared exactly: the other
// segments, the metadata file and the rest the camera wrote for the clip. Files of the reel
// folder itself are not listed.
//
// Thumbnails are the RED picture, no higher than 16 pixels.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <tessel/framework/Provider.h>
#include <tessel/platform/Export.h>

namespace Tessel {

class TESSEL_API ProviderRED : public Provider {
public:
    SDKContentMap GetContent(const std::string& path, const any_regular_t& state,
                             const SDKFieldSet& fields, ProviderRequest* request) override;
    SDKFieldSet GetFieldList() override;
    std::vector<std::string> GetDefaultFieldList() override;
    std::map<std::u16string, std::u16string> GetFieldLabelList() override;
    int CanProvideFor(const std::string& path, const any_regular_t& state,
                      DirectoryContents& contents, const AbortPredicate& abort) override;
    std::string GetIdentification() override;
    std::string GetUIString() override;
    std::uint32_t GetMaximumThumbnailHeight(std::uint32_t requestedHeight) override;
    PelPixHandle GetThumbnail(const std::string& itemPath, const std::string& extraPath,
                              const any_regular_t& state, std::uint32_t width, std::uint32_t height,
                              ProviderRequest* request) override;
    bool ShouldCheckFilter() override;
    bool IsSelectable() override;
};

}  // namespace Tessel

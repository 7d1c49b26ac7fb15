// CinemaDNG clips, as cameras record them: a clip folder of one ".dng" frame per frame, named
// after the clip with the frame number after a last "_" ("A001_08051203_C001_000000.dng"), and
// the clip's sound beside them, named after the clip ("A001_08051203_C001.wav"). See
// ProviderFileSequenceBase.h for recognition and listing; metadata fields come from the XMP
// each DNG holds.
//
// ExtraPath, when asked for: every ".dng" file of the folder (letter case aside), in walk
// order, the item's own first; then the sound file, whose name is the item's title up to its
// last "_" with ".WAV", looked for as Windows looks for a name (letter case aside) among the
// folder's files. A title without "_" has no sound file.
#pragma once

#include <tessel/platform/Export.h>
#include <tessel/providers/cards/ProviderFileSequenceBase.h>

namespace Tessel {

class TESSEL_API ProviderCinemaDNG : public ProviderFileSequenceBase {
public:
    std::string GetIdentification() override;
    std::string GetUIString() override;
    PelPixHandle GetThumbnail(const std::string& itemPath, const std::string& extraPath,
                              const any_regular_t& state, std::uint32_t width, std::uint32_t height,
                              ProviderRequest* request) override;
    bool IsFrameFile(std::u16string_view name) const override;
    void AddItemFields(SDKPropertyMap& record, const std::u16string& itemPath,
                       const std::vector<std::u16string>& files, const SDKFieldSet& fields,
                       const XMPFieldSet& metadataFields) override;
};

}  // namespace Tessel

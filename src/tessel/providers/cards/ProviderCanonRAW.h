// Canon RAW clips: a clip folder of one ".rmf" frame per file, beside the recorder's clip
// files: CLIPINFO.XML (the clip's description), HrClip.inf (the recorder's index of the clip)
// and the clip's sound as ".wav" files. See ProviderFileSequenceBase.h for recognition and
// listing.
//
// ExtraPath, when asked for, in this order: CLIPINFO.XML and HrClip.inf (names compared as
// Windows compares them, letter case aside), every ".wav" file of the folder in walk order,
// then the first frame's XMP sidecar (its name with ".xmp"). Each only when it is there.
// Metadata fields come from that sidecar. The picture is the library's coloured video icon.
#pragma once

#include <tessel/platform/Export.h>
#include <tessel/providers/cards/ProviderFileSequenceBase.h>

namespace Tessel {

class TESSEL_API ProviderCanonRAW : public ProviderFileSequenceBase {
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

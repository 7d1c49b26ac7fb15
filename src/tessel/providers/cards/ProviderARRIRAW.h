// ARRIRAW clips: a clip folder of one frame per file, ".ari" or, for frames in the
// high-density encoding, ".arx", named after the clip with a frame number
// ("A001C001_140101_R1AB.0000000.ari"). See ProviderFileSequenceBase.h for recognition and
// listing; a folder holding both kinds is one clip, listed by its first frame in walk order.
//
// ExtraPath, when asked for: the first frame's XMP sidecar (its name with ".xmp", any letter
// case), where editing tools keep what they annotated; nothing when there is none. Metadata
// fields come from that sidecar.
#pragma once

#include <tessel/platform/Export.h>
#include <tessel/providers/cards/ProviderFileSequenceBase.h>

namespace Tessel {

class TESSEL_API ProviderARRIRAW : public ProviderFileSequenceBase {
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

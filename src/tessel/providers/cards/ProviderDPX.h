// Folders of DPX frames, as film scanners and finishing tools write them: one ".dpx" file per
// frame, numbered ("reel1_0086400.dpx"), often with gaps where frames were dropped or
// re-scanned. See ProviderFileSequenceBase.h for recognition and listing.
//
// The item's own fields:
// - ExtraPath: the first frame's XMP sidecar (its name with ".xmp", any letter case), which
//   editing tools write for a clip of frames; nothing when there is none. The other frames
//   are not listed: a scan runs to a hundred thousand of them, and they are the folder.
// - from the first frame's header (DPXHeader.h), for fields the XMP left out: videoFrameSize,
//   videoFrameRate, startTimecode (the first frame's time code), CreateDate (when the frame
//   was written), Model and SerialNumber (the scanner or device that wrote it), and duration:
//   the span of the clip's frame numbers, first to last with the gaps counted (a conform lays
//   frames on their numbers), as time code at the header's rate. The clip is the frames that
//   share the first frame's name up to its number, and its extension.
#pragma once

#include <tessel/platform/Export.h>
#include <tessel/providers/cards/ProviderFileSequenceBase.h>

namespace Tessel {

class TESSEL_API ProviderDPX : public ProviderFileSequenceBase {
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

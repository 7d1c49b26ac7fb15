// The recording folder of a Sony HDV memory recording unit (or a copy of the card): VIDEO/HVR
// holds the recordings as plain files named after the camera number, the clip number and the
// time the recording began, "07_0001_2008-05-17_153000.M2T" (HDV; ".AVI" or ".DV" for DV),
// each with its index file (".IDX") and, once an editing tool has annotated it, its XMP file.
// The unit keeps a table of the folder's recordings (frames, start timecode, files) in
// TRACKS.DAT beside them, which the unit's joining tool needs.
//
// Recognition (CanProvideFor): a folder holding VIDEO/HVR is claimed, even with no recording
// yet: 100 when every visible file of VIDEO/HVR passes the name test (sidecars accepted), 40
// when any does not (TRACKS.DAT and numbered parts included: they are not recordings).
//
// Name test (IsSonyHDVRecordingName): longer than 27 characters; the first 26 follow
// "##_####_####-##-##_######." (each '#' a digit), the whole pattern matched before the
// extension is looked at; the rest is the extension, exactly "M2T", "AVI" or "DV" (the
// recordings), or with sidecars accepted also "IDX" or "XMP".
//
// Listing (GetContent of the card root):
// - one item per recording, for each name stem that has a recording file. Its key and Path are
//   that file; Name is its stem; ExtraPath lists the recording file, its sidecars (IDX, XMP),
//   then its numbered parts in order, then the folder's TRACKS.DAT (matched whatever its letter
//   case, as units write "Tracks.dat"). A numbered part continues a recording that tools split
//   to keep files within a file system's size limit: its name is the recording's stem, "-%02d"
//   with the part number from 01, and an extension of the name test, such as
//   "07_0001_2008-05-17_153000-01.M2T" (with its own sidecars); parts are looked for by those
//   names in order until one is missing.
// - every other entry of the card root, of VIDEO and of VIDEO/HVR as itself: folders as folder
//   items, files (TRACKS.DAT when no recording lists it) as file items. Nothing is lost.
// Metadata fields come from the recording through exempi's HDV support (its index file).
// Thumbnails: the icon of the recording file; a file beside them, its own picture if an image.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <tessel/framework/Provider.h>
#include <tessel/platform/Export.h>
#include <tessel/providers/cards/CardFieldLists.h>

namespace Tessel {

// The name test above, of a file name (no folder).
TESSEL_API bool IsSonyHDVRecordingName(std::u16string_view name, bool sidecarsAccepted);

class TESSEL_API ProviderSonyHDV : public CardColumnsProvider {
public:
    SDKContentMap GetContent(const std::string& path, const any_regular_t& state,
                             const SDKFieldSet& fields, ProviderRequest* request) override;
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

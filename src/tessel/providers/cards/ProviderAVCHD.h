// AVCHD camcorder media, and folders copied in the same BDMV layout (see AVCHDUtils.h), listed
// as one item per shot instead of the folder tree. Cameras write the layout under
// PRIVATE/AVCHD/BDMV on a card; a copy may keep it at any depth.
//
// Recognition (CanProvideFor) of a folder:
// - the layout root test: BDMV with STREAM, CLIPINF and PLAYLIST folders, index.bdmv or
//   index.bdm, MovieObject.bdmv or MOVIEOBJ.BDM (existence tests: any letter case). Every
//   visible file of STREAM must pass the stream file name test (IsStreamFileName), or foreign
//   files lie in it (a README, a sidecar an editing tool wrote);
// - a folder that holds BDMV passing the test is claimed; so is a folder whose only entry is
//   an AVCHD folder holding one (PRIVATE on a card): its sub-folders (hidden ones too) and
//   visible files are counted, less the files at the start of the walk whose names begin
//   with '.' (a Mac's .DS_Store on a card read on Windows), and the count must be below 2;
// - 100 for a claimed folder, 40 with foreign files in STREAM, 0 otherwise.
//
// Listing (GetContent): the layout root is the folder's BDMV, else its AVCHD/BDMV. Every
// playlist (.mpls, .MPL) names its shot heads; each head's stream file (<N>.MTS, else
// <N>.m2ts) is one item, in order of path, a name listed twice (or as both .MTS and .m2ts)
// once. Its key is the stream file's name ("00012.MTS"), Name its five digits, Path the
// stream file (UTF-8). ExtraPath, when asked for, lists (UTF-8) for each clip of the shot
// (GetShotClips) its clip information (.clpi, else .CLP, else .CPI: the long name first, as
// discs write it, each spelling in any letter case), its sidecar <N>.xmp and, for the clips
// after the head, their stream files; then the playlists (.mpls, then .MPL), the
// movie-object and index files, and the folders BACKUP, STREAM, PLAYLIST, CLIPINF.
//
// Metadata fields: an editing tool's sidecar (STREAM/<N>.xmp) wins, field by field; what it
// leaves out comes from the camera's own files (AVCHDMetadata.h): the duration of the shot's
// PlayItems, the start timecode, recording date, mark name, frame rate and size, audio,
// maker and model code, and a Panasonic camera's shot mark, creator, serial number, place and
// global clip ID. exempi reads nothing from stream files itself.
//
// Thumbnails are the provider's picture (image resource 10000, the camera card), no higher
// than 16 pixels. Each listing writes the trace line "GetContents took N ms for path: P"
// (category ProviderAVCHD).
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <tessel/framework/Provider.h>
#include <tessel/platform/Export.h>

namespace Tessel {

class TESSEL_API ProviderAVCHD : public Provider {
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

// Sony XDCAM optical discs, mounted or copied into a folder, in either of their two layouts:
//   PROAV layout: PROAV/ holding CLPR/ (one folder per clip, named by its clip ID), INDEX.XML
//     (the disc index with the clip table), DISCMETA.XML, DISCINFO.XML, EDTR/, USERDATA/,
//     General/ and the backups INDEX.BUP, DISCINFO.BUP;
//   root layout: Clip/ (the clips' essence and metadata side by side), Sub/ (proxies),
//     MEDIAPRO.XML (the media profile), DISCMETA.XML, General/, ALIAS.XML, in the disc root.
//
// Recognition (CanProvideFor): the layout's entries are walked in walk order (NTFS order on
// every platform) against a table of the names it must hold (four required bits) and those it
// tolerates; any other entry raises the extra-contents flag. 100 for a clean disc, 40 when
// the flag is raised, 0 when a required name is missing or the layout has too few entries.
// Names read from a listing are compared exactly; only the test for PROAV itself is an
// existence test, and like every such test it ignores letter case.
//
// Listing (GetContent of a disc root):
// - one item per clip: a sub-folder of PROAV/CLPR, or in the root layout a clip name that
//   Clip/ holds files of (<clip>.MXF, <clip>M01.XML, ...). Its key and Path are its video
//   essence (<clip>V01.MXF, else <clip>A01.MXF, else its first .MXF, else its M01.XML); Name is
//   the clip name; ExtraPath lists its files, the essence first, then the clip's other files in
//   walk order (its clip folder in the PROAV layout; its files in Clip/ and Sub/ in the root
//   layout). Files in the clip folders are given to the clip whose name begins theirs.
// - every entry of the disc root, of PROAV and of the clip folders that is neither part of
//   the disc's structure (its known files) nor a clip's file, as itself: a folder as a folder
//   item (Directory true), a file as a file item without ExtraPath; General/, where users keep
//   their own documents, too. Nothing on the disc is out of reach.
// Metadata fields come from the clip's essence through exempi's XDCAM support, and from the
// clip's non-real-time metadata (SonyClipMetadata.h) for what exempi leaves out: the start
// timecode always, as the camera wrote it, and the duration, frame rate, frame size, codec,
// creation date and device when exempi has none. ModifyDate is the disc's last update, from
// DISCMETA.XML: a disc is rewritten as a whole (its index and metadata with every change), so
// that is when any clip of it last changed; without one, the clip's own last update.
//
// Thumbnails are small by contract (GetMaximumThumbnailHeight caps them at 16 pixels): the
// icon of the clip's essence, or for a file beside the clips its own picture when it is an
// image.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <tessel/framework/Provider.h>
#include <tessel/platform/Export.h>
#include <tessel/providers/cards/CardFieldLists.h>

namespace Tessel {

// One "clip" entry of the PROAV clip table (INDEX.XML: clipTable / clip), its files as named.
struct TESSEL_API XDCAMClipTableEntry {
    std::u16string clipID;              // clipId, also the clip's folder under PROAV/CLPR
    std::u16string file;                // the clip's main file
    std::u16string subStream;           // video / subStream file: the proxy
    std::u16string rtmeta;              // real-time metadata file
    std::vector<std::u16string> meta;   // every meta file
    std::vector<std::u16string> audio;  // every audio file
};

// Reads the clip table of a PROAV INDEX.XML. False when the file cannot be parsed or has no
// document element with children; a missing table or entry adds nothing.
TESSEL_API bool ReadXDCAMClipTable(const std::u16string& indexPath,
                                   std::vector<XDCAMClipTableEntry>& clips);
// The same for bytes held in memory (INDEXPATH only names them).
TESSEL_API bool ReadXDCAMClipTableFromBytes(const std::string& bytes,
                                            const std::u16string& indexPath,
                                            std::vector<XDCAMClipTableEntry>& clips);

// The disc's own structure in the PROAV layout, in this order: PROAV/General, DISCINFO.BUP,
// DISCINFO.XML, INDEX.BUP, DISCMETA.XML, INDEX.XML, EDTR, USERDATA (under PROAV), then each
// clip's files of CLIPS (main file, proxy, real-time metadata, metadata, audio) under
// PROAV/CLPR/<clip ID>.
TESSEL_API std::vector<std::u16string> XDCAMKnownFiles(
    const std::u16string& discRoot, const std::vector<XDCAMClipTableEntry>& clips);

// What the disc's metadata file (DISCMETA.XML) says of the disc as a whole.
struct TESSEL_API XDCAMDiscMeta {
    std::u16string lastUpdate;  // the document element's lastUpdate, as written
};

// Reads DISCMETA.XML; false when it cannot be parsed or has no document element.
TESSEL_API bool ReadXDCAMDiscMeta(const std::u16string& path, XDCAMDiscMeta& disc);
TESSEL_API bool ReadXDCAMDiscMetaFromBytes(const std::string& bytes, const std::u16string& path,
                                           XDCAMDiscMeta& disc);

class TESSEL_API ProviderXDCAM : public CardColumnsProvider {
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

    // The disc test of a folder: true when it is an XDCAM disc root in either layout;
    // EXTRACONTENTS tells whether entries outside the layout's tables were met.
    static bool DiscTest(DirectoryContents& contents, bool& extraContents,
                         const AbortPredicate& abort);
};

}  // namespace Tessel

// Panasonic P2 cards, and copies of them: the clips of a card listed as items, one per shot,
// instead of its folder tree. A card keeps each clip as files in fixed folders under
// CONTENTS: the clip's XML in CLIP, video in VIDEO, audio in AUDIO (one file per channel), an
// 80 x 60 bitmap in ICON, proxies in PROXY, voice memos in VOICE. A long recording (a shot) is
// split into clips that the clip XML files chain together, possibly across several cards.
//
// Recognition (CanProvideFor): 100 for a clean card, 40 when foreign entries lie beside the
// P2 structure, 0 otherwise. Names read from a listing are compared exactly, and the rules
// depend on the walk order (NTFS order on every platform): see CardTest and ContentsTest.
// With "P2.EnableMissingMediaCheck" on (the default), a card whose clips miss essence is not
// claimed, so a partly copied card is browsed as plain folders.
//
// Listing (GetContent of a card root):
// - one item per shot with a piece on this card. Its key and Path are the XML file of the
//   shot's first piece on this card; Name is the shot's first clip name (of the top clip,
//   read from a neighbouring card when the shot began there); ExtraPath lists the XML files
//   of every piece found, in shot order (offset in shot), the top clip first, so a thumbnail
//   request carries the top clip. Pieces on neighbouring cards are found by walking the
//   card's sibling folders, or for a card mounted as a volume, the other mounted volumes,
//   and only when a shot of this card is incomplete.
// - when anything lies on the card outside the P2 structure, one folder item named
//   "-Extra P2 Directory Contents-", whose path is the card root joined with that name.
//   Opening it lists those entries: the card root's other files and folders, CONTENTS'
//   folders other than the six P2 ones, and the files of the P2 folders that belong to no
//   clip read from this card. Files there carry ExtraPath "*Non-P2 File*"; folders are
//   folders of the file directory provider.
// Metadata fields come from the top clip through exempi's P2 support, except the start
// timecode, read from the clip XML as the camera wrote it (exempi doubles the frame number at
// 50p and 59.94p), and the duration, the sum of the pieces' durations.
//
// The thumbnail of a shot is its top clip's bitmap, ICON/<clip>.BMP, on this card or else on
// the first neighbouring card that has it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <tessel/framework/Provider.h>
#include <tessel/platform/Export.h>
#include <tessel/providers/cards/CardFieldLists.h>

namespace Tessel {

// One clip XML file, read (ReadP2ClipRecord).
struct TESSEL_API P2ClipRecord {
    std::u16string globalClipID;
    std::u16string clipName;
    std::u16string globalShotID;
    std::u16string editUnit;  // a rational such as "1001/30000", as written
    std::u16string topClipID;
    std::u16string nextClipID;
    std::u16string nextClipName;
    std::u16string previousClipID;
    std::u16string previousClipName;
    std::uint32_t offsetInShot = 0;  // in edit units
    std::uint32_t duration = 0;      // in edit units
    bool dropFrame = false;
    // Beyond the identity of the clip: what the listing and the missing-media check read.
    std::u16string frameRate;         // "59.94i", "50p", ...
    std::u16string startTimecode;     // as written
    bool hasVideo = false;            // EssenceList holds a Video element
    std::uint32_t audioChannels = 0;  // Audio elements in EssenceList
    std::u16string xmlPath;           // the file read
};

// Reads a clip XML file; false when it cannot be parsed (the clip is then skipped).
TESSEL_API bool ReadP2ClipRecord(const std::u16string& xmlPath, P2ClipRecord& record);
// The same for bytes held in memory (XMLPATH only names them).
TESSEL_API bool ReadP2ClipRecordFromBytes(const std::string& bytes, const std::u16string& xmlPath,
                                          P2ClipRecord& record);

// The start timecode as the camera shows it, from the clip's own XML: "HH:MM:SS:FF", or
// "HH:MM:SS;FF" for drop frame at 29.97 and 59.94 (59.94p included). Empty when none.
TESSEL_API std::string P2DisplayStartTimecode(const P2ClipRecord& record);

inline constexpr const char* kP2ExtraContentsName = "-Extra P2 Directory Contents-";
inline constexpr const char* kP2NonP2FileMarker = "*Non-P2 File*";

class TESSEL_API ProviderP2 : public CardColumnsProvider {
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

    // The card test of a folder: true when PATH is a P2 card root; EXTRACONTENTS tells whether
    // foreign entries lie beside the P2 structure.
    static bool CardTest(DirectoryContents& contents, bool& extraContents,
                         const AbortPredicate& abort);
};

}  // namespace Tessel

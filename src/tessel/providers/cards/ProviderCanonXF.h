// Canon XF cards (the CompactFlash cards of the MPEG-2 XF camcorders and cinema cameras, and the
// cards of the XF-AVC cameras that followed), mounted or copied into a folder. Canon publishes no
// description of the layout; as this provider understands it:
//   CONTENTS/
//     CLIPS001/              the clips; CLIPS002 and on when the camera starts another group
//       INDEX.MIF            the group's clip index (binary, not read here)
//       AA0012/              one folder per clip, named camera index, reel letter, clip number:
//         AA0012.XML         the clip's metadata (CanonClipRecord below)
//         AA0012.CIF         its clip information (binary), AA0012.CPF its picture settings
//         AA001201.MXF       the essence. A clip longer than a FAT32 file can hold (4 GB)
//         AA001202.MXF       continues in numbered pieces; a clip recorded on past the end of a
//                            card (relay recording) continues on the next card, in a clip folder
//                            of the same name
//       A001C001_110315AB.MXF   the XF-AVC cameras keep each clip flat in the group folder, its
//       A001C001_110315AB.XML   other files named after it
//
// Recognition: a folder holding CONTENTS (found whatever its letter case, as an existence test
// finds it) that holds at least one group folder, CLIPS and three digits, compared exactly. Any
// other entry of CONTENTS, or any entry beside CONTENTS in the folder, raises the extra-contents
// flag (40). A P2 card's CONTENTS holds no group folder and is not claimed.
//
// Listing:
// - one item per clip: a clip folder with files (folders of the same name in several groups are
//   one clip), or a flat .MXF with the files named after it. Name is the clip's name; key and
//   Path are its first piece on this card. ExtraPath holds its pieces (<clip>NN.MXF) in piece
//   order, then its other files in walk order. When the pieces here do not run from 01 without a
//   gap, the clip began on another card: the cards beside this one (the folders beside it, or
//   for a card mounted as a volume the other volumes) are searched for the missing pieces, which
//   join the clip in their place.
// - every other entry as itself: entries beside CONTENTS and the group folders, files of a group
//   folder that belong to no clip, empty clip folders and folders inside clip folders.
//   INDEX.MIF is structure.
// Metadata comes from the clip XML: the start timecode and duration (of the whole clip) always,
// the rest when the essence's XMP (exempi, or a sidecar) has none. The card keeps no picture of a
// clip that is read here: thumbnails show the camera-card picture.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <tessel/platform/Export.h>
#include <tessel/providers/cards/CardClipProvider.h>

namespace Tessel {

// A clip's XML as this provider reads it, by element name only, each value the text of an
// element (the document element may have any name; a missing element leaves its field empty):
//   Duration                  the clip's length in frames, all its pieces together
//   FrameRate                 "29.97p", "25p", "59.94i", ...
//   StartTimecode             "HH:MM:SS:FF", ";" before the frames in drop frame
//   CreationDate              "2011-11-02T10:20:30+09:00"
//   Device / Manufacturer, ModelName, SerialNumber
//   UserMemo / Title, Creator, Location, Description    the clip's user memo
//   OKMark                    "true" for a clip marked good
struct TESSEL_API CanonClipRecord {
    std::uint32_t duration = 0;
    std::u16string frameRate;
    std::u16string startTimecode;
    std::u16string creationDate;
    std::u16string manufacturer;
    std::u16string modelName;
    std::u16string serialNumber;
    std::u16string title;
    std::u16string creator;
    std::u16string location;
    std::u16string description;
    bool good = false;
};

// Reads a clip XML file; false when it cannot be parsed (the clip then has no values of its own).
TESSEL_API bool ReadCanonClipRecord(const std::u16string& xmlPath, CanonClipRecord& record);
// The same for bytes held in memory (XMLPATH only names them).
TESSEL_API bool ReadCanonClipRecordFromBytes(const std::string& bytes,
                                             const std::u16string& xmlPath,
                                             CanonClipRecord& record);

// Fills the wanted fields of a clip's record from its clip XML (see above).
TESSEL_API void FillCanonClipValues(SDKPropertyMap& record, const SDKFieldSet& fields,
                                    const CanonClipRecord& clip);

// Clips kept flat in FOLDER (whose files are FILES): each file with the extension ESSENCE (lower
// case) and, when XML_REQUIRED, an .XML of the same name is a clip; the other files go to the
// clip with the longest name that begins theirs, or else to OTHERS. Clips come in walk order.
void FindFlatCanonClips(const std::vector<std::u16string>& files, std::u16string_view essence,
                        bool xmlRequired, std::vector<CardClipProvider::Clip>& clips,
                        std::vector<CardClipProvider::Entry>& others);
// True when LEAF is a clip group folder's name: "CLIPS" and three digits.
bool IsCanonClipGroup(const std::u16string& leaf);

class TESSEL_API ProviderCanonXF : public CardClipProvider {
public:
    std::string GetIdentification() override;
    std::string GetUIString() override;

protected:
    bool CardTest(DirectoryContents& contents, bool& extra, const AbortPredicate& abort) override;
    Listing ListCard(const std::u16string& root, const AbortPredicate& abort) override;
    void FillClipValues(SDKPropertyMap& record, const SDKFieldSet& fields,
                        const Clip& clip) override;
};

}  // namespace Tessel

// Sony XDCAM EX cards (SxS, and SD cards in their adapters), mounted or copied into a folder.
// The layout as this provider understands it:
//   BPAV/                         the card's top folder
//     MEDIAPRO.XML, MEDIAPRO.BUP  the media profile (SonyMediaProfile.h) and its backup
//     CUEUP.XML, CUEUP.BUP        cue-up data
//     CLPR/                       one folder per clip, named <machine id>_<take>_<clip>:
//       431_0012_01/              431_0012_01.MP4 (the essence), 431_0012_01.SMI (the clip
//                                 information; some writers name it ...C01.SMI),
//                                 431_0012_01M01.XML (non-real-time metadata, NonRealTimeMeta;
//                                 ...M01.XMP when a tool edited it), ...R01.BIM (real-time
//                                 metadata), ...I01.PPN (picture pointers)
//     TAKR/                       one folder per take recorded over several clips (files past
//       431_0012/                 the 4 GB limit of FAT32, or a recording continued on the next
//                                 card): 431_0012.SMI, 431_0012M01.XML, 431_0012U01.SMI
// The media profile names each take as a Material whose uri lies in TAKR and whose Components
// are its clips (their SMI files in CLPR), in recording order.
//
// Recognition: a folder holding BPAV (found whatever its letter case, as an existence test
// finds it) whose entries, compared exactly, include CLPR and MEDIAPRO.XML. TAKR and the backup
// and cue-up files are tolerated; any other entry of BPAV, or any entry beside BPAV in the
// folder, raises the extra-contents flag (40). The contents of the clip folders are not
// examined.
//
// Listing:
// - one item per take: a clip folder of CLPR with files, or the clips of a take of the media
//   profile that are on this card, folded into one item named after the take, in the profile's
//   order. Its key and Path are its first clip's essence (<clip>.MP4, else its first file);
//   ExtraPath holds every file of its clip folders, clip by clip in walk order, then the files
//   of its take folder. Pieces of a take on another card are listed when that card is opened.
// - every other entry as itself: entries beside BPAV, unknown entries of BPAV, files directly
//   in CLPR and TAKR, empty clip folders, folders inside clip folders, and take folders none of
//   whose clips are here.
// Metadata comes from the essence through exempi's XDCAM EX support and from the clips'
// M01.XML files (FillSonyClipValues: the start timecode, and a take's duration, the sum of its
// clips'). The card keeps no picture of a clip: thumbnails show the camera-card picture.
#pragma once

#include <string>

#include <tessel/platform/Export.h>
#include <tessel/providers/cards/CardClipProvider.h>

namespace Tessel {

class TESSEL_API ProviderXDCAMEX : public CardClipProvider {
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

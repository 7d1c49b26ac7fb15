// Sony XAVC cards, mounted or copied into a folder, in either of their two layouts. The layouts
// as this provider understands them:
//   XDROOT (XAVC on SxS, XQD and CFexpress cards: the XDCAM root layout, in its own folder, at the
//   card root or in PRIVATE):
//     XDROOT/MEDIAPRO.XML, MEDIAPRO.BUP   the media profile and its backup
//     XDROOT/DISCMETA.XML, CUEUP.XML, CUEUP.BUP
//     XDROOT/Clip/C0001.MXF               the essence; C0001M01.XML its non-real-time metadata
//                                         (NonRealTimeMeta; C0001M01.XMP when a tool edited it),
//                                         C0001R01.BIM its real-time metadata
//     XDROOT/Sub/C0001S03.MXF             the proxy
//     XDROOT/Thmbnl/C0001T01.JPG          the clip's picture
//     XDROOT/Local/C0001C01.SMI, C0001I01.PPN
//     XDROOT/Take/, Edit/, General/, UserData/
//   M4ROOT (XAVC S, XAVC HS and XAVC on SD and CFexpress cards of cameras that also write photos):
//     PRIVATE/M4ROOT/MEDIAPRO.XML, MEDIAPRO.BUP, STATUS.BIN
//     PRIVATE/M4ROOT/CLIP/C0001.MP4       the essence; C0001M01.XML its non-real-time metadata
//     PRIVATE/M4ROOT/SUB/C0001S03.MP4     the proxy
//     PRIVATE/M4ROOT/THMBNL/C0001T01.JPG  the clip's picture
//     PRIVATE/M4ROOT/GENERAL/
//     beside them DCIM/ (photos) and PRIVATE/SONY/ (camera settings)
//
// Recognition: a folder holding XDROOT, PRIVATE/XDROOT or PRIVATE/M4ROOT (found whatever their
// letter case, as existence tests find them) where at least one of these media folders holds,
// compared exactly, its clip folder (Clip, or CLIP in M4ROOT) and MEDIAPRO.XML. The other names
// above are tolerated; any other entry of a media folder, a media folder that fails, an entry of
// PRIVATE other than M4ROOT, XDROOT and SONY, or an entry beside XDROOT, PRIVATE and DCIM in the
// folder raises the extra-contents flag (40). An XDCAM disc in the root layout holds none of
// these folders and stays the XDCAM provider's; so does an XDROOT folder opened by itself, which
// that provider lists as a disc in the root layout.
//
// Listing:
// - one item per clip: a clip name that the clip folder holds files of (<clip>.MXF or .MP4,
//   <clip>M01.XML). Its key and Path are its essence (else its first file); ExtraPath holds its
//   files of the clip folder, then of the proxy, picture and local folders (each file given to
//   the clip with the longest name that begins its name), each folder in walk order.
// - every other entry as itself: entries beside the media folders (DCIM, PRIVATE/SONY, ...),
//   unknown entries of a media folder, General/GENERAL, files of the clip folders that belong to
//   no clip, and folders inside them. Take/, Edit/, UserData/ and the media folders' own files
//   are structure. A take recorded over several cards is listed clip by clip.
// Metadata comes from the essence through exempi and from the clip's M01.XML
// (FillSonyClipValues). Thumbnails show the clip's picture, Thmbnl/<clip>T01.JPG, when the card
// has it, else the camera-card picture.
#pragma once

#include <string>

#include <tessel/platform/Export.h>
#include <tessel/providers/cards/CardClipProvider.h>

namespace Tessel {

class TESSEL_API ProviderXAVC : public CardClipProvider {
public:
    std::string GetIdentification() override;
    std::string GetUIString() override;

protected:
    bool CardTest(DirectoryContents& contents, bool& extra, const AbortPredicate& abort) override;
    Listing ListCard(const std::u16string& root, const AbortPredicate& abort) override;
    void FillClipValues(SDKPropertyMap& record, const SDKFieldSet& fields,
                        const Clip& clip) override;
    std::u16string ClipPicture(const std::u16string& essence) override;
};

}  // namespace Tessel

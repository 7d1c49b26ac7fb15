// Canon XF-HEVC cards (the camcorders that record HEVC in MP4 files to SD cards), mounted or
// copied into a folder. Canon publishes no description of the layout, and the cameras are
// described as writing their clips in one of two places; this provider accepts both:
//   XFVC/CLIPS001/A001C001_190315AB.MP4    a clip's essence; the .XML of the same name its
//                                          metadata, in the clip XML vocabulary of the XF cards
//                                          (CanonClipRecord, ProviderCanonXF.h); further files
//                                          whose names begin with the clip's name (its proxy
//                                          ..._Proxy.MP4, ...) belong to it; CLIPS002 and on
//   DCIM/100CANON/A001C001_190315AB.MP4    the same files in a photo folder of the DCF rules
//   DCIM/100CANON/A001C001_190315AB.XML    (three digits and five characters), where the camera
//                                          also keeps its photos; DCIM/CANONMSC its settings
// A clip is an .MP4 with an .XML of the same name; an .MP4 without one goes to the clip whose
// name begins its name, as a proxy does.
//
// Recognition: a folder holding XFVC (found whatever its letter case, as an existence test finds
// it) with at least one group folder, CLIPS and three digits; or else holding DCIM with at least
// one clip in a DCF folder. Extra contents (40): entries beside XFVC, DCIM and MISC in the folder,
// entries of XFVC other than group folders, and in the DCIM form entries of DCIM other than DCF
// folders and CANONMSC, and files of DCF folders that belong to no clip (photos among them: a
// card of photos and clips is still claimed). A DCIM of photos and videos without clip XML files
// is not claimed.
//
// Listing: one item per clip (key and Path its .MP4, ExtraPath its files in walk order); every
// other entry as itself, folders included. Metadata comes from the essence through exempi and
// from the clip XML (FillCanonClipValues). Thumbnails show the camera-card picture.
#pragma once

#include <string>

#include <tessel/platform/Export.h>
#include <tessel/providers/cards/CardClipProvider.h>

namespace Tessel {

class TESSEL_API ProviderCanonXFHEVC : public CardClipProvider {
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

// Writes the bundled samples that `tessel browse` (make run) shows into FOLDER:
//   tessel_make_samples FOLDER
// The card layouts come from the test fixtures, so the samples are cards as cameras write
// them. Regenerate with `make samples` after changing a fixture; the test samples-current
// compares the committed folder with what this writes.
#include <cstdio>
#include <exception>

#include "fixtures/AVCHDCard.h"
#include "fixtures/CanonCards.h"
#include "fixtures/FixtureFiles.h"
#include "fixtures/FrameSequences.h"
#include "fixtures/P2Card.h"
#include "fixtures/REDCard.h"
#include "fixtures/SonyCards.h"
#include "fixtures/SonyHDVCard.h"
#include "fixtures/XDCAMDisc.h"

namespace fs = std::filesystem;
using namespace Tessel::Fixtures;

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: tessel_make_samples FOLDER\n");
        return 2;
    }
    try {
        const fs::path root(argv[1]);
        WriteFile(root / "Footage" / "shot-list.txt",
                  "Shot list: interview A-cam, B-roll of the harbour.\n");
        // A P2 card: an interview recorded as one shot split into three clips, and a
        // short cut-away: two items in the browser.
        P2Card card{P2ShotClips({"0001AB", "0002AB", "0003AB"}, "0001AB_SHOT", 300)};
        card.clips.front().userClipName = "Interview";
        P2Clip cutaway;
        cutaway.name = "0004CD";
        cutaway.userClipName = "Harbour";
        cutaway.iconColor = 0x40A060;
        card.clips.push_back(cutaway);
        card.proxyFiles = true;  // no empty folders: a checkout would lose them
        card.voiceFolder = false;
        WriteP2Card(root / "P2 Card", card);
        // An XDCAM disc copied in its PROAV layout: two clips, the second at 25p.
        XDCAMClip opening;
        opening.audioChannels = 2;
        XDCAMClip harbour = opening;
        harbour.name = "C0002";
        harbour.formatFps = "25p";
        harbour.duration = 250;
        harbour.ltcStart = "00001010";
        XDCAMDisc disc{{opening, harbour}};
        disc.layout = XDCAMLayout::PROAV;
        disc.essenceSize = 64;
        WriteXDCAMDisc(root / "XDCAM Disc", disc);
        // An HDV recording unit's card: one recording split in two files, one in DV.
        SonyHDVRecording interview;
        interview.parts = 1;
        SonyHDVRecording broll;
        broll.stem = "07_0002_2008-05-17_160512";
        broll.extension = "AVI";
        WriteSonyHDVCard(root / "HDV Card", {{interview, broll}});
        // An XDCAM EX card: a take split over two clips, folded into one item, and a clip.
        XDCAMEXCard ex;
        ex.essenceSize = 64;
        WriteXDCAMEXCard(root / "XDCAM EX Card", ex);
        // An XAVC S card of a camera that also takes photos (folded into clips with the beta
        // feature on: tessel browse samples --set ZEBFM-3873=true).
        WriteXAVCCard(root / "XAVC Card", {XAVCLayout::M4ROOT, XAVCCard{}.clips, true, 64});
        // A Canon XF card: a clip in two pieces (its first file reached 4 GB), one marked good;
        // and an XF-HEVC card, a clip with its proxy.
        WriteCanonXFCard(root / "Canon XF Card",
                         {{"AA0001", "CLIPS001", 1, 2, "01:00:00:00", "Interview"},
                          {"AA0002", "CLIPS001", 1, 1, "01:10:00:00", "Harbour", true}});
        WriteCanonXFHEVCCard(root / "Canon XF-HEVC Card");
        // A film scan of three frames, one dropped, and clips of cameras that record a file
        // per frame: each folder is one item.
        WriteFrames(root / "DPX Scan", {"reel1_", ".dpx", 86400, 4, 7, {86402}},
                    DPXHeaderBytes({}));
        WriteCameraClip(root / "Frame Clips", FrameCamera::CinemaDNG, "A001_08051203_C001", 3);
        WriteCameraClip(root / "Frame Clips", FrameCamera::ARRIRAW, "A001C001_140101_R1AB", 3);
        WriteCameraClip(root / "Frame Clips", FrameCamera::CanonRAW, "AA0001_C001", 3);
        // A RED reel: a clip recorded in two segments, and a short one.
        WriteREDReel(root / "RED Card", "A001_0101AB",
                     {{"A001_C001_0101AB", 2}, {"A001_C002_0101AB", 1}});
        // An AVCHD camcorder's card: a long take the camera split in two files, then a short
        // one, each named by its mark: two items in the browser.
        WriteAVCHDCard(root / "AVCHD Card",
                       {{{0, false, "MTS", "", 10, "20150704183000", "01000000", "Pier"},
                         {1, true},
                         {2, false, "MTS", "", 4, "20150704184512", "01002000", "Gulls"}}});
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tessel_make_samples: %s\n", e.what());
        return 1;
    }
    return 0;
}

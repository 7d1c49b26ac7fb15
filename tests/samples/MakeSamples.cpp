// Writes the bundled samples that `tessel browse` (make run) shows into FOLDER:
//   tessel_make_samples FOLDER
// The card layouts come from the test fixtures, so the samples are cards as cameras write
// them. Regenerate with `make samples` after changing a fixture; the test samples-current
// compares the committed folder with what this writes.
#include <cstdio>
#include <exception>

#include "fixtures/AVCHDCard.h"
#include "fixtures/FixtureFiles.h"
#include "fixtures/P2Card.h"
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

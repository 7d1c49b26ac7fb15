// Writes an AVCHD card for bench/compare.sh into FOLDER, as the card fixtures write cards:
//   tessel_make_avchd_card FOLDER [CLIPS] [CLIPS_PER_PLAYLIST]
// CLIPS clips (500 by default) in playlists of CLIPS_PER_PLAYLIST (10), every second clip
// continuing the shot of the one before: a card of CLIPS / 2 shots under PRIVATE/AVCHD/BDMV.
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "fixtures/AVCHDCard.h"

using namespace Tessel::Fixtures;

int main(int argc, char** argv) {
    if (argc < 2 || argc > 4) {
        std::fprintf(stderr, "usage: tessel_make_avchd_card FOLDER [CLIPS] [CLIPS_PER_PLAYLIST]\n");
        return 2;
    }
    const int clips = argc > 2 ? std::atoi(argv[2]) : 500;
    AVCHDCard card{{}};
    card.clipsPerPlaylist = argc > 3 ? std::atoi(argv[3]) : 10;
    if (clips < 1 || clips > 99999 || card.clipsPerPlaylist < 1) {
        std::fprintf(stderr,
                     "tessel_make_avchd_card: CLIPS 1 to 99999, CLIPS_PER_PLAYLIST 1 or more\n");
        return 2;
    }
    for (int i = 0; i < clips; ++i) {
        AVCHDClip& clip = card.clips.emplace_back();
        clip.number = i;
        clip.continuesShot = i % 2 == 1;
        clip.markName = "Take " + std::to_string(i / 2 + 1);
    }
    try {
        WriteAVCHDCard(argv[1], card);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tessel_make_avchd_card: %s\n", e.what());
        return 1;
    }
    return 0;
}

// Writes large camera cards for bench/compare.sh with the test fixtures' builders, so the
// benchmarks time cards laid out exactly as the tests' cards are:
//   tessel_bench_cards p2 FOLDER CLIPS
//       a P2 card of CLIPS clips (two audio channels and an icon each)
//   tessel_bench_cards avchd FOLDER CLIPS CLIPS_PER_PLAYLIST
//       an AVCHD card under FOLDER/PRIVATE/AVCHD/BDMV whose clips sit in playlists of
//       CLIPS_PER_PLAYLIST, every second clip continuing the shot of the one before
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "fixtures/AVCHDCard.h"
#include "fixtures/FixtureFiles.h"
#include "fixtures/P2Card.h"

namespace fs = std::filesystem;
using namespace Tessel::Fixtures;

namespace {

int Usage() {
    std::fprintf(stderr,
                 "usage: tessel_bench_cards p2 FOLDER CLIPS\n"
                 "       tessel_bench_cards avchd FOLDER CLIPS CLIPS_PER_PLAYLIST\n");
    return 2;
}

// A whole number from MIN to MAX, or -1.
long Count(const char* text, long min, long max) {
    char* end = nullptr;
    const long value = std::strtol(text, &end, 10);
    return *end == '\0' && value >= min && value <= max ? value : -1;
}

// P2 clip names are six characters: four digits and two letters, as cameras number them.
std::string P2ClipName(long index) {
    char name[16];
    std::snprintf(name, sizeof name, "%04ld%c%c", index % 10000,
                  static_cast<char>('A' + (index / 10000) % 26),
                  static_cast<char>('A' + (index / 260000) % 26));
    return name;
}

void WriteP2(const fs::path& root, long clips) {
    P2Card card;
    card.clips.clear();
    for (long i = 1; i <= clips; ++i) {
        P2Clip& clip = card.clips.emplace_back();
        clip.name = P2ClipName(i);
        clip.iconColor = 0x3060A0 + static_cast<std::uint32_t>(i);
    }
    WriteP2Card(root, card);
}

void WriteAVCHD(const fs::path& root, long clips, long perPlaylist) {
    AVCHDCard card{{}};
    card.clipsPerPlaylist = static_cast<int>(perPlaylist);
    for (long i = 0; i < clips; ++i) {
        AVCHDClip& clip = card.clips.emplace_back();
        clip.number = static_cast<int>(i);
        clip.continuesShot = i % 2 == 1;
        clip.markName = "Take " + std::to_string(i / 2 + 1);
    }
    WriteAVCHDCard(root, card);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4)
        return Usage();
    const std::string kind = argv[1];
    const fs::path root(argv[2]);
    try {
        if (kind == "p2" && argc == 4) {
            const long clips = Count(argv[3], 1, 1000000);
            if (clips < 0)
                return Usage();
            WriteP2(root, clips);
        } else if (kind == "avchd" && argc == 5) {
            const long clips = Count(argv[3], 1, 99999), perPlaylist = Count(argv[4], 1, 99999);
            if (clips < 0 || perPlaylist < 0)
                return Usage();
            WriteAVCHD(root, clips, perPlaylist);
        } else {
            return Usage();
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tessel_bench_cards: %s\n", e.what());
        return 1;
    }
    return 0;
}

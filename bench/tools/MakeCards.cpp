// Writes large camera cards for bench/compare.sh with the test fixtures' builders, so the
// benchmarks time cards laid out exactly as the tests' cards are:
//   tessel_bench_cards p2 FOLDER CLIPS     a P2 card of CLIPS clips (two audio channels,
//                                          an icon each)
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "fixtures/FixtureFiles.h"
#include "fixtures/P2Card.h"

namespace fs = std::filesystem;
using namespace Tessel::Fixtures;

namespace {

int Usage() {
    std::fprintf(stderr, "usage: tessel_bench_cards p2 FOLDER CLIPS\n");
    return 2;
}

// P2 clip names are six characters: four digits and two letters, as cameras number them.
std::string P2ClipName(int index) {
    char name[16];
    std::snprintf(name, sizeof name, "%04d%c%c", index % 10000, 'A' + (index / 10000) % 26,
                  'A' + (index / 260000) % 26);
    return name;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4)
        return Usage();
    const std::string kind = argv[1];
    const fs::path root(argv[2]);
    char* end = nullptr;
    const long count = std::strtol(argv[3], &end, 10);
    if (*end != '\0' || count < 1 || count > 1000000)
        return Usage();
    try {
        if (kind != "p2")
            return Usage();
        P2Card card;
        card.clips.clear();
        for (int i = 1; i <= count; ++i) {
            P2Clip clip;
            clip.name = P2ClipName(i);
            clip.iconColor = 0x3060A0 + static_cast<std::uint32_t>(i);
            card.clips.push_back(clip);
        }
        WriteP2Card(root, card);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tessel_bench_cards: %s\n", e.what());
        return 1;
    }
    return 0;
}

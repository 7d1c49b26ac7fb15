// Writes the folder tree the tool's golden tests run their commands on:
//   tessel_golden_tree ROOT
// Everything in it is fixed (names, sizes, contents), so the tool's output over it is too,
// but for dates, which the comparison masks.
#include <cstdio>
#include <exception>

#include "fixtures/AVCHDCard.h"
#include "fixtures/FixtureFiles.h"
#include "fixtures/P2Card.h"
#include "fixtures/SampleCards.h"

namespace fs = std::filesystem;
using namespace Tessel::Fixtures;

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: tessel_golden_tree ROOT\n");
        return 2;
    }
    try {
        const fs::path root = fs::path(argv[1]) / "tree";
        WriteFile(root / "Footage" / "A001.mov", MxfBytes(1000));
        WriteFile(root / "Footage" / "A002.MOV", MxfBytes(2048));
        WriteFile(root / "Footage" / "notes.txt", "shot list\n");
        WriteFile(root / "Footage" / "Nested" / "deep.txt", "deep\n");
        WriteFile(root / "Footage" / ".hidden", "never listed\n");
        WriteFile(root / "Stills" / "red.bmp", BitmapBytes(8, 6, 0xFF0000));
        WriteFile(root / "Stills" / "red.xmp",
                  XMPPacket({{"dc:description", "A red still"}, {"xmpDM:scene", "12"}}));
        WriteP2Card(root / "Card");
        // A camcorder's card, whose items are keyed by their stream files' names.
        WriteAVCHDCard(root / "Camcorder");
        // One card of every format, as the samples hold them.
        WriteSampleCards(fs::path(argv[1]) / "samples");
        MakeFolder(root / "Empty");
        WriteFile(root / "file.txt", "a file, not a folder\n");
        // Names that are hard to show: wide, combining and (where the system allows them)
        // control characters.
        WriteFile(root / "Names" / fs::u8path("\u6620\u50cf.mov"), "wide");
        WriteFile(root / "Names" / fs::u8path("Cafe\u0301.mov"), "combining");
        WriteFile(root / "Names" / "it's.mov", "quote");
#if !defined(_WIN32)
        WriteFile(root / "Names" / "bell\a.mov", "bell");
        WriteFile(root / "Names" / "esc\x1b[31mred.mov", "escape");
#endif
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tessel_golden_tree: %s\n", error.what());
        return 1;
    }
    return 0;
}

// Writes the bundled samples that `tessel browse` (make run) shows into FOLDER:
//   tessel_make_samples FOLDER
// The card layouts come from the test fixtures, so the samples are cards as cameras write
// them. Regenerate with `make samples` after changing a fixture; the test samples-current
// compares the committed folder with what this writes.
#include <cstdio>
#include <exception>

#include "fixtures/SampleCards.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: tessel_make_samples FOLDER\n");
        return 2;
    }
    try {
        Tessel::Fixtures::WriteSampleCards(argv[1]);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tessel_make_samples: %s\n", e.what());
        return 1;
    }
    return 0;
}

// The fitting arithmetic: where integer rounding bites, the tie rule, boxes of 0, the
// offsets that put the picture at the top of a bottom-up buffer, and extreme sizes.
#include <tessel/thumbnails/ThumbnailFit.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <tuple>

namespace Tessel {
namespace {

auto Fields(const ThumbnailFit& f) {
    return std::tuple(f.boxWidth, f.boxHeight, f.drawnWidth, f.drawnHeight, f.offsetX,
                      f.offsetRows);
}

TEST(ThumbnailFit, FollowsTheIntegerFormulaWithItsRoundingQuirks) {
    constexpr std::uint32_t kMax = std::numeric_limits<std::uint32_t>::max();
    // Source width and height, box width and height; then the fit's fields.
    const struct {
        const char* what;
        std::uint32_t in[4], out[6];
    } cases[] = {
        {"1080p into its own proportions", {1920, 1080, 256, 144}, {256, 144, 256, 144, 0, 0}},
        {"portrait: full height wins", {1080, 1920, 256, 144}, {256, 144, 81, 144, 87, 0}},
        {"wide: full width, at the top", {4, 2, 4, 4}, {4, 4, 4, 2, 0, 2}},
        {"tall: centred, the odd column left", {2, 4, 5, 4}, {5, 4, 2, 4, 1, 0}},
        {"1x1 in 1x1 draws no row", {1, 1, 1, 1}, {1, 1, 1, 0, 0, 1}},
        {"W=1 term is -1", {1, 10, 5, 5}, {5, 5, 5, 0, 0, 5}},
        {"W=2 term is 0", {2, 1, 4, 4}, {4, 4, 4, 2, 0, 2}},
        {"odd source, odd box", {5, 3, 3, 3}, {3, 3, 3, 2, 0, 1}},
        {"odd square into even square", {3, 3, 2, 2}, {2, 2, 2, 2, 0, 0}},
        {"exact tie of different fits takes full width", {1, 1, 2, 2}, {2, 2, 2, 1, 0, 1}},
        {"larger full-height fit wins, even stretched", {1, 1, 2, 3}, {2, 3, 2, 3, 0, 0}},
        {"Nx1 rounds to no rows", {100, 1, 10, 10}, {10, 10, 10, 0, 0, 10}},
        {"Nx1 in a wide box", {100, 1, 200, 10}, {200, 10, 200, 2, 0, 8}},
        {"1xN in a square box draws no row", {1, 100, 10, 10}, {10, 10, 10, 0, 0, 10}},
        {"1xN: rounding lets full height win", {1, 100, 10, 1000}, {10, 1000, 10, 1000, 0, 0}},
        {"width 0 takes the source width", {40, 30, 0, 15}, {40, 15, 20, 15, 10, 0}},
        {"height 0 takes the source height", {40, 30, 20, 0}, {20, 30, 20, 15, 0, 15}},
        {"both 0: the source size", {40, 30, 0, 0}, {40, 30, 40, 30, 0, 0}},
        {"tiny box", {1920, 1080, 1, 1}, {1, 1, 1, 1, 0, 0}},
        {"tiny box, 2x2", {1920, 1080, 2, 2}, {2, 2, 2, 1, 0, 1}},
        {"enlarging", {3, 2, 300, 300}, {300, 300, 300, 200, 0, 100}},
        {"no source size fills the box", {0, 0, 10, 7}, {10, 7, 10, 7, 0, 0}},
        {"no source and box 0: nothing", {0, 0, 0, 0}, {0, 0, 0, 0, 0, 0}},
        // Extreme sizes neither overflow nor leave the box.
        {"widest", {kMax, 1, kMax, kMax}, {kMax, kMax, kMax, 1, 0, kMax - 1}},
        {"tallest", {1, kMax, kMax, kMax}, {kMax, kMax, 1, kMax, (kMax - 1) / 2, 0}},
        {"largest", {kMax, kMax, kMax, kMax}, {kMax, kMax, kMax, kMax, 0, 0}}};
    for (const auto& c : cases) {
        const auto [boxWidth, boxHeight, drawnWidth, drawnHeight, offsetX, offsetRows] = c.out;
        EXPECT_EQ(Fields(FitThumbnail(c.in[0], c.in[1], c.in[2], c.in[3])),
                  std::tuple(boxWidth, boxHeight, drawnWidth, drawnHeight, offsetX, offsetRows))
            << c.what;
    }
    // Every fit of small sizes stays inside its box, so the placed picture fits the buffer.
    for (std::uint32_t W = 1; W <= 12; ++W)
        for (std::uint32_t H = 1; H <= 12; ++H)
            for (std::uint32_t w = 1; w <= 12; ++w)
                for (std::uint32_t h = 1; h <= 12; ++h) {
                    const ThumbnailFit fit = FitThumbnail(W, H, w, h);
                    ASSERT_LE(fit.offsetX + fit.drawnWidth, w) << W << "x" << H << " " << w;
                    ASSERT_EQ(fit.offsetRows + fit.drawnHeight, h) << W << "x" << H << " " << h;
                }
}

}  // namespace
}  // namespace Tessel

// Where a picture goes inside a thumbnail buffer: the box size, the size the picture is
// drawn at, and its offsets. Pure arithmetic, so that every platform places pixels alike.
#pragma once

#include <cstdint>

#include <tessel/platform/Export.h>

namespace Tessel {

struct ThumbnailFit {
    std::uint32_t boxWidth = 0;  // the buffer's size
    std::uint32_t boxHeight = 0;
    std::uint32_t drawnWidth = 0;  // the picture's size inside it (either may be 0)
    std::uint32_t drawnHeight = 0;
    std::uint32_t offsetX = 0;     // columns from the left edge
    std::uint32_t offsetRows = 0;  // stored rows from the first stored (bottom) row, which
                                   // puts the picture at the top of the bottom-up buffer
};

// Fits a SOURCE_WIDTH x SOURCE_HEIGHT picture into a WIDTH x HEIGHT box (0 for a side means
// the source's size on that side). Two integer fits are tried, full width with height
// (H*w + floor(W/2) - 1) / W and full height with width (W*h + floor(H/2) - 1) / H, each
// valid only if it stays inside the box; the larger wins and an exact tie takes the
// full-width fit. Rounding quirks of the formula are kept on purpose: a 1x1 source in a
// 1x1 box is drawn 0 rows high. With any size 0 the picture fills the box.
TESSEL_API ThumbnailFit FitThumbnail(std::uint32_t sourceWidth, std::uint32_t sourceHeight,
                                     std::uint32_t width, std::uint32_t height);

}  // namespace Tessel

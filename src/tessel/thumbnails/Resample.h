// Scaling a decoded bitmap into a rectangle of a pixel buffer. Shrinking averages areas
// (each target pixel is the coverage-weighted mean of the source pixels under it), so fine
// detail turns into the right mean colour instead of aliasing; enlarging is bilinear. The
// two directions are separate passes. For sources with alpha the colours are weighted by
// alpha, so transparent pixels do not darken the edges of what is drawn.
#pragma once

#include <cstdint>

#include <tessel/media/PelPix.h>
#include <tessel/platform/ImageDecoding.h>

namespace Tessel {

// The rectangle a picture is drawn into: columns from the left edge and stored rows from
// the first stored (bottom) row of the buffer.
struct PelPixRectangle {
    std::uint32_t x = 0;
    std::uint32_t firstRow = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
};

// Draws all of SOURCE (24 or 32 bits per pixel, rows top-down, which the caller has
// checked) scaled to fill TARGET_RECTANGLE of TARGET, whose pixels must be locked; the
// rectangle must lie inside the buffer. The top row of the source lands on the highest
// stored row of the rectangle. 24-bit sources get alpha 255; 32-bit sources keep theirs.
// Returns false, drawing nothing, when memory is short.
bool ResampleIntoPelPix(const Platform::DecodedBitmap& source, const PelPixLock& target,
                        std::size_t targetRowBytes, const PelPixRectangle& targetRectangle);

}  // namespace Tessel

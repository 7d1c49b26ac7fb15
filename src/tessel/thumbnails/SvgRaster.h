// Draws SVG documents into BGRA pixels with librsvg and cairo (not on Windows, where the
// artwork comes pre-rendered). librsvg is opened when the first document is drawn or
// measured; where it cannot be loaded, no document draws and both functions give null.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include <tessel/media/PelPix.h>

namespace Tessel {

// Pixels of a drawn picture: rows top-down, 4 bytes a pixel (B, G, R, A), straight alpha.
struct RasterImage {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> pixels;
};

// Draws the SVG document SVG scaled to fit WIDTH x HEIGHT (aspect ratio kept, centred,
// the rest transparent). PIXEL_ASPECT is the width of one target pixel over its height: a
// picture for pixels twice as wide is drawn half as many pixels wide. Null for a document
// that does not parse or an empty size.
std::optional<RasterImage> RasterizeSvg(std::span<const std::uint8_t> svg, std::uint32_t width,
                                        std::uint32_t height, double pixelAspect = 1.0);

// The size the document asks to be drawn at, in pixels, when it says (width and height in
// absolute units, or a view box); null when it does not parse.
std::optional<std::pair<double, double>> SvgNaturalSize(std::span<const std::uint8_t> svg);

// A new clear WIDTH x HEIGHT buffer with IMAGE copied into its top left corner (clipped
// where the buffer is smaller); null when the buffer cannot be made.
OwnedPelPix RasterImageToPelPix(const RasterImage& image, std::uint32_t width,
                                std::uint32_t height);

}  // namespace Tessel

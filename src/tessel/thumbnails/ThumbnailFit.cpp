#include <tessel/thumbnails/ThumbnailFit.h>

#include <algorithm>

namespace Tessel {

ThumbnailFit FitThumbnail(std::uint32_t sourceWidth, std::uint32_t sourceHeight,
                          std::uint32_t width, std::uint32_t height) {
    ThumbnailFit fit;
    fit.boxWidth = width != 0 ? width : sourceWidth;
    fit.boxHeight = height != 0 ? height : sourceHeight;
    // Unsigned 64-bit holds every product here: each factor is below 2^32, and the rounding
    // term is added before the 1 is taken away, so nothing wraps (H*w >= 1).
    const std::uint64_t W = sourceWidth, H = sourceHeight;
    const std::uint64_t w = fit.boxWidth, h = fit.boxHeight;
    if (W == 0 || H == 0 || w == 0 || h == 0) {
        fit.drawnWidth = fit.boxWidth;
        fit.drawnHeight = fit.boxHeight;
    } else {
        std::uint64_t heightAtFullWidth = (H * w + W / 2 - 1) / W;
        if (heightAtFullWidth > h)
            heightAtFullWidth = 0;
        std::uint64_t widthAtFullHeight = (W * h + H / 2 - 1) / H;
        if (widthAtFullHeight > w)
            widthAtFullHeight = 0;
        // Both products stay below 2^64: a valid fit is no larger than the box side.
        if (widthAtFullHeight * h <= heightAtFullWidth * w) {
            fit.drawnWidth = fit.boxWidth;
            fit.drawnHeight = static_cast<std::uint32_t>(heightAtFullWidth);
        } else {
            fit.drawnWidth = static_cast<std::uint32_t>(widthAtFullHeight);
            fit.drawnHeight = fit.boxHeight;
        }
    }
    const std::int64_t spareColumns = std::int64_t{fit.boxWidth} - fit.drawnWidth;
    const std::int64_t spareRows = std::int64_t{fit.boxHeight} - fit.drawnHeight;
    fit.offsetX = static_cast<std::uint32_t>(std::max<std::int64_t>(0, spareColumns / 2));
    fit.offsetRows = static_cast<std::uint32_t>(std::max<std::int64_t>(0, spareRows));
    return fit;
}

}  // namespace Tessel

// Renders thumbnails of arbitrary bytes into small boxes. The first two bytes choose the
// box (0 to 63 pixels a side; 0 takes the source's size); the rest is the encoded image.
// Checks that a thumbnail has the box's size and the fitted layout: margins stay fully
// transparent, and every buffer made is disposed.
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>
#include <vector>

#include <tessel/media/PelPix.h>
#include <tessel/media/PelPixCount.h>
#include <tessel/platform/ImageDecoding.h>
#include <tessel/thumbnails/RenderThumbnail.h>
#include <tessel/thumbnails/ThumbnailFit.h>

namespace {

void Check(bool condition) {
    if (!condition)
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    const std::uint32_t width = data[0] & 63;
    const std::uint32_t height = data[1] & 63;
    const std::vector<std::uint8_t> bytes(data + 2, data + size);

    const std::int64_t liveBefore = Tessel::pelpixLiveCount();
    Tessel::PelPixHandle thumbnail = Tessel::RenderThumbnail(bytes, width, height);
    if (thumbnail) {
        const std::optional<Tessel::Platform::ImageInfo> info =
            Tessel::Platform::ReadImageInfo(bytes);
        Check(info.has_value());
        const Tessel::ThumbnailFit fit =
            Tessel::FitThumbnail(info->width, info->height, width, height);
        Check(Tessel::pelpixGetWidth(thumbnail) == fit.boxWidth);
        Check(Tessel::pelpixGetHeight(thumbnail) == fit.boxHeight);
        Tessel::PelPixLock lock(thumbnail);
        for (std::uint32_t row = 0; row < fit.boxHeight; ++row) {
            const std::uint8_t* pixel = lock.Row(row);
            for (std::uint32_t x = 0; x < fit.boxWidth; ++x, pixel += 4) {
                const bool drawn = x >= fit.offsetX && x < fit.offsetX + fit.drawnWidth &&
                                   row >= fit.offsetRows && row < fit.offsetRows + fit.drawnHeight;
                if (!drawn)
                    Check(pixel[0] == 0 && pixel[1] == 0 && pixel[2] == 0 && pixel[3] == 0);
            }
        }
    }
    Tessel::pelpixDispose(thumbnail);
    Check(Tessel::pelpixLiveCount() == liveBefore);
    return 0;
}

// Thumbnails of the host's own PNG and SVG artwork, drawn from its image provider. The host
// draws on its main thread only, so a call from any other thread hands the drawing to the
// main thread and waits for it, at most "Tessel.Thumbnails.MainThreadWaitMilliseconds"
// (settings database, default 2000): a host that is not pumping its main thread gets no
// thumbnail rather than a hang. Drawing is serialised by one recursive lock.
//
// The picture is fitted inside WIDTH x HEIGHT with its aspect ratio kept, centred, the
// margins transparent; 0 takes the picture's own size on that side. PIXEL_ASPECT is the
// ratio of the buffer's pixel width to its height (the buffer's own ratio is set to it):
// on pixels twice as wide, the picture is drawn half as many pixels wide.
#pragma once

#include <cstdint>
#include <string>

#include <tessel/media/PelPix.h>
#include <tessel/platform/Export.h>
#include <tessel/thumbnails/ImageProvider.h>

namespace Tessel {

inline constexpr const char* kSettingMainThreadWaitMilliseconds =
    "Tessel.Thumbnails.MainThreadWaitMilliseconds";

// Both draw PNG and SVG pictures alike (the image provider tells them apart by their
// content); the two names are the host's. Null when the image is not found, is neither PNG
// nor SVG, is corrupt, or the main thread did not run the drawing in time.
TESSEL_API PelPixHandle RenderPNGToThumbnail(const std::u16string& path, std::uint32_t width,
                                             std::uint32_t height, ImageProvider& images,
                                             double pixelAspect = 1.0);
TESSEL_API PelPixHandle RenderSVGToThumbnail(const std::u16string& path, std::uint32_t width,
                                             std::uint32_t height, ImageProvider& images,
                                             double pixelAspect = 1.0);

}  // namespace Tessel

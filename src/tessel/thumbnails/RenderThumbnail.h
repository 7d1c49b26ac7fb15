// Thumbnails of image files and of encoded image bytes: the image is decoded, fitted into
// the requested box with its proportions kept (see ThumbnailFit.h), and drawn at the top
// of a new buffer of the full box size whose margins stay transparent.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <tessel/media/PelPix.h>
#include <tessel/platform/Export.h>
#include <tessel/platform/ImageDecoding.h>

namespace Tessel {

// Boxes of more pixels than this are refused (a width or height of 0 takes the source's).
inline constexpr std::uint64_t kMaximumThumbnailPixels = Platform::kMaximumDecodedPixels;

// A new buffer of WIDTH x HEIGHT (owned by the caller), or null when there is no thumbnail:
// the file cannot be read, is not an image decoded here, is corrupt or truncated, or the box
// is absurd. Only as much of a JPEG is decoded as the drawn size needs.
TESSEL_API PelPixHandle RenderThumbnail(const std::string& utf8Path, std::uint32_t width,
                                        std::uint32_t height);
TESSEL_API PelPixHandle RenderThumbnail(const std::vector<std::uint8_t>& bytes, std::uint32_t width,
                                        std::uint32_t height);

// Scales BITMAP into a new WIDTH x HEIGHT buffer, fitted from its source size. A bitmap with
// other than one plane or other than 24 or 32 bits per pixel gives null. Pixels of a 24-bit
// bitmap get alpha 255 where drawn and 0 in the margins; a 32-bit bitmap keeps its alpha.
TESSEL_API OwnedPelPix RenderDecodedBitmap(const Platform::DecodedBitmap& bitmap,
                                           std::uint32_t width, std::uint32_t height);

}  // namespace Tessel

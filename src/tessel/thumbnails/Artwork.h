// The library's own artwork, compiled into it: the file-kind icons as SVG (folder, drive,
// removable drive, network share, video, audio, image, document, file; drawn on POSIX only,
// Windows shows the shell's icons) and the pictures as SVG sources with PNGs pre-rendered at
// their natural 256 x 256 (scripts/render-artwork), which Windows, having no SVG renderer,
// draws instead. The pictures are also registered as image resources:
// "ContainsVideoThumb.png", "CinemaDNGThumb.png", "ArriThumb.png" and "REDVideoThumb.png"
// under "PNG", the camera-card picture as resource number 10000 (PNG), and the coloured video
// icon under "SVG" as "VideoColored".
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include <tessel/platform/Export.h>

namespace Tessel::Artwork {

struct EmbeddedFile {
    const char* name;  // the file name in the artwork folder, e.g. "folder.svg"
    std::span<const std::uint8_t> bytes;
};

// Every embedded file, sorted by name.
TESSEL_API std::span<const EmbeddedFile> AllFiles();
// The bytes of the embedded file NAME (exact match), if there is one.
TESSEL_API std::optional<std::span<const std::uint8_t>> Find(std::string_view name);

// The resource number of the generic camera-card picture.
inline constexpr int kCameraCardResourceId = 10000;

}  // namespace Tessel::Artwork

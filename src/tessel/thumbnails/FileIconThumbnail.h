// The icon thumbnail of any path without a better picture: folders, volumes, shares and
// files get an icon for their kind (the shell's on Windows, the library's own SVG artwork
// elsewhere; see platform/FileIcons.h), drawn at the nearest of the classic icon sizes into
// the top left corner of a square buffer of the requested size.
#pragma once

#include <cstdint>
#include <string>

#include <tessel/media/PelPix.h>
#include <tessel/platform/Export.h>

namespace Tessel {

// The side of an icon thumbnail: 0 asks for 256; the request is clamped to LARGEST (0 means
// no limit).
TESSEL_API std::uint32_t IconThumbnailSize(std::uint32_t requested, std::uint32_t largest);
// The icon drawn into it: of the sizes 16, 32, 48 and 256, the nearest to
// IconThumbnailSize, a tie going to the smaller.
TESSEL_API std::uint32_t ChooseIconSize(std::uint32_t requested, std::uint32_t largest);

// A new square buffer of IconThumbnailSize (owned by the caller), the icon of
// ChooseIconSize drawn at its own size in its top left corner (clipped when the buffer is
// smaller), the rest clear. Null when the icon cannot be drawn or the size is larger than
// Platform::kLargestShellIconCanvas. DIRECTORY_PART and FILE_PART (UTF-8) are joined with
// one separator; an empty file part means the directory itself (a share or volume root).
// The path is never opened.
TESSEL_API PelPixHandle RenderFileIconThumbnail(const std::string& directoryPart,
                                                const std::string& filePart, std::uint32_t size,
                                                std::uint32_t largestSize);

}  // namespace Tessel

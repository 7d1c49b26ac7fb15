// The icon thumbnail of any path without a better picture: folders, volumes, shares and
// files get the library's own icon for their kind (see platform/FileIcons.h), drawn from
// its SVG artwork at one of the classic icon sizes.
#pragma once

#include <cstdint>
#include <string>

#include <tessel/media/PelPix.h>
#include <tessel/platform/Export.h>

namespace Tessel {

// The icon size for a request: 0 asks for 256; the request is clamped to LARGEST (0 means
// no limit); then the nearest of 16, 32, 48 and 256 wins, a tie going to the smaller.
TESSEL_API std::uint32_t ChooseIconSize(std::uint32_t requested, std::uint32_t largest);

// A new square buffer of the chosen icon size (owned by the caller), or null when the
// icon cannot be drawn. DIRECTORY_PART and FILE_PART (UTF-8) are joined with one separator;
// an empty file part means the directory itself (a share or volume root). The path is
// never opened.
TESSEL_API PelPixHandle RenderFileIconThumbnail(const std::string& directoryPart,
                                                const std::string& filePart, std::uint32_t size,
                                                std::uint32_t largestSize);

}  // namespace Tessel

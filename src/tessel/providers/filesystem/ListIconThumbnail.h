// The icon thumbnail of an item of a list provider (a volume, a share, a favorite folder, a
// sync folder): the item's path split into its directory and file parts for the shared
// file-icon thumbnail. Internal to the providers.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include <tessel/media/PelPix.h>

namespace Tessel {

// Icons come in sizes up to this; larger requests get this size.
inline constexpr std::uint32_t kLargestIconThumbnailSize = 256;

// PATH's directory part and file part. A path that ends with a separator (a root, or a path
// given with a trailing one) has an empty file part and is its own directory part.
std::pair<std::string, std::string> SplitIconThumbnailPath(const std::string& path);

// The square icon of PATH fitting a WIDTH x HEIGHT box (a side of 0 leaves the choice to the
// other; both 0 mean the largest size), or null.
PelPixHandle RenderListItemIcon(const std::string& path, std::uint32_t width, std::uint32_t height);

// The height a list provider delivers for a requested one.
std::uint32_t ListItemIconHeight(std::uint32_t requestedHeight);

}  // namespace Tessel

#include <tessel/providers/filesystem/ListIconThumbnail.h>

#include <algorithm>

#include <tessel/foundation/Path.h>
#include <tessel/thumbnails/FileIconThumbnail.h>

namespace Tessel {

std::pair<std::string, std::string> SplitIconThumbnailPath(const std::string& path) {
    if (path.empty())
        return {};
    if (Path::IsSeparator(static_cast<char16_t>(static_cast<unsigned char>(path.back())))) {
        return {Path::StripTrailingSeparator(std::string_view(path)), std::string()};
    }
    return {Path::GetParent(std::string_view(path)), Path::GetFilePart(std::string_view(path))};
}

PelPixHandle RenderListItemIcon(const std::string& path, std::uint32_t width,
                                std::uint32_t height) {
    if (path.empty())
        return nullptr;
    // A square icon has to fit both sides of the box.
    const std::uint32_t size =
        (width && height) ? std::min(width, height) : std::max(width, height);
    const auto [directoryPart, filePart] = SplitIconThumbnailPath(path);
    return RenderFileIconThumbnail(directoryPart, filePart, size, kLargestIconThumbnailSize);
}

std::uint32_t ListItemIconHeight(std::uint32_t requestedHeight) {
    return std::min(requestedHeight, kLargestIconThumbnailSize);
}

}  // namespace Tessel

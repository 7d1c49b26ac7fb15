#include <tessel/thumbnails/FileIconThumbnail.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include <tessel/foundation/Path.h>
#include <tessel/platform/FileIcons.h>
#include <tessel/thumbnails/Artwork.h>

#if !defined(_WIN32)
#include "SvgRaster.h"
#endif

namespace Tessel {

namespace {

#if defined(_WIN32)

// Windows: the shell draws the icon of the path itself, on a canvas of the buffer's size.
OwnedPelPix IconThumbnail(const std::string& path, std::uint32_t iconSize, std::uint32_t size) {
    const std::optional<Platform::ShellIcon> icon =
        Platform::DrawShellIcon(Path::ToNative(std::string_view(path)), iconSize, size);
    if (!icon || icon->size != size || icon->pixels.size() != std::size_t{size} * size * 4)
        return nullptr;
    OwnedPelPix buffer(pelpixNew(size, size));
    if (!buffer)
        return nullptr;
    PelPixLock lock(buffer.get());
    const std::size_t row = std::size_t{size} * 4;
    for (std::uint32_t y = 0; y < size; ++y)
        std::memcpy(lock.Row(y), icon->pixels.data() + y * row, row);
    return buffer;
}

#else

using Platform::FileIconKind;

const char* ArtworkFor(FileIconKind kind) {
    switch (kind) {
        case FileIconKind::Folder:
            return "folder.svg";
        case FileIconKind::Drive:
            return "drive.svg";
        case FileIconKind::RemovableDrive:
            return "removable-drive.svg";
        case FileIconKind::NetworkShare:
            return "network-share.svg";
        case FileIconKind::Video:
            return "video.svg";
        case FileIconKind::Audio:
            return "audio.svg";
        case FileIconKind::Image:
            return "image.svg";
        case FileIconKind::Document:
            return "document.svg";
        case FileIconKind::File:
            break;
    }
    return "file.svg";
}

using IconImage = std::shared_ptr<const RasterImage>;

// Icons are drawn once per kind and size; listings ask for the same few again and again.
struct IconCache {
    std::mutex mutex;
    // Null for an icon that could not be drawn.
    std::map<std::pair<FileIconKind, std::uint32_t>, IconImage> icons;
};

IconCache& Cache() {
    static auto* cache = new IconCache();
    return *cache;
}

std::shared_ptr<const RasterImage> DrawIcon(FileIconKind kind, std::uint32_t size) {
    IconCache& cache = Cache();
    std::lock_guard lock(cache.mutex);
    auto found = cache.icons.find({kind, size});
    if (found == cache.icons.end()) {
        std::shared_ptr<const RasterImage> image;
        if (auto svg = Artwork::Find(ArtworkFor(kind))) {
            if (auto drawn = RasterizeSvg(*svg, size, size))
                image = std::make_shared<const RasterImage>(std::move(*drawn));
        }
        found = cache.icons.emplace(std::make_pair(kind, size), std::move(image)).first;
    }
    return found->second;
}

// Elsewhere: the library's own icon for the kind of path.
OwnedPelPix IconThumbnail(const std::string& path, std::uint32_t iconSize, std::uint32_t size) {
    const FileIconKind kind = Platform::ClassifyFileIcon(Path::ToNative(std::string_view(path)));
    const std::shared_ptr<const RasterImage> icon = DrawIcon(kind, iconSize);
    return icon ? RasterImageToPelPix(*icon, size, size) : nullptr;
}

#endif

}  // namespace

std::uint32_t IconThumbnailSize(std::uint32_t requested, std::uint32_t largest) {
    const std::uint32_t size = requested == 0 ? 256 : requested;
    return largest != 0 && size > largest ? largest : size;
}

std::uint32_t ChooseIconSize(std::uint32_t requested, std::uint32_t largest) {
    constexpr std::array<std::uint32_t, 4> kSizes{16, 32, 48, 256};
    const std::uint32_t wanted = IconThumbnailSize(requested, largest);
    std::uint32_t best = kSizes.front();
    for (std::uint32_t size : kSizes) {
        const auto distance = [&](std::uint32_t s) { return s > wanted ? s - wanted : wanted - s; };
        // Strictly nearer only, so a tie keeps the smaller size found first.
        if (distance(size) < distance(best))
            best = size;
    }
    return best;
}

PelPixHandle RenderFileIconThumbnail(const std::string& directoryPart, const std::string& filePart,
                                     std::uint32_t size, std::uint32_t largestSize) {
    std::string path = directoryPart;
    if (!filePart.empty()) {
        if (!path.empty() && !Path::IsSeparator(static_cast<char16_t>(path.back()))) {
            path += static_cast<char>(Path::kSeparator);
        }
        path += filePart;
    }
    const std::uint32_t side = IconThumbnailSize(size, largestSize);
    if (path.empty() || side > Platform::kLargestShellIconCanvas)
        return nullptr;
    // The buffer leaves the library here: its owner is the caller from now on.
    return IconThumbnail(path, ChooseIconSize(size, largestSize), side).release();
}

}  // namespace Tessel

#include <tessel/thumbnails/ImageProvider.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/media/ImageResources.h>
#include <tessel/platform/ImageDecoding.h>
#include <tessel/thumbnails/Artwork.h>

#include "Resample.h"
#if !defined(_WIN32)
#include "SvgRaster.h"
#endif

namespace Tessel {

namespace {

class BitmapImage final : public ProvidedImage {
public:
    explicit BitmapImage(Platform::DecodedBitmap bitmap) : mBitmap(std::move(bitmap)) {}
    double NaturalWidth() const override { return mBitmap.width; }
    double NaturalHeight() const override { return mBitmap.height; }
    const Platform::DecodedBitmap& Bitmap() const { return mBitmap; }

private:
    Platform::DecodedBitmap mBitmap;
};

#if !defined(_WIN32)
class SvgImage final : public ProvidedImage {
public:
    SvgImage(std::vector<std::uint8_t> document, double width, double height)
        : mDocument(std::move(document)), mWidth(width), mHeight(height) {}
    double NaturalWidth() const override { return mWidth; }
    double NaturalHeight() const override { return mHeight; }
    std::span<const std::uint8_t> Document() const { return mDocument; }

private:
    std::vector<std::uint8_t> mDocument;
    double mWidth;
    double mHeight;
};
#endif

// An SVG document starts, after an optional byte-order mark and white space, with markup.
bool LooksLikeSvg(std::span<const std::uint8_t> bytes) {
    std::size_t at = 0;
    if (bytes.size() >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF)
        at = 3;
    while (at < bytes.size() &&
           (bytes[at] == ' ' || bytes[at] == '\t' || bytes[at] == '\r' || bytes[at] == '\n')) {
        ++at;
    }
    if (at >= bytes.size() || bytes[at] != '<')
        return false;
    const std::string_view head(reinterpret_cast<const char*>(bytes.data()),
                                std::min<std::size_t>(bytes.size(), 4096));
    return head.find("<svg") != std::string_view::npos;
}

// Images larger than this cannot be artwork; the bound keeps memory in check.
constexpr double kLargestNaturalSide = 16384;

std::shared_ptr<const ProvidedImage> DecodePng(std::span<const std::uint8_t> bytes) {
    const auto info = Platform::ReadImageInfo(bytes);
    if (!info || info->format != Platform::ImageFormat::Png)
        return nullptr;
    auto bitmap = Platform::DecodeImage(bytes);
    if (!bitmap)
        return nullptr;
    return std::make_shared<BitmapImage>(std::move(*bitmap));
}

#if defined(_WIN32)
// Windows has no SVG renderer: an SVG document of the library's artwork stands for the PNG
// rendered from it at its natural size (scripts/render-artwork), embedded beside it.
std::shared_ptr<const ProvidedImage> DecodePreRenderedSvg(std::span<const std::uint8_t> bytes) {
    for (const Artwork::EmbeddedFile& file : Artwork::AllFiles()) {
        const std::string_view name(file.name);
        if (!name.ends_with(".svg") || !std::ranges::equal(file.bytes, bytes))
            continue;
        const std::string rendered = std::string(name.substr(0, name.size() - 4)) + ".png";
        if (auto png = Artwork::Find(rendered))
            return DecodePng(*png);
    }
    return nullptr;
}

// Any other SVG file may come with its rendering beside it, the same name ending in .png.
std::shared_ptr<const ProvidedImage> DecodeRenderingBeside(const std::u16string& svgPath) {
    const std::size_t dot = svgPath.rfind(u'.');
    const std::size_t separator = svgPath.find_last_of(u"\\/");
    if (dot == std::u16string::npos || (separator != std::u16string::npos && dot < separator))
        return nullptr;
    const std::u16string png = svgPath.substr(0, dot) + u".png";
    auto bytes = Platform::ReadImageFile(Path::ToNative(png));
    return bytes ? DecodePng(*bytes) : nullptr;
}
#endif

}  // namespace

ProvidedImage::~ProvidedImage() = default;
ImageProvider::ImageProvider() = default;
ImageProvider::~ImageProvider() = default;

ImageProvider& ImageProvider::Default() {
    static auto* provider = new ImageProvider();
    return *provider;
}

std::shared_ptr<const ProvidedImage> ImageProvider::Decode(std::span<const std::uint8_t> bytes) {
#if defined(_WIN32)
    if (LooksLikeSvg(bytes))
        return DecodePreRenderedSvg(bytes);
#else
    if (LooksLikeSvg(bytes)) {
        const auto size = SvgNaturalSize(bytes);
        if (!size || !(size->first <= kLargestNaturalSide) ||
            !(size->second <= kLargestNaturalSide)) {
            return nullptr;
        }
        return std::make_shared<SvgImage>(std::vector<std::uint8_t>(bytes.begin(), bytes.end()),
                                          size->first, size->second);
    }
#endif
    return DecodePng(bytes);
}

std::shared_ptr<const ProvidedImage> ImageProvider::Find(const std::u16string& path) {
    {
        std::lock_guard lock(mMutex);
        if (auto found = mImages.find(path); found != mImages.end())
            return found->second;
    }
    std::shared_ptr<const ProvidedImage> image;
    if (auto bytes = Platform::ReadImageFile(Path::ToNative(path))) {
        image = Decode(*bytes);
#if defined(_WIN32)
        if (!image && LooksLikeSvg(*bytes))
            image = DecodeRenderingBeside(path);
#endif
    } else {
        const std::string name = Utf16ToUtf8(path);
        std::optional<ImageResource> resource = ImageResources::Find("PNG", name);
        if (!resource)
            resource = ImageResources::Find("SVG", name);
        if (resource) {
            image = Decode(resource->bytes);
        } else if (auto embedded = Artwork::Find(name)) {
            image = Decode(*embedded);
        }
    }
    if (!image)
        return nullptr;  // not remembered: the file may appear later
    std::lock_guard lock(mMutex);
    return mImages.emplace(path, std::move(image)).first->second;
}

void ImageProvider::Clear() {
    std::lock_guard lock(mMutex);
    mImages.clear();
}

OwnedPelPix DrawImage(const ProvidedImage& image, std::uint32_t width, std::uint32_t height,
                      double pixelAspect) {
    if (!(pixelAspect > 0.01 && pixelAspect < 100))
        pixelAspect = 1.0;
    // The picture's size counted in target pixels.
    const double naturalWidth = image.NaturalWidth() / pixelAspect;
    const double naturalHeight = image.NaturalHeight();
    if (!(naturalWidth >= 0.5) || !(naturalHeight >= 0.5))
        return nullptr;
    if (width == 0)
        width =
            static_cast<std::uint32_t>(std::lround(std::min(naturalWidth, kLargestNaturalSide)));
    if (height == 0)
        height =
            static_cast<std::uint32_t>(std::lround(std::min(naturalHeight, kLargestNaturalSide)));
    if (width == 0 || height == 0 ||
        std::uint64_t{width} * height > Platform::kMaximumDecodedPixels)
        return nullptr;

    const double scale = std::min(width / naturalWidth, height / naturalHeight);
    const auto drawnWidth = std::clamp<std::uint32_t>(
        static_cast<std::uint32_t>(std::lround(naturalWidth * scale)), 1, width);
    const auto drawnHeight = std::clamp<std::uint32_t>(
        static_cast<std::uint32_t>(std::lround(naturalHeight * scale)), 1, height);
    const std::uint32_t left = (width - drawnWidth) / 2;
    const std::uint32_t top = (height - drawnHeight) / 2;

    OwnedPelPix buffer(pelpixNew(width, height));
    if (!buffer)
        return nullptr;
    pelpixSetPixelAspectRatio(buffer.get(), pixelAspect);
    bool drawn = false;
    {
        PelPixLock lock(buffer.get());
        const std::size_t rowBytes = pelpixGetRowbytes(buffer.get());
        // Rows are stored bottom-up: the rectangle's first stored row is its bottom row.
        const std::uint32_t firstRow = height - top - drawnHeight;
        if (const auto* bitmap = dynamic_cast<const BitmapImage*>(&image)) {
            drawn = ResampleIntoPelPix(bitmap->Bitmap(), lock, rowBytes,
                                       {left, firstRow, drawnWidth, drawnHeight});
        }
#if !defined(_WIN32)
        else if (const auto* svg = dynamic_cast<const SvgImage*>(&image)) {
            // Drawn straight at the rectangle's size; the document keeps its own proportions
            // on the squeezed pixels.
            if (auto raster = RasterizeSvg(svg->Document(), drawnWidth, drawnHeight, pixelAspect)) {
                std::uint8_t* pixels = lock.Pixels();
                for (std::uint32_t y = 0; y < drawnHeight; ++y) {
                    std::memcpy(pixels + std::size_t(firstRow + drawnHeight - 1 - y) * rowBytes +
                                    std::size_t(left) * 4,
                                raster->pixels.data() + std::size_t(y) * drawnWidth * 4,
                                std::size_t(drawnWidth) * 4);
                }
                drawn = true;
            }
        }
#endif
    }
    return drawn ? std::move(buffer) : nullptr;
}

}  // namespace Tessel

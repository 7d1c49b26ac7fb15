// The images a host draws its own artwork from: PNG and SVG pictures found by path, or by
// the name of one of the library's image resources, decoded once and kept for later draws.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <unordered_map>

#include <tessel/media/PelPix.h>
#include <tessel/platform/Export.h>

namespace Tessel {

// One loaded picture: a decoded PNG, or an SVG document drawn anew at each size.
class TESSEL_API ProvidedImage {
public:
    virtual ~ProvidedImage();
    // The picture's own size in pixels (an SVG's declared size, or its view box).
    virtual double NaturalWidth() const = 0;
    virtual double NaturalHeight() const = 0;
};

class TESSEL_API ImageProvider {
public:
    ImageProvider();
    ~ImageProvider();
    ImageProvider(const ImageProvider&) = delete;
    ImageProvider& operator=(const ImageProvider&) = delete;

    // The provider that the library's own drawing uses when a host has none of its own.
    static ImageProvider& Default();

    // The image at PATH (a PNG or SVG file, told apart by content), or, when no such file
    // exists, the library's image resource of that name ("REDVideoThumb.png",
    // "VideoColored"). Null when there is none or it cannot be decoded. Thread-safe.
    std::shared_ptr<const ProvidedImage> Find(const std::u16string& path);

    // Decodes a picture from bytes (PNG or SVG); null when it is neither or is corrupt.
    static std::shared_ptr<const ProvidedImage> Decode(std::span<const std::uint8_t> bytes);

    // Forgets every loaded image, so changed files are read again.
    void Clear();

private:
    std::mutex mMutex;
    std::unordered_map<std::u16string, std::shared_ptr<const ProvidedImage>> mImages;
};

// The drawing surface: draws IMAGE into a new WIDTH x HEIGHT buffer, fitted inside it with
// its aspect ratio kept (on pixels PIXEL_ASPECT times as wide as tall), centred, the
// margins transparent; the buffer's pixel aspect ratio is set to PIXEL_ASPECT. A size of 0
// takes the image's own on that side. Null when the image cannot be drawn. Hosts draw on
// their main thread; RenderPNGToThumbnail and RenderSVGToThumbnail take care of that.
TESSEL_API OwnedPelPix DrawImage(const ProvidedImage& image, std::uint32_t width,
                                 std::uint32_t height, double pixelAspect = 1.0);

}  // namespace Tessel

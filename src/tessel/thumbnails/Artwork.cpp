#include <tessel/thumbnails/Artwork.h>

#include <tessel/media/ImageResources.h>

namespace Tessel::Artwork {

// Defined in the file generated from the artwork folder at build time.
extern const EmbeddedFile kEmbeddedFiles[];
extern const std::size_t kEmbeddedFileCount;

std::span<const EmbeddedFile> AllFiles() {
    return {kEmbeddedFiles, kEmbeddedFileCount};
}

std::optional<std::span<const std::uint8_t>> Find(std::string_view name) {
    for (const EmbeddedFile& file : AllFiles()) {
        if (file.name == name)
            return file.bytes;
    }
    return std::nullopt;
}

namespace {

ImageResource Resource(const char* type, const char* name, int id, const char* file) {
    return ImageResource{type, name, id, Find(file).value_or(std::span<const std::uint8_t>())};
}

// The generated arrays are constant-initialised, so they are complete before these run.
const ImageResourceRegistrar kContainsVideo(Resource("PNG", "ContainsVideoThumb.png", 0,
                                                     "ContainsVideoThumb.png"));
const ImageResourceRegistrar kCinemaDNG(Resource("PNG", "CinemaDNGThumb.png", 0,
                                                 "CinemaDNGThumb.png"));
const ImageResourceRegistrar kArri(Resource("PNG", "ArriThumb.png", 0, "ArriThumb.png"));
const ImageResourceRegistrar kRED(Resource("PNG", "REDVideoThumb.png", 0, "REDVideoThumb.png"));
const ImageResourceRegistrar kCameraCard(Resource("PNG", "", kCameraCardResourceId,
                                                  "CameraCardThumb.png"));
const ImageResourceRegistrar kVideoColored(Resource("SVG", "VideoColored", 0, "VideoColored.svg"));

}  // namespace

}  // namespace Tessel::Artwork

#include "PngEncoding.h"

#include <png.h>
#include <zlib.h>

#include <tessel/foundation/Path.h>
#include <tessel/platform/AtomicFile.h>

namespace Tessel {

namespace {

struct PngPicture {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::size_t rowBytes = 0;
    const std::uint8_t* pixels = nullptr;  // BGRA, first stored row at the bottom
    bool opaque = false;                   // every alpha is 255: written as RGB
};

void AppendBytes(png_structp png, png_bytep data, png_size_t length) {
    auto* out = static_cast<std::vector<std::uint8_t>*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + length);
}

void FlushNothing(png_structp) {}

// libpng reports errors by longjmp, so nothing with a destructor may be created between the
// setjmp and the end of this function: the rows are prepared by the caller.
bool EncodeRows(const PngPicture& picture, png_bytepp rows, std::vector<std::uint8_t>& out) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    if (!png)
        return false;
    png_infop info = png_create_info_struct(png);
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        return false;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_set_write_fn(png, &out, AppendBytes, FlushNothing);
    // Thumbnails are written once and read a few times, so speed counts more than the last
    // bytes. Measured on 256x144 thumbnails of photographs and of the artwork, against
    // level 3 with libpng's adaptive filters and RGBA throughout: the "sub" filter with
    // run-length deflate at level 1, and RGB where nothing is transparent, write a
    // photograph in a third of the time and 30% smaller (artwork with transparency, a few
    // KB either way, comes out up to half again as large).
    png_set_compression_level(png, 1);
    png_set_compression_strategy(png, Z_RLE);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
    png_set_IHDR(png, info, picture.width, picture.height, 8,
                 picture.opaque ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    png_set_bgr(png);
    // An opaque picture's alpha bytes are dropped as the rows are written.
    if (picture.opaque)
        png_set_filler(png, 0, PNG_FILLER_AFTER);
    png_write_image(png, rows);
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}

bool IsOpaque(const PngPicture& picture) {
    for (std::uint32_t y = 0; y < picture.height; ++y) {
        const std::uint8_t* row = picture.pixels + y * picture.rowBytes;
        for (std::uint32_t x = 0; x < picture.width; ++x) {
            if (row[4 * x + 3] != 255)
                return false;
        }
    }
    return true;
}

std::vector<std::uint8_t> Encode(PngPicture picture) {
    std::vector<std::uint8_t> out;
    if (!picture.pixels || picture.width == 0 || picture.height == 0)
        return out;
    picture.opaque = IsOpaque(picture);
    std::vector<png_bytep> rows(picture.height);
    for (std::uint32_t y = 0; y < picture.height; ++y) {
        // The top row of the picture is the last one stored.
        rows[y] =
            const_cast<png_bytep>(picture.pixels + (picture.height - 1 - y) * picture.rowBytes);
    }
    if (!EncodeRows(picture, rows.data(), out))
        out.clear();
    return out;
}

}  // namespace

std::vector<std::uint8_t> EncodePng(PelPixHandle handle) {
    if (!handle || !*handle)
        return {};
    PelPixLock lock(handle);
    return Encode({pelpixGetWidth(handle), pelpixGetHeight(handle), pelpixGetRowbytes(handle),
                   pelpixGetPixels(handle)});
}

std::vector<std::uint8_t> EncodePng(const MF::IVideoFrame& frame) {
    return Encode({frame.GetWidth(), frame.GetHeight(), frame.GetRowBytes(), frame.GetPixels()});
}

Status WritePngFile(const MF::IVideoFrame& frame, const std::string& path) {
    const std::vector<std::uint8_t> bytes = EncodePng(frame);
    if (bytes.empty())
        return {StatusCode::kInvalidArgument, "the picture has no pixels to write"};
    return Platform::WriteFileAtomically(
        Path::ToNative(std::string_view(path)),
        std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()),
        Platform::Durability::Replaceable);
}

}  // namespace Tessel

#include "SvgRaster.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include <cairo.h>
#include <librsvg/rsvg.h>

#include <tessel/media/PelPix.h>

namespace Tessel {

namespace {

// Larger drawings are no thumbnails; the bound keeps a bad size from exhausting memory.
constexpr std::uint64_t kLargestRasterPixels = 16384ull * 16384ull;

struct SurfaceDeleter {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
struct ContextDeleter {
    void operator()(cairo_t* context) const { cairo_destroy(context); }
};
struct ObjectDeleter {
    void operator()(void* object) const { g_object_unref(object); }
};

}  // namespace

std::optional<RasterImage> RasterizeSvg(std::span<const std::uint8_t> svg, std::uint32_t width,
                                        std::uint32_t height, double pixelAspect) {
    if (!(pixelAspect > 0.01 && pixelAspect < 100))
        pixelAspect = 1.0;
    if (svg.empty() || width == 0 || height == 0 ||
        std::uint64_t{width} * height > kLargestRasterPixels || width > 32767 || height > 32767) {
        return std::nullopt;
    }
    GError* error = nullptr;
    std::unique_ptr<RsvgHandle, ObjectDeleter> handle(
        rsvg_handle_new_from_data(svg.data(), svg.size(), &error));
    if (!handle) {
        if (error)
            g_error_free(error);
        return std::nullopt;
    }
    std::unique_ptr<cairo_surface_t, SurfaceDeleter> surface(cairo_image_surface_create(
        CAIRO_FORMAT_ARGB32, static_cast<int>(width), static_cast<int>(height)));
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS)
        return std::nullopt;
    std::unique_ptr<cairo_t, ContextDeleter> context(cairo_create(surface.get()));
    // The viewport keeps the document's aspect ratio and centres it; it is laid out in
    // square units and squeezed horizontally onto pixels of the given aspect.
    cairo_scale(context.get(), 1.0 / pixelAspect, 1.0);
    const RsvgRectangle viewport{0, 0, static_cast<double>(width) * pixelAspect,
                                 static_cast<double>(height)};
    if (!rsvg_handle_render_document(handle.get(), context.get(), &viewport, &error)) {
        if (error)
            g_error_free(error);
        return std::nullopt;
    }
    cairo_surface_flush(surface.get());

    RasterImage image{width, height, std::vector<std::uint8_t>(std::size_t{width} * height * 4)};
    const unsigned char* data = cairo_image_surface_get_data(surface.get());
    const int stride = cairo_image_surface_get_stride(surface.get());
    for (std::uint32_t y = 0; y < height; ++y) {
        const auto* row = reinterpret_cast<const std::uint32_t*>(data + std::size_t(y) * stride);
        std::uint8_t* out = image.pixels.data() + std::size_t(y) * width * 4;
        for (std::uint32_t x = 0; x < width; ++x, out += 4) {
            // Cairo keeps native-endian premultiplied ARGB; buffers hold straight B, G, R, A.
            const std::uint32_t pixel = row[x];
            const std::uint32_t alpha = pixel >> 24;
            std::uint32_t red = (pixel >> 16) & 0xff, green = (pixel >> 8) & 0xff,
                          blue = pixel & 0xff;
            if (alpha != 0 && alpha != 255) {
                red = (red * 255 + alpha / 2) / alpha;
                green = (green * 255 + alpha / 2) / alpha;
                blue = (blue * 255 + alpha / 2) / alpha;
            }
            out[0] = static_cast<std::uint8_t>(blue > 255 ? 255 : blue);
            out[1] = static_cast<std::uint8_t>(green > 255 ? 255 : green);
            out[2] = static_cast<std::uint8_t>(red > 255 ? 255 : red);
            out[3] = static_cast<std::uint8_t>(alpha);
        }
    }
    return image;
}

std::optional<std::pair<double, double>> SvgNaturalSize(std::span<const std::uint8_t> svg) {
    if (svg.empty())
        return std::nullopt;
    GError* error = nullptr;
    std::unique_ptr<RsvgHandle, ObjectDeleter> handle(
        rsvg_handle_new_from_data(svg.data(), svg.size(), &error));
    if (!handle) {
        if (error)
            g_error_free(error);
        return std::nullopt;
    }
    rsvg_handle_set_dpi(handle.get(), 96.0);
    double width = 0, height = 0;
    if (rsvg_handle_get_intrinsic_size_in_pixels(handle.get(), &width, &height) && width > 0 &&
        height > 0) {
        return std::make_pair(width, height);
    }
    gboolean hasWidth = false, hasHeight = false, hasViewBox = false;
    RsvgLength lengthWidth, lengthHeight;
    RsvgRectangle viewBox;
    rsvg_handle_get_intrinsic_dimensions(handle.get(), &hasWidth, &lengthWidth, &hasHeight,
                                         &lengthHeight, &hasViewBox, &viewBox);
    if (hasViewBox && viewBox.width > 0 && viewBox.height > 0)
        return std::make_pair(viewBox.width, viewBox.height);
    return std::nullopt;
}

OwnedPelPix RasterImageToPelPix(const RasterImage& image, std::uint32_t width,
                                std::uint32_t height) {
    OwnedPelPix buffer(pelpixNew(width, height));
    if (!buffer)
        return nullptr;
    PelPixLock lock(buffer.get());
    const std::size_t rowBytes = pelpixGetRowbytes(buffer.get());
    const std::size_t copied = std::size_t{std::min(width, image.width)} * 4;
    const std::size_t imageRow = std::size_t{image.width} * 4;
    for (std::uint32_t y = 0; y < std::min(height, image.height); ++y) {
        // The first stored row is the bottom of the picture.
        std::memcpy(lock.Pixels() + std::size_t(height - 1 - y) * rowBytes,
                    image.pixels.data() + std::size_t(y) * imageRow, copied);
    }
    return buffer;
}

}  // namespace Tessel

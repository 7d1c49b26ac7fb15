#include "SvgRaster.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include <cairo.h>
#include <librsvg/rsvg.h>

#include <tessel/media/PelPix.h>
#include <tessel/platform/DynamicLibrary.h>

namespace Tessel {

namespace {

// Larger drawings are no thumbnails; the bound keeps a bad size from exhausting memory.
constexpr std::uint64_t kLargestRasterPixels = 16384ull * 16384ull;

// The functions of librsvg, cairo and GLib drawing needs, from librsvg opened on first use
// (cairo and GLib come with it as its dependencies). The headers give the types only.
struct SvgFunctions {
    decltype(&rsvg_handle_new_from_data) newFromData;
    decltype(&rsvg_handle_render_document) renderDocument;
    decltype(&rsvg_handle_set_dpi) setDpi;
    decltype(&rsvg_handle_get_intrinsic_size_in_pixels) intrinsicSizeInPixels;
    decltype(&rsvg_handle_get_intrinsic_dimensions) intrinsicDimensions;
    decltype(&g_object_unref) objectUnref;
    decltype(&g_error_free) errorFree;
    decltype(&cairo_image_surface_create) imageSurfaceCreate;
    decltype(&cairo_surface_status) surfaceStatus;
    decltype(&cairo_surface_flush) surfaceFlush;
    decltype(&cairo_image_surface_get_data) imageSurfaceGetData;
    decltype(&cairo_image_surface_get_stride) imageSurfaceGetStride;
    decltype(&cairo_surface_destroy) surfaceDestroy;
    decltype(&cairo_create) create;
    decltype(&cairo_scale) scale;
    decltype(&cairo_destroy) destroy;
};

// Null when the renderer cannot be loaded (then no SVG is drawn). Opened once, by the
// first thread that draws, and never closed: GLib's type system and the caches of librsvg
// and its libraries live as long as the process, and cannot be unloaded from under it.
const SvgFunctions* Svg() {
    static const SvgFunctions* const kFunctions = []() -> const SvgFunctions* {
        static const Platform::DynamicLibrary* const library =
            new Platform::DynamicLibrary(TESSEL_SVG_LIBRARY);
        static SvgFunctions functions{};
        bool complete = library->IsOpen();
        const auto find = [&](auto& slot, const char* name, auto* declared) {
            slot = library->Find(name, declared);
            complete = complete && slot != nullptr;
        };
        find(functions.newFromData, "rsvg_handle_new_from_data", &rsvg_handle_new_from_data);
        find(functions.renderDocument, "rsvg_handle_render_document", &rsvg_handle_render_document);
        find(functions.setDpi, "rsvg_handle_set_dpi", &rsvg_handle_set_dpi);
        find(functions.intrinsicSizeInPixels, "rsvg_handle_get_intrinsic_size_in_pixels",
             &rsvg_handle_get_intrinsic_size_in_pixels);
        find(functions.intrinsicDimensions, "rsvg_handle_get_intrinsic_dimensions",
             &rsvg_handle_get_intrinsic_dimensions);
        find(functions.objectUnref, "g_object_unref", &g_object_unref);
        find(functions.errorFree, "g_error_free", &g_error_free);
        find(functions.imageSurfaceCreate, "cairo_image_surface_create",
             &cairo_image_surface_create);
        find(functions.surfaceStatus, "cairo_surface_status", &cairo_surface_status);
        find(functions.surfaceFlush, "cairo_surface_flush", &cairo_surface_flush);
        find(functions.imageSurfaceGetData, "cairo_image_surface_get_data",
             &cairo_image_surface_get_data);
        find(functions.imageSurfaceGetStride, "cairo_image_surface_get_stride",
             &cairo_image_surface_get_stride);
        find(functions.surfaceDestroy, "cairo_surface_destroy", &cairo_surface_destroy);
        find(functions.create, "cairo_create", &cairo_create);
        find(functions.scale, "cairo_scale", &cairo_scale);
        find(functions.destroy, "cairo_destroy", &cairo_destroy);
        return complete ? &functions : nullptr;
    }();
    return kFunctions;
}

struct SurfaceDeleter {
    void operator()(cairo_surface_t* surface) const { Svg()->surfaceDestroy(surface); }
};
struct ContextDeleter {
    void operator()(cairo_t* context) const { Svg()->destroy(context); }
};
struct ObjectDeleter {
    void operator()(void* object) const { Svg()->objectUnref(object); }
};

// A document parsed by librsvg; null when it does not parse.
std::unique_ptr<RsvgHandle, ObjectDeleter> ParseSvg(const SvgFunctions& svg,
                                                    std::span<const std::uint8_t> document) {
    GError* error = nullptr;
    std::unique_ptr<RsvgHandle, ObjectDeleter> handle(
        svg.newFromData(document.data(), document.size(), &error));
    if (error)
        svg.errorFree(error);
    return handle;
}

}  // namespace

std::optional<RasterImage> RasterizeSvg(std::span<const std::uint8_t> svg, std::uint32_t width,
                                        std::uint32_t height, double pixelAspect) {
    if (!(pixelAspect > 0.01 && pixelAspect < 100))
        pixelAspect = 1.0;
    if (svg.empty() || width == 0 || height == 0 ||
        std::uint64_t{width} * height > kLargestRasterPixels || width > 32767 || height > 32767) {
        return std::nullopt;
    }
    const SvgFunctions* const functions = Svg();
    if (!functions)
        return std::nullopt;
    const auto handle = ParseSvg(*functions, svg);
    if (!handle)
        return std::nullopt;
    std::unique_ptr<cairo_surface_t, SurfaceDeleter> surface(functions->imageSurfaceCreate(
        CAIRO_FORMAT_ARGB32, static_cast<int>(width), static_cast<int>(height)));
    if (functions->surfaceStatus(surface.get()) != CAIRO_STATUS_SUCCESS)
        return std::nullopt;
    std::unique_ptr<cairo_t, ContextDeleter> context(functions->create(surface.get()));
    // The viewport keeps the document's aspect ratio and centres it; it is laid out in
    // square units and squeezed horizontally onto pixels of the given aspect.
    functions->scale(context.get(), 1.0 / pixelAspect, 1.0);
    const RsvgRectangle viewport{0, 0, static_cast<double>(width) * pixelAspect,
                                 static_cast<double>(height)};
    GError* error = nullptr;
    const bool drawn =
        functions->renderDocument(handle.get(), context.get(), &viewport, &error) != 0;
    if (error)
        functions->errorFree(error);
    if (!drawn)
        return std::nullopt;
    functions->surfaceFlush(surface.get());

    RasterImage image{width, height, std::vector<std::uint8_t>(std::size_t{width} * height * 4)};
    const unsigned char* data = functions->imageSurfaceGetData(surface.get());
    const int stride = functions->imageSurfaceGetStride(surface.get());
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
    const SvgFunctions* const functions = svg.empty() ? nullptr : Svg();
    if (!functions)
        return std::nullopt;
    const auto handle = ParseSvg(*functions, svg);
    if (!handle)
        return std::nullopt;
    functions->setDpi(handle.get(), 96.0);
    double width = 0, height = 0;
    if (functions->intrinsicSizeInPixels(handle.get(), &width, &height) && width > 0 &&
        height > 0) {
        return std::make_pair(width, height);
    }
    gboolean hasWidth = false, hasHeight = false, hasViewBox = false;
    RsvgLength lengthWidth, lengthHeight;
    RsvgRectangle viewBox;
    functions->intrinsicDimensions(handle.get(), &hasWidth, &lengthWidth, &hasHeight, &lengthHeight,
                                   &hasViewBox, &viewBox);
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

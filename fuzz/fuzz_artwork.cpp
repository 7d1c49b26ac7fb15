// Artwork bytes (PNG or SVG) decoded by the image provider and drawn into a small buffer.
#include <cstddef>
#include <cstdint>

#include <tessel/media/PelPix.h>
#include <tessel/thumbnails/ImageProvider.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto image = Tessel::ImageProvider::Decode({data, size});
    if (image) {
        const double aspect = size > 0 && (data[0] & 1) ? 2.0 : 1.0;
        Tessel::DrawImage(*image, 24, 16, aspect);  // the buffer is disposed of at once
    }
    return 0;
}

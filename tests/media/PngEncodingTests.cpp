// PNG encoding read back through the library's decoder: rows flipped to top-first, colours
// in place, alpha kept where any pixel is transparent and dropped where none is.
#include <tessel/media/PngEncoding.h>
#include <tessel/platform/ImageDecoding.h>

#include <gtest/gtest.h>

namespace Tessel {
namespace {

TEST(PngEncoding, OpaqueAndTransparentPicturesReadBackPixelForPixel) {
    EXPECT_TRUE(EncodePng(PelPixHandle(nullptr)).empty());
    for (const std::uint8_t cornerAlpha : {255, 0}) {
        const OwnedPelPix picture(pelpixNew(5, 3));
        PelPixLock lock(picture.get());
        for (std::uint32_t row = 0; row < 3; ++row)
            for (std::uint32_t x = 0; x < 5; ++x)
                for (std::uint32_t channel = 0; channel < 4; ++channel)
                    lock.Row(row)[4 * x + channel] =
                        std::uint8_t(channel == 3 ? 255 : x * 50 + row * 9 + channel);
        lock.Row(0)[3] = cornerAlpha;  // the bottom left pixel
        const auto decoded = Platform::DecodeImage(EncodePng(picture.get()));
        ASSERT_TRUE(decoded);
        const std::uint32_t bytes = cornerAlpha == 255 ? 3 : 4;
        ASSERT_EQ(decoded->bitsPerPixel, bytes * 8);
        ASSERT_TRUE(decoded->width == 5 && decoded->height == 3);
        for (std::uint32_t y = 0; y < 3; ++y)
            for (std::uint32_t x = 0; x < 5; ++x)
                for (std::uint32_t channel = 0; channel < bytes; ++channel) {
                    const std::uint8_t got =
                        decoded->pixels[y * decoded->rowBytes + x * bytes + channel];
                    const std::uint32_t row = 2 - y;
                    if (x == 0 && row == 0 && bytes == 4) {
                        EXPECT_EQ(got * (channel == 3), 0);  // transparent: only alpha counts
                    } else {
                        EXPECT_EQ(got, channel == 3 ? 255 : x * 50 + row * 9 + channel)
                            << x << "," << y;
                    }
                }
    }
}

}  // namespace
}  // namespace Tessel

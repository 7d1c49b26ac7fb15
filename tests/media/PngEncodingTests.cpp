// PNG encoding read back through the library's decoder: rows flipped to top-first, colours
// in place, alpha kept where any pixel is transparent and dropped where none is.
#include <tessel/media/PngEncoding.h>
#include <tessel/platform/ImageDecoding.h>

#include <gtest/gtest.h>

#include <cstring>

namespace Tessel {
namespace {

TEST(PngEncoding, OpaqueAndTransparentPicturesReadBackPixelForPixel) {
    EXPECT_TRUE(EncodePng(PelPixHandle(nullptr)).empty());
    for (const std::uint8_t cornerAlpha : {std::uint8_t{255}, std::uint8_t{0}}) {
        constexpr std::uint32_t kWidth = 5, kHeight = 3;
        const OwnedPelPix picture(pelpixNew(kWidth, kHeight));
        {
            PelPixLock lock(picture.get());
            for (std::uint32_t row = 0; row < kHeight; ++row) {
                std::uint8_t* pixel = lock.Row(row);
                for (std::uint32_t x = 0; x < kWidth; ++x, pixel += 4) {
                    const std::uint8_t bgra[4] = {std::uint8_t(x * 50), std::uint8_t(row * 100),
                                                  std::uint8_t(7 + x + row), 255};
                    std::memcpy(pixel, bgra, 4);
                }
            }
            lock.Pixels()[3] = cornerAlpha;  // the first stored row is the bottom
        }
        const std::vector<std::uint8_t> png = EncodePng(picture.get());
        const auto decoded = Platform::DecodeImage(png);
        ASSERT_TRUE(decoded);
        const bool opaque = cornerAlpha == 255;
        ASSERT_EQ(decoded->bitsPerPixel, opaque ? 24 : 32);
        ASSERT_EQ(decoded->width, kWidth);
        ASSERT_EQ(decoded->height, kHeight);
        const std::size_t bytes = decoded->bitsPerPixel / 8;
        for (std::uint32_t y = 0; y < kHeight; ++y) {
            for (std::uint32_t x = 0; x < kWidth; ++x) {
                const std::uint8_t* got = &decoded->pixels[y * decoded->rowBytes + x * bytes];
                const std::uint32_t storedRow = kHeight - 1 - y;
                const bool corner = x == 0 && storedRow == 0;
                if (corner && !opaque) {
                    EXPECT_EQ(got[3], 0);
                    continue;
                }
                EXPECT_EQ(got[0], x * 50) << x << "," << y;
                EXPECT_EQ(got[1], storedRow * 100) << x << "," << y;
                EXPECT_EQ(got[2], 7 + x + storedRow) << x << "," << y;
                if (!opaque) {
                    EXPECT_EQ(got[3], 255);
                }
            }
        }
    }
}

}  // namespace
}  // namespace Tessel

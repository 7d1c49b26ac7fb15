// Decoding every supported format and variant, refusing what is truncated, corrupt, too
// large or no image at all, reading only regular files, and drawing into the buffer: pixel
// values, bottom-up placement, transparent margins and the scaling filters.
#include <tessel/platform/ImageDecoding.h>
#include <tessel/thumbnails/RenderThumbnail.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "ImageWriters.h"
#include "support/FileKinds.h"
#include "support/TempDir.h"

namespace Tessel {
namespace {

using Platform::DecodedBitmap;
using Platform::DecodeImage;
namespace Images = Tessel::Test;  // inside TEST bodies Test:: is ::testing::Test
using Images::Bytes;
using Images::Picture;
using Images::Rgba;

constexpr Rgba kRed{255, 0, 0};
constexpr Rgba kGreen{0, 255, 0};
constexpr Rgba kBlue{0, 0, 255};
constexpr Rgba kWhite{255, 255, 255};
constexpr Rgba kClear{0, 0, 0, 0};

// A thumbnail that is disposed at the end of the test, with pixel reads by stored row.
class Thumbnail {
public:
    explicit Thumbnail(PelPixHandle handle) : mHandle(handle) {}
    ~Thumbnail() { pelpixDispose(mHandle); }
    Thumbnail(const Thumbnail&) = delete;
    Thumbnail& operator=(const Thumbnail&) = delete;
    explicit operator bool() const { return mHandle != nullptr; }
    std::uint32_t width() const { return pelpixGetWidth(mHandle); }
    std::uint32_t height() const { return pelpixGetHeight(mHandle); }
    // The pixel at column X of stored row ROW (0 = bottom), as RGBA.
    Rgba At(std::uint32_t x, std::uint32_t row) const {
        PelPixLock lock(mHandle);
        const std::uint8_t* p = lock.Row(row) + x * 4;
        return Rgba{p[2], p[1], p[0], p[3]};
    }

private:
    PelPixHandle mHandle;
};

// Pixel (x, y) of a decoded bitmap (rows top-down); alpha 255 for 24 bits.
Rgba BitmapAt(const DecodedBitmap& bitmap, std::uint32_t x, std::uint32_t y) {
    const std::size_t size = bitmap.bitsPerPixel / 8;
    const std::uint8_t* p = bitmap.pixels.data() + y * bitmap.rowBytes + x * size;
    return Rgba{p[2], p[1], p[0], size == 4 ? p[3] : std::uint8_t{255}};
}

void ExpectPicture(const std::optional<DecodedBitmap>& bitmap, const Picture& picture,
                   int bitsPerPixel, const char* what) {
    ASSERT_TRUE(bitmap.has_value()) << what;
    EXPECT_EQ(bitmap->bitsPerPixel, bitsPerPixel) << what;
    EXPECT_EQ(bitmap->planes, 1) << what;
    ASSERT_EQ(bitmap->width, picture.width) << what;
    ASSERT_EQ(bitmap->height, picture.height) << what;
    EXPECT_EQ(bitmap->sourceWidth, picture.width) << what;
    EXPECT_EQ(bitmap->sourceHeight, picture.height) << what;
    for (std::uint32_t y = 0; y < picture.height; ++y)
        for (std::uint32_t x = 0; x < picture.width; ++x) {
            const Rgba got = BitmapAt(*bitmap, x, y);
            const Rgba want = picture.at(x, y);
            EXPECT_TRUE(got == want) << what << " at " << x << "," << y << ": got " << int(got.r)
                                     << "/" << int(got.g) << "/" << int(got.b) << "/" << int(got.a);
        }
}

bool Near(const Rgba& a, const Rgba& b, int tolerance) {
    return std::abs(a.r - b.r) <= tolerance && std::abs(a.g - b.g) <= tolerance &&
           std::abs(a.b - b.b) <= tolerance && std::abs(a.a - b.a) <= tolerance;
}

// Eight distinct colours, two rows of four.
Picture EightColours() {
    const Rgba colours[8] = {kRed,         kGreen,       kBlue,        kWhite,
                             {10, 20, 30}, {40, 50, 60}, {70, 80, 90}, {200, 100, 0}};
    return Images::MakePicture(
        4, 2, [&](std::uint32_t x, std::uint32_t y) { return colours[y * 4 + x]; });
}

TEST(RenderThumbnail, PlacesThePictureAtTheTopOfTheBottomUpBufferWithTransparentMargins) {
    const std::int64_t liveBefore = pelpixLiveCount();
    const Picture picture = EightColours();
    const Bytes bmp = Images::WriteBmp24(picture);
    {
        // 4x2 into 4x4: drawn 4x2 at offset 0 columns, 2 stored rows. Stored row 3 is the
        // top of the picture.
        Thumbnail wide(RenderThumbnail(bmp, 4, 4));
        ASSERT_TRUE(wide);
        ASSERT_EQ(wide.width(), 4u);
        ASSERT_EQ(wide.height(), 4u);
        for (std::uint32_t x = 0; x < 4; ++x) {
            EXPECT_EQ(wide.At(x, 3), picture.at(x, 0)) << x;
            EXPECT_EQ(wide.At(x, 2), picture.at(x, 1)) << x;
            EXPECT_EQ(wide.At(x, 1), kClear) << x;
            EXPECT_EQ(wide.At(x, 0), kClear) << x;
        }
    }
    {
        // Turned on its side (2x4) into 5x4: drawn 2x4 from column 1; columns 0, 3 and 4
        // are transparent margins.
        const Picture tall = Images::MakePicture(
            2, 4, [&](std::uint32_t x, std::uint32_t y) { return picture.at(y, x); });
        Thumbnail thumbnail(RenderThumbnail(Images::WriteBmp24(tall, true), 5, 4));
        ASSERT_TRUE(thumbnail);
        for (std::uint32_t row = 0; row < 4; ++row) {
            EXPECT_EQ(thumbnail.At(0, row), kClear);
            EXPECT_EQ(thumbnail.At(1, row), tall.at(0, 3 - row));
            EXPECT_EQ(thumbnail.At(2, row), tall.at(1, 3 - row));
            EXPECT_EQ(thumbnail.At(3, row), kClear);
            EXPECT_EQ(thumbnail.At(4, row), kClear);
        }
    }
    {
        // Box sides of 0 take the source size; a 1x1 box of a 1x1 image draws nothing.
        Thumbnail full(RenderThumbnail(bmp, 0, 0));
        ASSERT_TRUE(full);
        EXPECT_EQ(full.width(), 4u);
        EXPECT_EQ(full.height(), 2u);
        EXPECT_EQ(full.At(3, 1), picture.at(3, 0));
        Thumbnail narrow(RenderThumbnail(bmp, 0, 1));
        ASSERT_TRUE(narrow);
        EXPECT_EQ(narrow.width(), 4u);
        EXPECT_EQ(narrow.height(), 1u);
        const Bytes dot =
            Images::WriteBmp24(Images::MakePicture(1, 1, [](auto, auto) { return kWhite; }));
        Thumbnail nothing(RenderThumbnail(dot, 1, 1));
        ASSERT_TRUE(nothing);
        EXPECT_EQ(nothing.At(0, 0), kClear);
    }
    EXPECT_EQ(pelpixLiveCount(), liveBefore);
}

TEST(RenderThumbnail, ShrinksByCoveredAreaEnlargesBilinearlyAndWeighsColoursByAlpha) {
    auto gray = [](std::uint8_t v) { return Rgba{v, v, v}; };
    {
        // Three columns into two: each target pixel covers one and a half source pixels,
        // so the white middle one counts a third in each.
        const Picture picture = Images::MakePicture(
            3, 1, [&](std::uint32_t x, auto) { return gray(x == 1 ? 255 : 0); });
        Thumbnail thumbnail(RenderThumbnail(Images::WriteBmp24(picture), 2, 1));
        ASSERT_TRUE(thumbnail);
        EXPECT_EQ(thumbnail.At(0, 0), gray(85));
        EXPECT_EQ(thumbnail.At(1, 0), gray(85));
    }
    {
        // Halving a picture of flat halves keeps each colour exact.
        const Picture picture =
            Images::MakePicture(4, 2, [&](std::uint32_t x, auto) { return x < 2 ? kRed : kBlue; });
        Thumbnail thumbnail(RenderThumbnail(Images::WriteBmp24(picture), 2, 1));
        ASSERT_TRUE(thumbnail);
        EXPECT_EQ(thumbnail.At(0, 0), kRed);
        EXPECT_EQ(thumbnail.At(1, 0), kBlue);
    }
    {
        // Two pixels into four: bilinear between the centres, clamped at the edges.
        const Picture picture = Images::MakePicture(
            2, 1, [&](std::uint32_t x, auto) { return gray(x == 0 ? 0 : 255); });
        Thumbnail thumbnail(RenderThumbnail(Images::WriteBmp24(picture), 4, 2));
        ASSERT_TRUE(thumbnail);
        const std::uint8_t expected[4] = {0, 64, 191, 255};
        for (std::uint32_t x = 0; x < 4; ++x) {
            EXPECT_EQ(thumbnail.At(x, 0), gray(expected[x])) << x;
            EXPECT_EQ(thumbnail.At(x, 1), gray(expected[x])) << x;
        }
    }
    {
        // Opaque red beside transparent black: the mean stays pure red, half covered.
        const Picture picture = Images::MakePicture(
            2, 1, [&](std::uint32_t x, auto) { return x == 0 ? kRed : kClear; });
        Thumbnail thumbnail(RenderThumbnail(Images::WriteBmp32(picture), 1, 1));
        ASSERT_TRUE(thumbnail);
        const Rgba pixel = thumbnail.At(0, 0);
        EXPECT_EQ(pixel.r, 255);
        EXPECT_EQ(pixel.g, 0);
        EXPECT_EQ(pixel.b, 0);
        EXPECT_NEAR(pixel.a, 128, 1);
    }
    {
        // A 32-bit source keeps its alpha where drawn, including fully transparent pixels.
        const Picture picture = Images::MakePicture(2, 2, [&](std::uint32_t x, std::uint32_t y) {
            return x == y ? Rgba{10, 20, 30, 40} : kClear;
        });
        Thumbnail thumbnail(RenderThumbnail(Images::WritePng(picture, true), 2, 2));
        ASSERT_TRUE(thumbnail);
        EXPECT_EQ(thumbnail.At(0, 1), (Rgba{10, 20, 30, 40}));
        EXPECT_EQ(thumbnail.At(1, 1), kClear);
        EXPECT_EQ(thumbnail.At(1, 0), (Rgba{10, 20, 30, 40}));
    }
}

TEST(DecodeImage, PngGrayPalettedTransparentAndSixteenBit) {
    const Picture grays = Images::MakePicture(3, 1, [](std::uint32_t x, auto) {
        const std::uint8_t v = x == 0 ? 0 : x == 1 ? 128 : 255;
        return Rgba{v, v, v};
    });
    ExpectPicture(DecodeImage(Images::WritePng(3, 1, 8, 0, {0, 128, 255})), grays, 24, "gray 8");
    // 1-bit gray: 0b01000000 → black, white, black.
    ExpectPicture(DecodeImage(Images::WritePng(3, 1, 1, 0, {0x40})),
                  Images::MakePicture(3, 1,
                                      [](std::uint32_t x, auto) {
                                          return x == 1 ? kWhite : Rgba{0, 0, 0};
                                      }),
                  24, "gray 1");
    // 4-bit palette indices 2, 1, 0 in one row of two bytes.
    const Bytes palette = {255, 0, 0, 0, 255, 0, 0, 0, 255};
    const Picture bgr = Images::MakePicture(3, 1, [](std::uint32_t x, auto) {
        return x == 0 ? kBlue : x == 1 ? kGreen : kRed;
    });
    ExpectPicture(DecodeImage(Images::WritePng(3, 1, 4, 3, {0x21, 0x00}, palette)), bgr, 24,
                  "palette 4");
    // A transparency chunk makes the paletted image 32-bit (entries past it stay opaque).
    Picture faded = bgr;
    faded.pixels[0].a = 255;
    faded.pixels[1].a = 0;
    faded.pixels[2].a = 128;
    ExpectPicture(DecodeImage(Images::WritePng(3, 1, 8, 3, {2, 1, 0}, palette, {128, 0})), faded,
                  32, "palette with tRNS");
    // 16-bit samples are scaled to 8 with rounding.
    ExpectPicture(DecodeImage(Images::WritePng(1, 1, 16, 2, {0xFF, 0xFF, 0x80, 0x80, 0, 0})),
                  Images::MakePicture(1, 1,
                                      [](auto, auto) {
                                          return Rgba{255, 128, 0};
                                      }),
                  24, "RGB 16");
    ExpectPicture(
        DecodeImage(Images::WritePng(2, 1, 8, 4, {50, 0, 200, 255})),
        Images::MakePicture(2, 1,
                            [](std::uint32_t x, auto) {
                                return x == 0 ? Rgba{50, 50, 50, 0} : Rgba{200, 200, 200, 255};
                            }),
        32, "gray and alpha");
    const Picture colours = EightColours();
    ExpectPicture(DecodeImage(Images::WritePng(colours, false)), colours, 24, "RGB 8");
    ExpectPicture(DecodeImage(Images::WritePng(colours, true)), colours, 32, "RGBA 8");
}

TEST(DecodeImage, GifBmpAndTgaVariants) {
    const std::vector<Rgba> palette = {kRed, kGreen, kBlue, kWhite};
    const Bytes indices = {0, 1, 2, 3, 2, 1};
    const Picture picture = Images::MakePicture(
        3, 2, [&](std::uint32_t x, std::uint32_t y) { return palette[indices[y * 3 + x]]; });
    ExpectPicture(DecodeImage(Images::WriteGif(3, 2, indices, palette)), picture, 24, "GIF");
    Picture holes = picture;
    holes.pixels[1] = holes.pixels[5] = kClear;
    ExpectPicture(DecodeImage(Images::WriteGif(3, 2, indices, palette, 1)), holes, 32,
                  "GIF with a transparent index");
    // A longer image makes the encoder restart its code table many times.
    Bytes many(40 * 30);
    for (std::size_t i = 0; i < many.size(); ++i)
        many[i] = static_cast<std::uint8_t>(i * 7 % 4);
    ExpectPicture(
        DecodeImage(Images::WriteGif(40, 30, many, palette)),
        Images::MakePicture(
            40, 30, [&](std::uint32_t x, std::uint32_t y) { return palette[many[y * 40 + x]]; }),
        24, "GIF 40x30");

    const Picture colours = EightColours();
    ExpectPicture(DecodeImage(Images::WriteBmp24(colours)), colours, 24, "BMP 24 bottom-up");
    ExpectPicture(DecodeImage(Images::WriteBmp24(colours, true)), colours, 24, "BMP 24 top-down");
    ExpectPicture(DecodeImage(Images::WriteBmp8(3, 2, indices, palette)), picture, 24, "BMP 8");
    Picture translucent = colours;
    translucent.pixels[0].a = 0;
    translucent.pixels[6].a = 99;
    ExpectPicture(DecodeImage(Images::WriteBmp32(translucent)), translucent, 32, "BMP 32");

    ExpectPicture(DecodeImage(Images::WriteTga(colours, 24, false, false)), colours, 24,
                  "TGA 24 bottom-up");
    ExpectPicture(DecodeImage(Images::WriteTga(translucent, 32, true, false)), translucent, 32,
                  "TGA 32 top-down");
    const Picture runs = Images::MakePicture(300, 2, [](std::uint32_t x, std::uint32_t y) {
        return x < 200 ? kBlue
                       : Rgba{static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 7,
                              static_cast<std::uint8_t>(x / 2)};
    });
    ExpectPicture(DecodeImage(Images::WriteTga(runs, 32, false, true)), runs, 32, "TGA 32 RLE");
}

#if !defined(_WIN32)

// Flat quadrants, so that JPEG keeps each colour near its value away from the edges.
Picture Quadrants(std::uint32_t width, std::uint32_t height) {
    return Images::MakePicture(width, height, [&](std::uint32_t x, std::uint32_t y) {
        const bool right = x >= width / 2, bottom = y >= height / 2;
        return bottom ? (right ? kWhite : Rgba{40, 40, 40}) : (right ? kGreen : kRed);
    });
}

TEST(DecodeImage, JpegColoursAndReducedScaleGeometry) {
    const std::optional<DecodedBitmap> colour =
        DecodeImage(Images::WriteJpeg(Quadrants(64, 32), 90));
    ASSERT_TRUE(colour);
    EXPECT_EQ(colour->bitsPerPixel, 24);
    EXPECT_TRUE(Near(BitmapAt(*colour, 12, 6), kRed, 12));
    EXPECT_TRUE(Near(BitmapAt(*colour, 50, 6), kGreen, 12));
    EXPECT_TRUE(Near(BitmapAt(*colour, 12, 26), (Rgba{40, 40, 40}), 12));
    EXPECT_TRUE(Near(BitmapAt(*colour, 50, 26), kWhite, 12));

    const std::optional<DecodedBitmap> gray =
        DecodeImage(Images::WriteJpeg(Quadrants(16, 16), 90, true));
    ASSERT_TRUE(gray);
    EXPECT_EQ(gray->bitsPerPixel, 24);
    EXPECT_TRUE(Near(BitmapAt(*gray, 13, 13), kWhite, 8));
    EXPECT_TRUE(Near(BitmapAt(*gray, 2, 13), (Rgba{40, 40, 40}), 8));

    const std::optional<DecodedBitmap> progressive =
        DecodeImage(Images::WriteJpeg(Quadrants(64, 32), 90, false, true), 16, 8);
    ASSERT_TRUE(progressive);
    EXPECT_EQ(progressive->width, 16u);
    EXPECT_TRUE(Near(BitmapAt(*progressive, 12, 2), kGreen, 16));

    // Print-work CMYK, stored inverted: no ink but magenta and yellow is red.
    const std::optional<DecodedBitmap> cmyk =
        DecodeImage(Images::WriteCmykJpeg(16, 16, {255, 0, 0, 255}));
    ASSERT_TRUE(cmyk);
    EXPECT_EQ(cmyk->bitsPerPixel, 24);
    EXPECT_TRUE(Near(BitmapAt(*cmyk, 8, 8), kRed, 8));

    const Bytes frame = Images::WriteJpeg(Quadrants(1920, 1080), 75);
    struct Case {
        std::uint32_t hintWidth, hintHeight, width, height;
    };
    for (const Case c : {Case{256, 144, 480, 270}, Case{240, 135, 240, 135}, Case{241, 1, 480, 270},
                         Case{1, 136, 480, 270}, Case{961, 0, 1200, 675}, Case{0, 0, 1920, 1080},
                         Case{4000, 4000, 1920, 1080}}) {
        const std::optional<DecodedBitmap> bitmap = DecodeImage(frame, c.hintWidth, c.hintHeight);
        ASSERT_TRUE(bitmap) << c.hintWidth << "x" << c.hintHeight;
        EXPECT_EQ(bitmap->width, c.width) << c.hintWidth << "x" << c.hintHeight;
        EXPECT_EQ(bitmap->height, c.height) << c.hintWidth << "x" << c.hintHeight;
        EXPECT_EQ(bitmap->sourceWidth, 1920u);
        EXPECT_EQ(bitmap->sourceHeight, 1080u);
        EXPECT_EQ(bitmap->rowBytes, bitmap->width * 3u);
    }

    Thumbnail thumbnail(RenderThumbnail(frame, 256, 144));
    ASSERT_TRUE(thumbnail);
    ASSERT_EQ(thumbnail.width(), 256u);
    ASSERT_EQ(thumbnail.height(), 144u);
    EXPECT_TRUE(Near(thumbnail.At(30, 130), kRed, 12));  // top left
    EXPECT_TRUE(Near(thumbnail.At(220, 130), kGreen, 12));
    EXPECT_TRUE(Near(thumbnail.At(30, 10), (Rgba{40, 40, 40}), 12));
    EXPECT_TRUE(Near(thumbnail.At(220, 10), kWhite, 12));

    // The size limits bound what is decoded: too wide at full size, fine at 1/8.
    const Bytes wide = Images::WriteJpeg(Quadrants(33000, 8), 50);
    EXPECT_FALSE(DecodeImage(wide));
    const std::optional<DecodedBitmap> reduced = DecodeImage(wide, 1, 1);
    ASSERT_TRUE(reduced);
    EXPECT_EQ(reduced->width, 4125u);
    EXPECT_EQ(reduced->height, 1u);
}

#endif

// Valid images of every format and variant, each with the byte counts to cut it to.
struct Sample {
    const char* name;
    Bytes bytes;
};

std::vector<Sample> Samples() {
    const Picture colours = Images::MakePicture(37, 23, [](std::uint32_t x, std::uint32_t y) {
        return Rgba{static_cast<std::uint8_t>(x * 7), static_cast<std::uint8_t>(y * 11), 99,
                    static_cast<std::uint8_t>(x + y)};
    });
    Bytes indices(37 * 23);
    for (std::size_t i = 0; i < indices.size(); ++i)
        indices[i] = static_cast<std::uint8_t>(i % 3);
    const std::vector<Rgba> palette = {kRed, kGreen, kBlue};
    std::vector<Sample> samples = {
        {"PNG", Images::WritePng(colours, true)},
        {"BMP 24", Images::WriteBmp24(colours)},
        {"BMP 32", Images::WriteBmp32(colours)},
        {"BMP 8", Images::WriteBmp8(37, 23, indices, palette)},
        {"GIF", Images::WriteGif(37, 23, indices, palette)},
        {"TGA", Images::WriteTga(colours, 24, false, false)},
        {"TGA RLE", Images::WriteTga(colours, 32, true, true)},
    };
#if !defined(_WIN32)
    samples.push_back({"JPEG", Images::WriteJpeg(colours, 90)});
#endif
    return samples;
}

TEST(DecodeImage, RefusesTruncatedAndCorruptImagesOfEveryFormat) {
    for (const Sample& sample : Samples()) {
        ASSERT_TRUE(DecodeImage(sample.bytes)) << sample.name;
        // Cut inside the pixel data and inside the header.
        for (const std::size_t kept : {sample.bytes.size() - 3, sample.bytes.size() * 3 / 4,
                                       sample.bytes.size() / 2, std::size_t{20}, std::size_t{5}}) {
            const Bytes cut(sample.bytes.begin(), sample.bytes.begin() + kept);
            EXPECT_FALSE(DecodeImage(cut)) << sample.name << " cut to " << kept;
            EXPECT_FALSE(DecodeImage(cut, 4, 4)) << sample.name << " cut to " << kept;
            Thumbnail thumbnail(RenderThumbnail(cut, 16, 16));
            EXPECT_FALSE(thumbnail) << sample.name << " cut to " << kept;
        }
    }

    // One broken field per format.
    const auto samples = Samples();
    auto corrupt = [&](const char* name, const std::function<void(Bytes&)>& change) {
        for (const Sample& sample : samples) {
            if (std::string(sample.name) != name)
                continue;
            Bytes bytes = sample.bytes;
            change(bytes);
            return bytes;
        }
        ADD_FAILURE() << name;
        return Bytes{};
    };
    struct Broken {
        const char* what;
        Bytes bytes;
    };
    const Broken broken[] = {
        {"PNG header checksum", corrupt("PNG", [](Bytes& b) { b[29] ^= 1; })},
        {"PNG colour type 5", corrupt("PNG", [](Bytes& b) { b[25] = 5; })},
        {"PNG compressed data", corrupt("PNG", [](Bytes& b) { b[45] ^= 0xFF; })},
        {"PNG with too little image data", Images::WritePng(2, 1, 8, 0, Bytes(1))},
        {"BMP 7 bits", corrupt("BMP 24", [](Bytes& b) { b[28] = 7; })},
        {"BMP run-length", corrupt("BMP 8", [](Bytes& b) { b[30] = 1; })},
        {"BMP pixel offset past the end", corrupt("BMP 24", [](Bytes& b) { b[12] = 0x40; })},
        {"BMP index past its palette", corrupt("BMP 8", [](Bytes& b) { b[14 + 40 + 3 * 4] = 3; })},
        {"BMP two planes", corrupt("BMP 24", [](Bytes& b) { b[26] = 2; })},
        {"GIF unknown block", corrupt("GIF", [](Bytes& b) { b[13 + 12] = 0x2D; })},
        {"GIF frame outside the canvas", corrupt("GIF", [](Bytes& b) { b[13 + 12 + 1] = 1; })},
        {"GIF code size 13", corrupt("GIF", [](Bytes& b) { b[13 + 12 + 10] = 13; })},
        {"GIF only a trailer", Bytes{'G', 'I', 'F', '8', '9', 'a', 1, 0, 1, 0, 0, 0, 0, 0x3B}},
        {"TGA image type 4", corrupt("TGA", [](Bytes& b) { b[2] = 4; })},
        {"TGA 20 bits", corrupt("TGA", [](Bytes& b) { b[16] = 20; })},
        {"TGA width 0", corrupt("TGA", [](Bytes& b) { b[12] = b[13] = 0; })},
#if !defined(_WIN32)
        {"JPEG height 0", corrupt("JPEG",
                                  [](Bytes& b) {
                                      for (std::size_t i = 2; i + 8 < b.size(); ++i)
                                          if (b[i] == 0xFF && b[i + 1] == 0xC0) {
                                              b[i + 5] = b[i + 6] = 0;
                                              break;
                                          }
                                  })},
        {"JPEG end marker in the middle of the scan",
         corrupt("JPEG",
                 [](Bytes& b) {
                     std::size_t scan = 0;
                     for (std::size_t i = 2; i + 1 < b.size(); ++i)
                         if (b[i] == 0xFF && b[i + 1] == 0xDA)
                             scan = i;
                     b[(scan + b.size()) / 2] = 0xFF;
                     b[(scan + b.size()) / 2 + 1] = 0xD9;
                 })},
#endif
    };
    for (const Broken& b : broken) {
        EXPECT_FALSE(DecodeImage(b.bytes)) << b.what;
        Thumbnail thumbnail(RenderThumbnail(b.bytes, 8, 8));
        EXPECT_FALSE(thumbnail) << b.what;
    }
}

TEST(DecodeImage, RefusesWhatIsNoImageOrTooLargeBeforeAllocating) {
    const std::string text = "Just some text, which no decoder is ever shown.\n";
    Bytes random(4096);
    std::uint32_t state = 12345;
    for (std::uint8_t& byte : random) {
        state = state * 1103515245 + 12345;
        byte = static_cast<std::uint8_t>(state >> 16);
    }
    for (const Bytes& bytes : {Bytes{}, Bytes(text.begin(), text.end()), random, Bytes(64, 0),
                               Bytes{0xFF, 0xD8, 0xFF}, Bytes{'B', 'M'}}) {
        EXPECT_FALSE(Platform::ReadImageInfo(bytes));
        EXPECT_FALSE(DecodeImage(bytes));
    }

    // Headers announcing more than the limits, with almost no data behind them: each is
    // refused from the header (a decoder would otherwise allocate gigabytes).
    // (The PNG writer takes rows.size() / height bytes a row: here one byte or none.)
    EXPECT_FALSE(DecodeImage(Images::WritePng(40000, 1, 8, 0, Bytes(1))));
    EXPECT_FALSE(DecodeImage(Images::WritePng(20000, 20000, 8, 0, Bytes(20000))));
    // More pixels than its compressed data can inflate to.
    EXPECT_FALSE(DecodeImage(Images::WritePng(2000, 2000, 8, 0, Bytes(2000))));
    Bytes bmp = Images::WriteBmp24(Images::MakePicture(1, 1, [](auto, auto) { return kRed; }));
    bmp[18] = bmp[19] = bmp[22] = bmp[23] = 0x7F;
    EXPECT_FALSE(DecodeImage(bmp));
    Bytes gif = Images::WriteGif(1, 1, {0}, {kRed, kGreen});
    gif[6] = gif[7] = gif[8] = gif[9] = 0xFF;  // a 65535 x 65535 canvas
    EXPECT_FALSE(DecodeImage(gif));
    gif[6] = 0x70, gif[7] = 0x17, gif[8] = 0x88, gif[9] = 0x13;  // 6000 x 5000
    EXPECT_FALSE(DecodeImage(gif));

#if !defined(_WIN32)
    // A JPEG frame of 60000 x 60000 announced by a file of a few hundred bytes, and frames
    // coded in ways not decoded here (arithmetic, 12-bit), are refused from the header.
    const Bytes jpeg =
        Images::WriteJpeg(Images::MakePicture(8, 8, [](auto, auto) { return kRed; }), 90);
    std::size_t frame = 0;
    for (std::size_t i = 2; i + 1 < jpeg.size() && frame == 0; ++i)
        if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xC0)
            frame = i;
    ASSERT_NE(frame, 0u);
    ASSERT_TRUE(DecodeImage(jpeg));
    Bytes huge = jpeg;
    huge[frame + 5] = huge[frame + 7] = 0xEA;  // 0xEA60 = 60000
    huge[frame + 6] = huge[frame + 8] = 0x60;
    EXPECT_FALSE(Platform::ReadImageInfo(huge));
    EXPECT_FALSE(DecodeImage(huge, 1, 1));
    Bytes arithmetic = jpeg;
    arithmetic[frame + 1] = 0xC9;
    EXPECT_FALSE(DecodeImage(arithmetic));
    Bytes twelveBit = jpeg;
    twelveBit[frame + 4] = 12;
    EXPECT_FALSE(DecodeImage(twelveBit));
#endif

    // An image exactly at the pixel limit per side is still fine.
    const Bytes line = Images::WriteTga(
        Images::MakePicture(Platform::kMaximumDecodedSide, 1, [](auto, auto) { return kGreen; }),
        24, false, true);
    const std::optional<DecodedBitmap> bitmap = DecodeImage(line);
    ASSERT_TRUE(bitmap);
    EXPECT_EQ(bitmap->width, Platform::kMaximumDecodedSide);
}

// The UTF-8 form of a path, as RenderThumbnail takes it.
std::string Utf8(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

TEST(RenderThumbnail, ReadsOnlyRegularFiles) {
    Tessel::Test::TempDir dir;
    const Picture colours = EightColours();
    const Bytes bmp = Images::WriteBmp24(colours);
    const std::filesystem::path image = dir.path() / std::filesystem::path(u8"Bild \u00FC.bmp");
    std::ofstream(image, std::ios::binary)
        .write(reinterpret_cast<const char*>(bmp.data()), static_cast<std::streamsize>(bmp.size()));
    {
        Thumbnail thumbnail(RenderThumbnail(Utf8(image), 4, 2));
        ASSERT_TRUE(thumbnail);
        EXPECT_EQ(thumbnail.At(0, 1), kRed);
        ExpectPicture(Platform::DecodeImageFile(image.native()), colours, 24, "file");
    }
    const std::filesystem::path text = dir.WriteFile("notes.bmp", "BM but not really an image");
    const std::filesystem::path empty = dir.WriteFile("empty.png");
    const std::filesystem::path folder = dir.MakeDir("folder.png");
    for (const std::filesystem::path& path :
         {text, empty, folder, dir.path() / "missing.bmp", std::filesystem::path()}) {
        Thumbnail thumbnail(RenderThumbnail(Utf8(path), 4, 4));
        EXPECT_FALSE(thumbnail) << path;
        EXPECT_EQ(Platform::ReadImageFile(path.native()).has_value(), path == text) << path;
    }

#if !defined(_WIN32)
    // Links are followed to files; a FIFO, even behind a link, is never opened: the call
    // neither blocks nor shows up as a reader.
    std::filesystem::create_symlink(image, dir.path() / "link.bmp");
    Thumbnail linked(RenderThumbnail(Utf8(dir.path() / "link.bmp"), 4, 4));
    EXPECT_TRUE(linked);
    const std::filesystem::path fifo = dir.path() / "pipe.jpg";
    ASSERT_TRUE(Tessel::Test::MakeFifo(fifo));
    std::filesystem::create_symlink(fifo, dir.path() / "link-to-pipe.jpg");
    Tessel::Test::FifoReaderWatch watch(fifo);
    Thumbnail fromFifo(RenderThumbnail(Utf8(fifo), 4, 4));
    Thumbnail fromLink(RenderThumbnail(Utf8(dir.path() / "link-to-pipe.jpg"), 4, 4));
    EXPECT_FALSE(Platform::DecodeImageFile(fifo.native()));
    EXPECT_FALSE(watch.Stop()) << "the FIFO was opened";
    EXPECT_FALSE(fromFifo);
    EXPECT_FALSE(fromLink);
#endif
}

TEST(RenderDecodedBitmap, RefusesBitmapsItCannotReadAndAbsurdBoxes) {
    DecodedBitmap good;
    good.width = 2;
    good.height = 2;
    good.bitsPerPixel = 24;
    good.rowBytes = 8;  // padded rows, as device-independent bitmaps have
    good.pixels = {1, 2, 3, 4, 5, 6, 0xEE, 0xEE, 7, 8, 9, 10, 11, 12};  // last row unpadded
    {
        Thumbnail thumbnail(RenderDecodedBitmap(good, 0, 0));
        ASSERT_TRUE(thumbnail);
        EXPECT_EQ(thumbnail.At(0, 1), (Rgba{3, 2, 1, 255}));
        EXPECT_EQ(thumbnail.At(1, 1), (Rgba{6, 5, 4, 255}));
        EXPECT_EQ(thumbnail.At(1, 0), (Rgba{12, 11, 10, 255}));
    }
    auto changed = [&](const std::function<void(DecodedBitmap&)>& change) {
        DecodedBitmap bitmap = good;
        change(bitmap);
        return bitmap;
    };
    const DecodedBitmap bad[] = {
        changed([](DecodedBitmap& b) { b.planes = 2; }),
        changed([](DecodedBitmap& b) { b.bitsPerPixel = 16; }),
        changed([](DecodedBitmap& b) { b.bitsPerPixel = 8; }),
        changed([](DecodedBitmap& b) { b.bitsPerPixel = 48; }),
        changed([](DecodedBitmap& b) { b.rowBytes = 5; }),
        changed([](DecodedBitmap& b) { b.pixels.pop_back(); }),
        changed([](DecodedBitmap& b) { b.bitsPerPixel = 32; }),  // rows now too short
        changed([](DecodedBitmap& b) { b.width = 0; }),
        changed([](DecodedBitmap& b) { b.height = 3; }),
        changed([](DecodedBitmap& b) { b.rowBytes = 0; }),
    };
    for (const DecodedBitmap& bitmap : bad) {
        Thumbnail thumbnail(RenderDecodedBitmap(bitmap, 4, 4));
        EXPECT_FALSE(thumbnail) << bitmap.planes << " " << bitmap.bitsPerPixel << " "
                                << bitmap.rowBytes << " " << bitmap.pixels.size();
    }
    for (const std::array<std::uint32_t, 2> box :
         {std::array<std::uint32_t, 2>{32768, 32768}, {40000, 1}, {1, 40000}, {20000, 10000}}) {
        Thumbnail thumbnail(RenderDecodedBitmap(good, box[0], box[1]));
        EXPECT_FALSE(thumbnail) << box[0] << "x" << box[1];
    }
    // The fit uses the source size: a reduced decode of a 4x4 image drawn into 4x4.
    DecodedBitmap reduced = good;
    reduced.sourceWidth = 4;
    reduced.sourceHeight = 4;
    Thumbnail enlarged(RenderDecodedBitmap(reduced, 4, 0));
    ASSERT_TRUE(enlarged);
    EXPECT_EQ(enlarged.height(), 4u);
    EXPECT_EQ(enlarged.At(0, 3), (Rgba{3, 2, 1, 255}));
}

}  // namespace
}  // namespace Tessel

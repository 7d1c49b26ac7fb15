// Decoding every supported format and variant, refusing what is truncated, corrupt, too
// large or no image at all, reading only regular files, and drawing into the buffer: pixel
// values, bottom-up placement, transparent margins and the scaling filters.
#include <tessel/platform/ImageDecoding.h>
#include <tessel/thumbnails/RenderThumbnail.h>

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
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

namespace fs = std::filesystem;
using Platform::DecodedBitmap;
using Platform::DecodeImage;
using namespace Tessel::Test;  // inside TEST bodies Test:: is ::testing::Test

constexpr Rgba kRed{255, 0, 0}, kGreen{0, 255, 0}, kBlue{0, 0, 255}, kWhite{255, 255, 255};
constexpr Rgba kClear{0, 0, 0, 0};

// A thumbnail that is disposed at the end of the test, with pixel reads by stored row.
class Thumbnail {
public:
    explicit Thumbnail(PelPixHandle handle) : mHandle(handle) {}
    ~Thumbnail() { pelpixDispose(mHandle); }
    Thumbnail(const Thumbnail&) = delete;
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
            EXPECT_EQ(got, picture.at(x, y)) << what << " at " << x << "," << y;
        }
}

Picture Flat(std::uint32_t width, std::uint32_t height, Rgba colour) {
    return MakePicture(width, height, [=](auto, auto) { return colour; });
}
Rgba Gray(std::uint8_t v) {
    return Rgba{v, v, v};
}

// Eight distinct colours, two rows of four.
Picture EightColours() {
    const Rgba colours[8] = {kRed,         kGreen,       kBlue,        kWhite,
                             {10, 20, 30}, {40, 50, 60}, {70, 80, 90}, {200, 100, 0}};
    return MakePicture(4, 2, [&](std::uint32_t x, std::uint32_t y) { return colours[y * 4 + x]; });
}

TEST(RenderThumbnail, PlacesThePictureAtTheTopOfTheBottomUpBufferWithTransparentMargins) {
    const std::int64_t liveBefore = pelpixLiveCount();
    const Picture picture = EightColours();
    const Bytes bmp = WriteBmp24(picture);
    {
        // 4x2 into 4x4: drawn 4x2 at offset 0 columns, 2 stored rows. Stored row 3 is the
        // top of the picture.
        Thumbnail wide(RenderThumbnail(bmp, 4, 4));
        ASSERT_TRUE(wide);
        ASSERT_EQ(wide.width(), 4u);
        ASSERT_EQ(wide.height(), 4u);
        for (std::uint32_t x = 0; x < 4; ++x)
            for (std::uint32_t row = 0; row < 4; ++row)
                EXPECT_EQ(wide.At(x, row), row < 2 ? kClear : picture.at(x, 3 - row)) << x;
    }
    {
        // Turned on its side (2x4) into 5x4: drawn 2x4 from column 1; columns 0, 3 and 4
        // are transparent margins.
        const Picture tall =
            MakePicture(2, 4, [&](std::uint32_t x, std::uint32_t y) { return picture.at(y, x); });
        Thumbnail thumbnail(RenderThumbnail(WriteBmp24(tall, true), 5, 4));
        ASSERT_TRUE(thumbnail);
        for (std::uint32_t row = 0; row < 4; ++row)
            for (std::uint32_t x = 0; x < 5; ++x)
                EXPECT_EQ(thumbnail.At(x, row),
                          x == 1 || x == 2 ? tall.at(x - 1, 3 - row) : kClear);
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
        Thumbnail nothing(RenderThumbnail(WriteBmp24(Flat(1, 1, kWhite)), 1, 1));
        ASSERT_TRUE(nothing);
        EXPECT_EQ(nothing.At(0, 0), kClear);
    }
    EXPECT_EQ(pelpixLiveCount(), liveBefore);
}

TEST(RenderThumbnail, ShrinksByCoveredAreaEnlargesBilinearlyAndWeighsColoursByAlpha) {
    // STORED: the expected stored rows from the bottom, left to right.
    auto expect = [](const char* what, const Bytes& image, std::uint32_t width,
                     std::uint32_t height, const std::vector<Rgba>& stored) {
        Thumbnail thumbnail(RenderThumbnail(image, width, height));
        ASSERT_TRUE(thumbnail) << what;
        for (std::uint32_t i = 0; i < stored.size(); ++i)
            EXPECT_EQ(thumbnail.At(i % width, i / width), stored[i]) << what << " " << i;
    };
    const Rgba c{10, 20, 30, 40}, g0 = Gray(0), g255 = Gray(255);
    // Each target pixel covers one and a half source pixels: the white one counts a third.
    expect("three into two", WriteBmp24({3, 1, {g0, g255, g0}}), 2, 1, {Gray(85), Gray(85)});
    const Rgba r = kRed, b = kBlue;
    expect("flat halves halved", WriteBmp24({4, 2, {r, r, b, b, r, r, b, b}}), 2, 1, {r, b});
    // Bilinear between the centres, clamped at the edges.
    const std::vector<Rgba> ramp = {g0, Gray(64), Gray(191), g255};
    std::vector<Rgba> twoRows = ramp;
    twoRows.insert(twoRows.end(), ramp.begin(), ramp.end());
    expect("two into four", WriteBmp24({2, 1, {g0, g255}}), 4, 2, twoRows);
    // A 32-bit source keeps its alpha where drawn, including fully transparent pixels.
    expect("alpha kept", WritePng({2, 2, {c, kClear, kClear, c}}, true), 2, 2,
           {kClear, c, c, kClear});
    // Opaque red beside transparent black: the mean stays pure red, half covered.
    expect("alpha weighs", WritePng({2, 1, {kRed, kClear}}, true), 1, 1, {{255, 0, 0, 128}});
}

TEST(DecodeImage, EveryFormatAndVariant) {
    // PNG: gray 8 and 1 bit, 4-bit palette, palette with tRNS (entries past it stay opaque),
    // 16-bit samples scaled to 8 with rounding, gray and alpha, RGB and RGBA.
    const Rgba black = Gray(0), white = Gray(255);
    ExpectPicture(DecodeImage(WritePng(3, 1, 8, 0, {0, 128, 255})),
                  {3, 1, {black, Gray(128), white}}, 24, "gray 8");
    ExpectPicture(DecodeImage(WritePng(3, 1, 1, 0, {0x40})), {3, 1, {black, white, black}}, 24,
                  "gray 1");
    const Bytes rgbPalette = {255, 0, 0, 0, 255, 0, 0, 0, 255};
    ExpectPicture(DecodeImage(WritePng(3, 1, 4, 3, {0x21, 0x00}, rgbPalette)),
                  {3, 1, {kBlue, kGreen, kRed}}, 24, "palette 4");
    ExpectPicture(DecodeImage(WritePng(3, 1, 8, 3, {2, 1, 0}, rgbPalette, {128, 0})),
                  {3, 1, {kBlue, {0, 255, 0, 0}, {255, 0, 0, 128}}}, 32, "palette with tRNS");
    ExpectPicture(DecodeImage(WritePng(1, 1, 16, 2, {0xFF, 0xFF, 0x80, 0x80, 0, 0})),
                  {1, 1, {{255, 128, 0}}}, 24, "RGB 16");
    ExpectPicture(DecodeImage(WritePng(2, 1, 8, 4, {50, 0, 200, 255})),
                  {2, 1, {{50, 50, 50, 0}, {200, 200, 200, 255}}}, 32, "gray and alpha");
    const Picture colours = EightColours();
    ExpectPicture(DecodeImage(WritePng(colours, false)), colours, 24, "RGB 8");
    ExpectPicture(DecodeImage(WritePng(colours, true)), colours, 32, "RGBA 8");

    // GIF, plain, with a transparent index, and long enough to restart the code table.
    const std::vector<Rgba> palette = {kRed, kGreen, kBlue, kWhite};
    const Bytes indices = {0, 1, 2, 3, 2, 1};
    const Picture picture = MakePicture(
        3, 2, [&](std::uint32_t x, std::uint32_t y) { return palette[indices[y * 3 + x]]; });
    ExpectPicture(DecodeImage(WriteGif(3, 2, indices, palette)), picture, 24, "GIF");
    Picture holes = picture;
    holes.pixels[1] = holes.pixels[5] = kClear;
    ExpectPicture(DecodeImage(WriteGif(3, 2, indices, palette, 1)), holes, 32,
                  "GIF with a transparent index");
    Bytes many(40 * 30);
    for (std::size_t i = 0; i < many.size(); ++i)
        many[i] = static_cast<std::uint8_t>(i * 7 % 4);
    ExpectPicture(
        DecodeImage(WriteGif(40, 30, many, palette)),
        MakePicture(40, 30,
                    [&](std::uint32_t x, std::uint32_t y) { return palette[many[y * 40 + x]]; }),
        24, "GIF 40x30");

    // BMP and TGA.
    ExpectPicture(DecodeImage(WriteBmp24(colours)), colours, 24, "BMP 24 bottom-up");
    ExpectPicture(DecodeImage(WriteBmp24(colours, true)), colours, 24, "BMP 24 top-down");
    ExpectPicture(DecodeImage(WriteBmp8(3, 2, indices, palette)), picture, 24, "BMP 8");
    Picture translucent = colours;
    translucent.pixels[0].a = 0;
    translucent.pixels[6].a = 99;
#if defined(_WIN32)
    // GDI+ reads no alpha from BMP files and has no TGA decoder.
    ExpectPicture(DecodeImage(WriteBmp32(translucent)), colours, 24, "BMP 32");
    EXPECT_FALSE(DecodeImage(WriteTga(colours, 24, false, false)));
#else
    ExpectPicture(DecodeImage(WriteBmp32(translucent)), translucent, 32, "BMP 32");
    ExpectPicture(DecodeImage(WriteTga(colours, 24, false, false)), colours, 24,
                  "TGA 24 bottom-up");
    ExpectPicture(DecodeImage(WriteTga(translucent, 32, true, false)), translucent, 32,
                  "TGA 32 top-down");
    const Picture runs = MakePicture(300, 2, [](std::uint32_t x, std::uint32_t y) {
        return x < 200 ? kBlue
                       : Rgba{static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 7,
                              static_cast<std::uint8_t>(x / 2)};
    });
    ExpectPicture(DecodeImage(WriteTga(runs, 32, false, true)), runs, 32, "TGA 32 RLE");
#endif
}

#if !defined(_WIN32)

bool Near(const Rgba& a, const Rgba& b, int tolerance) {
    return std::abs(a.r - b.r) <= tolerance && std::abs(a.g - b.g) <= tolerance &&
           std::abs(a.b - b.b) <= tolerance && std::abs(a.a - b.a) <= tolerance;
}

// Flat quadrants, so that JPEG keeps each colour near its value away from the edges.
constexpr Rgba kDark{40, 40, 40};
Picture Quadrants(std::uint32_t width, std::uint32_t height) {
    return MakePicture(width, height, [&](std::uint32_t x, std::uint32_t y) {
        const bool right = x >= width / 2, bottom = y >= height / 2;
        return bottom ? (right ? kWhite : kDark) : (right ? kGreen : kRed);
    });
}

TEST(DecodeImage, JpegColoursAndReducedScaleGeometry) {
    struct Probe {
        const char* what;
        Bytes jpeg;
        std::uint32_t hintWidth, x, y;
        Rgba colour;
        int tolerance;
    };
    const Bytes colour = WriteJpeg(Quadrants(64, 32), 90);
    const Bytes gray = WriteJpeg(Quadrants(16, 16), 90, true);
    const Bytes progressive = WriteJpeg(Quadrants(64, 32), 90, false, true);
    // Print-work CMYK, stored inverted: no ink but magenta and yellow is red.
    const Bytes cmyk = WriteCmykJpeg(16, 16, {255, 0, 0, 255});
    for (const Probe& p :
         {Probe{"colour", colour, 0, 12, 6, kRed, 12},
          Probe{"colour", colour, 0, 50, 6, kGreen, 12},
          Probe{"colour", colour, 0, 12, 26, kDark, 12},
          Probe{"colour", colour, 0, 50, 26, kWhite, 12}, Probe{"gray", gray, 0, 13, 13, kWhite, 8},
          Probe{"gray", gray, 0, 2, 13, kDark, 8},
          Probe{"progressive at 1/4", progressive, 16, 12, 2, kGreen, 16},
          Probe{"CMYK", cmyk, 0, 8, 8, kRed, 8}}) {
        const std::optional<DecodedBitmap> bitmap =
            DecodeImage(p.jpeg, p.hintWidth, p.hintWidth / 2);
        ASSERT_TRUE(bitmap) << p.what;
        EXPECT_EQ(bitmap->bitsPerPixel, 24) << p.what;
        EXPECT_EQ(bitmap->width, p.hintWidth ? p.hintWidth : bitmap->sourceWidth) << p.what;
        EXPECT_TRUE(Near(BitmapAt(*bitmap, p.x, p.y), p.colour, p.tolerance)) << p.what;
    }

    const Bytes frame = WriteJpeg(Quadrants(1920, 1080), 75);
    struct Case {
        std::uint32_t hintWidth, hintHeight, width, height;
    };
    for (const Case c : {Case{256, 144, 480, 270}, Case{240, 135, 240, 135}, Case{241, 1, 480, 270},
                         Case{1, 136, 480, 270}, Case{961, 0, 1200, 675}, Case{0, 0, 1920, 1080},
                         Case{4000, 4000, 1920, 1080}}) {
        SCOPED_TRACE(std::to_string(c.hintWidth) + "x" + std::to_string(c.hintHeight));
        const std::optional<DecodedBitmap> bitmap = DecodeImage(frame, c.hintWidth, c.hintHeight);
        ASSERT_TRUE(bitmap);
        EXPECT_EQ(bitmap->width, c.width);
        EXPECT_EQ(bitmap->height, c.height);
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
    EXPECT_TRUE(Near(thumbnail.At(30, 10), kDark, 12));
    EXPECT_TRUE(Near(thumbnail.At(220, 10), kWhite, 12));

    // The size limits bound what is decoded: too wide at full size, fine at 1/8.
    const Bytes wide = WriteJpeg(Quadrants(33000, 8), 50);
    EXPECT_FALSE(DecodeImage(wide));
    const std::optional<DecodedBitmap> reduced = DecodeImage(wide, 1, 1);
    ASSERT_TRUE(reduced);
    EXPECT_EQ(reduced->width, 4125u);
    EXPECT_EQ(reduced->height, 1u);
}

// The offset of the first FF MARKER after the signature, or 0.
std::size_t FindMarker(const Bytes& jpeg, std::uint8_t marker, bool last = false) {
    std::size_t found = 0;
    for (std::size_t i = 2; i + 1 < jpeg.size() && (last || found == 0); ++i)
        if (jpeg[i] == 0xFF && jpeg[i + 1] == marker)
            found = i;
    return found;
}

#endif

// BYTES with WITH written at offset AT.
Bytes Patch(Bytes bytes, std::size_t at, const Bytes& with) {
    std::copy(with.begin(), with.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
    return bytes;
}

// Rewrites the checksum of the PNG chunk at OFFSET after its data was changed.
void SealPngChunk(Bytes& png, std::size_t offset) {
    const std::uint32_t length = std::uint32_t{png[offset]} << 24 | png[offset + 1] << 16 |
                                 png[offset + 2] << 8 | png[offset + 3];
    const uLong crc = crc32(0, &png[offset + 4], length + 4);
    for (int i = 0; i < 4; ++i)
        png[offset + 8 + length + i] = static_cast<std::uint8_t>(crc >> (24 - 8 * i));
}

TEST(DecodeImage, RefusesTruncatedAndCorruptImagesOfEveryFormat) {
    // Valid images of every format and variant.
    const Picture colours = MakePicture(37, 23, [](std::uint32_t x, std::uint32_t y) {
        return Rgba{static_cast<std::uint8_t>(x * 7), static_cast<std::uint8_t>(y * 11), 99,
                    static_cast<std::uint8_t>(x + y)};
    });
    Bytes indices(37 * 23);
    for (std::size_t i = 0; i < indices.size(); ++i)
        indices[i] = static_cast<std::uint8_t>(i % 3);
    const std::vector<Rgba> palette = {kRed, kGreen, kBlue};
    const Bytes png = WritePng(colours, true), bmp24 = WriteBmp24(colours),
                bmp8 = WriteBmp8(37, 23, indices, palette),
                gif = WriteGif(37, 23, indices, palette), tga = WriteTga(colours, 24, false, false);
    std::vector<std::pair<const char*, Bytes>> samples = {{"PNG", png},
                                                          {"BMP 24", bmp24},
                                                          {"BMP 32", WriteBmp32(colours)},
                                                          {"BMP 8", bmp8},
                                                          {"GIF", gif}};
#if !defined(_WIN32)
    samples.push_back({"TGA", tga});
    samples.push_back({"TGA RLE", WriteTga(colours, 32, true, true)});
    const Bytes jpeg = WriteJpeg(colours, 90);
    samples.push_back({"JPEG", jpeg});
#endif
    for (const auto& [name, bytes] : samples) {
        ASSERT_TRUE(DecodeImage(bytes)) << name;
        // Cut inside the pixel data and inside the header.
        for (const std::size_t kept : {bytes.size() - 3, bytes.size() * 3 / 4, bytes.size() / 2,
                                       std::size_t{20}, std::size_t{5}}) {
            const Bytes cut(bytes.begin(), bytes.begin() + kept);
            EXPECT_FALSE(DecodeImage(cut)) << name << " cut to " << kept;
            EXPECT_FALSE(DecodeImage(cut, 4, 4)) << name << " cut to " << kept;
            EXPECT_FALSE(Thumbnail(RenderThumbnail(cut, 16, 16))) << name << " cut to " << kept;
        }
    }

    // One broken field per format.
    Bytes pngData = Patch(png, 45, {std::uint8_t(~png[45])});
    SealPngChunk(pngData, 33);  // IDAT, its checksum intact
    const std::pair<const char*, Bytes> broken[] = {
        {"PNG header checksum", Patch(png, 29, {std::uint8_t(png[29] ^ 1)})},
        {"PNG colour type 5", Patch(png, 25, {5})},
        {"PNG compressed data", pngData},
        {"PNG with too little image data", WritePng(2, 1, 8, 0, Bytes(1))},
        {"BMP 7 bits", Patch(bmp24, 28, {7})},
        {"BMP run-length", Patch(bmp8, 30, {1})},
        {"BMP pixel offset past the end", Patch(bmp24, 12, {0x40})},
        {"BMP index past its palette", Patch(bmp8, 14 + 40 + 3 * 4, {3})},
        {"BMP two planes", Patch(bmp24, 26, {2})},
        {"GIF unknown block", Patch(gif, 13 + 12, {0x2D})},
        {"GIF frame outside the canvas", Patch(gif, 13 + 12 + 1, {1})},
        {"GIF code size 13", Patch(gif, 13 + 12 + 10, {13})},
        {"GIF only a trailer", Bytes{'G', 'I', 'F', '8', '9', 'a', 1, 0, 1, 0, 0, 0, 0, 0x3B}},
        {"TGA image type 4", Patch(tga, 2, {4})},
        {"TGA 20 bits", Patch(tga, 16, {20})},
        {"TGA width 0", Patch(tga, 12, {0, 0})},
#if !defined(_WIN32)
        {"JPEG height 0", Patch(jpeg, FindMarker(jpeg, 0xC0) + 5, {0, 0})},
        {"JPEG end marker in the middle of the scan",
         Patch(jpeg, (FindMarker(jpeg, 0xDA, true) + jpeg.size()) / 2, {0xFF, 0xD9})},
#endif
    };
    for (const auto& [what, bytes] : broken) {
        EXPECT_FALSE(DecodeImage(bytes)) << what;
        EXPECT_FALSE(Thumbnail(RenderThumbnail(bytes, 8, 8))) << what;
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
    EXPECT_FALSE(DecodeImage(WritePng(40000, 1, 8, 0, Bytes(1))));
    EXPECT_FALSE(DecodeImage(WritePng(20000, 20000, 8, 0, Bytes(20000))));
    // More pixels than its compressed data can inflate to.
    EXPECT_FALSE(DecodeImage(WritePng(2000, 2000, 8, 0, Bytes(2000))));
    EXPECT_FALSE(
        DecodeImage(Patch(WriteBmp24(Flat(1, 1, kRed)), 18, {0x7F, 0x7F, 0, 0, 0x7F, 0x7F})));
    const Bytes gif = WriteGif(1, 1, {0}, {kRed, kGreen});
    EXPECT_FALSE(DecodeImage(Patch(gif, 6, {0xFF, 0xFF, 0xFF, 0xFF})));  // 65535 x 65535
    EXPECT_FALSE(DecodeImage(Patch(gif, 6, {0x70, 0x17, 0x88, 0x13})));  // 6000 x 5000

#if !defined(_WIN32)
    // A JPEG frame of 60000 x 60000 announced by a file of a few hundred bytes, and frames
    // coded in ways not decoded here (arithmetic, 12-bit), are refused from the header.
    const Bytes jpeg = WriteJpeg(Flat(8, 8, kRed), 90);
    const std::size_t frame = FindMarker(jpeg, 0xC0);
    ASSERT_NE(frame, 0u);
    ASSERT_TRUE(DecodeImage(jpeg));
    const Bytes huge = Patch(jpeg, frame + 5, {0xEA, 0x60, 0xEA, 0x60});  // 0xEA60 = 60000
    EXPECT_FALSE(Platform::ReadImageInfo(huge));
    EXPECT_FALSE(DecodeImage(huge, 1, 1));
    EXPECT_FALSE(DecodeImage(Patch(jpeg, frame + 1, {0xC9})));  // arithmetic coding
    EXPECT_FALSE(DecodeImage(Patch(jpeg, frame + 4, {12})));    // 12-bit samples
#endif

    // An image exactly at the pixel limit per side is still fine.
    const std::optional<DecodedBitmap> bitmap =
        DecodeImage(WriteBmp24(Flat(Platform::kMaximumDecodedSide, 1, kGreen)));
    ASSERT_TRUE(bitmap);
    EXPECT_EQ(bitmap->width, Platform::kMaximumDecodedSide);
}

// The UTF-8 form of a path, as RenderThumbnail takes it.
std::string Utf8(const fs::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

void WriteBytes(const fs::path& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

TEST(RenderThumbnail, ReadsOnlyRegularFiles) {
    TempDir dir;
    const Picture colours = EightColours();
    const fs::path image = dir.path() / fs::path(u8"Bild \u00FC.bmp");
    WriteBytes(image, WriteBmp24(colours));
    {
        Thumbnail thumbnail(RenderThumbnail(Utf8(image), 4, 2));
        ASSERT_TRUE(thumbnail);
        EXPECT_EQ(thumbnail.At(0, 1), kRed);
        ExpectPicture(Platform::DecodeImageFile(image.native()), colours, 24, "file");
    }
    const fs::path text = dir.WriteFile("notes.bmp", "BM but not really an image");
    for (const fs::path& path : {text, dir.WriteFile("empty.png"), dir.MakeDir("folder.png"),
                                 dir.path() / "missing.bmp", fs::path()}) {
        EXPECT_FALSE(Thumbnail(RenderThumbnail(Utf8(path), 4, 4))) << path;
        EXPECT_EQ(Platform::ReadImageFile(path.native()).has_value(), path == text) << path;
    }

#if defined(_WIN32)
    // The system's bitmap loader, the last resort for BMP files that GDI+ refuses: 24-bit
    // files as they are; paletted ones, which it keeps paletted, refused.
    ExpectPicture(Platform::LoadBitmapFileWithSystem(image.native()), colours, 24, "LoadImageW");
    const fs::path paletted = dir.path() / "paletted.bmp";
    WriteBytes(paletted, WriteBmp8(2, 1, {0, 1}, {kRed, kBlue}));
    EXPECT_FALSE(Platform::LoadBitmapFileWithSystem(paletted.native()));
    EXPECT_FALSE(Platform::LoadBitmapFileWithSystem(text.native()));
#else
    EXPECT_FALSE(Platform::LoadBitmapFileWithSystem(image.native()));  // there is none
    // Links are followed to files; a FIFO, even behind a link, is never opened: the call
    // neither blocks nor shows up as a reader.
    fs::create_symlink(image, dir.path() / "link.bmp");
    EXPECT_TRUE(Thumbnail(RenderThumbnail(Utf8(dir.path() / "link.bmp"), 4, 4)));
    const fs::path fifo = dir.path() / "pipe.jpg";
    ASSERT_TRUE(MakeFifo(fifo));
    fs::create_symlink(fifo, dir.path() / "link-to-pipe.jpg");
    FifoReaderWatch watch(fifo);
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
    const std::function<void(DecodedBitmap&)> changes[] = {
        [](DecodedBitmap& b) { b.planes = 2; },
        [](DecodedBitmap& b) { b.bitsPerPixel = 16; },
        [](DecodedBitmap& b) { b.bitsPerPixel = 8; },
        [](DecodedBitmap& b) { b.bitsPerPixel = 48; },
        [](DecodedBitmap& b) { b.rowBytes = 5; },
        [](DecodedBitmap& b) { b.pixels.pop_back(); },
        [](DecodedBitmap& b) { b.bitsPerPixel = 32; },  // rows now too short
        [](DecodedBitmap& b) { b.width = 0; },
        [](DecodedBitmap& b) { b.height = 3; },
        [](DecodedBitmap& b) { b.rowBytes = 0; },
    };
    for (const auto& change : changes) {
        DecodedBitmap bitmap = good;
        change(bitmap);
        EXPECT_FALSE(Thumbnail(RenderDecodedBitmap(bitmap, 4, 4))) << &change - changes;
    }
    for (const std::array<std::uint32_t, 2> box :
         {std::array<std::uint32_t, 2>{32768, 32768}, {40000, 1}, {1, 40000}, {20000, 10000}})
        EXPECT_FALSE(Thumbnail(RenderDecodedBitmap(good, box[0], box[1])))
            << box[0] << "x" << box[1];
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

// Decoding every supported format and variant, refusing what is truncated, corrupt, too
// large or no image at all, reading only regular files, and drawing into the buffer: pixel
// values, bottom-up placement, transparent margins and the scaling filters.
#include <tessel/platform/ImageDecoding.h>
#include <tessel/thumbnails/RenderThumbnail.h>

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdlib>
#include <filesystem>
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
constexpr Rgba kClear{0, 0, 0, 0}, kDark{40, 40, 40};

Rgba Gray(std::uint8_t v) {
    return Rgba{v, v, v};
}
Picture Flat(std::uint32_t width, std::uint32_t height, Rgba colour) {
    return MakePicture(width, height, [=](auto, auto) { return colour; });
}
// Eight distinct colours, two rows of four.
Picture EightColours() {
    const Rgba colours[8] = {kRed,         kGreen,       kBlue,        kWhite,
                             {10, 20, 30}, {40, 50, 60}, {70, 80, 90}, {200, 100, 0}};
    return MakePicture(4, 2, [=](std::uint32_t x, std::uint32_t y) { return colours[y * 4 + x]; });
}
// Flat quadrants, so that JPEG keeps each colour near its value away from the edges.
Picture Quadrants(std::uint32_t width, std::uint32_t height) {
    return MakePicture(width, height, [&](std::uint32_t x, std::uint32_t y) {
        const bool right = x >= width / 2, bottom = y >= height / 2;
        return bottom ? (right ? kWhite : kDark) : (right ? kGreen : kRed);
    });
}

// Pixel (x, y) of a decoded bitmap (rows top-down); alpha 255 for 24 bits.
Rgba BitmapAt(const DecodedBitmap& bitmap, std::uint32_t x, std::uint32_t y) {
    const std::size_t size = bitmap.bitsPerPixel / 8;
    const std::uint8_t* p = bitmap.pixels.data() + y * bitmap.rowBytes + x * size;
    return Rgba{p[2], p[1], p[0], size == 4 ? p[3] : std::uint8_t{255}};
}

void ExpectPicture(const std::optional<DecodedBitmap>& bitmap, const Picture& picture, int bits,
                   const std::string& what) {
    ASSERT_TRUE(bitmap.has_value()) << what;
    EXPECT_EQ(bitmap->bitsPerPixel, bits) << what;
    EXPECT_EQ(bitmap->planes, 1) << what;
    ASSERT_EQ(bitmap->width, picture.width) << what;
    ASSERT_EQ(bitmap->height, picture.height) << what;
    EXPECT_EQ(std::pair(bitmap->sourceWidth, bitmap->sourceHeight),
              std::pair(picture.width, picture.height))
        << what;
    for (std::uint32_t y = 0; y < picture.height; ++y)
        for (std::uint32_t x = 0; x < picture.width; ++x)
            EXPECT_EQ(BitmapAt(*bitmap, x, y), picture.at(x, y)) << what << " at " << x << "," << y;
}

// THUMBNAIL's stored rows from the bottom, left to right, against STORED.
void ExpectStored(PelPixHandle thumbnail, std::uint32_t width, std::uint32_t height,
                  const std::vector<Rgba>& stored, const std::string& what) {
    ASSERT_NE(thumbnail, nullptr) << what;
    ASSERT_EQ(pelpixGetWidth(thumbnail), width) << what;
    ASSERT_EQ(pelpixGetHeight(thumbnail), height) << what;
    for (std::uint32_t i = 0; i < stored.size(); ++i)
        EXPECT_EQ(PixelAt(thumbnail, i % width, i / width), stored[i]) << what << " " << i;
}

TEST(RenderThumbnail, PlacementFiltersAndTransparentMargins) {
    const std::int64_t liveBefore = pelpixLiveCount();
    // STORED: the box's stored rows from the bottom, left to right.
    const auto expect = [](const char* what, const Bytes& image, std::uint32_t width,
                           std::uint32_t height, std::uint32_t boxWidth, std::uint32_t boxHeight,
                           const std::vector<Rgba>& stored) {
        ExpectStored(OwnedPelPix(RenderThumbnail(image, width, height)).get(), boxWidth, boxHeight,
                     stored, what);
    };
    const Picture p = EightColours();
    const Bytes bmp = WriteBmp(p);
    const Rgba c{10, 20, 30, 40}, r = kRed, b = kBlue, g0 = Gray(0), g255 = Gray(255), _ = kClear;
    // 4x2 into 4x4: the picture on the top two stored rows, the bottom two clear.
    expect("wide at the top", bmp, 4, 4, 4, 4,
           {_, _, _, _, _, _, _, _, p.at(0, 1), p.at(1, 1), p.at(2, 1), p.at(3, 1), p.at(0, 0)});
    // 1x2 into 4x2, a top-down file: centred, the odd spare column on the right.
    expect("tall centred", WriteBmp({1, 2, {r, b}}, 24, true), 4, 2, 4, 2,
           {_, b, _, _, _, r, _, _});
    expect("box of 0: the source size", bmp, 0, 0, 4, 2, {p.at(0, 1), p.at(1, 1), p.at(2, 1)});
    expect("width 0 only", bmp, 0, 1, 4, 1, {});
    expect("a 1x1 image in 1x1 draws no row", WriteBmp(Flat(1, 1, kWhite)), 1, 1, 1, 1, {_});
    // Each target pixel covers one and a half source pixels: the white one counts a third.
    expect("three into two", WriteBmp({3, 1, {g0, g255, g0}}), 2, 1, 2, 1, {Gray(85), Gray(85)});
    expect("halves halved", WriteBmp({4, 2, {r, r, b, b, r, r, b, b}}), 2, 1, 2, 1, {r, b});
    // Bilinear between the centres, clamped at the edges.
    expect("two into four", WriteBmp({2, 1, {g0, g255}}), 4, 2, 4, 2,
           {g0, Gray(64), Gray(191), g255, g0, Gray(64), Gray(191), g255});
    // 32 bits keep their alpha, fully transparent pixels included; colours are weighed by
    // alpha, so opaque red beside transparent black stays pure red, half covered.
    expect("alpha kept", WritePng({2, 2, {c, _, _, c}}, true), 2, 2, 2, 2, {_, c, c, _});
    expect("alpha weighs", WritePng({2, 1, {r, _}}, true), 1, 1, 1, 1, {{255, 0, 0, 128}});
    EXPECT_EQ(pelpixLiveCount(), liveBefore);
}

TEST(DecodeImage, EveryFormatAndVariant) {
    const Rgba black = Gray(0), white = Gray(255);
    const Bytes rgb = {255, 0, 0, 0, 255, 0, 0, 0, 255};
    const std::vector<Rgba> palette = {kRed, kGreen, kBlue, kWhite};
    const Bytes indices = {0, 1, 2, 3, 2, 1};
    const Picture colours = EightColours();
    const Picture paletted =
        MakePicture(3, 2, [&](auto x, auto y) { return palette[indices[y * 3 + x]]; });
    Picture holes = paletted, translucent = colours;
    holes.pixels[1] = holes.pixels[5] = kClear;
    translucent.pixels[0].a = 0;
    translucent.pixels[6].a = 99;
    const auto expect = [](const char* what, const Bytes& bytes, const Picture& picture, int bits) {
        ExpectPicture(DecodeImage(bytes), picture, bits, what);
    };
    expect("PNG gray 8", WritePng(3, 1, 8, 0, {0, 128, 255}), {3, 1, {black, Gray(128), white}},
           24);
    expect("PNG gray 1", WritePng(3, 1, 1, 0, {0x40}), {3, 1, {black, white, black}}, 24);
    expect("PNG palette 4", WritePng(3, 1, 4, 3, {0x21, 0}, rgb), {3, 1, {kBlue, kGreen, kRed}},
           24);
    // Entries past the tRNS chunk stay opaque.
    expect("PNG palette with tRNS", WritePng(3, 1, 8, 3, {2, 1, 0}, rgb, {128, 0}),
           {3, 1, {kBlue, {0, 255, 0, 0}, {255, 0, 0, 128}}}, 32);
    expect("PNG RGB 16, rounded", WritePng(1, 1, 16, 2, {0xFF, 0xFF, 0x80, 0x80, 0, 0}),
           {1, 1, {{255, 128, 0}}}, 24);
    expect("PNG gray and alpha", WritePng(2, 1, 8, 4, {50, 0, 200, 255}),
           {2, 1, {{50, 50, 50, 0}, {200, 200, 200, 255}}}, 32);
    expect("PNG RGB 8", WritePng(colours, false), colours, 24);
    expect("PNG RGBA 8", WritePng(colours, true), colours, 32);
    expect("GIF", WriteGif(3, 2, indices, palette), paletted, 24);
    expect("GIF with a transparent index", WriteGif(3, 2, indices, palette, 1), holes, 32);
    // Long enough for the decoder to restart its code table.
    Bytes many(40 * 30);
    for (std::size_t i = 0; i < many.size(); ++i)
        many[i] = static_cast<std::uint8_t>(i * 7 % 4);
    expect("GIF 40x30", WriteGif(40, 30, many, palette),
           MakePicture(40, 30, [&](auto x, auto y) { return palette[many[y * 40 + x]]; }), 24);
    expect("BMP 24 bottom-up", WriteBmp(colours), colours, 24);
    expect("BMP 24 top-down", WriteBmp(colours, 24, true), colours, 24);
    expect("BMP 8", WriteBmp8(3, 2, indices, palette), paletted, 24);
#if defined(_WIN32)
    // GDI+ reads no alpha from BMP files and has no TGA decoder.
    expect("BMP 32", WriteBmp(translucent, 32), colours, 24);
    EXPECT_FALSE(DecodeImage(WriteTga(colours, 24, false, false)));
#else
    expect("BMP 32", WriteBmp(translucent, 32), translucent, 32);
    expect("TGA 24 bottom-up", WriteTga(colours, 24, false, false), colours, 24);
    expect("TGA 32 top-down", WriteTga(translucent, 32, true, false), translucent, 32);
    const Picture runs = MakePicture(300, 2, [](std::uint32_t x, std::uint32_t y) {
        return x < 200 ? kBlue : Rgba{std::uint8_t(x), std::uint8_t(y), 7, std::uint8_t(x / 2)};
    });
    expect("TGA 32 RLE", WriteTga(runs, 32, false, true), runs, 32);
#endif
}

#if !defined(_WIN32)

// The offset of the first (or LAST) FF MARKER after the signature, or 0.
std::size_t FindMarker(const Bytes& jpeg, std::uint8_t marker, bool last = false) {
    std::size_t found = 0;
    for (std::size_t i = 2; i + 1 < jpeg.size() && (last || found == 0); ++i)
        if (jpeg[i] == 0xFF && jpeg[i + 1] == marker)
            found = i;
    return found;
}

bool Near(const Rgba& a, const Rgba& b, int tolerance) {
    return std::abs(a.r - b.r) <= tolerance && std::abs(a.g - b.g) <= tolerance &&
           std::abs(a.b - b.b) <= tolerance && std::abs(a.a - b.a) <= tolerance;
}

TEST(DecodeImage, JpegColoursAndReducedScaleGeometry) {
    const Bytes colour = WriteJpeg(Quadrants(64, 32), 90);
    const Bytes gray = WriteJpeg(Quadrants(16, 16), 90, JpegKind::Gray);
    const Bytes progressive = WriteJpeg(Quadrants(64, 32), 90, JpegKind::Progressive);
    // Print-work CMYK, stored inverted: no ink but magenta and yellow is red.
    const Bytes cmyk = WriteJpeg(Flat(16, 16, {255, 0, 0, 255}), 95, JpegKind::Cmyk);
    const struct {
        const char* what;
        const Bytes& jpeg;
        std::uint32_t hintWidth, x, y;
        Rgba colour;
        int tolerance;
    } probes[] = {{"colour", colour, 0, 12, 6, kRed, 12},
                  {"colour", colour, 0, 50, 6, kGreen, 12},
                  {"colour", colour, 0, 12, 26, kDark, 12},
                  {"colour", colour, 0, 50, 26, kWhite, 12},
                  {"gray", gray, 0, 13, 13, kWhite, 8},
                  {"gray", gray, 0, 2, 13, kDark, 8},
                  {"progressive at 1/4", progressive, 16, 12, 2, kGreen, 16},
                  {"CMYK", cmyk, 0, 8, 8, kRed, 8}};
    for (const auto& p : probes) {
        const std::optional<DecodedBitmap> bitmap =
            DecodeImage(p.jpeg, p.hintWidth, p.hintWidth / 2);
        ASSERT_TRUE(bitmap) << p.what;
        EXPECT_EQ(bitmap->bitsPerPixel, 24) << p.what;
        EXPECT_EQ(bitmap->width, p.hintWidth ? p.hintWidth : bitmap->sourceWidth) << p.what;
        EXPECT_TRUE(Near(BitmapAt(*bitmap, p.x, p.y), p.colour, p.tolerance)) << p.what;
    }

    // The smallest DCT scale that still covers the hint; the source size is kept.
    const Bytes frame = WriteJpeg(Quadrants(1920, 1080), 75);
    const std::uint32_t scales[][4] = {
        {256, 144, 480, 270}, {240, 135, 240, 135}, {241, 1, 480, 270},      {1, 136, 480, 270},
        {961, 0, 1200, 675},  {0, 0, 1920, 1080},   {4000, 4000, 1920, 1080}};
    for (const auto& s : scales) {
        const std::optional<DecodedBitmap> bitmap = DecodeImage(frame, s[0], s[1]);
        ASSERT_TRUE(bitmap) << s[0] << "x" << s[1];
        EXPECT_EQ(std::vector<std::uint32_t>({bitmap->width, bitmap->height, bitmap->sourceWidth,
                                              bitmap->sourceHeight,
                                              static_cast<std::uint32_t>(bitmap->rowBytes)}),
                  std::vector<std::uint32_t>({s[2], s[3], 1920, 1080, s[2] * 3}))
            << s[0] << "x" << s[1];
    }
    OwnedPelPix thumbnail(RenderThumbnail(frame, 256, 144));
    ASSERT_TRUE(thumbnail);
    EXPECT_TRUE(Near(PixelAt(thumbnail.get(), 30, 130), kRed, 12));  // top left
    EXPECT_TRUE(Near(PixelAt(thumbnail.get(), 220, 130), kGreen, 12));
    EXPECT_TRUE(Near(PixelAt(thumbnail.get(), 30, 10), kDark, 12));
    EXPECT_TRUE(Near(PixelAt(thumbnail.get(), 220, 10), kWhite, 12));

    // The size limits bound what is decoded: too wide at full size, fine at 1/8.
    const Bytes wide = WriteJpeg(Quadrants(33000, 8), 50);
    EXPECT_FALSE(DecodeImage(wide));
    const std::optional<DecodedBitmap> reduced = DecodeImage(wide, 1, 1);
    ASSERT_TRUE(reduced);
    EXPECT_EQ(std::pair(reduced->width, reduced->height), std::pair(4125u, 1u));
}

#endif

// Rewrites the checksum of the PNG chunk at OFFSET after its data was changed.
void SealPngChunk(Bytes& png, std::size_t offset) {
    const std::uint32_t length = std::uint32_t{png[offset]} << 24 | png[offset + 1] << 16 |
                                 png[offset + 2] << 8 | png[offset + 3];
    const uLong crc = crc32(0, &png[offset + 4], length + 4);
    for (int i = 0; i < 4; ++i)
        png[offset + 8 + length + i] = static_cast<std::uint8_t>(crc >> (24 - 8 * i));
}

TEST(DecodeImage, RefusesTruncatedCorruptOversizedAndNonImages) {
    const Picture colours = MakePicture(37, 23, [](std::uint32_t x, std::uint32_t y) {
        return Rgba{std::uint8_t(x * 7), std::uint8_t(y * 11), 99, std::uint8_t(x + y)};
    });
    Bytes indices(37 * 23);
    for (std::size_t i = 0; i < indices.size(); ++i)
        indices[i] = static_cast<std::uint8_t>(i % 3);
    const std::vector<Rgba> palette = {kRed, kGreen, kBlue};
    const Bytes png = WritePng(colours, true), bmp24 = WriteBmp(colours),
                bmp8 = WriteBmp8(37, 23, indices, palette),
                gif = WriteGif(37, 23, indices, palette), tga = WriteTga(colours, 24, false, false);
    std::vector<std::pair<std::string, Bytes>> refused, valid = {{"PNG", png},
                                                                 {"BMP 24", bmp24},
                                                                 {"BMP 32", WriteBmp(colours, 32)},
                                                                 {"BMP 8", bmp8},
                                                                 {"GIF", gif}};
#if !defined(_WIN32)
    const Bytes jpeg = WriteJpeg(colours, 90);
    valid.insert(valid.end(),
                 {{"TGA", tga}, {"TGA RLE", WriteTga(colours, 32, true, true)}, {"JPEG", jpeg}});
#endif
    // Every format cut inside its pixel data and inside its header.
    for (const auto& [name, bytes] : valid) {
        ASSERT_TRUE(DecodeImage(bytes)) << name;
        for (const std::size_t kept : {bytes.size() - 3, bytes.size() * 3 / 4, bytes.size() / 2,
                                       std::size_t{20}, std::size_t{5}})
            refused.emplace_back(name + " cut to " + std::to_string(kept),
                                 Bytes(bytes.begin(), bytes.begin() + std::ptrdiff_t(kept)));
    }
    Bytes pngData = Patch(png, 45, {std::uint8_t(~png[45])});
    SealPngChunk(pngData, 33);  // IDAT, its checksum intact
    Bytes random(4096);
    std::uint32_t state = 12345;
    for (std::uint8_t& byte : random)
        byte = static_cast<std::uint8_t>((state = state * 1103515245 + 12345) >> 16);
    const std::string text = "Just some text, which no decoder is ever shown.\n";
    const Bytes smallGif = WriteGif(1, 1, {0}, {kRed, kGreen});
    refused.insert(
        refused.end(),
        {// One broken field per format.
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
         // No image at all.
         {"empty", {}},
         {"text", Bytes(text.begin(), text.end())},
         {"random", random},
         {"zeros", Bytes(64, 0)},
         {"JPEG signature only", {0xFF, 0xD8, 0xFF}},
         {"BM", {'B', 'M'}},
         // Headers announcing more than the limits with almost no data behind them, refused
         // before a decoder allocates gigabytes (PNG rows: one byte each, or none).
         {"PNG 40000 wide", WritePng(40000, 1, 8, 0, Bytes(1))},
         {"PNG 20000 square", WritePng(20000, 20000, 8, 0, Bytes(20000))},
         {"PNG more pixels than its data inflates to", WritePng(2000, 2000, 8, 0, Bytes(2000))},
         {"BMP 0x7F7F square",
          Patch(WriteBmp(Flat(1, 1, kRed)), 18, {0x7F, 0x7F, 0, 0, 0x7F, 0x7F})},
         {"GIF 65535 square", Patch(smallGif, 6, {0xFF, 0xFF, 0xFF, 0xFF})},
         {"GIF 6000x5000", Patch(smallGif, 6, {0x70, 0x17, 0x88, 0x13})}});
#if !defined(_WIN32)
    const std::size_t frame = FindMarker(jpeg, 0xC0);
    ASSERT_NE(frame, 0u);
    // A frame of 60000 x 60000 (0xEA60) in a few kilobytes is refused from the header.
    const Bytes huge = Patch(jpeg, frame + 5, {0xEA, 0x60, 0xEA, 0x60});
    EXPECT_FALSE(Platform::ReadImageInfo(huge));
    refused.insert(refused.end(),
                   {{"JPEG height 0", Patch(jpeg, frame + 5, {0, 0})},
                    {"JPEG end marker in the middle of the scan",
                     Patch(jpeg, (FindMarker(jpeg, 0xDA, true) + jpeg.size()) / 2, {0xFF, 0xD9})},
                    {"JPEG 60000 square", huge},
                    {"JPEG arithmetic coding", Patch(jpeg, frame + 1, {0xC9})},
                    {"JPEG 12-bit samples", Patch(jpeg, frame + 4, {12})}});
#endif
    for (const auto& [what, bytes] : refused) {
        EXPECT_FALSE(DecodeImage(bytes)) << what;
        EXPECT_FALSE(DecodeImage(bytes, 1, 1)) << what;
        EXPECT_FALSE(OwnedPelPix(RenderThumbnail(bytes, 8, 8))) << what;
    }

    // An image exactly at the limit of a side is still fine.
    const std::optional<DecodedBitmap> bitmap =
        DecodeImage(WriteBmp(Flat(Platform::kMaximumDecodedSide, 1, kGreen)));
    ASSERT_TRUE(bitmap);
    EXPECT_EQ(bitmap->width, Platform::kMaximumDecodedSide);
}

TEST(RenderThumbnail, ReadsOnlyRegularFiles) {
    TempDir dir;
    const Picture colours = EightColours();
    const fs::path image = dir.WriteFile("Bild \xC3\xBC.bmp", AsString(WriteBmp(colours)));
    const auto utf8 = [](const fs::path& path) {
        const std::u8string text = path.u8string();
        return std::string(text.begin(), text.end());
    };
    {
        OwnedPelPix thumbnail(RenderThumbnail(utf8(image), 4, 2));
        ASSERT_TRUE(thumbnail);
        EXPECT_EQ(PixelAt(thumbnail.get(), 0, 1), kRed);
        ExpectPicture(Platform::DecodeImageFile(image.native()), colours, 24, "file");
    }
    const fs::path text = dir.WriteFile("notes.bmp", "BM but not really an image");
    for (const fs::path& path : {text, dir.WriteFile("empty.png"), dir.MakeDir("folder.png"),
                                 dir.path() / "missing.bmp", fs::path()}) {
        EXPECT_FALSE(OwnedPelPix(RenderThumbnail(utf8(path), 4, 4))) << path;
        EXPECT_EQ(Platform::ReadImageFile(path.native()).has_value(), path == text) << path;
    }
#if defined(_WIN32)
    // The system's bitmap loader, the last resort for BMP files that GDI+ refuses: 24-bit
    // files as they are; paletted ones, which it keeps paletted, refused.
    ExpectPicture(Platform::LoadBitmapFileWithSystem(image.native()), colours, 24, "LoadImageW");
    const fs::path paletted =
        dir.WriteFile("paletted.bmp", AsString(WriteBmp8(2, 1, {0, 1}, {kRed, kBlue})));
    EXPECT_FALSE(Platform::LoadBitmapFileWithSystem(paletted.native()));
    EXPECT_FALSE(Platform::LoadBitmapFileWithSystem(text.native()));
#else
    EXPECT_FALSE(Platform::LoadBitmapFileWithSystem(image.native()));  // there is none
    // Links are followed to files; a FIFO, even behind a link, is never opened: the call
    // neither blocks nor shows up as a reader.
    fs::create_symlink(image, dir.path() / "link.bmp");
    EXPECT_TRUE(OwnedPelPix(RenderThumbnail(utf8(dir.path() / "link.bmp"), 4, 4)));
    const fs::path fifo = dir.path() / "pipe.jpg";
    ASSERT_TRUE(MakeFifo(fifo));
    fs::create_symlink(fifo, dir.path() / "link-to-pipe.jpg");
    FifoReaderWatch watch(fifo);
    OwnedPelPix fromFifo(RenderThumbnail(utf8(fifo), 4, 4));
    OwnedPelPix fromLink(RenderThumbnail(utf8(dir.path() / "link-to-pipe.jpg"), 4, 4));
    EXPECT_FALSE(Platform::DecodeImageFile(fifo.native()));
    EXPECT_FALSE(watch.Stop()) << "the FIFO was opened";
    EXPECT_FALSE(fromFifo || fromLink);
#endif
}

TEST(RenderDecodedBitmap, RefusesBitmapsItCannotReadAndAbsurdBoxes) {
    DecodedBitmap good;
    good.width = good.height = 2;
    good.bitsPerPixel = 24;
    good.rowBytes = 8;  // padded rows, as device-independent bitmaps have, the last unpadded
    good.pixels = {1, 2, 3, 4, 5, 6, 0xEE, 0xEE, 7, 8, 9, 10, 11, 12};
    ExpectStored(RenderDecodedBitmap(good, 0, 0).get(), 2, 2,
                 {{9, 8, 7, 255}, {12, 11, 10, 255}, {3, 2, 1, 255}, {6, 5, 4, 255}}, "good");
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
        EXPECT_FALSE(RenderDecodedBitmap(bitmap, 4, 4)) << &change - changes;
    }
    for (const auto& [width, height] : {std::pair<std::uint32_t, std::uint32_t>{32768, 32768},
                                        {40000, 1},
                                        {1, 40000},
                                        {20000, 10000}})
        EXPECT_FALSE(RenderDecodedBitmap(good, width, height)) << width << "x" << height;
    // The fit uses the source size: a reduced decode of a 4x4 image drawn into 4x4.
    DecodedBitmap reduced = good;
    reduced.sourceWidth = reduced.sourceHeight = 4;
    const OwnedPelPix enlarged = RenderDecodedBitmap(reduced, 4, 0);
    ASSERT_TRUE(enlarged);
    EXPECT_EQ(pelpixGetHeight(enlarged.get()), 4u);
    EXPECT_EQ(PixelAt(enlarged.get(), 0, 3), (Rgba{3, 2, 1, 255}));
}

}  // namespace
}  // namespace Tessel

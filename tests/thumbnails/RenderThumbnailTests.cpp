// Decoding every format alike on every platform and from many threads; refusing truncated,
// corrupt, oversized and non-images and anything but regular files; drawing and fitting.
#include <gtest/gtest.h>
#include <tessel/media/PelPixCount.h>
#include <tessel/platform/ImageDecoding.h>
#include <tessel/thumbnails/RenderThumbnail.h>
#include <tessel/thumbnails/ThumbnailFit.h>
#include <array>
#include <cmath>
#include <filesystem>
#include <functional>
#include <limits>
#include <thread>
#include <tuple>
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
int Difference(const Rgba& a, const Rgba& b) {
    return std::max(
        {std::abs(a.r - b.r), std::abs(a.g - b.g), std::abs(a.b - b.b), std::abs(a.a - b.a)});
}
// A decoded bitmap's pixels, rows top-down; alpha 255 for 24 bits.
Picture PictureOf(const DecodedBitmap& bitmap) {
    const std::size_t size = bitmap.bitsPerPixel / 8;
    return MakePicture(bitmap.width, bitmap.height, [&](std::uint32_t x, std::uint32_t y) {
        const std::uint8_t* p = bitmap.pixels.data() + y * bitmap.rowBytes + x * size;
        return Rgba{p[2], p[1], p[0], size == 4 ? p[3] : std::uint8_t{255}};
    });
}
// A buffer's pixels, stored rows from the bottom.
Picture StoredOf(PelPixHandle buffer) {
    return MakePicture(pelpixGetWidth(buffer), pelpixGetHeight(buffer),
                       [&](std::uint32_t x, std::uint32_t row) { return PixelAt(buffer, x, row); });
}
void ExpectPicture(const std::optional<DecodedBitmap>& bitmap, const Picture& picture, int bits,
                   const std::string& what) {
    ASSERT_TRUE(bitmap.has_value()) << what;
    EXPECT_EQ(
        std::tuple(bitmap->bitsPerPixel, bitmap->planes, bitmap->sourceWidth, bitmap->sourceHeight),
        std::tuple(bits, 1, picture.width, picture.height))
        << what;
    EXPECT_TRUE(PictureOf(*bitmap) == picture) << what;
}
// THUMBNAIL's size, and its first stored pixels (rows from the bottom) against STORED.
void ExpectStored(PelPixHandle thumbnail, std::uint32_t width, std::uint32_t height,
                  const std::vector<Rgba>& stored, const std::string& what) {
    ASSERT_NE(thumbnail, nullptr) << what;
    const Picture found = StoredOf(thumbnail);
    ASSERT_EQ(std::pair(found.width, found.height), std::pair(width, height)) << what;
    EXPECT_TRUE(std::equal(stored.begin(), stored.end(), found.pixels.begin())) << what;
}

TEST(RenderThumbnail, PlacementFiltersAndTransparentMargins) {
    const std::int64_t liveBefore = pelpixLiveCount();
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
    expect("GIF", WriteGif(3, 2, indices, palette), paletted, 24);
    expect("GIF with a transparent index", WriteGif(3, 2, indices, palette, 1), holes, 32);
    // Long enough for the decoder to restart its code table.
    Bytes many(40 * 30);
    for (std::size_t i = 0; i < many.size(); ++i)
        many[i] = static_cast<std::uint8_t>(i * 7 % 4);
    expect("GIF 40x30", WriteGif(40, 30, many, palette),
           MakePicture(40, 30, [&](auto x, auto y) { return palette[many[y * 40 + x]]; }), 24);
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

// Flat quadrants, so that JPEG keeps each colour near its value away from the edges.
Picture Quadrants(std::uint32_t width, std::uint32_t height) {
    return MakePicture(width, height, [&](std::uint32_t x, std::uint32_t y) {
        const bool right = x >= width / 2, bottom = y >= height / 2;
        return bottom ? (right ? kWhite : kDark) : (right ? kGreen : kRed);
    });
}

TEST(DecodeImage, JpegVariantsAndReducedScaleGeometry) {
    // Print-work CMYK is stored inverted: no ink but magenta and yellow is red.
    // What, the JPEG, the width asked for (height half of it), a pixel and its colour.
    const std::tuple<const char*, Bytes, std::uint32_t, std::uint32_t, std::uint32_t, Rgba, int>
        probes[] = {{"gray", WriteJpeg(Quadrants(16, 16), 90, JpegKind::Gray), 0, 2, 13, kDark, 8},
                    {"progressive at 1/4", WriteJpeg(Quadrants(64, 32), 90, JpegKind::Progressive),
                     16, 12, 2, kGreen, 16},
                    {"CMYK", WriteJpeg(Flat(16, 16, {255, 0, 0, 255}), 95, JpegKind::Cmyk), 0, 8, 8,
                     kRed, 8}};
    for (const auto& [what, jpeg, hint, x, y, colour, tolerance] : probes) {
        const auto bitmap = DecodeImage(jpeg, hint, hint / 2);
        ASSERT_TRUE(bitmap) << what;
        EXPECT_EQ(std::pair(bitmap->bitsPerPixel, bitmap->width),
                  std::pair(std::uint16_t{24}, hint ? hint : bitmap->sourceWidth))
            << what;
        EXPECT_LE(Difference(PictureOf(*bitmap).at(x, y), colour), tolerance) << what;
    }
    // The smallest DCT scale that still covers the hint; the source size is kept.
    const Bytes frame = WriteJpeg(Quadrants(1920, 1080), 75);
    const std::uint32_t scales[][4] = {
        {256, 144, 480, 270}, {240, 135, 240, 135}, {241, 1, 480, 270},      {1, 136, 480, 270},
        {961, 0, 1200, 675},  {0, 0, 1920, 1080},   {4000, 4000, 1920, 1080}};
    for (const auto& s : scales) {
        const auto bitmap = DecodeImage(frame, s[0], s[1]);
        ASSERT_TRUE(bitmap) << s[0] << "x" << s[1];
        EXPECT_EQ(std::tuple(bitmap->width, bitmap->height, bitmap->sourceWidth,
                             bitmap->sourceHeight, bitmap->rowBytes),
                  std::tuple(s[2], s[3], 1920u, 1080u, std::size_t{s[2]} * 3))
            << s[0] << "x" << s[1];
    }
    // The size limits bound what is decoded: too wide at full size, fine at 1/8.
    const Bytes wide = WriteJpeg(Quadrants(33000, 8), 50);
    EXPECT_FALSE(DecodeImage(wide));
    const auto reduced = DecodeImage(wide, 1, 1);
    ASSERT_TRUE(reduced);
    EXPECT_EQ(std::pair(reduced->width, reduced->height), std::pair(4125u, 1u));
}

#endif

// JPEG decoders differ (POSIX: reduced DCT scale, fast inverse DCT; GDI+: full size, its own
// upsampling): per channel, kJpegTolerance against the POSIX thumbnail (measured: 3 under
// Wine), kJpegLoss against the encoded picture (measured: 15 POSIX, 9 under Wine).
constexpr int kJpegTolerance = 8;
constexpr int kJpegLoss = 20;
// A 32 x 24 JPEG (baseline, 4:2:0, quality 90) written by TurboJPEG.
constexpr const char* kJpeg =
    "/9j/4AAQSkZJRgABAQAAAQABAAD/2wBDAAMCAgMCAgMDAwMEAwMEBQgFBQQEBQoHBwYIDAoMDAsKCwsNDhIQDQ4RDg"
    "sLEBYQERMUFRUVDA8XGBYUGBIUFRT/2wBDAQMEBAUEBQkFBQkUDQsNFBQUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFBQU"
    "FBQUFBQUFBQUFBQUFBQUFBQUFBQUFBT/wAARCAAYACADASIAAhEBAxEB/8QAHwAAAQUBAQEBAQEAAAAAAAAAAAECAw"
    "QFBgcICQoL/8QAtRAAAgEDAwIEAwUFBAQAAAF9AQIDAAQRBRIhMUEGE1FhByJxFDKBkaEII0KxwRVS0fAkM2JyggkK"
    "FhcYGRolJicoKSo0NTY3ODk6Q0RFRkdISUpTVFVWV1hZWmNkZWZnaGlqc3R1dnd4eXqDhIWGh4iJipKTlJWWl5iZmq"
    "KjpKWmp6ipqrKztLW2t7i5usLDxMXGx8jJytLT1NXW19jZ2uHi4+Tl5ufo6erx8vP09fb3+Pn6/8QAHwEAAwEBAQEB"
    "AQEBAQAAAAAAAAECAwQFBgcICQoL/8QAtREAAgECBAQDBAcFBAQAAQJ3AAECAxEEBSExBhJBUQdhcRMiMoEIFEKRob"
    "HBCSMzUvAVYnLRChYkNOEl8RcYGRomJygpKjU2Nzg5OkNERUZHSElKU1RVVldYWVpjZGVmZ2hpanN0dXZ3eHl6goOE"
    "hYaHiImKkpOUlZaXmJmaoqOkpaanqKmqsrO0tba3uLm6wsPExcbHyMnK0tPU1dbX2Nna4uPk5ebn6Onq8vP09fb3+P"
    "n6/9oADAMBAAIRAxEAPwDh/Dfg79wPk7elM8TeDv8AR3+Tt6V7n4b8HfuB8nb0pvibwd/o7fJ29K/QM0zv/aHqfu+H"
    "4j/4R/i6Hwz4j8Gfv2+Tv6U/wx4M/fr+77+le5eI/Bn79vk7+lSeGPBn78fu+/pWGFzL/Z9z+Y5cSf8ACx8XU+4PDf"
    "g79wPk7elN8TeDv9Hb5O3pRRX43mmLq/WHqephsdX/ALH36HifiPwZ+/b5O/pUnhjwZ+/H7v8ASiivcwtep9X3P5dl"
    "jq/9sb9T/9k=";
// Its thumbnail in a 16 x 12 box from the POSIX build: B, G, R of each pixel, stored rows
// from the bottom (alpha is 255 throughout).
constexpr const char* kJpegThumbnail =
    "xt6Kwt+uud3Prd/fp97jot3Zmd+7jd2ai99vid5Mjt8ult4gm94fnd8sod9Np99uw86Kvs6sts7OrM7epM7hn8zXl8"
    "+6i82Zhs9tg81Li9AskM4els0el84rm81JoM1sw7mJwLust7vOq7vfprrjn7nXl7u7jbqZhLptgLpKh7wtjbkek7oe"
    "l7srmbpLnrtswqmJv6qstanNq6ndpKngnqjXl6q5i6iYgapsf6lKhKsqiqodj6kdkqkplalInKlrxJeKwpest5fOrZ"
    "jdppfhoZbVmZi6jZeXfZdve5ZMgJgshpYgjJYej5cskZZLmJZtwoWJv4astobOqofdpYbhnoXVmIi4jIaXeIZudoVL"
    "fIYsgoUeiIUdiYYrjYVKkoVrwnGKwHOttXLOq3PepHLioHHXl3K6i3KYdXJucnFLd3Itf3EfhHIfhnIri3FMkHJtwm"
    "CMwGCttmDQq2HfpGHin1/Xl2G6i2CZcWBubl9MdGEuel8fgGAfgmArhWBMjGBtw0+Kv1Cstk/OrFDdpVDgnk/WmFG4"
    "i0+WbFBtak9LblEsd08eek8efVAqgU9Jh1Brwz2JwT6stz7OrT/fpT7goDzUmT+6jD6WaD5tZj5Ka0Atcz0edj0deT"
    "4qejxIgz5rwiqKwSqvtSrPqyrfpirinyjXlyu6iyqYZSpuYSlMaCwtbikfcygfdyoteClKfypuwRmKvRmutBnOqhnf"
    "oxninBjXlhq6iRiXYBptXhlMYhssahgdbRcdcRgrdBhJexlt";
// The largest difference of one channel between BUFFER and EXPECTED(x, stored row).
int LargestDifference(PelPixHandle buffer,
                      const std::function<Rgba(std::uint32_t, std::uint32_t)>& expected) {
    const Picture found = StoredOf(buffer);
    int largest = 0;
    for (std::uint32_t i = 0; i < found.pixels.size(); ++i)
        largest = std::max(largest,
                           Difference(found.pixels[i], expected(i % found.width, i / found.width)));
    return largest;
}

TEST(RenderThumbnail, JpegStaysWithinTheToleranceOfEachDecoder) {
    const Bytes jpeg = FromBase64(kJpeg), golden = FromBase64(kJpegThumbnail);
    const OwnedPelPix small(RenderThumbnail(jpeg, 16, 12));
    ExpectStored(small.get(), 16, 12, {}, "16x12");
    EXPECT_LE(LargestDifference(small.get(),
                                [&](std::uint32_t x, std::uint32_t row) {
                                    const std::uint8_t* p = &golden[(row * 16 + x) * 3];
                                    return Rgba{p[2], p[1], p[0]};
                                }),
              kJpegTolerance);
    // At full size: a horizontal wave, a vertical ramp and a soft step.
    const OwnedPelPix full(RenderThumbnail(jpeg, 0, 0));
    ExpectStored(full.get(), 32, 24, {}, "full size");
    EXPECT_LE(LargestDifference(full.get(),
                                [](std::uint32_t x, std::uint32_t row) {
                                    const std::uint32_t y = 23 - row;
                                    return Rgba{
                                        std::uint8_t(128 + 100 * std::sin(x / 5.0)),
                                        std::uint8_t(20 + y * 9),
                                        std::uint8_t(x < 16 ? 200 - x * 4 : 60 + (x + y) * 2)};
                                }),
              kJpegLoss);
}
// A 37 x 23 image of each format and variant decoded on the platform.
std::vector<std::pair<std::string, Bytes>> Samples() {
    const Picture colours = MakePicture(37, 23, [](std::uint32_t x, std::uint32_t y) {
        return Rgba{std::uint8_t(x * 7), std::uint8_t(y * 11), 99, std::uint8_t(x + y)};
    });
    Bytes indices(37 * 23);
    for (std::size_t i = 0; i < indices.size(); ++i)
        indices[i] = static_cast<std::uint8_t>(i / 3 % 3);
    std::vector<std::pair<std::string, Bytes>> samples = {
        {"PNG", WritePng(colours, true)},
        {"BMP 24", WriteBmp(colours)},
        {"BMP 32", WriteBmp(colours, 32)},
        {"BMP 8", WriteBmp8(37, 23, indices, {kRed, kGreen, kBlue})},
        {"GIF", WriteGif(37, 23, indices, {kRed, kGreen, kBlue})},
        {"JPEG", FromBase64(kJpeg)}};
#if !defined(_WIN32)
    samples.insert(samples.end(), {{"TGA", WriteTga(colours, 24, false, false)},
                                   {"TGA RLE", WriteTga(colours, 32, true, true)},
                                   {"JPEG 37x23", WriteJpeg(colours, 90)}});
#endif
    return samples;
}
// Every decoder from four threads at once, starting up together: each thread's thumbnails
// are the ones made alone afterwards.
TEST(RenderThumbnail, DecodersRunInManyThreadsAtOnce) {
    const auto samples = Samples();
    const auto render = [&] {
        std::vector<Picture> thumbnails;
        for (const auto& sample : samples)
            for (const auto& [width, height] : {std::pair(20u, 20u), {100u, 40u}, {0u, 0u}}) {
                const OwnedPelPix thumbnail(RenderThumbnail(sample.second, width, height));
                thumbnails.push_back(thumbnail ? StoredOf(thumbnail.get()) : Picture{});
            }
        return thumbnails;
    };
    std::vector<Picture> found[4];
    std::vector<std::thread> threads;
    for (auto& thumbnails : found)
        threads.emplace_back([&] { thumbnails = render(); });
    for (std::thread& thread : threads)
        thread.join();
    const std::vector<Picture> alone = render();
    EXPECT_EQ(std::count(alone.begin(), alone.end(), Picture{}), 0);
    for (const auto& thumbnails : found)
        EXPECT_TRUE(thumbnails == alone);
}
// The offset of the first (or LAST) FF MARKER after the signature, or 0.
std::size_t FindMarker(const Bytes& jpeg, std::uint8_t marker, bool last = false) {
    std::size_t found = 0;
    for (std::size_t i = 2; i + 1 < jpeg.size() && (last || found == 0); ++i)
        if (jpeg[i] == 0xFF && jpeg[i + 1] == marker)
            found = i;
    return found;
}

TEST(DecodeImage, RefusesTruncatedCorruptOversizedAndNonImages) {
    // Every format cut inside its pixel data and inside its header.
    const auto samples = Samples();
    std::vector<std::pair<std::string, Bytes>> refused;
    for (const auto& [name, bytes] : samples) {
        ASSERT_TRUE(DecodeImage(bytes)) << name;
        for (const std::size_t kept : {bytes.size() - 3, bytes.size() * 3 / 4, bytes.size() / 2,
                                       std::size_t{20}, std::size_t{5}})
            refused.emplace_back(name + " cut to " + std::to_string(kept),
                                 Bytes(bytes.begin(), bytes.begin() + std::ptrdiff_t(kept)));
    }
    // One broken field per format.
    const Bytes &png = samples[0].second, &bmp24 = samples[1].second, &bmp8 = samples[3].second,
                &gif = samples[4].second, &jpeg = samples[5].second;
    const Bytes tga = WriteTga(Flat(4, 4, kRed), 24, false, false);
    // The compressed data changed, with its checksum: IDAT after the header, then IEND.
    Bytes pngData(png.begin(), png.begin() + 33), idat(png.begin() + 41, png.end() - 16);
    idat[4] ^= 0xFF;
    PutPngChunk(pngData, "IDAT", idat);
    PutPngChunk(pngData, "IEND", {});
    Bytes random(4096);
    for (std::size_t i = 0; i < random.size(); ++i)
        random[i] = static_cast<std::uint8_t>((i * 1103515245 + 12345) >> 16);
    const std::string text = "Just some text, which no decoder is ever shown.\n";
    const Bytes smallGif = WriteGif(1, 1, {0}, {kRed, kGreen});
    refused.insert(
        refused.end(),
        {{"PNG header checksum", Patch(png, 29, {std::uint8_t(png[29] ^ 1)})},
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
    // A JPEG frame of 60000 x 60000 (0xEA60) in a few kilobytes is refused from the header,
    // and so are frames coded in ways not decoded here.
    const std::size_t frame = FindMarker(jpeg, 0xC0);
    ASSERT_NE(frame, 0u);
    const Bytes huge = Patch(jpeg, frame + 5, {0xEA, 0x60, 0xEA, 0x60});
    EXPECT_FALSE(Platform::ReadImageInfo(huge));
    refused.insert(refused.end(), {{"JPEG height 0", Patch(jpeg, frame + 5, {0, 0})},
                                   {"JPEG 60000 square", huge},
                                   {"JPEG arithmetic coding", Patch(jpeg, frame + 1, {0xC9})},
                                   {"JPEG 12-bit samples", Patch(jpeg, frame + 4, {12})}});
#if !defined(_WIN32)
    refused.emplace_back(
        "JPEG end marker in the middle of the scan",
        Patch(jpeg, (FindMarker(jpeg, 0xDA, true) + jpeg.size()) / 2, {0xFF, 0xD9}));
#endif
    for (const auto& [what, bytes] : refused) {
        EXPECT_FALSE(DecodeImage(bytes)) << what;
        EXPECT_FALSE(DecodeImage(bytes, 1, 1)) << what;
        EXPECT_FALSE(OwnedPelPix(RenderThumbnail(bytes, 8, 8))) << what;
    }
    // The thread's JPEG decompressor, reused after all those failures, still decodes.
    EXPECT_TRUE(DecodeImage(jpeg, 1, 1));
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
    const Picture& c = colours;
    ExpectStored(OwnedPelPix(RenderThumbnail(utf8(image), 4, 2)).get(), 4, 2,
                 {c.at(0, 1), c.at(1, 1), c.at(2, 1), c.at(3, 1), c.at(0, 0)}, "file");
    ExpectPicture(Platform::DecodeImageFile(image.native()), colours, 24, "file");
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
    // Padded rows, as device-independent bitmaps have, the last unpadded.
    const DecodedBitmap good{2,  2, 0, 0,
                             24, 1, 8, {1, 2, 3, 4, 5, 6, 0xEE, 0xEE, 7, 8, 9, 10, 11, 12}};
    ExpectStored(RenderDecodedBitmap(good, 0, 0).get(), 2, 2,
                 {{9, 8, 7, 255}, {12, 11, 10, 255}, {3, 2, 1, 255}, {6, 5, 4, 255}}, "good");
    // Other planes or depths, rows shorter than their pixels or running past the end.
    using B = DecodedBitmap&;
    const std::function<void(B)> changes[] = {
        [](B b) { b.planes = 2; },        [](B b) { b.bitsPerPixel = 16; },
        [](B b) { b.bitsPerPixel = 8; },  [](B b) { b.bitsPerPixel = 48; },
        [](B b) { b.bitsPerPixel = 32; }, [](B b) { b.rowBytes = 5; },
        [](B b) { b.rowBytes = 0; },      [](B b) { b.pixels.pop_back(); },
        [](B b) { b.width = 0; },         [](B b) { b.height = 3; }};
    for (const auto& change : changes) {
        DecodedBitmap bitmap = good;
        change(bitmap);
        EXPECT_FALSE(RenderDecodedBitmap(bitmap, 4, 4)) << &change - changes;
    }
    for (const auto& [width, height] : {std::pair(32768u, 32768u), std::pair(40000u, 1u),
                                        std::pair(1u, 40000u), std::pair(20000u, 10000u)})
        EXPECT_FALSE(RenderDecodedBitmap(good, width, height)) << width << "x" << height;
    // The fit uses the source size: a reduced decode of a 4x4 image drawn into 4x4.
    DecodedBitmap reduced = good;
    reduced.sourceWidth = reduced.sourceHeight = 4;
    const OwnedPelPix enlarged = RenderDecodedBitmap(reduced, 4, 0);
    ASSERT_TRUE(enlarged);
    EXPECT_EQ(pelpixGetHeight(enlarged.get()), 4u);
    EXPECT_EQ(PixelAt(enlarged.get(), 0, 3), (Rgba{3, 2, 1, 255}));
}
auto Fields(const ThumbnailFit& f) {
    return std::tuple(f.boxWidth, f.boxHeight, f.drawnWidth, f.drawnHeight, f.offsetX,
                      f.offsetRows);
}

TEST(ThumbnailFit, FollowsTheIntegerFormulaWithItsRoundingQuirks) {
    constexpr std::uint32_t kMax = std::numeric_limits<std::uint32_t>::max();
    // Source width and height, box width and height; then the fit (box, drawn, offsets).
    const std::tuple<const char*, std::array<std::uint32_t, 4>, ThumbnailFit> cases[] = {
        {"portrait: full height wins", {1080, 1920, 256, 144}, {256, 144, 81, 144, 87, 0}},
        {"W=1 term is -1", {1, 10, 5, 5}, {5, 5, 5, 0, 0, 5}},
        {"W=2 term is 0", {2, 1, 4, 4}, {4, 4, 4, 2, 0, 2}},
        {"odd source, odd box", {5, 3, 3, 3}, {3, 3, 3, 2, 0, 1}},
        {"odd square into even square", {3, 3, 2, 2}, {2, 2, 2, 2, 0, 0}},
        {"exact tie of different fits takes full width", {1, 1, 2, 2}, {2, 2, 2, 1, 0, 1}},
        {"larger full-height fit wins, even stretched", {1, 1, 2, 3}, {2, 3, 2, 3, 0, 0}},
        {"Nx1 rounds to no rows", {100, 1, 10, 10}, {10, 10, 10, 0, 0, 10}},
        {"Nx1 in a wide box", {100, 1, 200, 10}, {200, 10, 200, 2, 0, 8}},
        {"1xN: rounding lets full height win", {1, 100, 10, 1000}, {10, 1000, 10, 1000, 0, 0}},
        {"height 0 takes the source height", {40, 30, 20, 0}, {20, 30, 20, 15, 0, 15}},
        {"tiny box", {1920, 1080, 2, 2}, {2, 2, 2, 1, 0, 1}},
        {"no source size fills the box", {0, 0, 10, 7}, {10, 7, 10, 7, 0, 0}},
        {"no source and box 0: nothing", {0, 0, 0, 0}, {0, 0, 0, 0, 0, 0}},
        // Extreme sizes neither overflow nor leave the box.
        {"widest", {kMax, 1, kMax, kMax}, {kMax, kMax, kMax, 1, 0, kMax - 1}},
        {"tallest", {1, kMax, kMax, kMax}, {kMax, kMax, 1, kMax, (kMax - 1) / 2, 0}},
        {"largest", {kMax, kMax, kMax, kMax}, {kMax, kMax, kMax, kMax, 0, 0}}};
    for (const auto& [what, in, out] : cases)
        EXPECT_EQ(Fields(FitThumbnail(in[0], in[1], in[2], in[3])), Fields(out)) << what;
    // Every fit of sizes up to 12 stays inside its box, so the picture fits the buffer.
    for (std::uint32_t i = 0; i < 12 * 12 * 12 * 12; ++i) {
        const std::uint32_t W = i % 12 + 1, H = i / 12 % 12 + 1, w = i / 144 % 12 + 1,
                            h = i / 1728 + 1;
        const ThumbnailFit fit = FitThumbnail(W, H, w, h);
        ASSERT_LE(fit.offsetX + fit.drawnWidth, w) << W << "x" << H << " in " << w << "x" << h;
        ASSERT_EQ(fit.offsetRows + fit.drawnHeight, h) << W << "x" << H << " in " << w << "x" << h;
    }
}

}  // namespace
}  // namespace Tessel

// The same images give the same thumbnails on every platform, whichever decoder reads them
// (TurboJPEG, libpng and stb_image on POSIX, GDI+ on Windows), and from any number of
// threads at once.
//
// Lossless formats need no test of their own here: their decoders agree on every pixel
// (RenderThumbnailTests) and the scaling is shared code. JPEG decoders may differ: the
// POSIX build decodes at a reduced DCT scale with the fast inverse DCT when the thumbnail is
// small, GDI+ decodes at full size with its own inverse DCT and chroma upsampling. Its
// thumbnails are held to kJpegTolerance per channel against the POSIX build's, with room
// above the difference measured under Wine for the decoder of real Windows.
#include <tessel/thumbnails/RenderThumbnail.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <thread>
#include <vector>

#include "ImageWriters.h"

namespace Tessel {
namespace {

using namespace Tessel::Test;

// A 32 x 24 JPEG (baseline, 4:2:0, quality 90) of JpegPicture, written by TurboJPEG.
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

// The picture the JPEG was encoded from: a horizontal wave, a vertical ramp and a soft step.
Rgba JpegPicture(std::uint32_t x, std::uint32_t y) {
    return Rgba{static_cast<std::uint8_t>(128 + 100 * std::sin(x / 5.0)),
                static_cast<std::uint8_t>(20 + y * 9),
                static_cast<std::uint8_t>(x < 16 ? 200 - x * 4 : 60 + (x + y) * 2)};
}

// The largest difference of one channel between BUFFER and EXPECTED(x, stored row).
int LargestDifference(PelPixHandle buffer,
                      const std::function<Rgba(std::uint32_t, std::uint32_t)>& expected) {
    int largest = 0;
    for (std::uint32_t row = 0; row < pelpixGetHeight(buffer); ++row)
        for (std::uint32_t x = 0; x < pelpixGetWidth(buffer); ++x) {
            const Rgba got = PixelAt(buffer, x, row), want = expected(x, row);
            largest = std::max({largest, std::abs(got.r - want.r), std::abs(got.g - want.g),
                                std::abs(got.b - want.b), std::abs(got.a - want.a)});
        }
    return largest;
}

// The JPEG decoders' difference per channel (measured: 3 under Wine's GDI+), and the
// format's own loss against the encoded picture (measured: 15 with TurboJPEG's fast inverse
// DCT, 9 under Wine's GDI+).
constexpr int kJpegTolerance = 8;
constexpr int kJpegLoss = 20;

TEST(CrossPlatformThumbnails, JpegStaysWithinTheToleranceOfEachDecoder) {
    const Bytes jpeg = FromBase64(kJpeg), golden = FromBase64(kJpegThumbnail);
    ASSERT_EQ(golden.size(), 16u * 12 * 3);
    const OwnedPelPix small(RenderThumbnail(jpeg, 16, 12));
    ASSERT_TRUE(small);
    ASSERT_EQ(std::pair(pelpixGetWidth(small.get()), pelpixGetHeight(small.get())),
              std::pair(16u, 12u));
    EXPECT_LE(LargestDifference(small.get(),
                                [&](std::uint32_t x, std::uint32_t row) {
                                    const std::uint8_t* p = &golden[(row * 16 + x) * 3];
                                    return Rgba{p[2], p[1], p[0]};
                                }),
              kJpegTolerance)
        << "against the POSIX build's thumbnail";
    // At full size, against the picture it was encoded from: the same bound of the format's
    // own loss on every platform.
    const OwnedPelPix full(RenderThumbnail(jpeg, 0, 0));
    ASSERT_TRUE(full);
    ASSERT_EQ(std::pair(pelpixGetWidth(full.get()), pelpixGetHeight(full.get())),
              std::pair(32u, 24u));
    EXPECT_LE(
        LargestDifference(full.get(), [](std::uint32_t x,
                                         std::uint32_t row) { return JpegPicture(x, 23 - row); }),
        kJpegLoss)
        << "against the encoded picture";
    // Cut short, the file gives no thumbnail on either platform.
    for (const std::size_t kept : {jpeg.size() - 2, jpeg.size() * 3 / 4, jpeg.size() / 2})
        EXPECT_FALSE(OwnedPelPix(
            RenderThumbnail(Bytes(jpeg.begin(), jpeg.begin() + std::ptrdiff_t(kept)), 16, 12)))
            << kept;
}

// Every decoder from four threads at once, starting up together: each thread's thumbnails
// are the ones made alone afterwards.
TEST(CrossPlatformThumbnails, DecodersRunInManyThreadsAtOnce) {
    const Picture picture = MakePicture(45, 30, [](std::uint32_t x, std::uint32_t y) {
        return Rgba{std::uint8_t(x * 5), std::uint8_t(y * 8), std::uint8_t((x + y) % 2 ? 230 : 20),
                    std::uint8_t(x < 9 ? 0 : 255)};
    });
    Bytes indices(45 * 30);
    for (std::size_t i = 0; i < indices.size(); ++i)
        indices[i] = static_cast<std::uint8_t>(i / 3 % 4);
    const std::vector<Rgba> palette = {{200, 30, 40}, {20, 160, 90}, {30, 60, 220}, {250, 240, 10}};
    const Bytes images[] = {WritePng(picture, true), WriteBmp(picture),
                            WriteBmp8(45, 30, indices, palette),
                            WriteGif(45, 30, indices, palette, 3), FromBase64(kJpeg)};
    const auto render = [&] {
        std::vector<std::uint64_t> fingerprints;
        for (const Bytes& image : images)
            for (const auto& [width, height] : {std::pair(20u, 20u), {100u, 40u}, {0u, 0u}}) {
                const OwnedPelPix thumbnail(RenderThumbnail(image, width, height));
                fingerprints.push_back(thumbnail ? Fingerprint(thumbnail.get()) : 0);
            }
        return fingerprints;
    };
    std::vector<std::uint64_t> found[4];
    std::vector<std::thread> threads;
    for (auto& fingerprints : found)
        threads.emplace_back([&] { fingerprints = render(); });
    for (std::thread& thread : threads)
        thread.join();
    const std::vector<std::uint64_t> alone = render();
    EXPECT_EQ(std::count(alone.begin(), alone.end(), 0u), 0);
    for (const auto& fingerprints : found)
        EXPECT_EQ(fingerprints, alone);
}

}  // namespace
}  // namespace Tessel

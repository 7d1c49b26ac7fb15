// Thumbnails of image files as the media browser asks for them: 1920x1080 JPEG frames into
// 256x144 boxes (a reduced-scale decode and the area filter) and small 80x60 bitmaps
// enlarged into the same box. The files are written once into a temporary folder and then
// come from the page cache, so the figures measure reading, decoding and scaling rather
// than the disk.
#include <benchmark/benchmark.h>

#if !defined(_WIN32)
#include <turbojpeg.h>
#endif

#include <cmath>
#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <tessel/media/PelPix.h>
#include <tessel/thumbnails/RenderThumbnail.h>

#include "support/TempDir.h"

namespace Tessel::Bench {

namespace {

constexpr int kFrames = 200;
constexpr int kBitmaps = 1000;
constexpr std::uint32_t kBoxWidth = 256;
constexpr std::uint32_t kBoxHeight = 144;

// A small fast generator: noise only has to look like sensor noise to the encoder.
class Noise {
public:
    explicit Noise(std::uint32_t seed) : mState(seed * 2654435761u + 1) {}
    int Next(int amplitude) {
        mState ^= mState << 13;
        mState ^= mState >> 17;
        mState ^= mState << 5;
        return static_cast<int>(mState % (2 * amplitude + 1)) - amplitude;
    }

private:
    std::uint32_t mState;
};

std::uint8_t Clamp(int value) {
    return static_cast<std::uint8_t>(value < 0 ? 0 : value > 255 ? 255 : value);
}

// RGB pixels of a frame: a diagonal gradient whose colours depend on SEED, a disc, and
// noise, which is what makes camera frames expensive to decode.
std::vector<std::uint8_t> FramePixels(std::uint32_t width, std::uint32_t height, int seed) {
    std::vector<std::uint8_t> rgb;
    rgb.reserve(std::size_t{width} * height * 3);
    Noise noise(static_cast<std::uint32_t>(seed));
    const int shift = seed * 37 % 200;
    for (std::uint32_t y = 0; y < height; ++y) {
        for (std::uint32_t x = 0; x < width; ++x) {
            const int gx = static_cast<int>(x * 255 / width);
            const int gy = static_cast<int>(y * 255 / height);
            const double dx = x - width * 0.5, dy = y - height * 0.5;
            const bool disc = std::sqrt(dx * dx + dy * dy) < height * 0.3;
            const int n = noise.Next(18);
            rgb.push_back(Clamp((disc ? 200 : (gx + shift) % 256) + n));
            rgb.push_back(Clamp((disc ? 40 : gy) + n));
            rgb.push_back(Clamp((disc ? 50 : 255 - (gx + gy) / 2) + n));
        }
    }
    return rgb;
}

void WriteBytes(const std::string& path, const std::vector<std::uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

// A 24-bit bottom-up BMP of RGB pixels.
std::vector<std::uint8_t> EncodeBmp(const std::vector<std::uint8_t>& rgb, std::uint32_t width,
                                    std::uint32_t height) {
    const std::uint32_t stride = (width * 3 + 3) / 4 * 4;
    const std::uint32_t size = 54 + stride * height;
    std::vector<std::uint8_t> out;
    auto put = [&](std::uint32_t value, int bytes) {
        for (int i = 0; i < bytes; ++i)
            out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    };
    out = {'B', 'M'};
    put(size, 4);
    put(0, 4);
    put(54, 4);
    put(40, 4);
    put(width, 4);
    put(height, 4);
    put(1, 2);
    put(24, 2);
    put(0, 4);
    put(stride * height, 4);
    put(2835, 4);
    put(2835, 4);
    put(0, 4);
    put(0, 4);
    for (std::uint32_t row = 0; row < height; ++row) {
        const std::uint8_t* p = &rgb[std::size_t{height - 1 - row} * width * 3];
        for (std::uint32_t x = 0; x < width; ++x, p += 3)
            out.insert(out.end(), {p[2], p[1], p[0]});
        out.resize(out.size() + stride - width * 3, 0);
    }
    return out;
}

#if !defined(_WIN32)
std::vector<std::uint8_t> EncodeJpeg(const std::vector<std::uint8_t>& rgb, std::uint32_t width,
                                     std::uint32_t height) {
    tjhandle handle = tjInitCompress();
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    std::vector<std::uint8_t> out;
    if (tjCompress2(handle, rgb.data(), static_cast<int>(width), 0, static_cast<int>(height),
                    TJPF_RGB, &jpeg, &size, TJSAMP_420, 85, 0) == 0)
        out.assign(jpeg, jpeg + size);
    tjFree(jpeg);
    tjDestroy(handle);
    return out;
}
#endif

// Files made on first use and kept for the whole run.
struct Files {
    Test::TempDir folder;
    std::vector<std::string> paths;
};

#if !defined(_WIN32)
const Files& Frames() {
    static const std::unique_ptr<Files> files = [] {
        auto made = std::make_unique<Files>();
        for (int i = 0; i < kFrames; ++i) {
            const std::string path =
                (made->folder.path() / ("frame-" + std::to_string(i) + ".jpg")).string();
            WriteBytes(path, EncodeJpeg(FramePixels(1920, 1080, i), 1920, 1080));
            made->paths.push_back(path);
        }
        return made;
    }();
    return *files;
}
#endif

const Files& Bitmaps() {
    static const std::unique_ptr<Files> files = [] {
        auto made = std::make_unique<Files>();
        for (int i = 0; i < kBitmaps; ++i) {
            const std::string path =
                (made->folder.path() / ("icon-" + std::to_string(i) + ".bmp")).string();
            WriteBytes(path, EncodeBmp(FramePixels(80, 60, i), 80, 60));
            made->paths.push_back(path);
        }
        return made;
    }();
    return *files;
}

// One thumbnail per iteration, going round the files.
void RenderEach(benchmark::State& state, const Files& files) {
    std::size_t next = 0;
    for (auto _ : state) {
        PelPixHandle thumbnail = RenderThumbnail(files.paths[next], kBoxWidth, kBoxHeight);
        if (!thumbnail) {
            state.SkipWithError("a file gave no thumbnail");
            break;
        }
        pelpixDispose(thumbnail);
        next = (next + 1) % files.paths.size();
    }
    state.SetItemsProcessed(state.iterations());  // thumbnails per second
}

#if !defined(_WIN32)
void JpegFrameThumbnails(benchmark::State& state) {
    RenderEach(state, Frames());
}
BENCHMARK(JpegFrameThumbnails)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

void SmallBitmapThumbnails(benchmark::State& state) {
    RenderEach(state, Bitmaps());
}
BENCHMARK(SmallBitmapThumbnails)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

}  // namespace Tessel::Bench

#include <tessel/thumbnails/Resample.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Tessel {

namespace {

// The weights of one axis: target index i takes `stride` consecutive source samples from
// first[i], with weights[i * stride ...] summing to 1 (unused taps weigh 0). A fixed
// stride keeps the inner loops free of per-pixel bookkeeping.
struct AxisTaps {
    std::uint32_t stride = 0;
    std::vector<std::uint32_t> first;
    std::vector<float> weights;
};

AxisTaps ComputeTaps(std::uint32_t sourceSize, std::uint32_t targetSize) {
    AxisTaps taps;
    const double scale = static_cast<double>(sourceSize) / targetSize;
    const std::uint32_t natural = targetSize < sourceSize
                                      ? static_cast<std::uint32_t>(std::ceil(scale)) + 1
                                  : targetSize > sourceSize ? 2
                                                            : 1;
    taps.stride = std::min(natural, sourceSize);
    taps.first.resize(targetSize);
    taps.weights.assign(std::size_t{targetSize} * taps.stride, 0.0f);

    std::vector<std::pair<std::uint32_t, double>> pairs;
    for (std::uint32_t i = 0; i < targetSize; ++i) {
        pairs.clear();
        if (targetSize < sourceSize) {
            // Area average: target pixel i covers [i * scale, (i + 1) * scale) of the source.
            const double low = i * scale;
            const double high = std::min((i + 1) * scale, static_cast<double>(sourceSize));
            const auto begin = static_cast<std::uint32_t>(low);
            const auto end = std::min(sourceSize, static_cast<std::uint32_t>(std::ceil(high)));
            for (std::uint32_t j = begin; j < end; ++j) {
                const double overlap = std::min<double>(high, j + 1) - std::max<double>(low, j);
                if (overlap > 1e-9)
                    pairs.emplace_back(j, overlap);
            }
        } else if (targetSize > sourceSize) {
            // Bilinear between the two source pixel centres around the target's centre.
            const double centre = std::clamp((i + 0.5) * scale - 0.5, 0.0, sourceSize - 1.0);
            const auto below = static_cast<std::uint32_t>(centre);
            const double fraction = centre - below;
            pairs.emplace_back(below, 1.0 - fraction);
            if (below + 1 < sourceSize && fraction > 0)
                pairs.emplace_back(below + 1, fraction);
        } else {
            pairs.emplace_back(i, 1.0);
        }
        if (pairs.empty())  // only from rounding at the very edge
            pairs.emplace_back(std::min(static_cast<std::uint32_t>(i * scale), sourceSize - 1),
                               1.0);
        double total = 0;
        for (const auto& pair : pairs)
            total += pair.second;
        // Shift the window left where it would run past the last source sample.
        const std::uint32_t first = std::min(pairs.front().first, sourceSize - taps.stride);
        taps.first[i] = first;
        float* weights = &taps.weights[std::size_t{i} * taps.stride];
        for (const auto& pair : pairs)
            weights[pair.first - first] = static_cast<float>(pair.second / total);
    }
    return taps;
}

// One pixel as four float lanes (B, G, R, A). GCC and Clang turn arithmetic on these into
// single SIMD instructions on every target, without depending on the auto-vectoriser.
using Float4 = float __attribute__((vector_size(16)));
using Int4 = std::int32_t __attribute__((vector_size(16)));
using Byte4 = std::uint8_t __attribute__((vector_size(4)));

#if defined(__SSE2__)
// Byte-to-float conversions that compilers do not find on their own for four lanes.
Float4 LoadFour(const std::uint8_t* bytes) {
    std::int32_t word;
    std::memcpy(&word, bytes, sizeof word);
    const __m128i zero = _mm_setzero_si128();
    const __m128i words =
        _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(word), zero), zero);
    return Float4(_mm_cvtepi32_ps(words));
}

// Rounds four lanes to bytes, saturating at 0 and 255.
void StoreFour(Float4 pixel, std::uint8_t* bytes) {
    const Float4 half = {0.5f, 0.5f, 0.5f, 0.5f};
    __m128i value = _mm_cvttps_epi32(__m128(pixel + half));
    value = _mm_packs_epi32(value, value);
    value = _mm_packus_epi16(value, value);
    const std::int32_t word = _mm_cvtsi128_si32(value);
    std::memcpy(bytes, &word, sizeof word);
}
#else
Float4 LoadFour(const std::uint8_t* bytes) {
    Byte4 b;
    std::memcpy(&b, bytes, sizeof b);
    return __builtin_convertvector(b, Float4);
}

void StoreFour(Float4 pixel, std::uint8_t* bytes) {
    const Float4 half = {0.5f, 0.5f, 0.5f, 0.5f};
    const Int4 value = __builtin_convertvector(pixel + half, Int4);
    for (int lane = 0; lane < 4; ++lane)
        bytes[lane] = static_cast<std::uint8_t>(std::clamp(value[lane], 0, 255));
}
#endif

// Converts one source row to float pixels. With alpha, colours are premultiplied by it
// (on a 0..255 scale) so that they average by coverage. Without, the fourth lane is
// whatever follows the pixel and is never used.
template <int kChannels>
void ConvertRow(const std::uint8_t* row, std::uint32_t width, Float4* out) {
    if constexpr (kChannels == 4) {
        for (std::uint32_t x = 0; x < width; ++x, row += 4) {
            Float4 pixel = LoadFour(row);
            const float alpha = pixel[3];
            pixel *= alpha;
            pixel[3] = alpha;
            out[x] = pixel;
        }
    } else {
        // Four bytes at a time except for the last pixel, which may end the buffer.
        for (std::uint32_t x = 0; x + 1 < width; ++x, row += 3)
            out[x] = LoadFour(row);
        const std::uint8_t last[4] = {row[0], row[1], row[2], 0};
        out[width - 1] = LoadFour(last);
    }
}

void FilterAcross(const Float4* in, const AxisTaps& taps, Float4* out) {
    const std::uint32_t stride = taps.stride;
    const std::size_t count = taps.first.size();
    const float* weights = taps.weights.data();
    for (std::size_t x = 0; x < count; ++x, weights += stride) {
        const Float4* p = in + taps.first[x];
        Float4 sum = p[0] * weights[0];
        for (std::uint32_t k = 1; k < stride; ++k)
            sum += p[k] * weights[k];
        out[x] = sum;
    }
}

// Writes float pixels as BGRA bytes: 24-bit sources opaque, 32-bit ones unpremultiplied.
template <int kChannels>
void StoreRow(const Float4* in, std::uint32_t width, std::uint8_t* out) {
    for (std::uint32_t x = 0; x < width; ++x, out += 4) {
        Float4 pixel = in[x];
        if constexpr (kChannels == 4) {
            const float alpha = pixel[3];
            if (!(alpha >= 0.5f)) {
                std::memset(out, 0, 4);
                continue;
            }
            pixel *= 1.0f / alpha;
            pixel[3] = alpha;
        } else {
            pixel[3] = 255.0f;
        }
        StoreFour(pixel, out);
    }
}

template <int kChannels>
bool Resample(const Platform::DecodedBitmap& source, const PelPixLock& target,
              std::size_t targetRowBytes, const PelPixRectangle& rectangle) {
    try {
        const AxisTaps across = ComputeTaps(source.width, rectangle.width);
        const AxisTaps down = ComputeTaps(source.height, rectangle.height);
        std::vector<Float4> converted(source.width);
        std::vector<Float4> sum(rectangle.width);
        // The two source rows filtered last: consecutive target rows share rows at their
        // edges (shrinking) or the same pair (enlarging), so each row is filtered once.
        std::vector<Float4> cached[2] = {std::vector<Float4>(rectangle.width),
                                         std::vector<Float4>(rectangle.width)};
        std::int64_t cachedRow[2] = {-1, -1};
        int older = 0;
        auto filtered = [&](std::uint32_t sourceRow) -> const Float4* {
            for (int slot = 0; slot < 2; ++slot) {
                if (cachedRow[slot] == sourceRow) {
                    older = 1 - slot;
                    return cached[slot].data();
                }
            }
            const int slot = older;
            ConvertRow<kChannels>(source.pixels.data() + sourceRow * source.rowBytes, source.width,
                                  converted.data());
            FilterAcross(converted.data(), across, cached[slot].data());
            cachedRow[slot] = sourceRow;
            older = 1 - slot;
            return cached[slot].data();
        };

        const std::uint32_t width = rectangle.width;
        for (std::uint32_t y = 0; y < rectangle.height; ++y) {
            const float* weights = &down.weights[std::size_t{y} * down.stride];
            bool first = true;
            for (std::uint32_t k = 0; k < down.stride; ++k) {
                const float weight = weights[k];
                if (weight == 0.0f)
                    continue;
                const Float4* row = filtered(down.first[y] + k);
                Float4* out = sum.data();
                if (first) {
                    for (std::uint32_t x = 0; x < width; ++x)
                        out[x] = row[x] * weight;
                    first = false;
                } else {
                    for (std::uint32_t x = 0; x < width; ++x)
                        out[x] += row[x] * weight;
                }
            }
            // Target row y counts from the top of the picture; stored rows go bottom-up.
            std::uint8_t* out = target.Pixels() +
                                (rectangle.firstRow + rectangle.height - 1 - y) * targetRowBytes +
                                std::size_t{rectangle.x} * kPelPixBytesPerPixel;
            StoreRow<kChannels>(sum.data(), width, out);
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

}  // namespace

bool ResampleIntoPelPix(const Platform::DecodedBitmap& source, const PelPixLock& target,
                        std::size_t targetRowBytes, const PelPixRectangle& targetRectangle) {
    if (targetRectangle.width == 0 || targetRectangle.height == 0)
        return true;
    return source.bitsPerPixel == 32 ? Resample<4>(source, target, targetRowBytes, targetRectangle)
                                     : Resample<3>(source, target, targetRowBytes, targetRectangle);
}

}  // namespace Tessel

// POSIX image decoding: JPEG through TurboJPEG, PNG through libpng, BMP, GIF and TGA through
// stb_image. Each image is first recognised and its header checked (ImageRecognition.h),
// so that the decoders only ever see data that can hold the image the header announces:
// stb_image reads missing bytes as zeros instead of failing, and every decoder would
// allocate whatever size a header claims.
#include <tessel/platform/ImageDecoding.h>

#include <tessel/platform/ImageRecognition.h>

#include <png.h>
#include <stb_image.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <new>

namespace Tessel::Platform {

namespace {

// One decompressor per thread, made on its first JPEG and reused for every later one: a
// handle holds libjpeg's state and buffers, which TurboJPEG resets for each image (also
// after one that failed). A handle must not be used by two threads at once.
class TurboJpegDecompressor {
public:
    static const TurboJpegDecompressor& ForThisThread() {
        static thread_local const TurboJpegDecompressor decompressor;
        return decompressor;
    }

    TurboJpegDecompressor() : mHandle(tjInitDecompress()) {}
    ~TurboJpegDecompressor() {
        if (mHandle)
            tjDestroy(mHandle);
    }
    TurboJpegDecompressor(const TurboJpegDecompressor&) = delete;
    TurboJpegDecompressor& operator=(const TurboJpegDecompressor&) = delete;
    tjhandle get() const { return mHandle; }

private:
    tjhandle mHandle;
};

struct JpegHeader {
    int width = 0;
    int height = 0;
    int colorspace = 0;
};

bool ReadJpegHeader(tjhandle handle, std::span<const std::uint8_t> bytes, JpegHeader& header) {
    int subsampling = 0;
    return handle &&
           tjDecompressHeader3(handle, bytes.data(), static_cast<unsigned long>(bytes.size()),
                               &header.width, &header.height, &subsampling,
                               &header.colorspace) == 0 &&
           header.width > 0 && header.height > 0;
}

// ---- Decoding ------------------------------------------------------------------------

std::optional<DecodedBitmap> DecodeJpeg(std::span<const std::uint8_t> bytes,
                                        const ImageRecognition& recognition,
                                        std::uint32_t hintWidth, std::uint32_t hintHeight) {
    const TurboJpegDecompressor& decompressor = TurboJpegDecompressor::ForThisThread();
    JpegHeader header;
    // TurboJPEG must read the same frame as the recognition did.
    if (!ReadJpegHeader(decompressor.get(), bytes, header) ||
        static_cast<std::uint32_t>(header.width) != recognition.width ||
        static_cast<std::uint32_t>(header.height) != recognition.height)
        return std::nullopt;

    // The smallest reduced scale (never an enlarging one) that still meets the hint; a side
    // hinted 0 may shrink freely, and no hint at all decodes at full size.
    int scaleCount = 0;
    const tjscalingfactor* scales = tjGetScalingFactors(&scaleCount);
    tjscalingfactor chosen{1, 1};
    std::uint64_t chosenPixels = std::uint64_t(header.width) * std::uint64_t(header.height);
    const bool hinted = hintWidth != 0 || hintHeight != 0;
    for (int i = 0; hinted && scales && i < scaleCount; ++i) {
        const tjscalingfactor scale = scales[i];
        if (scale.num > scale.denom)
            continue;
        const std::uint64_t width = TJSCALED(header.width, scale);
        const std::uint64_t height = TJSCALED(header.height, scale);
        if (width < hintWidth || height < hintHeight)
            continue;
        if (width * height < chosenPixels) {
            chosen = scale;
            chosenPixels = width * height;
        }
    }
    const auto width = static_cast<std::uint32_t>(TJSCALED(header.width, chosen));
    const auto height = static_cast<std::uint32_t>(TJSCALED(header.height, chosen));
    if (!WithinDecodeLimits(width, height))
        return std::nullopt;

    // CMYK and YCCK images (from print work) come out as CMYK and are converted here.
    const bool cmyk = header.colorspace == TJCS_CMYK || header.colorspace == TJCS_YCCK;
    std::optional<DecodedBitmap> bitmap =
        NewDecodedBitmap(width, height, static_cast<std::uint32_t>(header.width),
                         static_cast<std::uint32_t>(header.height), cmyk ? 4 : 3);
    if (!bitmap)
        return std::nullopt;
    // Any warning (a truncated file, corrupt entropy data) refuses the image rather than
    // show a half-grey picture. A reduced decode is for a thumbnail, where the faster
    // inverse DCT and chroma upsampling make no visible difference.
    int flags = TJFLAG_STOPONWARNING;
    if (hinted)
        flags |= TJFLAG_FASTDCT | TJFLAG_FASTUPSAMPLE;
    if (tjDecompress2(decompressor.get(), bytes.data(), static_cast<unsigned long>(bytes.size()),
                      bitmap->pixels.data(), static_cast<int>(width),
                      static_cast<int>(bitmap->rowBytes), static_cast<int>(height),
                      cmyk ? TJPF_CMYK : TJPF_BGR, flags) != 0)
        return std::nullopt;

    if (cmyk) {
        // CMYK JPEGs from print work store their values inverted (the APP14 convention), so
        // each is already "amount of white"; multiplying by the black value gives the colour.
        std::uint8_t* pixels = bitmap->pixels.data();
        const std::size_t count = std::size_t{width} * height;
        for (std::size_t i = 0; i < count; ++i) {
            const unsigned c = pixels[4 * i], m = pixels[4 * i + 1], y = pixels[4 * i + 2];
            const unsigned k = pixels[4 * i + 3];
            pixels[3 * i] = static_cast<std::uint8_t>((y * k + 127) / 255);
            pixels[3 * i + 1] = static_cast<std::uint8_t>((m * k + 127) / 255);
            pixels[3 * i + 2] = static_cast<std::uint8_t>((c * k + 127) / 255);
        }
        bitmap->bitsPerPixel = 24;
        bitmap->rowBytes = std::size_t{width} * 3;
        bitmap->pixels.resize(bitmap->rowBytes * height);
    }
    return bitmap;
}

// libpng reports errors by longjmp to the setjmp of the caller's frame. The functions that
// hold a setjmp hold nothing with a destructor, so no C++ object is ever jumped over.
struct PngSource {
    const std::uint8_t* data;
    std::size_t size;
    std::size_t position;
};

struct PngLayout {
    std::uint32_t width;
    std::uint32_t height;
    unsigned channels;
    std::size_t rowBytes;
};

[[noreturn]] void PngError(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}
void PngWarning(png_structp, png_const_charp) {}

void PngRead(png_structp png, png_bytep out, std::size_t count) {
    auto* source = static_cast<PngSource*>(png_get_io_ptr(png));
    if (count > source->size - source->position)
        png_error(png, "truncated");
    std::memcpy(out, source->data + source->position, count);
    source->position += count;
}

bool PngReadLayout(png_structp png, png_infop info, PngLayout* layout) {
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_set_user_limits(png, kMaximumDecodedSide, kMaximumDecodedSide);
    png_read_info(png, info);
    // Palette, gray below 8 bits and a transparency chunk all become 8-bit RGB or RGBA.
    png_set_expand(png);
    png_set_scale_16(png);
    png_set_gray_to_rgb(png);
    png_set_bgr(png);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    layout->width = png_get_image_width(png, info);
    layout->height = png_get_image_height(png, info);
    layout->channels = png_get_channels(png, info);
    layout->rowBytes = png_get_rowbytes(png, info);
    return true;
}

bool PngReadRows(png_structp png, png_bytepp rows) {
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_read_image(png, rows);
    return true;
}

class PngReadStruct {
public:
    PngReadStruct() {
        mPng = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, PngError, PngWarning);
        if (mPng)
            mInfo = png_create_info_struct(mPng);
    }
    ~PngReadStruct() {
        if (mPng)
            png_destroy_read_struct(&mPng, mInfo ? &mInfo : nullptr, nullptr);
    }
    PngReadStruct(const PngReadStruct&) = delete;
    PngReadStruct& operator=(const PngReadStruct&) = delete;
    png_structp png() const { return mPng; }
    png_infop info() const { return mInfo; }

private:
    png_structp mPng = nullptr;
    png_infop mInfo = nullptr;
};

std::optional<DecodedBitmap> DecodePng(std::span<const std::uint8_t> bytes,
                                       const ImageRecognition& recognition) {
    PngReadStruct reader;
    if (!reader.png() || !reader.info())
        return std::nullopt;
    PngSource source{bytes.data(), bytes.size(), 0};
    png_set_read_fn(reader.png(), &source, PngRead);
    PngLayout layout{};
    if (!PngReadLayout(reader.png(), reader.info(), &layout))
        return std::nullopt;
    if (layout.width != recognition.width || layout.height != recognition.height ||
        (layout.channels != 3 && layout.channels != 4) ||
        layout.rowBytes != std::size_t{layout.width} * layout.channels)
        return std::nullopt;
    std::optional<DecodedBitmap> bitmap =
        NewDecodedBitmap(layout.width, layout.height, layout.width, layout.height, layout.channels);
    if (!bitmap)
        return std::nullopt;
    std::vector<png_bytep> rows;
    try {
        rows.resize(layout.height);
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
    for (std::uint32_t row = 0; row < layout.height; ++row)
        rows[row] = bitmap->pixels.data() + std::size_t{row} * bitmap->rowBytes;
    if (!PngReadRows(reader.png(), rows.data()))
        return std::nullopt;
    return bitmap;
}

struct StbImage {
    explicit StbImage(stbi_uc* pixels) : data(pixels) {}
    ~StbImage() {
        if (data)
            stbi_image_free(data);
    }
    StbImage(const StbImage&) = delete;
    StbImage& operator=(const StbImage&) = delete;
    stbi_uc* data;
};

std::optional<DecodedBitmap> DecodeWithStb(std::span<const std::uint8_t> bytes,
                                           const ImageRecognition& recognition) {
    int width = 0, height = 0, components = 0;
    const int channels = recognition.alpha ? 4 : 3;
    StbImage image(stbi_load_from_memory(bytes.data(), static_cast<int>(bytes.size()), &width,
                                         &height, &components, channels));
    if (!image.data || static_cast<std::uint32_t>(width) != recognition.width ||
        static_cast<std::uint32_t>(height) != recognition.height)
        return std::nullopt;
    const std::size_t count = std::size_t{recognition.width} * recognition.height;
    const stbi_uc* in = image.data;

    // A GIF always comes with alpha; it needs it only when the first frame leaves pixels
    // transparent.
    bool keepAlpha = channels == 4;
    if (keepAlpha && recognition.format == ImageFormat::Gif) {
        keepAlpha = false;
        for (std::size_t i = 0; i < count && !keepAlpha; ++i)
            keepAlpha = in[4 * i + 3] != 255;
    }
    const unsigned outChannels = keepAlpha ? 4 : 3;
    std::optional<DecodedBitmap> bitmap = NewDecodedBitmap(
        recognition.width, recognition.height, recognition.width, recognition.height, outChannels);
    if (!bitmap)
        return std::nullopt;
    std::uint8_t* out = bitmap->pixels.data();
    for (std::size_t i = 0; i < count; ++i, in += channels, out += outChannels) {
        out[0] = in[2];
        out[1] = in[1];
        out[2] = in[0];
        if (outChannels == 4)
            out[3] = in[3];
    }
    return bitmap;
}

}  // namespace

std::optional<DecodedBitmap> DecodeImage(std::span<const std::uint8_t> bytes,
                                         std::uint32_t hintWidth, std::uint32_t hintHeight) {
    const std::optional<ImageRecognition> recognition = RecogniseImage(bytes);
    if (!recognition)
        return std::nullopt;
    switch (recognition->format) {
        case ImageFormat::Jpeg:
            return DecodeJpeg(bytes, *recognition, hintWidth, hintHeight);
        case ImageFormat::Png:
            return DecodePng(bytes, *recognition);
        case ImageFormat::Bmp:
        case ImageFormat::Gif:
        case ImageFormat::Tga:
            return DecodeWithStb(bytes, *recognition);
    }
    return std::nullopt;
}

std::optional<DecodedBitmap> LoadBitmapFileWithSystem(const NativeString&) {
    return std::nullopt;
}

}  // namespace Tessel::Platform

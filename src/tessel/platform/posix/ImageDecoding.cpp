// POSIX image decoding: JPEG through TurboJPEG, PNG through libpng, BMP, GIF and TGA through
// stb_image. Each format is first recognised and its header checked here, with bounds
// checks of our own, so that the decoders only ever see data that can hold the image the
// header announces: stb_image reads missing bytes as zeros instead of failing, and every
// decoder would allocate whatever size a header claims.
#include <tessel/platform/ImageDecoding.h>

#include <tessel/platform/AtomicFile.h>

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

// Deflate turns one byte into at most 1032; a PNG whose compressed data could not hold its
// announced pixels even at that ratio is truncated or a decompression bomb.
constexpr std::uint64_t kMaximumDeflateRatio = 1032;
// A progressive JPEG is decoded from all its coefficients held at once (128 bytes a block);
// this many blocks is a gigabyte.
constexpr std::uint64_t kMaximumProgressiveBlocks = 8u * 1024 * 1024;
// stb_image holds nine bytes a pixel of a GIF's canvas while decoding, and the canvas size
// is announced independently of any data, so canvases are held to a quarter of the limit.
constexpr std::uint64_t kMaximumGifPixels = kMaximumDecodedPixels / 4;

struct Recognition {
    ImageFormat format = ImageFormat::Jpeg;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    int stbChannels = 0;  // the channels to ask stb_image for (3 or 4)
};

std::uint16_t Le16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}
std::uint32_t Le32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
           (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}
std::uint32_t Be32(const std::uint8_t* p) {
    return (static_cast<std::uint32_t>(p[0]) << 24) | (static_cast<std::uint32_t>(p[1]) << 16) |
           (static_cast<std::uint32_t>(p[2]) << 8) | static_cast<std::uint32_t>(p[3]);
}

bool WithinLimits(std::uint64_t width, std::uint64_t height) {
    return width > 0 && height > 0 && width <= kMaximumDecodedSide &&
           height <= kMaximumDecodedSide && width * height <= kMaximumDecodedPixels;
}

// ---- Recognition ---------------------------------------------------------------------

class TurboJpegDecompressor {
public:
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

bool IsJpeg(std::span<const std::uint8_t> b) {
    return b.size() >= 3 && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF;
}

std::uint16_t Be16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}

// Walks the markers up to the frame header. Only Huffman-coded 8-bit frames (baseline,
// extended, progressive) are decoded. Every block needs at least a 1-bit code for its DC
// value in the scan that brings it, so the file must hold at least one bit per block of
// its least sampled component: a header cannot announce more than its data could fill.
// Progressive frames keep every coefficient in memory, which is bounded on top.
std::optional<Recognition> RecogniseJpeg(std::span<const std::uint8_t> b) {
    const std::size_t size = b.size();
    for (std::size_t position = 2;;) {
        if (position >= size || b[position] != 0xFF)
            return std::nullopt;
        while (position < size && b[position] == 0xFF)
            ++position;  // fill bytes
        if (position >= size)
            return std::nullopt;
        const std::uint8_t marker = b[position++];
        if ((marker >= 0xD0 && marker <= 0xD7) || marker == 0x01)
            continue;  // no length
        if (marker == 0xD8 || marker == 0xD9 || marker == 0xDA || size - position < 2)
            return std::nullopt;  // image, end or scan before any frame
        const std::size_t length = Be16(&b[position]);
        if (length < 2 || length > size - position)
            return std::nullopt;
        const bool frame =
            marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
        if (!frame) {
            position += length;
            continue;
        }
        if (marker > 0xC2 || length < 8)
            return std::nullopt;  // arithmetic, lossless or hierarchical coding
        const std::uint8_t* header = &b[position + 2];
        const unsigned precision = header[0];
        const std::uint32_t height = Be16(header + 1);
        const std::uint32_t width = Be16(header + 3);
        const unsigned components = header[5];
        if (precision != 8 || width == 0 || height == 0 ||
            (components != 1 && components != 3 && components != 4) ||
            length < 8 + 3 * std::size_t{components})
            return std::nullopt;
        unsigned maxH = 1, maxV = 1;
        for (unsigned i = 0; i < components; ++i) {
            const unsigned h = header[6 + 3 * i + 1] >> 4, v = header[6 + 3 * i + 1] & 15;
            if (h < 1 || h > 4 || v < 1 || v > 4)
                return std::nullopt;
            maxH = std::max(maxH, h);
            maxV = std::max(maxV, v);
        }
        std::uint64_t fewestBlocks = std::numeric_limits<std::uint64_t>::max(), allBlocks = 0;
        for (unsigned i = 0; i < components; ++i) {
            const unsigned h = header[6 + 3 * i + 1] >> 4, v = header[6 + 3 * i + 1] & 15;
            const std::uint64_t columns = (std::uint64_t{width} * h + maxH - 1) / maxH;
            const std::uint64_t rows = (std::uint64_t{height} * v + maxV - 1) / maxV;
            const std::uint64_t blocks = ((columns + 7) / 8) * ((rows + 7) / 8);
            fewestBlocks = std::min(fewestBlocks, blocks);
            allBlocks += blocks;
        }
        if (fewestBlocks > std::uint64_t{size} * 8)
            return std::nullopt;
        if (marker == 0xC2 && allBlocks > kMaximumProgressiveBlocks)
            return std::nullopt;

        TurboJpegDecompressor decompressor;
        JpegHeader check;
        if (!ReadJpegHeader(decompressor.get(), b, check) ||
            static_cast<std::uint32_t>(check.width) != width ||
            static_cast<std::uint32_t>(check.height) != height)
            return std::nullopt;
        // The size limits apply to the decode, which may be at a reduced scale.
        return Recognition{ImageFormat::Jpeg, width, height, 0};
    }
}

constexpr std::uint8_t kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};

bool IsPng(std::span<const std::uint8_t> b) {
    return b.size() >= 8 && std::memcmp(b.data(), kPngSignature, 8) == 0;
}

// Walks the chunks: IHDR first, every chunk complete up to IEND, image data present and
// long enough to inflate to the pixels announced.
std::optional<Recognition> RecognisePng(std::span<const std::uint8_t> b) {
    const std::size_t size = b.size();
    if (size < 8 + 8 + 13 + 4 || Be32(&b[8]) != 13 || std::memcmp(&b[12], "IHDR", 4) != 0)
        return std::nullopt;
    const std::uint32_t width = Be32(&b[16]);
    const std::uint32_t height = Be32(&b[20]);
    const unsigned depth = b[24];
    const unsigned colorType = b[25];
    unsigned channels = 0;
    bool depthValid = false;
    switch (colorType) {
        case 0:  // gray
            channels = 1;
            depthValid = depth == 1 || depth == 2 || depth == 4 || depth == 8 || depth == 16;
            break;
        case 3:  // palette
            channels = 1;
            depthValid = depth == 1 || depth == 2 || depth == 4 || depth == 8;
            break;
        case 2:  // RGB
        case 4:  // gray and alpha
        case 6:  // RGBA
            channels = colorType == 2 ? 3 : colorType == 4 ? 2 : 4;
            depthValid = depth == 8 || depth == 16;
            break;
        default:
            return std::nullopt;
    }
    if (!depthValid || !WithinLimits(width, height))
        return std::nullopt;

    std::uint64_t compressed = 0;
    bool ended = false;
    for (std::size_t position = 8; !ended;) {
        if (size - position < 12)
            return std::nullopt;
        const std::uint32_t length = Be32(&b[position]);
        if (length > size - position - 12)
            return std::nullopt;
        const std::uint8_t* type = &b[position + 4];
        if (std::memcmp(type, "IDAT", 4) == 0)
            compressed += length;
        ended = std::memcmp(type, "IEND", 4) == 0;
        position += 12 + static_cast<std::size_t>(length);
    }
    const std::uint64_t rowBytes = (std::uint64_t{width} * channels * depth + 7) / 8;
    const std::uint64_t inflated = std::uint64_t{height} * (1 + rowBytes);
    if (compressed == 0 || inflated > compressed * kMaximumDeflateRatio)
        return std::nullopt;
    return Recognition{ImageFormat::Png, width, height, 0};
}

bool IsBmp(std::span<const std::uint8_t> b) {
    return b.size() >= 2 && b[0] == 'B' && b[1] == 'M';
}

// A paletted BMP must hold a palette and use only its entries: stb_image leaves missing
// entries uninitialised. The palette size is worked out as stb_image does (its formula for
// the old 12-byte header leaves out the last four entries).
bool PaletteIndicesValid(std::span<const std::uint8_t> b, std::uint32_t headerSize,
                         std::uint32_t offset, std::uint64_t stride, std::int64_t width,
                         std::int64_t height, unsigned bitCount) {
    const std::int64_t entries = headerSize == 12 ? (std::int64_t{offset} - 14 - 24) / 3
                                                  : (std::int64_t{offset} - 14 - headerSize) / 4;
    if (entries < 1 || entries > 256)
        return false;
    if (entries >= (std::int64_t{1} << bitCount))
        return true;
    const unsigned mask = (1u << bitCount) - 1;
    for (std::int64_t row = 0; row < height; ++row) {
        const std::uint8_t* pixels = b.data() + offset + row * stride;
        for (std::int64_t x = 0; x < width; ++x) {
            const std::int64_t bit = x * bitCount;
            const unsigned shift = 8 - bitCount - static_cast<unsigned>(bit % 8);
            if (static_cast<std::int64_t>((pixels[bit / 8] >> shift) & mask) >= entries)
                return false;
        }
    }
    return true;
}

std::optional<Recognition> RecogniseBmp(std::span<const std::uint8_t> b) {
    const std::size_t size = b.size();
    if (size < 14 + 12)
        return std::nullopt;
    const std::uint32_t offset = Le32(&b[10]);
    const std::uint32_t headerSize = Le32(&b[14]);
    if (headerSize != 12 && headerSize != 40 && headerSize != 56 && headerSize != 108 &&
        headerSize != 124)
        return std::nullopt;
    if (size < 14 + std::size_t{headerSize})
        return std::nullopt;
    std::int64_t width, height;
    unsigned planes, bitCount, compression = 0;
    if (headerSize == 12) {
        width = Le16(&b[18]);
        height = Le16(&b[20]);
        planes = Le16(&b[22]);
        bitCount = Le16(&b[24]);
    } else {
        width = static_cast<std::int32_t>(Le32(&b[18]));
        height = static_cast<std::int32_t>(Le32(&b[22]));  // negative: rows top-down
        planes = Le16(&b[26]);
        bitCount = Le16(&b[28]);
        compression = Le32(&b[30]);
    }
    if (height < 0)
        height = -height;
    if (planes != 1 || !WithinLimits(static_cast<std::uint64_t>(std::max<std::int64_t>(width, 0)),
                                     static_cast<std::uint64_t>(height)))
        return std::nullopt;
    if (bitCount != 1 && bitCount != 4 && bitCount != 8 && bitCount != 16 && bitCount != 24 &&
        bitCount != 32)
        return std::nullopt;
    // Plain pixels, or bit fields for 16 and 32 bits; run-length and embedded JPEG or PNG
    // data are not decoded.
    if (compression != 0 && !(compression == 3 && (bitCount == 16 || bitCount == 32)))
        return std::nullopt;
    const std::uint64_t stride = (static_cast<std::uint64_t>(width) * bitCount + 31) / 32 * 4;
    if (offset < 14 + headerSize || offset > size ||
        stride * static_cast<std::uint64_t>(height) > size - offset)
        return std::nullopt;

    if (bitCount <= 8 &&
        !PaletteIndicesValid(b, headerSize, offset, stride, width, height, bitCount))
        return std::nullopt;

    int x = 0, y = 0, components = 0;
    if (!stbi_info_from_memory(b.data(), static_cast<int>(size), &x, &y, &components))
        return std::nullopt;
    return Recognition{ImageFormat::Bmp, static_cast<std::uint32_t>(width),
                       static_cast<std::uint32_t>(height), components == 4 ? 4 : 3};
}

bool IsGif(std::span<const std::uint8_t> b) {
    return b.size() >= 6 && std::memcmp(b.data(), "GIF8", 4) == 0 && (b[4] == '7' || b[4] == '9') &&
           b[5] == 'a';
}

// Skips a chain of data sub-blocks up to and including its empty terminator; false when
// the chain runs past the end.
bool SkipSubBlocks(std::span<const std::uint8_t> b, std::size_t& position) {
    for (;;) {
        if (position >= b.size())
            return false;
        const std::size_t length = b[position++];
        if (length == 0)
            return true;
        if (length > b.size() - position)
            return false;
        position += length;
    }
}

// Walks the blocks up to the end of the first image's data.
std::optional<Recognition> RecogniseGif(std::span<const std::uint8_t> b) {
    const std::size_t size = b.size();
    if (size < 13)
        return std::nullopt;
    const std::uint32_t width = Le16(&b[6]);
    const std::uint32_t height = Le16(&b[8]);
    const unsigned flags = b[10];
    if (!WithinLimits(width, height) || std::uint64_t{width} * height > kMaximumGifPixels)
        return std::nullopt;
    std::size_t position = 13;
    const bool globalTable = (flags & 0x80) != 0;
    if (globalTable)
        position += 3 * (std::size_t{2} << (flags & 7));
    for (;;) {
        if (position >= size)
            return std::nullopt;
        const std::uint8_t tag = b[position++];
        if (tag == 0x21) {  // extension: a label, then sub-blocks
            if (position >= size)
                return std::nullopt;
            ++position;
            if (!SkipSubBlocks(b, position))
                return std::nullopt;
        } else if (tag == 0x2C) {  // image descriptor
            if (size - position < 9)
                return std::nullopt;
            const std::uint32_t left = Le16(&b[position]);
            const std::uint32_t top = Le16(&b[position + 2]);
            const std::uint32_t frameWidth = Le16(&b[position + 4]);
            const std::uint32_t frameHeight = Le16(&b[position + 6]);
            const unsigned localFlags = b[position + 8];
            position += 9;
            if (left + frameWidth > width || top + frameHeight > height)
                return std::nullopt;
            const bool localTable = (localFlags & 0x80) != 0;
            if (!localTable && !globalTable)
                return std::nullopt;
            if (localTable)
                position += 3 * (std::size_t{2} << (localFlags & 7));
            if (position >= size || b[position] > 12)  // the LZW minimum code size
                return std::nullopt;
            ++position;
            if (!SkipSubBlocks(b, position))
                return std::nullopt;
            return Recognition{ImageFormat::Gif, width, height, 4};
        } else {  // the trailer before any image, or garbage
            return std::nullopt;
        }
    }
}

// TGA has no signature: the header must describe an image stb_image decodes, and the data
// after it must hold every pixel (for run-length data, every packet is walked).
std::optional<Recognition> RecogniseTga(std::span<const std::uint8_t> b) {
    const std::size_t size = b.size();
    if (size < 18)
        return std::nullopt;
    const unsigned idLength = b[0];
    const unsigned mapType = b[1];
    const unsigned imageType = b[2];
    const unsigned mapFirst = Le16(&b[3]);
    const unsigned mapLength = Le16(&b[5]);
    const unsigned mapBits = b[7];
    const std::uint32_t width = Le16(&b[12]);
    const std::uint32_t height = Le16(&b[14]);
    const unsigned bits = b[16];
    const unsigned alphaBits = b[17] & 0x0F;
    const bool indexed = mapType == 1;
    const bool runLength = imageType >= 9;
    auto validDepth = [](unsigned depth) {
        return depth == 8 || depth == 15 || depth == 16 || depth == 24 || depth == 32;
    };
    // The channels stb_image gives for a depth (gray, gray-alpha, RGB, RGBA).
    unsigned channels;
    if (indexed) {
        if ((imageType != 1 && imageType != 9) || !validDepth(mapBits) ||
            (bits != 8 && bits != 16) || mapLength == 0)
            return std::nullopt;
        channels = mapBits == 8 ? 1 : mapBits == 32 ? 4 : 3;
    } else {
        if (mapType != 0 ||
            (imageType != 2 && imageType != 3 && imageType != 10 && imageType != 11) ||
            !validDepth(bits))
            return std::nullopt;
        const bool gray = imageType == 3 || imageType == 11;
        channels = bits == 8 ? 1 : bits == 32 ? 4 : (bits == 16 && gray) ? 2 : 3;
    }
    if (!WithinLimits(width, height))
        return std::nullopt;

    std::uint64_t position = 18 + std::uint64_t{idLength};
    if (indexed) {
        const unsigned entryBytes = mapBits == 15 ? 2 : (mapBits + 7) / 8;
        position += mapFirst + std::uint64_t{mapLength} * entryBytes;
    }
    const std::uint64_t pixelBytes = (bits + 7) / 8;
    const std::uint64_t pixels = std::uint64_t{width} * height;
    if (position > size)
        return std::nullopt;
    if (!runLength) {
        if (pixels * pixelBytes > size - position)
            return std::nullopt;
    } else {
        // Each packet takes at least one byte, so the walk ends within the data.
        for (std::uint64_t left = pixels; left > 0;) {
            if (position >= size)
                return std::nullopt;
            const unsigned packet = b[position++];
            const std::uint64_t count = (packet & 0x7F) + 1;
            const std::uint64_t dataBytes = (packet & 0x80) ? pixelBytes : count * pixelBytes;
            if (dataBytes > size - position)
                return std::nullopt;
            position += dataBytes;
            left -= std::min(count, left);
        }
    }
    // 32-bit pixels whose header announces no alpha bits carry an unused fourth byte.
    const bool alpha = (channels == 2 || channels == 4) && alphaBits != 0;
    return Recognition{ImageFormat::Tga, width, height, alpha ? 4 : 3};
}

std::optional<Recognition> Recognise(std::span<const std::uint8_t> bytes) {
    if (bytes.empty() || bytes.size() > kMaximumImageFileBytes)
        return std::nullopt;
    if (IsJpeg(bytes))
        return RecogniseJpeg(bytes);
    if (IsPng(bytes))
        return RecognisePng(bytes);
    if (IsBmp(bytes))
        return RecogniseBmp(bytes);
    if (IsGif(bytes))
        return RecogniseGif(bytes);
    return RecogniseTga(bytes);
}

// ---- Decoding ------------------------------------------------------------------------

// A bitmap of WIDTH x HEIGHT with tightly packed rows; nullopt when memory is short.
std::optional<DecodedBitmap> NewBitmap(std::uint32_t width, std::uint32_t height,
                                       std::uint32_t sourceWidth, std::uint32_t sourceHeight,
                                       unsigned bytesPerPixel) {
    DecodedBitmap bitmap;
    bitmap.width = width;
    bitmap.height = height;
    bitmap.sourceWidth = sourceWidth;
    bitmap.sourceHeight = sourceHeight;
    bitmap.bitsPerPixel = static_cast<std::uint16_t>(bytesPerPixel * 8);
    bitmap.rowBytes = std::size_t{width} * bytesPerPixel;
    try {
        bitmap.pixels.resize(bitmap.rowBytes * height);
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
    return bitmap;
}

std::optional<DecodedBitmap> DecodeJpeg(std::span<const std::uint8_t> bytes,
                                        std::uint32_t hintWidth, std::uint32_t hintHeight) {
    TurboJpegDecompressor decompressor;
    JpegHeader header;
    if (!ReadJpegHeader(decompressor.get(), bytes, header))
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
    if (!WithinLimits(width, height))
        return std::nullopt;

    // CMYK and YCCK images (from print work) come out as CMYK and are converted here.
    const bool cmyk = header.colorspace == TJCS_CMYK || header.colorspace == TJCS_YCCK;
    std::optional<DecodedBitmap> bitmap =
        NewBitmap(width, height, static_cast<std::uint32_t>(header.width),
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
                                       const Recognition& recognition) {
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
        NewBitmap(layout.width, layout.height, layout.width, layout.height, layout.channels);
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
                                           const Recognition& recognition) {
    int width = 0, height = 0, components = 0;
    const int channels = recognition.stbChannels;
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
    std::optional<DecodedBitmap> bitmap = NewBitmap(
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

std::optional<ImageInfo> ReadImageInfo(std::span<const std::uint8_t> bytes) {
    const std::optional<Recognition> recognition = Recognise(bytes);
    if (!recognition)
        return std::nullopt;
    return ImageInfo{recognition->format, recognition->width, recognition->height};
}

std::optional<DecodedBitmap> DecodeImage(std::span<const std::uint8_t> bytes,
                                         std::uint32_t hintWidth, std::uint32_t hintHeight) {
    const std::optional<Recognition> recognition = Recognise(bytes);
    if (!recognition)
        return std::nullopt;
    switch (recognition->format) {
        case ImageFormat::Jpeg:
            return DecodeJpeg(bytes, hintWidth, hintHeight);
        case ImageFormat::Png:
            return DecodePng(bytes, *recognition);
        case ImageFormat::Bmp:
        case ImageFormat::Gif:
        case ImageFormat::Tga:
            return DecodeWithStb(bytes, *recognition);
    }
    return std::nullopt;
}

std::optional<std::vector<std::uint8_t>> ReadImageFile(const NativeString& path) {
    std::string bytes;
    std::string error;
    if (path.empty() || path.find('\0') != NativeString::npos ||
        ReadWholeFile(path, bytes, error, kMaximumImageFileBytes) != ReadFileStatus::Ok ||
        bytes.empty()) {
        return std::nullopt;
    }
    return std::vector<std::uint8_t>(bytes.begin(), bytes.end());
}

std::optional<DecodedBitmap> DecodeImageFile(const NativeString& path, std::uint32_t hintWidth,
                                             std::uint32_t hintHeight) {
    const std::optional<std::vector<std::uint8_t>> bytes = ReadImageFile(path);
    if (!bytes)
        return std::nullopt;
    return DecodeImage(*bytes, hintWidth, hintHeight);
}

}  // namespace Tessel::Platform

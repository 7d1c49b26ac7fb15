// Recognition of image bytes shared by every decoding backend: pure byte parsing, so that
// all platforms accept and refuse the same files, and announce the same sizes, before any
// decoder sees the data.
#include <tessel/platform/ImageRecognition.h>

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <limits>

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

bool IsJpeg(std::span<const std::uint8_t> b) {
    return b.size() >= 3 && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF;
}

std::uint16_t Be16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}

// Walks the segments and the entropy-coded data after the frame header up to the
// end-of-image marker, which a file cut short lacks. Inside entropy-coded data a 0xFF byte
// is followed by a stuffed 0 or a restart marker; any other marker ends the scan. Stray
// bytes between segments are skipped, as decoders do.
bool ReachesEndOfImage(std::span<const std::uint8_t> b, std::size_t position) {
    const std::size_t size = b.size();
    while (position < size) {
        const void* next = std::memchr(&b[position], 0xFF, size - position);
        if (!next)
            return false;
        position = static_cast<std::size_t>(static_cast<const std::uint8_t*>(next) - b.data());
        while (position < size && b[position] == 0xFF)
            ++position;  // fill bytes
        if (position >= size)
            return false;
        const std::uint8_t marker = b[position++];
        if (marker == 0xD9)
            return true;
        if (marker == 0x00 || marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7))
            continue;  // stuffing, restart: no length
        if (marker == 0xD8 || size - position < 2)
            return false;
        const std::size_t length = Be16(&b[position]);
        if (length < 2 || length > size - position)
            return false;
        position += length;
    }
    return false;
}

// Walks the markers up to the frame header. Only Huffman-coded 8-bit frames (baseline,
// extended, progressive) are decoded. Every block needs at least a 1-bit code for its DC
// value in the scan that brings it, so the file must hold at least one bit per block of
// its least sampled component: a header cannot announce more than its data could fill.
// Progressive frames keep every coefficient in memory, which is bounded on top. A file
// without its end-of-image marker is cut short.
std::optional<ImageRecognition> RecogniseJpeg(std::span<const std::uint8_t> b) {
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
        if (!ReachesEndOfImage(b, position + length))
            return std::nullopt;
        // The size limits apply to the decode, which may be at a reduced scale.
        return ImageRecognition{ImageFormat::Jpeg, width, height, false};
    }
}

constexpr std::uint8_t kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};

bool IsPng(std::span<const std::uint8_t> b) {
    return b.size() >= 8 && std::memcmp(b.data(), kPngSignature, 8) == 0;
}

// Walks the chunks: IHDR first, every chunk complete up to IEND, critical chunks intact,
// image data present and long enough to inflate to the pixels announced.
std::optional<ImageRecognition> RecognisePng(std::span<const std::uint8_t> b) {
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
    if (!depthValid || !WithinDecodeLimits(width, height))
        return std::nullopt;

    std::uint64_t compressed = 0;
    bool ended = false, transparency = false;
    for (std::size_t position = 8; !ended;) {
        if (size - position < 12)
            return std::nullopt;
        const std::uint32_t length = Be32(&b[position]);
        if (length > size - position - 12)
            return std::nullopt;
        const std::uint8_t* type = &b[position + 4];
        // A critical chunk (its type starts with a capital) must pass its checksum, which
        // covers the type and the data.
        if (type[0] >= 'A' && type[0] <= 'Z' &&
            crc32(0, type, static_cast<uInt>(length) + 4) != Be32(&b[position + 8 + length]))
            return std::nullopt;
        if (std::memcmp(type, "IDAT", 4) == 0)
            compressed += length;
        transparency = transparency || std::memcmp(type, "tRNS", 4) == 0;
        ended = std::memcmp(type, "IEND", 4) == 0;
        position += 12 + static_cast<std::size_t>(length);
    }
    const std::uint64_t rowBytes = (std::uint64_t{width} * channels * depth + 7) / 8;
    const std::uint64_t inflated = std::uint64_t{height} * (1 + rowBytes);
    if (compressed == 0 || inflated > compressed * kMaximumDeflateRatio)
        return std::nullopt;
    return ImageRecognition{ImageFormat::Png, width, height,
                            colorType == 4 || colorType == 6 || transparency};
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

std::optional<ImageRecognition> RecogniseBmp(std::span<const std::uint8_t> b) {
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
    if (planes != 1 ||
        !WithinDecodeLimits(static_cast<std::uint64_t>(std::max<std::int64_t>(width, 0)),
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

    // Bit fields after the 40- or 56-byte header (where stb_image looks for them) that are
    // all equal describe no colours.
    if (compression == 3 && (headerSize == 40 || headerSize == 56)) {
        const std::size_t masks = 14 + std::size_t{headerSize};
        if (size < masks + 12 ||
            (Le32(&b[masks]) == Le32(&b[masks + 4]) && Le32(&b[masks + 4]) == Le32(&b[masks + 8])))
            return std::nullopt;
    }
    // Alpha as the common decoders take it: 32-bit plain pixels carry it in the fourth byte;
    // the larger headers may give an alpha mask to 16- or 32-bit pixels.
    bool alpha = false;
    if (headerSize == 40 || headerSize == 56) {
        alpha = bitCount == 32 && compression == 0;
    } else if (headerSize >= 108) {
        alpha = bitCount == 32 ? (compression == 0 || Le32(&b[66]) != 0)
                               : bitCount == 16 && Le32(&b[66]) != 0;
    }
    return ImageRecognition{ImageFormat::Bmp, static_cast<std::uint32_t>(width),
                            static_cast<std::uint32_t>(height), alpha};
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
std::optional<ImageRecognition> RecogniseGif(std::span<const std::uint8_t> b) {
    const std::size_t size = b.size();
    if (size < 13)
        return std::nullopt;
    const std::uint32_t width = Le16(&b[6]);
    const std::uint32_t height = Le16(&b[8]);
    const unsigned flags = b[10];
    if (!WithinDecodeLimits(width, height) || std::uint64_t{width} * height > kMaximumGifPixels)
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
            return ImageRecognition{ImageFormat::Gif, width, height, true};
        } else {  // the trailer before any image, or garbage
            return std::nullopt;
        }
    }
}

// TGA has no signature: the header must describe an image stb_image decodes, and the data
// after it must hold every pixel (for run-length data, every packet is walked).
std::optional<ImageRecognition> RecogniseTga(std::span<const std::uint8_t> b) {
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
    if (!WithinDecodeLimits(width, height))
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
    return ImageRecognition{ImageFormat::Tga, width, height, alpha};
}

}  // namespace

bool WithinDecodeLimits(std::uint64_t width, std::uint64_t height) {
    return width > 0 && height > 0 && width <= kMaximumDecodedSide &&
           height <= kMaximumDecodedSide && width * height <= kMaximumDecodedPixels;
}

std::optional<ImageRecognition> RecogniseImage(std::span<const std::uint8_t> bytes) {
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

}  // namespace Tessel::Platform

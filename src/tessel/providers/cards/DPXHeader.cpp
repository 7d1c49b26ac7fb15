#include <tessel/providers/cards/DPXHeader.h>

#include <bit>
#include <cmath>
#include <string_view>

namespace Tessel {

namespace {

constexpr std::uint32_t kMagic = 0x53445058;         // "SDPX" read big-endian
constexpr std::uint32_t kSwappedMagic = 0x58504453;  // the same written little-endian
constexpr std::uint32_t kUndefined = 0xFFFFFFFF;

constexpr std::size_t kCreationTimeOffset = 136;
constexpr std::size_t kCreationTimeLength = 24;
constexpr std::size_t kWidthOffset = 772;
constexpr std::size_t kHeightOffset = 776;
constexpr std::size_t kInputDeviceOffset = 1556;
constexpr std::size_t kInputSerialOffset = 1588;
constexpr std::size_t kInputFieldLength = 32;
constexpr std::size_t kFilmFrameRateOffset = 1724;
constexpr std::size_t kTimecodeOffset = 1920;
constexpr std::size_t kTelevisionFrameRateOffset = 1940;

// Rates beyond this are no frame rate a clip is played at.
constexpr double kHighestFrameRate = 1000;

class HeaderBytes {
public:
    HeaderBytes(std::span<const std::uint8_t> bytes, bool bigEndian)
        : mBytes(bytes), mBigEndian(bigEndian) {}

    std::optional<std::uint32_t> U32(std::size_t offset) const {
        if (offset + 4 > mBytes.size())
            return std::nullopt;
        std::uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            const std::uint32_t byte = mBytes[offset + (mBigEndian ? i : 3 - i)];
            value = (value << 8) | byte;
        }
        return value;
    }

    // A defined, positive, finite rate; 0 otherwise.
    double Rate(std::size_t offset) const {
        const std::optional<std::uint32_t> bits = U32(offset);
        if (!bits || *bits == kUndefined)
            return 0;
        const float rate = std::bit_cast<float>(*bits);
        return std::isfinite(rate) && rate > 0 && rate <= kHighestFrameRate ? rate : 0;
    }

    // The printable ASCII at the start of a fixed-length text field.
    std::string Text(std::size_t offset, std::size_t length) const {
        std::string text;
        for (std::size_t i = offset; i < offset + length && i < mBytes.size(); ++i) {
            const std::uint8_t c = mBytes[i];
            if (c < 0x20 || c > 0x7E)
                break;
            text.push_back(static_cast<char>(c));
        }
        while (!text.empty() && text.back() == ' ')
            text.pop_back();
        return text;
    }

private:
    std::span<const std::uint8_t> mBytes;
    bool mBigEndian;
};

// The two decimal digits of one time code byte, the tens limited to TENS_BITS bits (the bits
// above them are flags); std::nullopt when a digit is not decimal.
std::optional<int> BcdByte(std::uint32_t byte, int tensBits) {
    const std::uint32_t units = byte & 0xF;
    const std::uint32_t tens = (byte >> 4) & ((1u << tensBits) - 1);
    if (units > 9)
        return std::nullopt;
    return static_cast<int>(tens * 10 + units);
}

std::optional<DPXTimecode> DecodeTimecode(std::uint32_t bcd) {
    if (bcd == kUndefined)
        return std::nullopt;
    const auto hours = BcdByte(bcd >> 24, 2);
    const auto minutes = BcdByte((bcd >> 16) & 0xFF, 3);
    const auto seconds = BcdByte((bcd >> 8) & 0xFF, 3);
    const auto frames = BcdByte(bcd & 0xFF, 2);
    if (!hours || !minutes || !seconds || !frames || *hours > 23 || *minutes > 59 || *seconds > 59)
        return std::nullopt;
    return DPXTimecode{*hours, *minutes, *seconds, *frames, (bcd & 0x40) != 0};
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// "YYYY:MM:DD:HH:MM:SS" (and a zone after it) as "YYYY-MM-DD HH:MM:SS"; empty for other text.
std::string DisplayCreationTime(std::string_view text) {
    constexpr std::string_view kPattern = "####:##:##:##:##:##";
    if (text.size() < kPattern.size())
        return {};
    std::string shown;
    for (std::size_t i = 0; i < kPattern.size(); ++i) {
        const bool matches = kPattern[i] == '#' ? IsDigit(text[i]) : text[i] == kPattern[i];
        if (!matches)
            return {};
        shown.push_back(text[i] != ':' ? text[i] : i < 10 ? '-' : i == 10 ? ' ' : ':');
    }
    return shown;
}

}  // namespace

bool ReadDPXHeader(std::span<const std::uint8_t> bytes, DPXHeader& header) {
    header = DPXHeader();
    const std::optional<std::uint32_t> magic = HeaderBytes(bytes, true).U32(0);
    if (!magic || (*magic != kMagic && *magic != kSwappedMagic))
        return false;
    const HeaderBytes fields(bytes, *magic == kMagic);
    const auto dimension = [&](std::size_t offset) {
        const std::uint32_t value = fields.U32(offset).value_or(kUndefined);
        return value == kUndefined ? 0 : value;
    };
    header.width = dimension(kWidthOffset);
    header.height = dimension(kHeightOffset);
    header.frameRate = fields.Rate(kTelevisionFrameRateOffset);
    if (header.frameRate == 0)
        header.frameRate = fields.Rate(kFilmFrameRateOffset);
    if (const std::optional<std::uint32_t> bcd = fields.U32(kTimecodeOffset))
        header.timecode = DecodeTimecode(*bcd);
    header.creationTime =
        DisplayCreationTime(fields.Text(kCreationTimeOffset, kCreationTimeLength));
    header.inputDevice = fields.Text(kInputDeviceOffset, kInputFieldLength);
    header.inputSerial = fields.Text(kInputSerialOffset, kInputFieldLength);
    return true;
}

}  // namespace Tessel

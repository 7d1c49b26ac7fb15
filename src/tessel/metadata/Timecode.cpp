#include <tessel/metadata/Timecode.h>

#include <charconv>
#include <cmath>
#include <numeric>
#include <vector>

#include <fmt/format.h>

namespace Tessel {

namespace {

// Rates beyond this are not frame rates (and keep every product below in range).
constexpr std::int64_t kHighestRate = 1000;
// Frame counts beyond this (about nine billion hours at 30 frames) are not durations.
constexpr std::int64_t kLargestFrameCount = 1000000000000000;
// Digits taken from either side of a decimal point; more says nothing about a frame rate.
constexpr std::size_t kMostDigits = 12;

struct Ratio {
    std::int64_t numerator = 0;
    std::int64_t denominator = 1;
};

std::string_view Trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    return text;
}

char Lower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// Removes SUFFIX (lower case) from the end of TEXT, ignoring case, and any spaces before it.
bool EndsWithRemove(std::string_view& text, std::string_view suffix) {
    if (text.size() < suffix.size())
        return false;
    const std::string_view tail = text.substr(text.size() - suffix.size());
    for (std::size_t i = 0; i < suffix.size(); ++i) {
        if (Lower(tail[i]) != suffix[i])
            return false;
    }
    text.remove_suffix(suffix.size());
    text = Trim(text);
    return true;
}

bool AllDigits(std::string_view text) {
    if (text.empty())
        return false;
    for (char c : text) {
        if (c < '0' || c > '9')
            return false;
    }
    return true;
}

std::optional<std::int64_t> ParseWhole(std::string_view digits) {
    if (!AllDigits(digits) || digits.size() > kMostDigits)
        return std::nullopt;
    std::int64_t value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return value;
}

Ratio Reduced(Ratio ratio) {
    const std::int64_t divisor = std::gcd(ratio.numerator, ratio.denominator);
    if (divisor > 1) {
        ratio.numerator /= divisor;
        ratio.denominator /= divisor;
    }
    return ratio;
}

// "12", "12.5", ".5": an exact ratio of the digits written.
std::optional<Ratio> ParseDecimal(std::string_view text) {
    const std::size_t point = text.find('.');
    const std::string_view whole = text.substr(0, point);
    const std::string_view fraction =
        point == std::string_view::npos ? std::string_view() : text.substr(point + 1);
    if (whole.empty() && fraction.empty())
        return std::nullopt;
    Ratio ratio;
    if (!whole.empty()) {
        const auto value = ParseWhole(whole);
        if (!value)
            return std::nullopt;
        ratio.numerator = *value;
    }
    if (point != std::string_view::npos) {
        if (fraction.empty())
            return whole.empty() ? std::nullopt : std::optional<Ratio>(ratio);
        // Digits past the sixth change no frame rate or duration worth showing.
        const std::string_view kept = fraction.substr(0, std::min<std::size_t>(fraction.size(), 6));
        if (!AllDigits(fraction))
            return std::nullopt;
        std::int64_t scale = 1;
        for (std::size_t i = 0; i < kept.size(); ++i)
            scale *= 10;
        ratio.numerator = ratio.numerator * scale + *ParseWhole(kept);
        ratio.denominator = scale;
    }
    return Reduced(ratio);
}

// "a/b" or a decimal.
std::optional<Ratio> ParseRatio(std::string_view text) {
    text = Trim(text);
    const std::size_t slash = text.find('/');
    if (slash == std::string_view::npos)
        return ParseDecimal(text);
    const auto numerator = ParseWhole(Trim(text.substr(0, slash)));
    const auto denominator = ParseWhole(Trim(text.substr(slash + 1)));
    if (!numerator || !denominator || *denominator == 0)
        return std::nullopt;
    return Reduced({*numerator, *denominator});
}

// Decimal NTSC rates ("29.97", "23.98", "59.94") are N x 1000/1001 written short.
Ratio SnapToNtsc(Ratio rate) {
    if (rate.denominator == 1)
        return rate;
    const double value =
        static_cast<double>(rate.numerator) / static_cast<double>(rate.denominator);
    const double whole = std::round(value * 1001.0 / 1000.0);
    if (whole >= 1 && std::fabs(value - whole * 1000.0 / 1001.0) < 0.005)
        return Reduced({static_cast<std::int64_t>(whole) * 1000, 1001});
    return rate;
}

// A duration written as a count ("250", "12.5") of units ("1001/30000", "0.04", or nothing: 1).
struct Duration {
    Ratio count;
    Ratio unit{1, 1};
};

std::optional<Duration> ParseDuration(std::string_view value, std::string_view scale) {
    value = Trim(value);
    Duration duration;
    const auto count =
        value.find('/') == std::string_view::npos ? ParseDecimal(value) : std::nullopt;
    if (!count)
        return std::nullopt;
    duration.count = *count;
    if (!Trim(scale).empty()) {
        const auto unit = ParseRatio(scale);
        if (!unit || unit->numerator == 0)
            return std::nullopt;
        duration.unit = *unit;
    }
    return duration;
}

bool IsDropFrameRate(const Ratio& rate) {
    return rate.denominator == 1001 && (rate.numerator == 30000 || rate.numerator == 60000);
}

}  // namespace

double FrameRate::FramesPerSecond() const {
    return denominator > 0 ? static_cast<double>(numerator) / static_cast<double>(denominator)
                           : 0.0;
}

std::int64_t FrameRate::TimecodeBase() const {
    if (numerator <= 0 || denominator <= 0)
        return 0;
    return std::max<std::int64_t>(1, (numerator + denominator / 2) / denominator);
}

std::optional<FrameRate> ParseFrameRate(std::string_view text, bool dropFrame) {
    text = Trim(text);
    if (text.size() > 64)
        return std::nullopt;
    EndsWithRemove(text, "fps");
    if (EndsWithRemove(text, "ndf"))
        dropFrame = false;
    else if (EndsWithRemove(text, "df"))
        dropFrame = true;
    EndsWithRemove(text, "fps");
    bool interlaced = false;
    if (!EndsWithRemove(text, "psf") && !EndsWithRemove(text, "p"))
        interlaced = EndsWithRemove(text, "i");

    auto ratio = ParseRatio(text);
    if (!ratio || ratio->numerator <= 0)
        return std::nullopt;
    const bool written = text.find('/') != std::string_view::npos;
    if (written && ratio->numerator < ratio->denominator)
        ratio = Ratio{ratio->denominator, ratio->numerator};  // a frame duration
    else if (!written)
        ratio = SnapToNtsc(*ratio);
    if (ratio->numerator > kHighestRate * ratio->denominator)
        return std::nullopt;
    // Interlaced card rates count fields: two of them make a frame.
    if (interlaced && ratio->numerator > 30 * ratio->denominator) {
        if (ratio->numerator % 2 == 0)
            ratio->numerator /= 2;
        else
            ratio->denominator *= 2;
        ratio = Reduced(*ratio);
    }
    FrameRate rate;
    rate.numerator = ratio->numerator;
    rate.denominator = ratio->denominator;
    rate.interlaced = interlaced;
    rate.dropFrame = dropFrame && IsDropFrameRate(*ratio);
    return rate;
}

std::optional<FrameRate> FrameRateFromTimeFormat(std::string_view timeFormat) {
    struct Known {
        std::string_view format;
        std::int64_t numerator, denominator;
        bool dropFrame;
    };
    static constexpr Known kFormats[] = {
        {"23976Timecode", 24000, 1001, false},
        {"24Timecode", 24, 1, false},
        {"25Timecode", 25, 1, false},
        {"2997DropTimecode", 30000, 1001, true},
        {"2997NonDropTimecode", 30000, 1001, false},
        {"30Timecode", 30, 1, false},
        {"50Timecode", 50, 1, false},
        {"5994DropTimecode", 60000, 1001, true},
        {"5994NonDropTimecode", 60000, 1001, false},
        {"60Timecode", 60, 1, false},
    };
    timeFormat = Trim(timeFormat);
    for (const Known& known : kFormats) {
        if (known.format == timeFormat) {
            FrameRate rate;
            rate.numerator = known.numerator;
            rate.denominator = known.denominator;
            rate.dropFrame = known.dropFrame;
            return rate;
        }
    }
    return std::nullopt;
}

std::string FormatTimecode(std::int64_t frames, const FrameRate& rate) {
    const std::int64_t base = rate.TimecodeBase();
    if (base <= 0 || frames < 0 || frames > kLargestFrameCount)
        return {};
    const bool dropFrame = rate.dropFrame && IsDropFrameRate({rate.numerator, rate.denominator});
    if (dropFrame) {
        // Frame numbers are skipped, not frames: add back the numbers skipped so far.
        const std::int64_t dropped = base / 15;  // 2 at 29.97, 4 at 59.94
        const std::int64_t perTenMinutes = base * 600 - dropped * 9;
        const std::int64_t perMinute = base * 60 - dropped;
        const std::int64_t tens = frames / perTenMinutes;
        const std::int64_t rest = frames % perTenMinutes;
        frames += dropped * 9 * tens;
        if (rest > dropped)
            frames += dropped * ((rest - dropped) / perMinute);
    }
    const std::int64_t frame = frames % base;
    const std::int64_t seconds = frames / base % 60;
    const std::int64_t minutes = frames / (base * 60) % 60;
    const std::int64_t hours = frames / (base * 3600);
    const int frameDigits = base > 100 ? 3 : 2;
    return fmt::format("{:02}:{:02}:{:02}{}{:0{}}", hours, minutes, seconds, dropFrame ? ';' : ':',
                       frame, frameDigits);
}

std::optional<double> DurationSeconds(std::string_view value, std::string_view scale) {
    const auto duration = ParseDuration(value, scale);
    if (!duration)
        return std::nullopt;
    const long double seconds =
        static_cast<long double>(duration->count.numerator) * duration->unit.numerator /
        (static_cast<long double>(duration->count.denominator) * duration->unit.denominator);
    if (!std::isfinite(seconds) || seconds > 1e12L)
        return std::nullopt;
    return static_cast<double>(seconds);
}

std::optional<std::int64_t> DurationFrames(std::string_view value, std::string_view scale,
                                           const FrameRate& rate) {
    const auto duration = ParseDuration(value, scale);
    if (!duration || rate.numerator <= 0 || rate.denominator <= 0)
        return std::nullopt;
    // One division of exact products: "250" x 1001/30000 at 30000/1001 is 250 frames exactly.
    const long double numerator = static_cast<long double>(duration->count.numerator) *
                                  duration->unit.numerator * rate.numerator;
    const long double denominator = static_cast<long double>(duration->count.denominator) *
                                    duration->unit.denominator * rate.denominator;
    const long double frames = std::round(numerator / denominator);
    if (!std::isfinite(frames) || frames > static_cast<long double>(kLargestFrameCount))
        return std::nullopt;
    return static_cast<std::int64_t>(frames);
}

std::string FormatClockTime(double seconds) {
    if (!std::isfinite(seconds) || seconds < 0 || seconds > 1e12)
        return {};
    const auto milliseconds = static_cast<std::int64_t>(std::llround(seconds * 1000.0));
    return fmt::format("{:02}:{:02}:{:02}.{:03}", milliseconds / 3600000, milliseconds / 60000 % 60,
                       milliseconds / 1000 % 60, milliseconds % 1000);
}

std::string NormalizeTimecode(std::string_view value, bool dropFrame) {
    value = Trim(value);
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= value.size(); ++i) {
        if (i == value.size() || value[i] == ':' || value[i] == ';' || value[i] == '.' ||
            value[i] == ',') {
            parts.push_back(value.substr(start, i - start));
            start = i + 1;
            if (parts.size() > 4)
                break;
        }
    }
    if (parts.size() != 4)
        return std::string(value);
    std::int64_t numbers[4];
    for (std::size_t i = 0; i < 4; ++i) {
        const auto number = parts[i].size() <= 9 ? ParseWhole(parts[i]) : std::nullopt;
        if (!number)
            return std::string(value);
        numbers[i] = *number;
    }
    return fmt::format("{:02}:{:02}:{:02}{}{:02}", numbers[0], numbers[1], numbers[2],
                       dropFrame ? ';' : ':', numbers[3]);
}

std::string FormatFrameRate(const FrameRate& rate) {
    if (rate.numerator <= 0 || rate.denominator <= 0)
        return {};
    if (rate.numerator % rate.denominator == 0)
        return std::to_string(rate.numerator / rate.denominator);
    std::string text = fmt::format("{:.3f}", rate.FramesPerSecond());
    while (text.back() == '0')
        text.pop_back();
    if (text.back() == '.')
        text.pop_back();
    return text;
}

}  // namespace Tessel

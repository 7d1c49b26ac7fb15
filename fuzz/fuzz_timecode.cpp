// Feeds arbitrary bytes to the frame-rate and timecode parsers, split at the first two NULs
// into a rate, a duration value and a duration scale (the last eight bytes also serve as a
// frame count). Besides memory and UB faults it checks the promises others rely on: a parsed
// rate is positive and at most 1000 frames a second, drop frame only at 29.97 and 59.94, and
// a formatted timecode is "HH:MM:SS" and the frames, ';' before them exactly in drop frame,
// with frames below the rate's base.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include <tessel/metadata/Timecode.h>

namespace {

void Check(bool condition) {
    if (!condition)
        std::abort();
}

bool Digits(std::string_view text) {
    if (text.empty())
        return false;
    for (char c : text) {
        if (c < '0' || c > '9')
            return false;
    }
    return true;
}

void CheckTimecode(const std::string& timecode, const Tessel::FrameRate& rate) {
    if (timecode.empty())
        return;
    const std::size_t frameSeparator = timecode.size() - (rate.TimecodeBase() > 100 ? 4 : 3);
    Check(timecode[frameSeparator] == (rate.dropFrame ? ';' : ':'));
    const std::string_view clock(timecode.data(), frameSeparator);
    Check(clock.size() >= 8 && clock[clock.size() - 3] == ':' && clock[clock.size() - 6] == ':');
    const std::string frames = timecode.substr(frameSeparator + 1);
    Check(Digits(frames) && std::stoll(frames) < rate.TimecodeBase());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const std::size_t first = bytes.find('\0');
    const std::string_view text = bytes.substr(0, first);
    const std::string_view rest =
        first == std::string_view::npos ? std::string_view() : bytes.substr(first + 1);
    const std::size_t second = rest.find('\0');
    const std::string_view value = rest.substr(0, second);
    const std::string_view scale =
        second == std::string_view::npos ? std::string_view() : rest.substr(second + 1);

    for (bool dropFlag : {false, true}) {
        const auto rate = Tessel::ParseFrameRate(text, dropFlag);
        if (!rate)
            continue;
        Check(rate->numerator > 0 && rate->denominator > 0);
        Check(rate->numerator <= 1000 * rate->denominator);
        Check(!rate->dropFrame || (rate->denominator == 1001 &&
                                   (rate->numerator == 30000 || rate->numerator == 60000)));
        Check(!Tessel::FormatFrameRate(*rate).empty());
        if (const auto frames = Tessel::DurationFrames(value, scale, *rate)) {
            Check(*frames >= 0);
            CheckTimecode(Tessel::FormatTimecode(*frames, *rate), *rate);
        }
        if (size >= sizeof(std::int64_t)) {
            std::int64_t frames = 0;
            std::memcpy(&frames, data + size - sizeof frames, sizeof frames);
            CheckTimecode(Tessel::FormatTimecode(frames, *rate), *rate);
        }
    }
    if (const auto rate = Tessel::FrameRateFromTimeFormat(text))
        Check(rate->TimecodeBase() > 0);
    if (const auto seconds = Tessel::DurationSeconds(value, scale))
        Check(*seconds >= 0 && !Tessel::FormatClockTime(*seconds).empty());
    const std::string normalized = Tessel::NormalizeTimecode(text, !scale.empty());
    Check(normalized.size() <= text.size() + 16);
    return 0;
}

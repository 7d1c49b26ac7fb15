// Frame rates as cameras and editing tools write them, and timecode from frame counts and
// durations. Pure functions of their arguments: nothing here reads files.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <tessel/platform/Export.h>

namespace Tessel {

struct TESSEL_API FrameRate {
    std::int64_t numerator = 0;  // frames per second = numerator / denominator
    std::int64_t denominator = 1;
    bool interlaced = false;  // the text named a scan with two fields per frame ("50i")
    bool dropFrame = false;   // timecode counts drop frame; only ever set for 29.97 and 59.94

    double FramesPerSecond() const;
    // The whole frames of one timecode second: 25 for 25, 30 for 29.97, 60 for 59.94.
    std::int64_t TimecodeBase() const;

    friend bool operator==(const FrameRate&, const FrameRate&) = default;
};

// Parses a frame rate in the forms cameras and tools write:
//   card notation, a number with "p", "i" or "PsF": "25p", "50i", "59.94i", "29.97p", "23.98p".
//     With "i", a number above 30 is the field rate ("50i" is 25 frames a second, "59.94i" is
//     29.97) and a smaller one the frame rate ("25i");
//   a ratio: "24000/1001" is a rate, while a ratio below 1 is the duration of one frame
//     ("1/25", "1001/30000"), as cards write their edit unit;
//   a decimal: "25", "29.97", "23.976"; NTSC rates snap to N x 1000/1001;
//   optionally followed by "DF" or "NDF" (drop frame or not) and "fps".
// DROP_FRAME is a drop-frame flag written beside the rate (a card's DropFrameFlag); drop frame
// is kept only for 29.97 and 59.94. std::nullopt for other text or a rate outside (0, 1000].
TESSEL_API std::optional<FrameRate> ParseFrameRate(std::string_view text, bool dropFrame = false);

// The rate an xmpDM timeFormat names: "24Timecode", "25Timecode", "2997DropTimecode",
// "2997NonDropTimecode", "30Timecode", "50Timecode", "5994DropTimecode",
// "5994NonDropTimecode", "60Timecode", "23976Timecode".
TESSEL_API std::optional<FrameRate> FrameRateFromTimeFormat(std::string_view timeFormat);

// FRAMES as timecode at RATE: "HH:MM:SS:FF", or "HH:MM:SS;FF" in drop frame, where frame
// numbers 0 and 1 (0 to 3 at 59.94) are skipped at the start of every minute except each
// tenth. Hours go on past 24 (durations). Empty for negative or absurdly large counts.
TESSEL_API std::string FormatTimecode(std::int64_t frames, const FrameRate& rate);

// The frames of a duration of VALUE x SCALE seconds at RATE, rounded to the nearest frame
// (xmpDM:duration is such a pair: "250" x "1001/30000"). SCALE is a ratio or a decimal;
// empty means 1. std::nullopt when either does not parse or the result is out of range.
TESSEL_API std::optional<std::int64_t> DurationFrames(std::string_view value,
                                                      std::string_view scale,
                                                      const FrameRate& rate);

// Seconds as "HH:MM:SS.mmm", for durations of media without a frame rate (audio).
TESSEL_API std::string FormatClockTime(double seconds);

// The seconds of VALUE x SCALE (see DurationFrames), or std::nullopt.
TESSEL_API std::optional<double> DurationSeconds(std::string_view value, std::string_view scale);

// A timecode as written ("01;00;00;00", "1:02:03:04") in canonical form "01:02:03:04", with
// ";" before the frames when DROP_FRAME. Text that is not four numbers comes back trimmed.
TESSEL_API std::string NormalizeTimecode(std::string_view value, bool dropFrame);

// A rate for display, in frames per second with up to three decimals: "25", "29.97",
// "23.976".
TESSEL_API std::string FormatFrameRate(const FrameRate& rate);

}  // namespace Tessel

// Frame rates in the forms cards and tools write them, drop-frame counting around the minute
// boundaries where it skips frame numbers, durations, and timecode as written by others.
#include <tessel/metadata/Timecode.h>

#include <gtest/gtest.h>

#include <tuple>

namespace {

using namespace Tessel;

FrameRate Rate(std::int64_t numerator, std::int64_t denominator, bool dropFrame = false) {
    return {numerator, denominator, false, dropFrame};
}

TEST(Timecode, FrameRatesAsWritten) {
    struct Case {
        const char* text;
        bool dropFlag;
        std::int64_t numerator, denominator;
        bool dropFrame;
    };
    const Case cases[] = {
        {"25p", false, 25, 1, false},
        {"50i", false, 25, 1, false},  // fields: two make a frame
        {"59.94i", true, 30000, 1001, true},
        {"59.94p", true, 60000, 1001, true},
        {"29.97p", false, 30000, 1001, false},
        {"23.98p", true, 24000, 1001, false},  // no drop frame at 23.976
        {"25i", false, 25, 1, false},          // a frame rate already
        {"1/25", false, 25, 1, false},         // an edit unit: one frame's duration
        {"1001/30000", false, 30000, 1001, false},
        {"24000/1001", false, 24000, 1001, false},
        {"29.97 DF", false, 30000, 1001, true},
        {"29.97 NDF", true, 30000, 1001, false},
        {" 23.976 fps ", false, 24000, 1001, false},
        {"25PsF", false, 25, 1, false},
        {"12.5", false, 25, 2, false},
        {"60", true, 60, 1, false},
    };
    for (const Case& c : cases) {
        const auto rate = ParseFrameRate(c.text, c.dropFlag);
        EXPECT_TRUE(rate && std::tie(rate->numerator, rate->denominator, rate->dropFrame) ==
                                std::tie(c.numerator, c.denominator, c.dropFrame))
            << c.text;
    }
    for (const char* bad : {"", "p", "fps", "0", "0/25", "25/0", "-25", "abc", "25x", "1e3", "2000",
                            "1/0.5", "25/", "/25", "29.97.1", "99999999999999999999"}) {
        EXPECT_FALSE(ParseFrameRate(bad)) << bad;
    }
    EXPECT_EQ(FrameRateFromTimeFormat("5994DropTimecode"), Rate(60000, 1001, true));
    EXPECT_EQ(FrameRateFromTimeFormat("2997NonDropTimecode"), Rate(30000, 1001));
    EXPECT_FALSE(FrameRateFromTimeFormat("2997Timecode"));
    EXPECT_EQ(FormatFrameRate(Rate(24000, 1001)), "23.976");
    EXPECT_EQ(FormatFrameRate(Rate(30000, 1001)), "29.97");
    EXPECT_EQ(FormatFrameRate(Rate(25, 1)), "25");
}

TEST(Timecode, DropFrameAroundMinutes) {
    const FrameRate ntsc = Rate(30000, 1001, true);
    struct Case {
        std::int64_t frames;
        const char* timecode;
    };
    // 29.97: numbers 00 and 01 are skipped at each minute but every tenth.
    for (const Case& c :
         {Case{0, "00:00:00;00"}, Case{1799, "00:00:59;29"}, Case{1800, "00:01:00;02"},
          Case{1801, "00:01:00;03"}, Case{3597, "00:01:59;29"}, Case{3598, "00:02:00;02"},
          Case{17981, "00:09:59;29"}, Case{17982, "00:10:00;00"}, Case{17983, "00:10:00;01"},
          Case{19782, "00:11:00;02"}, Case{107892, "01:00:00;00"}, Case{2589408, "24:00:00;00"}}) {
        EXPECT_EQ(FormatTimecode(c.frames, ntsc), c.timecode) << c.frames;
    }
    // 59.94: numbers 00 to 03.
    const FrameRate ntscDouble = Rate(60000, 1001, true);
    for (const Case& c : {Case{3599, "00:00:59;59"}, Case{3600, "00:01:00;04"},
                          Case{35963, "00:09:59;59"}, Case{35964, "00:10:00;00"}}) {
        EXPECT_EQ(FormatTimecode(c.frames, ntscDouble), c.timecode) << c.frames;
    }
    // Without drop frame every number counts, written with ':'.
    EXPECT_EQ(FormatTimecode(1800, Rate(30000, 1001)), "00:01:00:00");
    EXPECT_EQ(FormatTimecode(1500, Rate(25, 1, true)), "00:01:00:00");  // no drop at 25
    EXPECT_EQ(FormatTimecode(-1, Rate(25, 1)), "");
    EXPECT_EQ(FormatTimecode(10, FrameRate{}), "");
}

TEST(Timecode, DurationsAndWrittenTimecode) {
    // xmpDM:duration pairs as cards and tools write them.
    // Frames, seconds (no scale), audio samples, a decimal scale.
    for (const auto& [value, scale, rate, frames] :
         {std::tuple{"250", "1001/30000", Rate(30000, 1001), 250},
          {"250", "1/25", Rate(25, 1), 250},
          {"10.5", "", Rate(24, 1), 252},
          {"480000", "1/48000", Rate(25, 1), 250},
          {"10", "0.04", Rate(25, 1), 10}})
        EXPECT_EQ(DurationFrames(value, scale, rate), frames) << value;
    for (const auto& [value, scale] :
         {std::pair{"", "1/25"}, std::pair{"x", "1/25"}, std::pair{"10", "1/0"},
          std::pair{"10", "0/25"}, std::pair{"1/2", "1"}, std::pair{"-5", "1/25"},
          std::pair{"999999999999", "999999999999"}}) {
        EXPECT_FALSE(DurationFrames(value, scale, Rate(25, 1))) << value << " x " << scale;
    }
    EXPECT_EQ(FormatClockTime(*DurationSeconds("480000", "1/48000")), "00:00:10.000");
    EXPECT_EQ(FormatClockTime(3723.5), "01:02:03.500");

    // What is not a timecode stays as written.
    for (const auto& [text, drop, normal] : {std::tuple{"01;00;00;00", true, "01:00:00;00"},
                                             {" 1:2:3:4 ", false, "01:02:03:04"},
                                             {"10:00:00.12", false, "10:00:00:12"},
                                             {"125:00:00:00", false, "125:00:00:00"},
                                             {"00:00:10", false, "00:00:10"},
                                             {"1:2:3:4:5", false, "1:2:3:4:5"},
                                             {"aa:bb:cc:dd", true, "aa:bb:cc:dd"}})
        EXPECT_EQ(NormalizeTimecode(text, drop), normal) << text;
}

}  // namespace

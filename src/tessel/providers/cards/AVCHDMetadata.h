// What an AVCHD camera writes of its recordings in the binary files beside the stream files.
// exempi reads no XMP from stream files (.MTS, .m2ts), so unless an editing tool wrote a
// sidecar these are the values a user sees for a shot. All numbers are big-endian; every read
// is checked against the file's bounds and the lengths its blocks give, and a value that does
// not fit is left out rather than guessed.
//
// Clip information ("HDMV", version "0100", "0200" or "0300"):
//   12  ProgramInfo address: the first program sequence's streams, for video a format
//       (1 480i, 2 576i, 3 480p, 4 1080i, 5 720p, 6 1080p, 7 576p) and a rate code (1 23.976,
//       2 24, 3 25, 4 29.97, 6 50, 7 59.94); for audio a presentation (1 mono, 3 stereo,
//       6 multichannel) and a sampling frequency (1 48 kHz, 4 96 kHz, 5 192 kHz).
//   24  ExtensionData address. Its AVCHD entry (ID 0x1000) holds the "CLEX" block: at +12
//       the address of the maker's private data, at +44 the maker's ID and model code.
// Playlist ("MPLS", version "0100"; the PlayItems as AVCHDUtils.h walks them):
//       each PlayItem's IN and OUT time (45 kHz clock) at +14 and +18: a shot lasts the sum
//       of its PlayItems' spans.
//   12  PlayListMark address: marks of 14 bytes, type 1 (an entry mark) pointing at the
//       PlayItem that begins a shot.
//   16  ExtensionData address. Its AVCHD entry holds the "PLEX" block: at +8 the address of
//       the mark extensions, one of 66 bytes per mark (maker ID, model code, flags with the
//       pulldown in bits 1-2, a time zone and the BCD recording date and time, the mark's
//       name, a BCD timecode), at +12 the address of the maker's private data.
// Maker's private data: a table of (maker ID, model code, address, length). Panasonic's
// (0x0103) is a run of tagged blocks: 0xE2 the clip's global ID and start timecode; 0xF0 one
// block per mark, whose entry marks (0x40) give the shot's start timecode and blocks of shot
// mark (0x20, "good"), access (0x21, the creator), device (0x22, the serial number), shoot
// (0x23, the start date) and location (0x24, the place name).
// Timecodes are four BCD bytes, frames first, with the drop-frame flag 0x40 in the frames
// byte; FF FF FF FF means none. Dates are seven BCD bytes, YYYY MM DD hh mm ss, shown as the
// camera's clock wrote them, without the zone.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <tessel/framework/ContentRecord.h>
#include <tessel/platform/Export.h>

namespace Tessel {

using AVCHDTimecode = std::array<std::uint8_t, 4>;

struct TESSEL_API AVCHDClipInfo {
    int videoFormat = 0;  // codes as above; 0 when the clip has no video stream
    int videoRate = 0;
    int audioPresentation = 0;
    int audioSampling = 0;
    std::uint16_t makerID = 0;  // 0 when the clip has no AVCHD extension
    std::uint16_t modelCode = 0;
    std::string globalClipID;  // maker's private data, as hexadecimal digits
    std::optional<AVCHDTimecode> startTimecode;
};

// One mark of a playlist, with what the extensions say of it.
struct TESSEL_API AVCHDMark {
    int type = 0;
    std::uint32_t playItem = 0;
    bool extended = false;  // the fields below up to timecode are read
    std::uint16_t makerID = 0;
    std::uint16_t modelCode = 0;
    int pulldown = 0;      // 1: 2:2 pulldown, 2: 2:3 pulldown
    std::string recorded;  // "2015-07-04 18:30:00"
    std::string name;      // UTF-8
    std::optional<AVCHDTimecode> timecode;
    // The maker's private data of the mark.
    std::optional<AVCHDTimecode> makerTimecode;
    std::optional<bool> good;
    std::string creator;
    std::string serialNumber;
    std::string shootDate;
    std::string location;
};

struct TESSEL_API AVCHDPlaylistInfo {
    struct Item {
        std::u16string clip;  // empty when the PlayItem names no clip
        int connection = -1;
        std::uint32_t inTime = 0;  // 45 kHz
        std::uint32_t outTime = 0;
        bool timed = false;
    };
    std::vector<Item> items;  // the PlayItems the walk visits, in order
    std::vector<AVCHDMark> marks;
};

// False when the bytes are no clip information (or no playlist); what a block does not hold
// stays at its default.
TESSEL_API bool ReadAVCHDClipInfo(std::span<const std::uint8_t> bytes, AVCHDClipInfo& info);
TESSEL_API bool ReadAVCHDPlaylistInfo(std::span<const std::uint8_t> bytes, AVCHDPlaylistInfo& info);

// The values of the shot whose first PlayItem is HEAD in PLAYLIST, with its first clip's
// information CLIP (either may be null), ready for display: duration, startTimecode,
// videoFrameRate, videoFrameSize, audioChannelType, audioSampleRate, shotDate, shotName, Make,
// Model, good, creator, SerialNumber, shotLocation, identifier — those that the files hold.
TESSEL_API SDKPropertyMap AVCHDShotValues(const AVCHDPlaylistInfo* playlist, std::size_t head,
                                          const AVCHDClipInfo* clip);

}  // namespace Tessel

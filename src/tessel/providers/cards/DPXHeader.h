// The header of a DPX frame file (the film scanners' and finishing tools' one file per frame),
// as far as a media browser shows it: the picture size, the frame rate, the time code of the
// frame, when the file was made and on what. The header is the first 2048 bytes of the file,
// in the byte order its magic number gives ("SDPX" big-endian, "XPDS" little-endian):
//   772  U32  pixels per line          in the image information header
//   776  U32  lines per image element
//   1556 char input device name [32]   in the orientation header
//   1588 char input device serial [32]
//   1724 R32  frame rate of the original, in the motion-picture film header
//   1920 U32  SMPTE time code, packed BCD (hours in the most significant byte)
//   1940 R32  temporal sampling rate, in the television header
//   136  char creation time "YYYY:MM:DD:HH:MM:SS:LTZ" [24], in the file header
// Fields a writer leaves undefined hold all bits set (a NaN for the rates) or zeros; they
// read as absent. Bytes beyond what was given read as absent too: a truncated header yields
// what it holds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <tessel/platform/Export.h>

namespace Tessel {

inline constexpr std::size_t kDPXHeaderBytes = 2048;

struct TESSEL_API DPXTimecode {
    int hours = 0;
    int minutes = 0;
    int seconds = 0;
    int frames = 0;
    bool dropFrame = false;  // the drop-frame flag of the frames byte (bit 6)
};

struct TESSEL_API DPXHeader {
    std::uint32_t width = 0;  // 0 when undefined
    std::uint32_t height = 0;
    double frameRate = 0;  // frames per second: the television header's, else the film's; 0 none
    std::optional<DPXTimecode> timecode;  // absent when undefined or not decimal digits
    std::string creationTime;             // "2011-05-20 14:03:09"; empty when not in that form
    std::string inputDevice;              // printable ASCII, as written
    std::string inputSerial;
};

// Reads the header from the first bytes of a DPX file; false when they do not begin with
// either magic number.
TESSEL_API bool ReadDPXHeader(std::span<const std::uint8_t> bytes, DPXHeader& header);

}  // namespace Tessel

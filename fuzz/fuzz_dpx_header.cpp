// Feeds arbitrary bytes to the DPX header reader as the opening of a frame file, and, read as
// UTF-16 code units, to the frame-name splitter as a frame file's name. Besides memory and UB
// faults it checks the promises the DPX provider relies on: a time code read is decimal
// (hours below 24, minutes and seconds below 60), a rate is positive and at most 1000 frames a
// second, and a name's parts are its own characters, in order, with a frame number only for
// digits that fit.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>

#include <tessel/providers/cards/CardFileNames.h>
#include <tessel/providers/cards/DPXHeader.h>

namespace {

void Check(bool condition) {
    if (!condition)
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Tessel::DPXHeader header;
    if (Tessel::ReadDPXHeader(std::span(data, size), header)) {
        Check(header.frameRate == 0 || (header.frameRate > 0 && header.frameRate <= 1000));
        if (header.timecode) {
            const Tessel::DPXTimecode& t = *header.timecode;
            Check(t.hours >= 0 && t.hours < 24 && t.minutes >= 0 && t.minutes < 60);
            Check(t.seconds >= 0 && t.seconds < 60 && t.frames >= 0 && t.frames < 40);
        }
    } else {
        Check(header.width == 0 && !header.timecode && header.creationTime.empty());
    }

    std::u16string name(size / 2, u'\0');
    std::memcpy(name.data(), data, name.size() * 2);
    namespace N = Tessel::CardFileNames;
    const N::FrameName parts = N::SplitFrameName(name);
    Check(parts.prefix.size() + parts.digits.size() + parts.extension.size() == name.size());
    Check(std::u16string(parts.prefix) + std::u16string(parts.digits) +
              std::u16string(parts.extension) ==
          name);
    const auto number = N::FrameNumber(parts.digits);
    Check(number.has_value() == (!parts.digits.empty() && parts.digits.size() <= 18));
    Check(!number || *number >= 0);
    (void)N::FindFrameRange({name, name + u".x"}, N::LeafOf(name));
    return 0;
}

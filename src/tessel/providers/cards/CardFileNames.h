// File names of camera cards and frame folders taken apart in place: the leaf of a path, its
// extension, and the frame number a frame file carries. Everything here works on views into
// the caller's strings, so a folder of a hundred thousand frames is examined without a copy
// or an allocation per name. Internal to the providers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tessel/platform/Export.h>

namespace Tessel::CardFileNames {

// The last component of PATH (what follows its last separator); PATH itself when it has none.
TESSEL_API std::u16string_view LeafOf(std::u16string_view path);

// The name without its extension ("A001_C002_0101AB" of "A001_C002_0101AB.RDC"): everything
// before the last dot, or the whole name when it has none or only a leading one.
TESSEL_API std::u16string_view TitleOf(std::u16string_view name);

// True when the extension of NAME (from its last dot, ASCII letters folded to lower case)
// is LOWER_EXTENSION, a lower-case extension with its dot (".dpx"). A name whose only dot
// leads it (".dpx") has no extension, as Path::GetExtensionLower says.
TESSEL_API bool HasExtension(std::u16string_view name, std::u16string_view lowerExtension);

// True when A and B are equal with ASCII letters folded, as Windows compares fixed names.
TESSEL_API bool EqualIgnoringCase(std::u16string_view a, std::u16string_view b);

// A frame file's name split around its frame number, the last run of digits of its title:
// "A001C001_140101_R1AB.0000017.ari" is the prefix "A001C001_140101_R1AB.", the digits
// "0000017" and the extension ".ari". Digits are empty when the title does not end in one;
// the extension is empty when the name has none.
struct FrameName {
    std::u16string_view prefix;
    std::u16string_view digits;
    std::u16string_view extension;
};
TESSEL_API FrameName SplitFrameName(std::u16string_view name);

// The number DIGITS make; std::nullopt when there are none or more than 18 (no frame count
// comes near, and the number must fit in 64 bits).
TESSEL_API std::optional<std::int64_t> FrameNumber(std::u16string_view digits);

// The frames of one clip among a folder's files: those whose names share the prefix of a
// frame file's name and its extension (letter case aside) and carry a frame number, of any
// width (a count past 9999 outgrows four digits of padding).
struct FrameRange {
    std::int64_t first = 0;  // the lowest frame number
    std::int64_t last = 0;   // the highest
    std::size_t count = 0;   // frame files present; last - first + 1 - count are missing
};
// The range of the clip of the frame file named NAME among FILES (full paths), or
// std::nullopt when NAME carries no frame number.
TESSEL_API std::optional<FrameRange> FindFrameRange(const std::vector<std::u16string>& files,
                                                    std::u16string_view name);

}  // namespace Tessel::CardFileNames

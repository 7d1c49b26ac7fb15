// Conversions between the host's UTF-16 strings and the providers' UTF-8 strings.
//
// File names on POSIX are bytes and need not be valid UTF-8. So that every such name
// still opens after a trip through the host side, UTF-8 to UTF-16 maps each byte that is
// not part of a valid sequence to a lone surrogate U+DC80..U+DCFF, and UTF-16 to UTF-8
// maps those surrogates back to the same bytes. Other lone surrogates, which no byte
// string can carry, become U+FFFD. Conversions never throw.
#pragma once

#include <string>
#include <string_view>

#include <tessel/platform/Export.h>

namespace Tessel {

TESSEL_API std::u16string Utf8ToUtf16(std::string_view utf8);
TESSEL_API std::string Utf16ToUtf8(std::u16string_view utf16);

// The same strings for people: escaped bytes and lone surrogates show as U+FFFD.
TESSEL_API std::u16string ToDisplayUtf16(std::u16string_view utf16);
// Utf16ToUtf8(ToDisplayUtf16(UTF16)) in one pass: text to show, never raw bytes.
TESSEL_API std::string Utf16ToDisplayUtf8(std::u16string_view utf16);
TESSEL_API std::string ToDisplayUtf8(std::string_view utf8);

// True when the bytes are valid UTF-8 (no escapes would be needed).
TESSEL_API bool IsValidUtf8(std::string_view utf8);

// Upper-cases one UTF-16 code unit by the simple (one-to-one) Unicode mapping, as NTFS
// does for its name order. Code units without a single upper-case form are unchanged.
TESSEL_API char16_t UpperCaseCodeUnit(char16_t unit);

// Ordinal comparison after upper-casing each code unit: the order NTFS keeps directory
// entries in. Returns <0, 0 or >0.
TESSEL_API int CompareNtfsOrder(std::u16string_view a, std::u16string_view b);
TESSEL_API bool EqualsIgnoringCase(std::u16string_view a, std::u16string_view b);

// Lower-cases ASCII letters only (file extensions are compared this way).
TESSEL_API std::string AsciiLower(std::string_view text);
TESSEL_API std::u16string AsciiLower(std::u16string_view text);

// BYTES as lower-case hexadecimal, two digits a byte ("2f61" for "/a"): the form in which
// bytes that are no valid text are written into JSON.
TESSEL_API std::string BytesToHex(std::string_view bytes);

}  // namespace Tessel

#include <tessel/foundation/Unicode.h>

#include <utf8.h>

#include <tessel/platform/FileSystem.h>

namespace Tessel {

namespace {

constexpr char16_t kReplacement = 0xFFFD;
constexpr char16_t kEscapeFirst = 0xDC80;  // lone surrogates U+DC80..U+DCFF carry bytes 0x80..0xFF

bool IsHighSurrogate(char16_t u) {
    return u >= 0xD800 && u <= 0xDBFF;
}
bool IsLowSurrogate(char16_t u) {
    return u >= 0xDC00 && u <= 0xDFFF;
}
bool IsEscapedByte(char16_t u) {
    return u >= kEscapeFirst && u <= 0xDCFF;
}

void AppendCodePoint(std::string& out, char32_t cp) {
    utf8::append(static_cast<utf8::uint32_t>(cp), std::back_inserter(out));
}

}  // namespace

std::u16string Utf8ToUtf16(std::string_view utf8) {
    // Most names and paths are ASCII: widened byte by byte, without validation.
    std::size_t ascii = 0;
    while (ascii < utf8.size() && static_cast<unsigned char>(utf8[ascii]) < 0x80)
        ++ascii;
    std::u16string out(utf8.begin(), utf8.begin() + static_cast<std::ptrdiff_t>(ascii));
    if (ascii == utf8.size())
        return out;
    out.reserve(utf8.size());
    auto it = utf8.begin() + static_cast<std::ptrdiff_t>(ascii);
    const auto end = utf8.end();
    while (it != end) {
        auto invalid = utf8::find_invalid(it, end);
        if (invalid != it) {
            utf8::unchecked::utf8to16(it, invalid, std::back_inserter(out));
            it = invalid;
        }
        if (it == end)
            break;
        // One byte that starts no valid sequence: keep it as an escape so it converts back.
        out.push_back(static_cast<char16_t>(kEscapeFirst - 0x80 + static_cast<unsigned char>(*it)));
        ++it;
    }
    return out;
}

namespace {

// UTF-16 to UTF-8; escaped bytes become the bytes they carry, or U+FFFD for display.
std::string ConvertUtf16(std::u16string_view utf16, bool display) {
    // Most names and paths are ASCII: narrowed unit by unit.
    std::size_t ascii = 0;
    while (ascii < utf16.size() && utf16[ascii] < 0x80)
        ++ascii;
    std::string out;
    out.reserve(utf16.size() + (utf16.size() - ascii) / 2);
    for (std::size_t i = 0; i < ascii; ++i)
        out += static_cast<char>(utf16[i]);
    for (std::size_t i = ascii; i < utf16.size(); ++i) {
        const char16_t u = utf16[i];
        if (u < 0x80) {
            out.push_back(static_cast<char>(u));
        } else if (IsHighSurrogate(u) && i + 1 < utf16.size() && IsLowSurrogate(utf16[i + 1])) {
            const char32_t cp = 0x10000 + ((static_cast<char32_t>(u) - 0xD800) << 10) +
                                (static_cast<char32_t>(utf16[i + 1]) - 0xDC00);
            AppendCodePoint(out, cp);
            ++i;
        } else if (IsEscapedByte(u) && !display) {
            out.push_back(static_cast<char>(static_cast<unsigned char>(u - kEscapeFirst + 0x80)));
        } else if (IsHighSurrogate(u) || IsLowSurrogate(u)) {
            AppendCodePoint(out, kReplacement);
        } else {
            AppendCodePoint(out, u);
        }
    }
    return out;
}

}  // namespace

std::string Utf16ToUtf8(std::u16string_view utf16) {
    return ConvertUtf16(utf16, false);
}

std::string Utf16ToDisplayUtf8(std::u16string_view utf16) {
    return ConvertUtf16(utf16, true);
}

std::u16string ToDisplayUtf16(std::u16string_view utf16) {
    std::u16string out(utf16);
    for (std::size_t i = 0; i < out.size(); ++i) {
        if (IsHighSurrogate(out[i]) && i + 1 < out.size() && IsLowSurrogate(out[i + 1])) {
            ++i;
        } else if (IsHighSurrogate(out[i]) || IsLowSurrogate(out[i])) {
            out[i] = kReplacement;
        }
    }
    return out;
}

std::string ToDisplayUtf8(std::string_view utf8) {
    if (IsValidUtf8(utf8))
        return std::string(utf8);
    return Utf16ToUtf8(ToDisplayUtf16(Utf8ToUtf16(utf8)));
}

bool IsValidUtf8(std::string_view utf8) {
    return utf8::is_valid(utf8.begin(), utf8.end());
}

char16_t UpperCaseCodeUnit(char16_t unit) {
    if (unit < 0x80)
        return (unit >= u'a' && unit <= u'z') ? static_cast<char16_t>(unit - 32) : unit;
    return Platform::UpperCaseCodeUnit(unit);
}

int CompareNtfsOrder(std::u16string_view a, std::u16string_view b) {
    const std::size_t n = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < n; ++i) {
        const char16_t x = UpperCaseCodeUnit(a[i]);
        const char16_t y = UpperCaseCodeUnit(b[i]);
        if (x != y)
            return x < y ? -1 : 1;
    }
    if (a.size() == b.size())
        return 0;
    return a.size() < b.size() ? -1 : 1;
}

bool EqualsIgnoringCase(std::u16string_view a, std::u16string_view b) {
    return a.size() == b.size() && CompareNtfsOrder(a, b) == 0;
}

std::string AsciiLower(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c + 32);
    }
    return out;
}

std::u16string AsciiLower(std::u16string_view text) {
    std::u16string out(text);
    for (char16_t& c : out) {
        if (c >= u'A' && c <= u'Z')
            c = static_cast<char16_t>(c + 32);
    }
    return out;
}

std::string BytesToHex(std::string_view bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (unsigned char byte : bytes) {
        hex.push_back(kDigits[byte >> 4]);
        hex.push_back(kDigits[byte & 0xF]);
    }
    return hex;
}

}  // namespace Tessel

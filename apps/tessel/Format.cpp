#include "Format.h"

#include <cmath>
#include <cstdio>
#include <ctime>
#include <initializer_list>
#include <optional>
#include <sstream>

#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ContentRecord.h>
#include <tessel/framework/Provider.h>

namespace Tessel::Tool {

namespace {

std::string WithThousands(std::uint64_t n) {
    std::string digits = std::to_string(n);
    std::string out;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0)
            out.push_back(',');
        out.push_back(digits[i]);
    }
    return out;
}

std::string LocalTime(const DateTime& when) {
    const std::time_t seconds = static_cast<std::time_t>(
        when.microsecondsSinceEpoch >= 0 ? when.microsecondsSinceEpoch / 1000000
                                         : (when.microsecondsSinceEpoch - 999999) / 1000000);
    std::tm local{};
#if defined(_WIN32)
    if (localtime_s(&local, &seconds) != 0)
        return when.ToIso8601();
#else
    if (!localtime_r(&seconds, &local))
        return when.ToIso8601();
#endif
    char buffer[32];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", &local);
    return buffer;
}

const char* IconName(IconType icon) {
    switch (icon) {
        case IconType::None:
            return "none";
        case IconType::Folder:
            return "folder";
        case IconType::Drive:
            return "drive";
        case IconType::RemovableDrive:
            return "removable-drive";
        case IconType::OpticalDrive:
            return "optical-drive";
        case IconType::NetworkShare:
            return "network-share";
        case IconType::CloudFolder:
            return "cloud-folder";
        case IconType::Card:
            return "card";
        case IconType::Video:
            return "video";
        case IconType::Audio:
            return "audio";
        case IconType::Image:
            return "image";
        case IconType::Sequence:
            return "sequence";
        case IconType::Project:
            return "project";
        case IconType::Bin:
            return "bin";
        case IconType::Document:
            return "document";
        case IconType::File:
            return "file";
    }
    return "unknown";
}

}  // namespace

std::string ValueToText(const any_regular_t& value) {
    if (value.empty())
        return {};
    if (const auto* s = value.get_if<std::u16string>())
        return Utf16ToDisplayUtf8(*s);
    if (const auto* s = value.get_if<std::string>())
        return ToDisplayUtf8(*s);
    if (const auto* b = value.get_if<bool>())
        return *b ? "yes" : "no";
    if (const auto* i = value.get_if<std::int64_t>())
        return std::to_string(*i);
    if (const auto* d = value.get_if<double>()) {
        std::string text = std::to_string(*d);
        while (text.size() > 1 && text.back() == '0')
            text.pop_back();
        if (!text.empty() && text.back() == '.')
            text.pop_back();
        return text;
    }
    if (const auto* size = value.get_if<Provider::ByteSize_t>())
        return WithThousands(size->GetCount());
    if (const auto* date = value.get_if<DateTime>())
        return LocalTime(*date);
    if (const auto* icon = value.get_if<IconType>())
        return IconName(*icon);
    if (const auto* list = value.get_if<any_regular_t::array_t>()) {
        std::string out;
        for (const auto& element : *list) {
            if (!out.empty())
                out += ", ";
            out += ValueToText(element);
        }
        return out;
    }
    if (const auto* dict = value.get_if<any_regular_t::dictionary_t>()) {
        std::string out;
        for (const auto& [key, element] : *dict) {
            if (!out.empty())
                out += ", ";
            out += key + "=" + ValueToText(element);
        }
        return out;
    }
    return "?";
}

nlohmann::ordered_json ValueToJson(const any_regular_t& value) {
    if (value.empty())
        return nullptr;
    if (const auto* s = value.get_if<std::u16string>())
        return Utf16ToDisplayUtf8(*s);
    if (const auto* s = value.get_if<std::string>())
        return ToDisplayUtf8(*s);
    if (const auto* b = value.get_if<bool>())
        return *b;
    if (const auto* i = value.get_if<std::int64_t>())
        return *i;
    if (const auto* d = value.get_if<double>())
        return *d;
    if (const auto* size = value.get_if<Provider::ByteSize_t>())
        return size->GetCount();
    if (const auto* date = value.get_if<DateTime>())
        return date->ToIso8601();
    if (const auto* icon = value.get_if<IconType>())
        return IconName(*icon);
    if (const auto* list = value.get_if<any_regular_t::array_t>()) {
        nlohmann::ordered_json array = nlohmann::ordered_json::array();
        for (const auto& element : *list)
            array.push_back(ValueToJson(element));
        return array;
    }
    if (const auto* dict = value.get_if<any_regular_t::dictionary_t>()) {
        nlohmann::ordered_json object = nlohmann::ordered_json::object();
        for (const auto& [key, element] : *dict)
            object[ToDisplayUtf8(key)] = ValueToJson(element);
        return object;
    }
    return nullptr;
}

namespace {

// Decodes one code point of UTF-8 at TEXT[AT], advancing AT; a byte that starts no valid
// sequence is returned as itself (it is shown as one column, as U+FFFD would be).
char32_t NextCodePoint(const std::string& text, std::size_t& at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    const int length = lead < 0x80           ? 1
                       : (lead >> 5) == 0x6  ? 2
                       : (lead >> 4) == 0xE  ? 3
                       : (lead >> 3) == 0x1E ? 4
                                             : 0;
    if (length <= 1 || at + length > text.size()) {
        ++at;
        return lead;
    }
    char32_t point = lead & (0x7F >> length);
    for (int i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80) {
            ++at;
            return lead;
        }
        point = (point << 6) | (byte(at + i) & 0x3F);
    }
    at += length;
    return point;
}

struct CodePointRange {
    char32_t first;
    char32_t last;
};

bool InRanges(char32_t point, std::initializer_list<CodePointRange> ranges) {
    for (const auto& range : ranges) {
        if (point >= range.first && point <= range.last)
            return true;
    }
    return false;
}

// Columns a code point takes on a terminal: 0 for combining marks and zero-width
// characters, 2 for East Asian wide and full-width characters and emoji, 1 otherwise.
int CodePointWidth(char32_t point) {
    if (point < 0x300)
        return 1;
    if (InRanges(point, {{0x0300, 0x036F},
                         {0x0483, 0x0489},
                         {0x0591, 0x05BD},
                         {0x05BF, 0x05C7},
                         {0x0610, 0x061A},
                         {0x064B, 0x065F},
                         {0x0670, 0x0670},
                         {0x06D6, 0x06ED},
                         {0x0E31, 0x0E31},
                         {0x0E34, 0x0E3A},
                         {0x0E47, 0x0E4E},
                         {0x1AB0, 0x1AFF},
                         {0x1DC0, 0x1DFF},
                         {0x200B, 0x200F},
                         {0x20D0, 0x20FF},
                         {0xFE00, 0xFE0F},
                         {0xFE20, 0xFE2F},
                         {0xFEFF, 0xFEFF}})) {
        return 0;
    }
    if (InRanges(point, {{0x1100, 0x115F},
                         {0x2E80, 0x303E},
                         {0x3041, 0x33FF},
                         {0x3400, 0x4DBF},
                         {0x4E00, 0x9FFF},
                         {0xA000, 0xA4CF},
                         {0xAC00, 0xD7A3},
                         {0xF900, 0xFAFF},
                         {0xFE30, 0xFE4F},
                         {0xFF00, 0xFF60},
                         {0xFFE0, 0xFFE6},
                         {0x1F300, 0x1F64F},
                         {0x1F900, 0x1F9FF},
                         {0x20000, 0x2FFFD},
                         {0x30000, 0x3FFFD}})) {
        return 2;
    }
    return 1;
}

bool IsControl(char32_t point) {
    return point < 0x20 || (point >= 0x7F && point < 0xA0);
}

}  // namespace

std::size_t DisplayWidth(const std::string& utf8) {
    std::size_t width = 0;
    for (std::size_t at = 0; at < utf8.size();)
        width += CodePointWidth(NextCodePoint(utf8, at));
    return width;
}

std::string QuoteControlCharacters(const std::string& utf8) {
    bool any = false;
    for (std::size_t at = 0; at < utf8.size() && !any;)
        any = IsControl(NextCodePoint(utf8, at));
    if (!any)
        return utf8;
    // As a shell reads it back: runs of printable text in '...', runs of control characters
    // in $'...' with each byte in octal, and a quote as \'.
    std::string quoted;
    std::string literal;
    std::string escapes;
    const auto flush = [&] {
        if (!literal.empty())
            quoted += "'" + literal + "'";
        if (!escapes.empty())
            quoted += "$'" + escapes + "'";
        literal.clear();
        escapes.clear();
    };
    for (std::size_t at = 0; at < utf8.size();) {
        const std::size_t start = at;
        const char32_t point = NextCodePoint(utf8, at);
        if (IsControl(point) || point == U'\'') {
            if (!literal.empty())
                flush();
            if (point == U'\'') {
                flush();
                quoted += "\\'";
                continue;
            }
            for (std::size_t i = start; i < at; ++i) {
                char octal[8];
                std::snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned char>(utf8[i]));
                escapes += octal;
            }
        } else {
            if (!escapes.empty())
                flush();
            literal.append(utf8, start, at - start);
        }
    }
    flush();
    return quoted;
}

std::string FormatTable(std::vector<std::vector<std::string>> rows,
                        const std::set<std::size_t>& rightAligned) {
    std::ostringstream out;
    WriteTable(
        out, rows.size(), [&](std::size_t i, std::vector<std::string>& cells) { cells = rows[i]; },
        rightAligned);
    return out.str();
}

void WriteTable(std::ostream& out, std::size_t rows,
                const std::function<void(std::size_t, std::vector<std::string>&)>& row,
                const std::set<std::size_t>& rightAligned) {
    // Cells are nearly always printable ASCII, whose width is their length; others are
    // quoted and measured.
    const auto plain = [](const std::string& text) {
        return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
    };
    const auto width = [&](const std::string& text) {
        return plain(text) ? text.size() : DisplayWidth(QuoteControlCharacters(text));
    };
    std::vector<std::string> cells;
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < rows; ++i) {
        cells.clear();
        row(i, cells);
        if (widths.size() < cells.size())
            widths.resize(cells.size(), 0);
        for (std::size_t c = 0; c < cells.size(); ++c)
            widths[c] = std::max(widths[c], width(cells[c]));
    }
    std::string line;
    for (std::size_t i = 0; i < rows; ++i) {
        cells.clear();
        row(i, cells);
        line.clear();
        for (std::size_t c = 0; c < cells.size(); ++c) {
            if (!plain(cells[c]))
                cells[c] = QuoteControlCharacters(cells[c]);
            const std::string& cell = cells[c];
            const std::size_t padding = widths[c] - width(cell);
            if (rightAligned.count(c))
                line.append(padding, ' ');
            line += cell;
            if (c + 1 < cells.size())
                line.append((rightAligned.count(c) ? 0 : padding) + 2, ' ');
        }
        while (!line.empty() && line.back() == ' ')
            line.pop_back();
        line.push_back('\n');
        out.write(line.data(), static_cast<std::streamsize>(line.size()));
    }
}

std::string HumanSize(std::uint64_t bytes) {
    if (bytes < 1024)
        return std::to_string(bytes);
    static constexpr char kUnits[] = "KMGTPE";
    // In tenths of the unit, rounded up as ls rounds, so a size is never shown smaller.
    std::size_t unit = 0;
    long double value = static_cast<long double>(bytes) / 1024;
    while (value >= 1024 && unit + 1 < sizeof kUnits - 1) {
        value /= 1024;
        ++unit;
    }
    char text[32];
    const long double tenths = std::ceil(value * 10);
    if (tenths < 100) {
        std::snprintf(text, sizeof text, "%.1Lf%c", tenths / 10, kUnits[unit]);
    } else {
        const long double whole = std::ceil(value);
        if (whole >= 1024 && unit + 1 < sizeof kUnits - 1)
            std::snprintf(text, sizeof text, "1.0%c", kUnits[unit + 1]);
        else
            std::snprintf(text, sizeof text, "%.0Lf%c", whole, kUnits[unit]);
    }
    return text;
}

namespace {

// A value's magnitude, when it has one.
std::optional<long double> Magnitude(const any_regular_t& value) {
    if (const auto* size = value.get_if<Provider::ByteSize_t>())
        return static_cast<long double>(size->GetCount());
    if (const auto* i = value.get_if<std::int64_t>())
        return static_cast<long double>(*i);
    if (const auto* d = value.get_if<double>())
        return static_cast<long double>(*d);
    if (const auto* date = value.get_if<DateTime>())
        return static_cast<long double>(date->microsecondsSinceEpoch);
    return std::nullopt;
}

}  // namespace

int CompareValues(const any_regular_t& a, const any_regular_t& b) {
    if (a.empty() || b.empty())
        return static_cast<int>(!a.empty()) - static_cast<int>(!b.empty());
    const auto x = Magnitude(a);
    const auto y = Magnitude(b);
    if (x && y)
        return *x < *y ? -1 : *y < *x ? 1 : 0;
    return ValueToText(a).compare(ValueToText(b));
}

}  // namespace Tessel::Tool

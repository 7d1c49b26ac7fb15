#include <tessel/providers/cards/CardFileNames.h>

#include <algorithm>

#include <tessel/foundation/Path.h>

namespace Tessel::CardFileNames {

namespace {

// The most digits a frame number may have and still fit in 64 bits.
constexpr std::size_t kLongestFrameNumber = 18;

bool IsSeparator(char16_t c) {
    // Windows takes both; a POSIX name never holds its separator.
    return c == Path::kSeparator || c == u'/';
}

bool IsDigit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

char16_t LowerAscii(char16_t c) {
    return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c - u'A' + u'a') : c;
}

// The position of the dot that begins NAME's extension, or npos.
std::size_t ExtensionDot(std::u16string_view name) {
    const std::size_t dot = name.rfind(u'.');
    return dot == 0 ? std::u16string_view::npos : dot;
}

}  // namespace

std::u16string_view LeafOf(std::u16string_view path) {
    std::size_t start = path.size();
    while (start > 0 && !IsSeparator(path[start - 1]))
        --start;
    return path.substr(start);
}

std::u16string_view TitleOf(std::u16string_view name) {
    return name.substr(0, ExtensionDot(name));
}

bool HasExtension(std::u16string_view name, std::u16string_view lowerExtension) {
    // The extension holds one dot, its first character, so a matching tail starts at the
    // name's last dot; at least one character must come before it.
    if (lowerExtension.empty() || name.size() <= lowerExtension.size())
        return false;
    const std::u16string_view tail = name.substr(name.size() - lowerExtension.size());
    return std::equal(tail.begin(), tail.end(), lowerExtension.begin(),
                      [](char16_t a, char16_t b) { return LowerAscii(a) == b; });
}

bool EqualIgnoringCase(std::u16string_view a, std::u16string_view b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(),
                      [](char16_t x, char16_t y) { return LowerAscii(x) == LowerAscii(y); });
}

FrameName SplitFrameName(std::u16string_view name) {
    const std::size_t dot = ExtensionDot(name);
    const std::u16string_view title = name.substr(0, dot);
    std::size_t start = title.size();
    while (start > 0 && IsDigit(title[start - 1]))
        --start;
    FrameName parts;
    parts.prefix = title.substr(0, start);
    parts.digits = title.substr(start);
    if (dot != std::u16string_view::npos)
        parts.extension = name.substr(dot);
    return parts;
}

std::optional<std::int64_t> FrameNumber(std::u16string_view digits) {
    if (digits.empty() || digits.size() > kLongestFrameNumber)
        return std::nullopt;
    std::int64_t number = 0;
    for (char16_t c : digits) {
        if (!IsDigit(c))
            return std::nullopt;
        number = number * 10 + (c - u'0');
    }
    return number;
}

std::optional<FrameRange> FindFrameRange(const std::vector<std::u16string>& files,
                                         std::u16string_view name) {
    const FrameName item = SplitFrameName(name);
    const std::optional<std::int64_t> itemNumber = FrameNumber(item.digits);
    if (!itemNumber)
        return std::nullopt;
    FrameRange range{*itemNumber, *itemNumber, 0};
    for (const std::u16string& file : files) {
        const FrameName frame = SplitFrameName(LeafOf(file));
        if (frame.prefix != item.prefix || !EqualIgnoringCase(frame.extension, item.extension))
            continue;
        const std::optional<std::int64_t> number = FrameNumber(frame.digits);
        if (!number)
            continue;
        range.first = std::min(range.first, *number);
        range.last = std::max(range.last, *number);
        ++range.count;
    }
    return range;
}

}  // namespace Tessel::CardFileNames

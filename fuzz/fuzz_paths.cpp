// Feeds arbitrary bytes to the path rules of both platforms, as UTF-8 and as UTF-16 (the
// bytes taken in pairs). Besides memory and UB faults it checks what callers rely on:
// stripping is idempotent and never shortens a root, walking up always shortens the path,
// a joined leaf comes back as file part and relative path, making a path absolute gives an
// absolute path, and the UTF-8 and UTF-16 forms agree wherever the text converts exactly.
// Nothing here touches the file system.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/PathStyle.h>
#include <tessel/foundation/Unicode.h>

namespace {

using Tessel::Path::PathStyle;

void Check(bool condition) {
    if (!condition)
        std::abort();
}

template <typename String>
bool EndsWith(const String& text, const String& suffix) {
    return text.size() >= suffix.size() &&
           std::equal(suffix.begin(), suffix.end(), text.end() - suffix.size());
}

// The invariants shared by both string forms.
template <typename Char>
void CheckRules(PathStyle style, std::basic_string_view<Char> path) {
    using String = std::basic_string<Char>;
    namespace P = Tessel::Path;
    const String stripped = P::StripTrailingSeparator(style, path);
    Check(P::StripTrailingSeparator(style, std::basic_string_view<Char>(stripped)) == stripped);
    Check(stripped.size() <= path.size() && path.empty() == stripped.empty());
    Check(path.substr(0, stripped.size()) == stripped);

    const String leaf = P::GetFilePart(style, path);
    const String parent = P::GetParent(style, path);
    Check(EndsWith(stripped, leaf));
    for (Char c : leaf)
        Check(!P::IsSeparator(style, static_cast<char16_t>(c)));
    Check(parent.empty() || parent.size() < stripped.size());
    if (P::IsRoot(style, std::basic_string_view<Char>(stripped))) {
        Check(leaf.empty() && parent.empty());
    }

    const String extension = P::GetExtensionLower(style, path);
    if (!extension.empty()) {
        Check(extension[0] == Char('.') && extension.size() < leaf.size());
        Check(EndsWith(Tessel::AsciiLower(std::basic_string_view<Char>(leaf)), extension));
    }

    const String withSeparator = P::AddTrailingSeparator(style, path);
    Check(withSeparator.empty() == path.empty());
    Check(withSeparator.empty() ||
          P::IsSeparator(style, static_cast<char16_t>(withSeparator.back())));

    if (!stripped.empty()) {
        const Char leafName[] = {Char('l'), Char('e'), Char('a'), Char('f')};
        const std::basic_string_view<Char> name(leafName, 4);
        const String joined = P::Join(style, std::basic_string_view<Char>(stripped), name);
        Check(P::GetFilePart(style, std::basic_string_view<Char>(joined)) == name);
        // "\\server\share" is no root, but the parent of a path inside it is the root.
        const String parentOfJoined = P::GetParent(style, std::basic_string_view<Char>(joined));
        const String asDirectory =
            P::AddTrailingSeparator(style, std::basic_string_view<Char>(stripped));
        Check(parentOfJoined == stripped ||
              (parentOfJoined == asDirectory &&
               P::IsRoot(style, std::basic_string_view<Char>(asDirectory))));
        Check(EndsWith(joined, String(name)));
    }
}

void CheckUtf16(PathStyle style, std::u16string_view path, std::u16string_view other) {
    namespace P = Tessel::Path;
    CheckRules(style, path);

    const std::u16string stripped = P::StripTrailingSeparator(style, path);
    if (!stripped.empty()) {
        const std::u16string joined = P::Join(style, stripped, u"leaf");
        std::u16string relative;
        Check(P::ArePathsRelative(style, stripped, joined, &relative) && relative == u"leaf");
    }
    std::u16string relative;
    if (P::ArePathsRelative(style, other, path, &relative)) {
        const std::u16string base = P::AddTrailingSeparator(style, other);
        Check(P::AddTrailingSeparator(style, path).compare(0, base.size(), base) == 0);
        Check(relative.empty() || base + relative == path);
    }

    const std::u16string currentDirectory = style == PathStyle::Windows ? u"C:\\work" : u"/work";
    const std::u16string absolute = P::MakeAbsolute(style, path, currentDirectory);
    Check(absolute.empty() == path.empty());
    Check(absolute.empty() || P::IsAbsolute(style, absolute));
    Check(P::StripTrailingSeparator(style, absolute) == absolute);
}

void CheckUtf8(PathStyle style, std::string_view path) {
    namespace P = Tessel::Path;
    CheckRules(style, path);
    // Where the text survives the trip through UTF-16 exactly, both forms must agree.
    const std::u16string wide = Tessel::Utf8ToUtf16(path);
    if (Tessel::Utf16ToUtf8(wide) != path)
        return;
    Check(P::IsRoot(style, path) == P::IsRoot(style, wide));
    Check(P::RootLength(style, path) ==
          Tessel::Utf16ToUtf8(std::u16string_view(wide).substr(0, P::RootLength(style, wide)))
              .size());
    Check(Tessel::Utf16ToUtf8(P::StripTrailingSeparator(style, wide)) ==
          P::StripTrailingSeparator(style, path));
    Check(Tessel::Utf16ToUtf8(P::GetFilePart(style, wide)) == P::GetFilePart(style, path));
    Check(Tessel::Utf16ToUtf8(P::GetParent(style, wide)) == P::GetParent(style, path));
    Check(Tessel::Utf16ToUtf8(P::GetExtensionLower(style, wide)) ==
          P::GetExtensionLower(style, path));
    Check(Tessel::Utf16ToUtf8(P::AddTrailingSeparator(style, wide)) ==
          P::AddTrailingSeparator(style, path));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    std::u16string units(size / 2, u'\0');
    for (std::size_t i = 0; i < units.size(); ++i) {
        units[i] = static_cast<char16_t>(data[2 * i] | (data[2 * i + 1] << 8));
    }
    const std::u16string_view half = std::u16string_view(units).substr(0, units.size() / 2);

    for (PathStyle style : {PathStyle::Posix, PathStyle::Windows}) {
        CheckUtf8(style, bytes);
        CheckUtf16(style, units, half);
        CheckUtf16(style, half, units);
    }

    // The native forms: file-name bytes survive the trip through UTF-16 unchanged, and the
    // display form has no lone surrogates left.
    const std::u16string wide = Tessel::Path::FromNative(Tessel::Path::ToNative(bytes));
    Check(Tessel::Path::ToNative(wide) == Tessel::Path::ToNative(bytes));
    const std::u16string display = Tessel::Path::LeafDisplayString(units);
    for (std::size_t i = 0; i < display.size(); ++i) {
        const char16_t c = display[i];
        if (c >= 0xD800 && c <= 0xDBFF) {
            Check(i + 1 < display.size() && display[i + 1] >= 0xDC00 && display[i + 1] <= 0xDFFF);
            ++i;
        } else {
            Check(c < 0xDC00 || c > 0xDFFF);
        }
    }
    return 0;
}

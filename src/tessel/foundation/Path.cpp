#include <tessel/foundation/Path.h>

#include <algorithm>

#include <tessel/foundation/PathStyle.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/platform/UncPaths.h>

namespace Tessel::Path {

namespace {

// The rules below work on UTF-16 and on UTF-8 alike: every character they look at is
// ASCII, and no byte of a multi-byte UTF-8 sequence or surrogate unit is ASCII.
template <typename CharT>
using View = std::basic_string_view<CharT>;
template <typename CharT>
using String = std::basic_string<CharT>;

template <typename CharT>
bool IsSep(PathStyle style, CharT c) {
    return c == CharT('/') || (style == PathStyle::Windows && c == CharT('\\'));
}

template <typename CharT>
CharT NativeSep(PathStyle style) {
    return style == PathStyle::Windows ? CharT('\\') : CharT('/');
}

template <typename CharT>
bool IsAsciiLetter(CharT c) {
    return (c >= CharT('A') && c <= CharT('Z')) || (c >= CharT('a') && c <= CharT('z'));
}

template <typename CharT>
bool StartsWithAscii(View<CharT> text, std::string_view prefix, bool ignoreCase) {
    if (text.size() < prefix.size())
        return false;
    for (std::size_t i = 0; i < prefix.size(); ++i) {
        CharT c = text[i];
        if (ignoreCase && c >= CharT('a') && c <= CharT('z'))
            c = CharT(c - 32);
        if (c != CharT(prefix[i]))
            return false;
    }
    return true;
}

// "X:" followed by a separator.
template <typename CharT>
std::size_t DriveRootLength(View<CharT> text) {
    if (text.size() >= 3 && IsAsciiLetter(text[0]) && text[1] == CharT(':') &&
        IsSep(PathStyle::Windows, text[2])) {
        return 3;
    }
    return 0;
}

// "server\share\" with both names non-empty and the share's separator present.
template <typename CharT>
std::size_t ServerShareLength(View<CharT> text) {
    std::size_t i = 0;
    while (i < text.size() && !IsSep(PathStyle::Windows, text[i]))
        ++i;
    if (i == 0 || i == text.size())
        return 0;
    const std::size_t shareStart = ++i;
    while (i < text.size() && !IsSep(PathStyle::Windows, text[i]))
        ++i;
    if (i == shareStart || i == text.size())
        return 0;
    return i + 1;
}

// "Volume{guid}\", the name of a volume that has no drive letter.
template <typename CharT>
std::size_t VolumeRootLength(View<CharT> text) {
    if (!StartsWithAscii(text, "Volume{", false))
        return 0;
    for (std::size_t i = 7; i < text.size(); ++i) {
        if (IsSep(PathStyle::Windows, text[i]))
            return 0;
        if (text[i] == CharT('}')) {
            return i + 1 < text.size() && IsSep(PathStyle::Windows, text[i + 1]) ? i + 2 : 0;
        }
    }
    return 0;
}

template <typename CharT>
std::size_t WindowsRootLength(View<CharT> path) {
    constexpr std::size_t kVerbatimPrefixLength = 4;  // "\\?\"
    if (StartsWithAscii(path, "\\\\?\\", false)) {
        const View<CharT> rest = path.substr(kVerbatimPrefixLength);
        if (StartsWithAscii(rest, "UNC", true) && rest.size() > 3 &&
            IsSep(PathStyle::Windows, rest[3])) {
            const std::size_t share = ServerShareLength(rest.substr(4));
            return share == 0 ? 0 : kVerbatimPrefixLength + 4 + share;
        }
        std::size_t length = DriveRootLength(rest);
        if (length == 0)
            length = VolumeRootLength(rest);
        return length == 0 ? 0 : kVerbatimPrefixLength + length;
    }
    if (path.size() >= 2 && IsSep(PathStyle::Windows, path[0]) &&
        IsSep(PathStyle::Windows, path[1])) {
        const std::size_t share = ServerShareLength(path.substr(2));
        return share == 0 ? 0 : 2 + share;
    }
    return DriveRootLength(path);
}

template <typename CharT>
std::size_t RootLengthOf(PathStyle style, View<CharT> path) {
    if (style == PathStyle::Windows)
        return WindowsRootLength(path);
    return !path.empty() && path[0] == CharT('/') ? 1 : 0;
}

template <typename CharT>
bool IsRootOf(PathStyle style, View<CharT> path) {
    return !path.empty() && RootLengthOf(style, path) == path.size();
}

template <typename CharT>
String<CharT> AddSeparatorTo(PathStyle style, View<CharT> path) {
    String<CharT> out(path);
    if (!out.empty() && !IsSep(style, out.back()))
        out.push_back(NativeSep<CharT>(style));
    return out;
}

// Never shortens a root, and never empties a path made only of separators.
template <typename CharT>
View<CharT> StripSeparatorsFrom(PathStyle style, View<CharT> path) {
    std::size_t keep = RootLengthOf(style, path);
    if (keep == 0) {
        // The leading "\\" of a Windows share path is not a trailing separator.
        const bool sharePrefix = style == PathStyle::Windows && path.size() >= 2 &&
                                 IsSep(style, path[0]) && IsSep(style, path[1]);
        keep = sharePrefix ? 2 : 1;
    }
    std::size_t end = path.size();
    while (end > keep && IsSep(style, path[end - 1]))
        --end;
    return path.substr(0, end);
}

template <typename CharT>
View<CharT> FilePartOf(PathStyle style, View<CharT> path) {
    const View<CharT> stripped = StripSeparatorsFrom(style, path);
    const std::size_t rootLength = RootLengthOf(style, stripped);
    std::size_t start = stripped.size();
    while (start > rootLength && !IsSep(style, stripped[start - 1]))
        --start;
    return stripped.substr(start);
}

template <typename CharT>
View<CharT> ParentOf(PathStyle style, View<CharT> path) {
    const View<CharT> stripped = StripSeparatorsFrom(style, path);
    const std::size_t rootLength = RootLengthOf(style, stripped);
    if (stripped.empty() || rootLength == stripped.size())
        return {};
    std::size_t leafStart = stripped.size();
    while (leafStart > rootLength && !IsSep(style, stripped[leafStart - 1]))
        --leafStart;
    if (leafStart == 0)
        return {};  // no separator at all
    if (leafStart <= rootLength)
        return stripped.substr(0, rootLength);  // parent is the root
    const View<CharT> parent = StripSeparatorsFrom(style, stripped.substr(0, leafStart));
    // A path of separators only ("\" on Windows) has no parent.
    return parent.size() < stripped.size() ? parent : View<CharT>();
}

template <typename CharT>
String<CharT> JoinOf(PathStyle style, View<CharT> directory, View<CharT> leaf) {
    if (directory.empty())
        return String<CharT>(leaf);
    const View<CharT> base = StripSeparatorsFrom(style, directory);
    std::size_t start = 0;
    while (start < leaf.size() && IsSep(style, leaf[start]))
        ++start;
    String<CharT> out;
    out.reserve(base.size() + 1 + leaf.size() - start);
    out.append(base);
    // A root keeps its own separator, so "C:/" gives "C:/x" and "/" gives "/x".
    if (!IsSep(style, base.back()))
        out.push_back(NativeSep<CharT>(style));
    out.append(leaf.substr(start));
    return out;
}

template <typename CharT>
String<CharT> ExtensionLowerOf(PathStyle style, View<CharT> path) {
    const View<CharT> leaf = FilePartOf(style, path);
    const std::size_t dot = leaf.rfind(CharT('.'));
    if (dot == View<CharT>::npos || dot == 0)
        return {};
    return AsciiLower(leaf.substr(dot));
}

// The drive letter of "X:..." or "\\?\X:...", or 0.
char16_t DriveLetterOf(std::u16string_view path) {
    if (StartsWithAscii(path, "\\\\?\\", false))
        path.remove_prefix(4);
    if (path.size() >= 2 && IsAsciiLetter(path[0]) && path[1] == u':')
        return path[0];
    return 0;
}

char16_t AsciiUpper(char16_t c) {
    return c >= u'a' && c <= u'z' ? char16_t(c - 32) : c;
}

}  // namespace

bool IsSeparator(PathStyle style, char16_t c) {
    return IsSep(style, c);
}

std::size_t RootLength(PathStyle style, std::u16string_view path) {
    return RootLengthOf(style, path);
}
std::size_t RootLength(PathStyle style, std::string_view path) {
    return RootLengthOf(style, path);
}
bool IsRoot(PathStyle style, std::u16string_view path) {
    return IsRootOf(style, path);
}
bool IsRoot(PathStyle style, std::string_view path) {
    return IsRootOf(style, path);
}

bool IsAbsolute(PathStyle style, std::u16string_view path) {
    if (style == PathStyle::Posix)
        return !path.empty() && path[0] == u'/';
    // "\\server\share" names a share even before its separator; "C:" alone is relative.
    return (path.size() >= 2 && IsSep(style, path[0]) && IsSep(style, path[1])) ||
           DriveRootLength(path) != 0;
}

std::u16string AddTrailingSeparator(PathStyle style, std::u16string_view path) {
    return AddSeparatorTo(style, path);
}
std::string AddTrailingSeparator(PathStyle style, std::string_view path) {
    return AddSeparatorTo(style, path);
}
std::u16string StripTrailingSeparator(PathStyle style, std::u16string_view path) {
    return std::u16string(StripSeparatorsFrom(style, path));
}
std::string StripTrailingSeparator(PathStyle style, std::string_view path) {
    return std::string(StripSeparatorsFrom(style, path));
}
std::u16string GetFilePart(PathStyle style, std::u16string_view path) {
    return std::u16string(FilePartOf(style, path));
}
std::string GetFilePart(PathStyle style, std::string_view path) {
    return std::string(FilePartOf(style, path));
}
std::u16string GetParent(PathStyle style, std::u16string_view path) {
    return std::u16string(ParentOf(style, path));
}
std::string GetParent(PathStyle style, std::string_view path) {
    return std::string(ParentOf(style, path));
}
std::u16string Join(PathStyle style, std::u16string_view directory, std::u16string_view leaf) {
    return JoinOf(style, directory, leaf);
}
std::string Join(PathStyle style, std::string_view directory, std::string_view leaf) {
    return JoinOf(style, directory, leaf);
}
std::u16string GetExtensionLower(PathStyle style, std::u16string_view path) {
    return ExtensionLowerOf(style, path);
}
std::string GetExtensionLower(PathStyle style, std::string_view path) {
    return ExtensionLowerOf(style, path);
}

bool ArePathsRelative(PathStyle style, std::u16string_view base, std::u16string_view candidate,
                      std::u16string* relative) {
    if (base.empty() || candidate.empty())
        return false;
    // Both end with a separator, so "/a/bc/" never counts as inside "/a/b/".
    const std::u16string baseDirectory = AddSeparatorTo(style, base);
    const std::u16string candidateDirectory = AddSeparatorTo(style, candidate);
    if (candidateDirectory.compare(0, baseDirectory.size(), baseDirectory) != 0)
        return false;
    if (relative != nullptr) {
        *relative = candidate.size() > baseDirectory.size()
                        ? std::u16string(candidate.substr(baseDirectory.size()))
                        : std::u16string();
    }
    return true;
}

std::u16string MakeAbsolute(PathStyle style, std::u16string_view path,
                            std::u16string_view currentDirectory) {
    if (path.empty())
        return {};
    if (IsAbsolute(style, path))
        return StripTrailingSeparator(style, path);
    if (style == PathStyle::Windows) {
        if (IsSep(style, path[0])) {  // "\x": from the root of the current drive
            const std::size_t rootLength = RootLengthOf(style, currentDirectory);
            return StripTrailingSeparator(
                style, JoinOf(style, currentDirectory.substr(0, rootLength), path));
        }
        if (const char16_t drive = DriveLetterOf(path); drive != 0) {  // "D:x"
            const std::u16string_view rest = path.substr(2);
            if (AsciiUpper(DriveLetterOf(currentDirectory)) == AsciiUpper(drive)) {
                return StripTrailingSeparator(style, JoinOf(style, currentDirectory, rest));
            }
            const std::u16string driveRoot{drive, u':', u'\\'};
            return StripTrailingSeparator(style, JoinOf<char16_t>(style, driveRoot, rest));
        }
    }
    return StripTrailingSeparator(style, JoinOf(style, currentDirectory, path));
}

namespace {

template <typename CharT>
bool IsUncPathOf(View<CharT> path) {
    if (path.size() < 2 || path[0] != CharT('\\') || path[1] != CharT('\\'))
        return false;
    if (path.size() > 2 && path[2] == CharT('?'))
        return StartsWithAscii(path, "\\\\?\\UNC\\", true);
    return true;
}

// The Windows rule, in UTF-16 units, given the answer of the UNC test for PATH.
bool IsValidWindowsDirectoryPath(std::u16string_view path, bool isUnc) {
    if (isUnc)
        return true;
    if (path.size() < 4 || !StartsWithAscii(path, "\\\\?\\", false))
        return false;
    // "\\?\C:" names the current folder of drive C, not its root.
    const bool drive = path.size() >= 6 && IsAsciiLetter(path[4]) && path[5] == u':';
    if (path.size() == 6 && drive)
        return false;
    if (path.back() != u'\\')
        return true;
    return path.size() == 7 && drive;  // only a drive root keeps its backslash
}

template <typename CharT>
bool IsValidPosixDirectoryPath(View<CharT> path) {
    return !path.empty() && path[0] == CharT('/') &&
           (path.size() == 1 || path.back() != CharT('/'));
}

template <typename CharT>
String<CharT> DisplayFilePathOf(PathStyle style, View<CharT> path) {
    if (style == PathStyle::Windows) {
        if (StartsWithAscii(path, "\\\\?\\UNC\\", false)) {
            String<CharT> out(2, CharT('\\'));
            out.append(path.substr(8));
            return out;
        }
        if (StartsWithAscii(path, "\\\\?\\", false) && path.size() >= 7 && path[5] == CharT(':') &&
            path[6] == CharT('\\')) {
            return String<CharT>(path.substr(4));
        }
    }
    return String<CharT>(path);
}

// "\\?\C:\x" for "C:\x" and "\\?\UNC\server\share\x" for "\\server\share\x", with forward
// slashes turned round and "." and ".." resolved, since the system takes a long path as it is.
std::u16string WindowsLongPathOf(std::u16string_view path) {
    if (StartsWithAscii(path, "\\\\?\\", false) || StartsWithAscii(path, "\\\\.\\", false))
        return std::u16string(path);
    std::u16string text(path);
    std::replace(text.begin(), text.end(), u'/', u'\\');
    std::u16string prefix;
    std::size_t rootLength = 0;
    if (DriveRootLength(std::u16string_view(text)) != 0) {
        prefix = u"\\\\?\\";
        rootLength = 3;
    } else if (text.size() >= 2 && text[0] == u'\\' && text[1] == u'\\') {
        prefix = u"\\\\?\\UNC\\";
        text.erase(0, 2);
        // The server and share names are the root: ".." never climbs above the share.
        rootLength = ServerShareLength(std::u16string_view(text));
        if (rootLength == 0)
            return prefix + text;  // "\\server" or "\\server\share" alone
    } else {
        return std::u16string(path);  // relative: nothing to make long
    }

    std::vector<std::u16string_view> kept;
    const std::u16string_view rest = std::u16string_view(text).substr(rootLength);
    std::size_t start = 0;
    while (start <= rest.size()) {
        std::size_t end = rest.find(u'\\', start);
        if (end == std::u16string_view::npos)
            end = rest.size();
        const std::u16string_view component = rest.substr(start, end - start);
        if (component == u"..") {
            if (!kept.empty())
                kept.pop_back();
        } else if (!component.empty() && component != u".") {
            kept.push_back(component);
        }
        start = end + 1;
    }
    std::u16string out = prefix;
    out.append(text, 0, rootLength);
    for (std::size_t i = 0; i < kept.size(); ++i) {
        if (i != 0)
            out.push_back(u'\\');
        out.append(kept[i]);
    }
    // A trailing separator the path had stays: "C:\x\" names the same folder as "C:\x".
    if (!kept.empty() && text.back() == u'\\')
        out.push_back(u'\\');
    return out;
}

}  // namespace

bool IsUncPath(std::u16string_view path) {
    return IsUncPathOf(path);
}

bool IsValidDirectoryPath(PathStyle style, std::u16string_view path) {
    return style == PathStyle::Windows ? IsValidWindowsDirectoryPath(path, IsUncPathOf(path))
                                       : IsValidPosixDirectoryPath(path);
}

bool IsValidDirectoryPath(PathStyle style, std::string_view path) {
    if (style == PathStyle::Posix)
        return IsValidPosixDirectoryPath(path);
    const std::u16string wide = Utf8ToUtf16(path);
    return IsValidWindowsDirectoryPath(wide, IsUncPathOf(std::u16string_view(wide)));
}

std::u16string ToLongPath(PathStyle style, std::u16string_view path) {
    return style == PathStyle::Windows ? WindowsLongPathOf(path) : std::u16string(path);
}

std::u16string ToDisplayFilePath(PathStyle style, std::u16string_view path) {
    return DisplayFilePathOf(style, path);
}

std::string ToDisplayFilePath(PathStyle style, std::string_view path) {
    return DisplayFilePathOf(style, path);
}

// The native forms.

Platform::NativeString ToNative(std::u16string_view path) {
#if defined(_WIN32)
    return Platform::NativeString(path.begin(), path.end());
#else
    return Utf16ToUtf8(path);
#endif
}

Platform::NativeString ToNative(std::string_view utf8Path) {
#if defined(_WIN32)
    return ToNative(Utf8ToUtf16(utf8Path));
#else
    return Platform::NativeString(utf8Path);
#endif
}

std::u16string FromNative(const Platform::NativeString& path) {
#if defined(_WIN32)
    return std::u16string(path.begin(), path.end());
#else
    return Utf8ToUtf16(path);
#endif
}

std::string FromNativeUtf8(const Platform::NativeString& path) {
#if defined(_WIN32)
    return Utf16ToUtf8(FromNative(path));
#else
    return path;
#endif
}

bool IsSeparator(char16_t c) {
    return IsSep(kNativePathStyle, c);
}
bool IsRoot(std::u16string_view path) {
    return IsRootOf(kNativePathStyle, path);
}

std::u16string AddTrailingSeparator(std::u16string_view path) {
    return AddSeparatorTo(kNativePathStyle, path);
}
std::string AddTrailingSeparator(std::string_view path) {
    return AddSeparatorTo(kNativePathStyle, path);
}
std::u16string StripTrailingSeparator(std::u16string_view path) {
    return StripTrailingSeparator(kNativePathStyle, path);
}
std::string StripTrailingSeparator(std::string_view path) {
    return StripTrailingSeparator(kNativePathStyle, path);
}
std::u16string GetFilePart(std::u16string_view path) {
    return GetFilePart(kNativePathStyle, path);
}
std::string GetFilePart(std::string_view path) {
    return GetFilePart(kNativePathStyle, path);
}
std::u16string GetParent(std::u16string_view path) {
    return GetParent(kNativePathStyle, path);
}
std::string GetParent(std::string_view path) {
    return GetParent(kNativePathStyle, path);
}
std::u16string Join(std::u16string_view directory, std::u16string_view leaf) {
    return JoinOf(kNativePathStyle, directory, leaf);
}
std::string Join(std::string_view directory, std::string_view leaf) {
    return JoinOf(kNativePathStyle, directory, leaf);
}
std::u16string GetExtensionLower(std::u16string_view path) {
    return ExtensionLowerOf(kNativePathStyle, path);
}
std::string GetExtensionLower(std::string_view path) {
    return ExtensionLowerOf(kNativePathStyle, path);
}

std::u16string LeafDisplayString(std::u16string_view path) {
    const std::u16string_view leaf = FilePartOf(kNativePathStyle, path);
    return ToDisplayUtf16(leaf.empty() ? path : leaf);
}

bool ArePathsRelative(std::u16string_view base, std::u16string_view candidate,
                      std::u16string* relative) {
    return ArePathsRelative(kNativePathStyle, base, candidate, relative);
}

std::u16string MakeAbsolute(std::u16string_view path) {
    if (path.empty())
        return {};
    if (IsAbsolute(kNativePathStyle, path))
        return StripTrailingSeparator(kNativePathStyle, path);
    return MakeAbsolute(kNativePathStyle, path, FromNative(Platform::CurrentDirectory()));
}

std::u16string ToLongPath(std::u16string_view path) {
    return ToLongPath(kNativePathStyle, path);
}

bool IsValidDirectoryPath(std::string_view utf8Path) {
    if constexpr (kNativePathStyle == PathStyle::Posix) {
        return IsValidDirectoryPath(PathStyle::Posix, utf8Path);
    } else {
        // The UNC step is the system's own test.
        const std::u16string wide = Utf8ToUtf16(utf8Path);
        return IsValidWindowsDirectoryPath(wide, Platform::IsUncPath(ToNative(wide)));
    }
}

namespace {

bool IsKind(const Platform::NativeString& path, Platform::PathKind kind) {
    return Platform::GetPathKind(path) == kind;
}

bool IsFileOrDirectory(const Platform::NativeString& path) {
    const Platform::PathKind kind = Platform::GetPathKind(path);
    return kind == Platform::PathKind::File || kind == Platform::PathKind::Directory;
}

// Reads DIRECTORY once for an entry whose name equals NAME but for case. An exact match
// wins; among the others (a case-sensitive disk may hold several) the first in NTFS order,
// upper case before lower case where only case differs.
std::optional<Platform::NativeString> FindNameIgnoringCase(const Platform::NativeString& directory,
                                                           std::u16string_view name) {
    std::vector<Platform::DirectoryEntry> entries;
    if (!Platform::ReadDirectory(directory, entries, {}).IsOk())
        return std::nullopt;
    const Platform::DirectoryEntry* best = nullptr;
    std::u16string bestName;
    for (const Platform::DirectoryEntry& entry : entries) {
        std::u16string candidate = FromNative(entry.name);
        if (!EqualsIgnoringCase(candidate, name))
            continue;
        if (candidate == name)
            return entry.name;
        if (best == nullptr || candidate < bestName) {
            best = &entry;
            bestName = std::move(candidate);
        }
    }
    if (best == nullptr)
        return std::nullopt;
    return best->name;
}

}  // namespace

bool FileOrDirectoryExists(std::u16string_view path) {
    return IsFileOrDirectory(ToNative(path));
}
bool FileOrDirectoryExists(std::string_view utf8Path) {
    return IsFileOrDirectory(ToNative(utf8Path));
}
bool DirectoryExists(std::u16string_view path) {
    return IsKind(ToNative(path), Platform::PathKind::Directory);
}
bool DirectoryExists(std::string_view utf8Path) {
    return IsKind(ToNative(utf8Path), Platform::PathKind::Directory);
}
bool FileExists(std::u16string_view path) {
    return IsKind(ToNative(path), Platform::PathKind::File);
}
bool FileExists(std::string_view utf8Path) {
    return IsKind(ToNative(utf8Path), Platform::PathKind::File);
}

std::optional<std::u16string> FindExistingName(std::u16string_view directory,
                                               std::u16string_view name) {
    if (name.empty())
        return std::nullopt;
    if (Platform::PathEntryExists(ToNative(Join(directory, name))))
        return std::u16string(name);
    std::optional<Platform::NativeString> found = FindNameIgnoringCase(ToNative(directory), name);
    if (!found)
        return std::nullopt;
    return FromNative(*found);
}

std::optional<std::string> FindExistingName(std::string_view directory, std::string_view name) {
    if (name.empty())
        return std::nullopt;
    if (Platform::PathEntryExists(ToNative(Join(directory, name))))
        return std::string(name);
    std::optional<Platform::NativeString> found =
        FindNameIgnoringCase(ToNative(directory), Utf8ToUtf16(name));
    if (!found)
        return std::nullopt;
    return FromNativeUtf8(*found);
}

bool IsHiddenPath(std::u16string_view path) {
    return Platform::IsHiddenEntry(ToNative(path));
}

void RemoveHiddenFiles(std::vector<std::u16string>& paths) {
    std::erase_if(paths, [](const std::u16string& path) { return IsHiddenPath(path); });
}

}  // namespace Tessel::Path

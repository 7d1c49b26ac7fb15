// The path rules of both platforms as pure functions of their arguments. The functions of
// Path.h apply the rules of the platform they run on (kNativePathStyle); these forms let
// the Windows rules be built and tested on every platform.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <tessel/platform/Export.h>

namespace Tessel::Path {

enum class PathStyle {
    Posix,    // '/' separates; "/" is the only root
    Windows,  // '\' and '/' separate; roots "C:\", "\\?\C:\", "\\server\share\",
              // "\\?\UNC\server\share\" and "\\?\Volume{guid}\"
};

#if defined(_WIN32)
inline constexpr PathStyle kNativePathStyle = PathStyle::Windows;
#else
inline constexpr PathStyle kNativePathStyle = PathStyle::Posix;
#endif

TESSEL_API bool IsSeparator(PathStyle style, char16_t c);

// The length of the root PATH begins with, its separator included; 0 when PATH does not
// begin with a whole root (a relative path, "C:", "\\server\share" without separator).
TESSEL_API std::size_t RootLength(PathStyle style, std::u16string_view path);
TESSEL_API std::size_t RootLength(PathStyle style, std::string_view path);
TESSEL_API bool IsRoot(PathStyle style, std::u16string_view path);
TESSEL_API bool IsRoot(PathStyle style, std::string_view path);
// True when PATH does not depend on the current directory (or, on Windows, current drive).
TESSEL_API bool IsAbsolute(PathStyle style, std::u16string_view path);

TESSEL_API std::u16string AddTrailingSeparator(PathStyle style, std::u16string_view path);
TESSEL_API std::string AddTrailingSeparator(PathStyle style, std::string_view path);
TESSEL_API std::u16string StripTrailingSeparator(PathStyle style, std::u16string_view path);
TESSEL_API std::string StripTrailingSeparator(PathStyle style, std::string_view path);
TESSEL_API std::u16string GetFilePart(PathStyle style, std::u16string_view path);
TESSEL_API std::string GetFilePart(PathStyle style, std::string_view path);
TESSEL_API std::u16string GetParent(PathStyle style, std::u16string_view path);
TESSEL_API std::string GetParent(PathStyle style, std::string_view path);
TESSEL_API std::u16string Join(PathStyle style, std::u16string_view directory,
                               std::u16string_view leaf);
TESSEL_API std::string Join(PathStyle style, std::string_view directory, std::string_view leaf);
TESSEL_API std::u16string GetExtensionLower(PathStyle style, std::u16string_view path);
TESSEL_API std::string GetExtensionLower(PathStyle style, std::string_view path);
TESSEL_API bool ArePathsRelative(PathStyle style, std::u16string_view base,
                                 std::u16string_view candidate, std::u16string* relative);
// Makes PATH absolute against CURRENTDIRECTORY (itself absolute) and removes trailing
// separators except a root's. On Windows "\x" goes to the current drive's root and "D:x"
// to the current directory when it is on drive D, else to "D:\".
TESSEL_API std::u16string MakeAbsolute(PathStyle style, std::u16string_view path,
                                       std::u16string_view currentDirectory);

// What the Windows UNC test (PathIsUNCW) accepts: a path that begins with two backslashes.
// Of the "\\?\" long-path forms only "\\?\UNC\..." counts; "\\?\C:\..." is a drive path.
// Forward slashes do not count. (A rule of Windows paths, meaningless for POSIX ones.)
TESSEL_API bool IsUncPath(std::u16string_view path);

// The folder paths the file-directory provider claims. Windows: a UNC path, or a "\\?\"
// long path in which a drive root keeps its trailing backslash and nothing else has one:
// "\\?\C:\" and "\\?\C:\Media" pass; "\\?\C:", "\\?\C:\Media\" and "C:\Media" fail. POSIX:
// an absolute path of which only "/" itself may end with "/". The UTF-8 form counts
// Windows characters in UTF-16 units, as the rule is written for them.
TESSEL_API bool IsValidDirectoryPath(PathStyle style, std::u16string_view path);
TESSEL_API bool IsValidDirectoryPath(PathStyle style, std::string_view path);

// The long-path form of an absolute PATH, in which Windows opens paths of any length and
// takes every name as it is: "C:\x" becomes "\\?\C:\x" and "\\server\share\x" becomes
// "\\?\UNC\server\share\x", with '/' turned into '\' and "." and ".." components resolved
// (never above the drive root or the share). Long-path and device paths ("\\?\", "\\.\"),
// relative paths and every POSIX path are returned unchanged.
TESSEL_API std::u16string ToLongPath(PathStyle style, std::u16string_view path);

// A path as people write it. Windows drops the long-path prefix: "\\?\UNC\server\x" shows
// as "\\server\x" and "\\?\C:\x" as "C:\x" (the prefixes compared exactly); every other path,
// and every POSIX path, shows unchanged.
TESSEL_API std::u16string ToDisplayFilePath(PathStyle style, std::u16string_view path);
TESSEL_API std::string ToDisplayFilePath(PathStyle style, std::string_view path);

}  // namespace Tessel::Path

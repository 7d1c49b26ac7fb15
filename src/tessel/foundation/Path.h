// Path utilities on native paths held as UTF-16 (host side) or UTF-8 (provider side).
// The separator is '\' on Windows and '/' on POSIX. POSIX paths in UTF-16 carry invalid
// file-name bytes as lone surrogates (see Unicode.h), so they convert back exactly.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tessel/platform/Export.h>
#include <tessel/platform/FileSystem.h>

namespace Tessel::Path {

#if defined(_WIN32)
inline constexpr char16_t kSeparator = u'\\';
#else
inline constexpr char16_t kSeparator = u'/';
#endif

TESSEL_API Platform::NativeString ToNative(std::u16string_view path);
TESSEL_API Platform::NativeString ToNative(std::string_view utf8Path);
TESSEL_API std::u16string FromNative(const Platform::NativeString& path);
TESSEL_API std::string FromNativeUtf8(const Platform::NativeString& path);

// True for '/' and, on Windows, also '\'.
TESSEL_API bool IsSeparator(char16_t c);
// True when PATH is a root: "/" on POSIX; "C:\", "\\?\C:\", "\\server\share\" forms on
// Windows (with their trailing separator).
TESSEL_API bool IsRoot(std::u16string_view path);

TESSEL_API std::u16string AddTrailingSeparator(std::u16string_view path);
TESSEL_API std::string AddTrailingSeparator(std::string_view path);
// Removes trailing separators, but never reduces a root (a root keeps its separator).
TESSEL_API std::u16string StripTrailingSeparator(std::u16string_view path);
TESSEL_API std::string StripTrailingSeparator(std::string_view path);

// The last component ("c.mxf" of "/a/b/c.mxf"; "b" of "/a/b/"); empty for a root.
TESSEL_API std::u16string GetFilePart(std::u16string_view path);
TESSEL_API std::string GetFilePart(std::string_view path);
// The containing directory without trailing separator (a root keeps its separator);
// empty for a root or a path without separator.
TESSEL_API std::u16string GetParent(std::u16string_view path);
TESSEL_API std::string GetParent(std::string_view path);
// DIRECTORY + separator + LEAF, with exactly one separator between them.
TESSEL_API std::u16string Join(std::u16string_view directory, std::u16string_view leaf);
TESSEL_API std::string Join(std::string_view directory, std::string_view leaf);

// The extension with its dot, ASCII letters lower-cased (".mxf"); empty when the leaf
// has no dot, or only a leading one (".profile").
TESSEL_API std::u16string GetExtensionLower(std::u16string_view path);
TESSEL_API std::string GetExtensionLower(std::string_view path);

// The leaf for display: the file part (the path itself for a root), with undecodable
// bytes shown as U+FFFD.
TESSEL_API std::u16string LeafDisplayString(std::u16string_view path);

// When CANDIDATE lies inside BASE (both ending with a separator, compared exactly),
// stores the remainder in RELATIVE and returns true; otherwise returns false.
TESSEL_API bool ArePathsRelative(std::u16string_view base, std::u16string_view candidate,
                                 std::u16string* relative);

// Makes a path absolute against the current directory and removes trailing separators
// (except a root). Empty stays empty.
TESSEL_API std::u16string MakeAbsolute(std::u16string_view path);

// The long-path form the library takes on Windows (see PathStyle.h); POSIX paths unchanged.
TESSEL_API std::u16string ToLongPath(std::u16string_view path);

// The folder paths the file-directory provider claims (see PathStyle.h), by the rule of the
// platform this runs on. On Windows the UNC step is the system's own test (PathIsUNCW).
TESSEL_API bool IsValidDirectoryPath(std::string_view utf8Path);

TESSEL_API bool FileOrDirectoryExists(std::u16string_view path);
TESSEL_API bool FileOrDirectoryExists(std::string_view utf8Path);
TESSEL_API bool DirectoryExists(std::u16string_view path);
TESSEL_API bool DirectoryExists(std::string_view utf8Path);
TESSEL_API bool FileExists(std::u16string_view path);  // a regular file (not a directory)
TESSEL_API bool FileExists(std::string_view utf8Path);

// Case-insensitive existence test of NAME inside DIRECTORY, as on Windows: answers the
// entry's name as it is on disk, or std::nullopt when there is none. The exact name is
// tried first; the directory is read only when that is missing.
TESSEL_API std::optional<std::u16string> FindExistingName(std::u16string_view directory,
                                                          std::u16string_view name);
TESSEL_API std::optional<std::string> FindExistingName(std::string_view directory,
                                                       std::string_view name);

// The hidden-file filter: true when the leaf of PATH is hidden by the platform's rule.
TESSEL_API bool IsHiddenPath(std::u16string_view path);
// Removes every hidden path from PATHS, keeping the order of the rest.
TESSEL_API void RemoveHiddenFiles(std::vector<std::u16string>& paths);

}  // namespace Tessel::Path

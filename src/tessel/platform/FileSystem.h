// Operating-system file services, one implementation per OS (platform/posix/,
// platform/win32/). Paths here are native strings: bytes on POSIX (usually UTF-8, not
// necessarily valid), UTF-16 wchar_t on Windows. The foundation layer converts.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <tessel/platform/Export.h>
#include <tessel/platform/Status.h>

namespace Tessel::Platform {

#if defined(_WIN32)
using NativeString = std::wstring;
inline constexpr wchar_t kNativeSeparator = L'\\';
#else
using NativeString = std::string;
inline constexpr char kNativeSeparator = '/';
#endif

enum class EntryKind {
    File,       // a regular file, or a link to one
    Directory,  // a directory, or a link to one
    Other,      // FIFO, socket, device node, dangling or looping link: never opened
};

struct DirectoryEntry {
    NativeString name;  // leaf name, not the full path
    EntryKind kind = EntryKind::Other;
    bool isLink = false;  // a symbolic link (POSIX) or reparse point (Windows)
    bool hidden = false;  // hidden by the platform's rule (see IsHiddenName)
    // The entry itself is a device: a FIFO, socket or device node on POSIX, an entry with the
    // device attribute on Windows (whatever else it is, a reparse point included).
    bool device = false;
};

// Reads one level of DIRECTORY (no "." or ".."), in the order the system returns it, and
// appends the entries to OUT. ABORT, when set, is asked before each entry; a true answer
// stops the read, keeps what was read so far and is no failure. Kinds are resolved without
// opening any entry (the entry type from the directory itself, a stat only for links and
// file systems that do not say). Paths of any length are read (on POSIX the parts of a
// path beyond PATH_MAX are reached through descriptors).
//
// The contract of every directory read here: a read is all or nothing. When the directory
// cannot be opened, or the system reports any error other than the end of the list while
// it is read (a card pulled out, a share gone, an I/O error), nothing is appended and the
// status says why ("cannot read /media/card: Input/output error"); an empty OUT with an ok
// status is an empty directory.
TESSEL_API Status ReadDirectory(const NativeString& directory, std::vector<DirectoryEntry>& out,
                                const std::function<bool()>& abort);

enum class PathKind { Missing, File, Directory, Other };
// What PATH is, following links; never opens it. These tests take paths of any length.
TESSEL_API PathKind GetPathKind(const NativeString& path);
// True when PATH exists at all (a dangling link counts), without following links.
TESSEL_API bool PathEntryExists(const NativeString& path);
// The read-access test (access(R_OK) / _waccess(path, 4)).
TESSEL_API bool HasReadAccess(const NativeString& path);
// True when a leaf name is hidden by the platform's naming rule (POSIX: starts with '.').
TESSEL_API bool IsHiddenName(const NativeString& name);
// True when the entry at PATH is hidden: by its leaf name on POSIX, by its hidden or system
// attribute on Windows. Does not follow links and never opens the entry.
TESSEL_API bool IsHiddenEntry(const NativeString& path);

// Upper-cases one UTF-16 code unit by the system's simple case mapping.
TESSEL_API char16_t UpperCaseCodeUnit(char16_t unit);

// The current working directory, for making relative paths absolute.
TESSEL_API NativeString CurrentDirectory();

}  // namespace Tessel::Platform

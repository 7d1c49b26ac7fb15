// A directory of the file system, named by its UTF-16 path. Walks return entries in NTFS
// order (UTF-16 code units compared after upper-casing, ordinally) on every platform, so
// anything that depends on the order of a walk behaves the same everywhere.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <tessel/platform/Export.h>
#include <tessel/platform/Status.h>

namespace Tessel {

// Asked between units of work; true means "stop now".
using AbortPredicate = std::function<bool()>;

class TESSEL_API Directory {
public:
    Directory() = default;
    // PATH loses trailing separators (a root keeps its own).
    explicit Directory(std::u16string_view path);

    const std::u16string& GetFullPath() const { return mPath; }
    std::u16string ToString() const { return mPath; }
    // The containing directory; an empty Directory for a root.
    Directory GetParent() const;
    bool Exists() const;

    // The sub-directories, in walk order.
    std::vector<Directory> GetSubDirectories(const AbortPredicate& abort = {}) const;

    // One level of the directory: full paths of the non-directory entries (regular files
    // and links to them) in FILES, the sub-directories in DIRECTORIES, both in walk order.
    // FIFOs, sockets, devices and dangling links are in neither. LIMIT caps the number of
    // entries taken (-1: no cap): entries of every kind count, as the system returns them
    // and before the sort, so a capped walk stops reading early and sorts what it read.
    // An abort keeps what was read before it. Both lists are cleared first. A directory that
    // cannot be read, or whose read fails part-way, leaves both lists empty and the status
    // says why ("cannot read /media/card: Permission denied"): a caller can tell an empty
    // directory from an unreadable one.
    Status GetContainedFileAndDirectoryPaths(std::vector<std::u16string>& files,
                                             std::vector<Directory>& directories,
                                             const AbortPredicate& abort, int limit = -1) const;

    friend bool operator==(const Directory& a, const Directory& b) { return a.mPath == b.mPath; }
    friend bool operator!=(const Directory& a, const Directory& b) { return a.mPath != b.mPath; }
    friend bool operator<(const Directory& a, const Directory& b) { return a.mPath < b.mPath; }

private:
    std::u16string mPath;
};

// Sorts leaf names (or paths of one directory) into NTFS order.
TESSEL_API void SortNtfsOrder(std::vector<std::u16string>& names);
// The positions of NAMES taken in NTFS order (NAMES itself is left as it is).
TESSEL_API std::vector<std::size_t> NtfsOrderOf(const std::vector<std::u16string>& names);

}  // namespace Tessel

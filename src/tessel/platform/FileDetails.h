// Directory reads that also report what a folder listing shows beside the names: sizes,
// dates and Windows-style attribute bits. Each detail costs a system call per entry, so a
// caller names the details it needs and pays only for those; asking for none costs what
// ReadDirectory costs.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <tessel/platform/Counters.h>
#include <tessel/platform/Export.h>
#include <tessel/platform/FileSystem.h>

namespace Tessel::Platform {

// Which details a read gathers (a bit set).
using EntryDetails = std::uint32_t;
inline constexpr EntryDetails kNoDetails = 0;
// The attribute bits (see below); one stat per entry, and on file systems that keep DOS
// attributes one attribute read per file or folder.
inline constexpr EntryDetails kDetailAttributes = 1u << 0;
inline constexpr EntryDetails kDetailSize = 1u << 1;
inline constexpr EntryDetails kDetailTimes = 1u << 2;
// Marks entries hidden by their DOS hidden or system attribute too, where the file system
// keeps DOS attributes (FAT, NTFS, SMB shares). Costs nothing per entry elsewhere; a
// listing that skips hidden entries asks for it even when it wants no other detail.
inline constexpr EntryDetails kDetailHidden = 1u << 3;
// The 8.3 short name where the file system keeps one (Windows find records); nothing to read
// on POSIX.
inline constexpr EntryDetails kDetailShortName = 1u << 4;
inline constexpr EntryDetails kAllDetails =
    kDetailAttributes | kDetailSize | kDetailTimes | kDetailHidden | kDetailShortName;

// Windows file-attribute values, which the attribute columns of a listing test.
inline constexpr std::uint32_t kFileAttributeReadOnly = 0x1;
inline constexpr std::uint32_t kFileAttributeHidden = 0x2;
inline constexpr std::uint32_t kFileAttributeSystem = 0x4;
inline constexpr std::uint32_t kFileAttributeDirectory = 0x10;
inline constexpr std::uint32_t kFileAttributeArchive = 0x20;
inline constexpr std::uint32_t kFileAttributeDevice = 0x40;
inline constexpr std::uint32_t kFileAttributeNormal = 0x80;
inline constexpr std::uint32_t kFileAttributeTemporary = 0x100;
inline constexpr std::uint32_t kFileAttributeSparseFile = 0x200;
inline constexpr std::uint32_t kFileAttributeReparsePoint = 0x400;
inline constexpr std::uint32_t kFileAttributeCompressed = 0x800;
inline constexpr std::uint32_t kFileAttributeOffline = 0x1000;
inline constexpr std::uint32_t kFileAttributeNotContentIndexed = 0x2000;
inline constexpr std::uint32_t kFileAttributeEncrypted = 0x4000;

// One entry with its details. Times are microseconds since 1970-01-01 00:00 UTC.
//
// POSIX meaning of the attribute bits: read-only when the owner may not write or the
// mount is read-only; hidden for a leading '.' or the DOS hidden attribute; system and
// archive from DOS attributes only; directory for folders and links to folders; device
// for FIFOs, sockets and device nodes; sparse when fewer bytes are allocated than the
// size; reparse point for symbolic links; compressed and encrypted from the file
// system's own flags; normal for a regular file with none of the others. Temporary,
// offline and not-content-indexed are never set.
struct DetailedEntry : DirectoryEntry {
    // False when the entry could not be examined (it vanished after the directory was
    // read, or a stat was refused); the values below are then zero or absent.
    bool detailsKnown = false;
    std::uint32_t attributes = 0;  // with kDetailAttributes
    std::uint64_t size = 0;        // with kDetailSize; a link's own size, not its target's
    // With kDetailTimes. Creation is absent where the file system does not record it
    // (or the kernel cannot report it); the other two are always known.
    std::optional<std::int64_t> creationTime;
    std::int64_t lastAccessTime = 0;
    std::int64_t lastWriteTime = 0;
    // With kDetailShortName: the 8.3 alias, empty when the entry has none (its name already
    // fits 8.3, the volume makes none, or the platform has no such names).
    NativeString shortName;
};

// Reads one level of DIRECTORY like ReadDirectory (same order, kinds, abort rules, and the
// same all-or-nothing contract with its status) and gathers the DETAILS asked for. Details describe
// the entry itself: a symbolic link reports its own size and dates (its kind still follows it).
// FIFOs, sockets and device nodes are never opened. Entries whose stat fails are kept with
// detailsKnown false. Windows reads a listing as the folder provider's rules say: ABORT is
// asked before each FindNextFileW (so the first record, "." or a root's first entry, is read
// unasked).
TESSEL_API Status ReadDirectoryWithDetails(const NativeString& directory, EntryDetails details,
                                           std::vector<DetailedEntry>& out,
                                           const std::function<bool()>& abort);

// TIME (microseconds since the epoch) as local time "YYYY-MM-DD HH:MM:SS.mmm" in the
// current time zone, for the date columns. A time that cannot be converted, or whose year
// is outside 1 to 9999, gives the empty string. The time zone is read at the first call;
// a host that changes TZ afterwards calls tzset() itself.
TESSEL_API std::string FormatLocalTime(std::int64_t microsecondsSinceEpoch);

}  // namespace Tessel::Platform

// Internal to the POSIX backend: how a directory read resolves kinds and examines one
// entry. The walk lives in FileSystem.cpp and FileDetails.cpp; the stat of an entry and
// the DOS attributes come from linuxEntryStat.cpp on Linux (statx, FAT ioctl, xattrs)
// and from EntryStat.cpp elsewhere (plain fstatat, no DOS attributes).
#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include <tessel/platform/FileSystem.h>

namespace Tessel::Platform::Posix {

// PATH as a directory descriptor and a name within it, for the *at calls. A path shorter
// than PATH_MAX is the name itself, relative to the current directory; a longer one is
// reached through its parent, which is opened a stretch of components at a time, each
// stretch well within PATH_MAX. The kernel resolves every stretch as it would the whole
// path (links followed, ".." taken physically), so both name the same entry.
class PathAt {
public:
    explicit PathAt(const NativeString& path);
    ~PathAt();
    PathAt(const PathAt&) = delete;
    PathAt& operator=(const PathAt&) = delete;

    // 0, or the errno of the stretch that could not be opened (every call then fails).
    int Error() const { return mError; }
    int Directory() const { return mDirectory; }
    const char* Name() const { return mName; }

private:
    int mDirectory;
    bool mOwned = false;
    int mError = 0;
    NativeString mLeaf;
    const char* mName;
};

// Opens DIRECTORY for reading its entries (never waiting on a FIFO), or says why it cannot.
Status OpenDirectoryStream(const NativeString& directory, DIR*& stream);
// The next entry of STREAM but "." and "..", null at the end of the list; or the error
// that ended the read early, which fails the whole read.
Status NextDirectoryEntry(DIR* stream, const NativeString& directory, const dirent*& entry);

// Counts one stat made on a directory entry (EntryStatCount) and one directory read
// (DirectoryReadCount).
void CountEntryStat();
void CountDirectoryRead();

EntryKind KindOfMode(mode_t mode);
// The kind of what a link in DIRECTORY points to; a dangling or looping link has none.
EntryKind KindOfLinkTarget(int directory, const char* name);
// The kind of a read entry, from its d_type where the file system gives it (no stat).
void ResolveKind(int directory, const dirent& entry, DirectoryEntry& out);

struct EntryStat {
    mode_t mode = 0;
    std::uint64_t size = 0;
    std::uint64_t allocatedBytes = 0;
    std::int64_t accessTime = 0;  // microseconds since the epoch
    std::int64_t writeTime = 0;
    std::optional<std::int64_t> creationTime;
    bool compressed = false;
    bool encrypted = false;
};

// One counted stat of NAME in DIRECTORY, not following a link and never triggering an
// automount. False when the entry is gone or cannot be examined.
bool StatEntry(int directory, const char* name, EntryStat& out);

// Seconds and nanoseconds as microseconds, clamped rather than overflowing for times
// millions of years away.
std::int64_t MicrosecondsOf(std::int64_t seconds, std::int64_t nanoseconds);

// The DOS attributes of one directory's entries, where its file system keeps them. The
// file system is asked once, when made; on others every Read answers nothing at no cost.
class DosAttributeReader {
public:
    DosAttributeReader(int directory, const NativeString& directoryPath);
    // The read-only, hidden, system and archive bits of NAME, which must be a regular file
    // or a folder (not a link, never a FIFO or device: it may be opened).
    std::optional<std::uint32_t> Read(const char* name);

    enum class Source { None, FatIoctl, NtfsAttribute, SmbAttribute };

private:
    int mDirectory;
    NativeString mDirectoryPath;
    Source mSource = Source::None;
};

}  // namespace Tessel::Platform::Posix

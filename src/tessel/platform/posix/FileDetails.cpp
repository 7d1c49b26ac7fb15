// POSIX entry details: the directory walk of ReadDirectory plus, on demand, one stat per
// entry and the DOS attributes of file systems that keep them (see EntryStat.h).
#include <tessel/platform/FileDetails.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <limits>
#include <mutex>

#include "EntryStat.h"

namespace Tessel::Platform {

namespace {

constexpr EntryDetails kStatDetails = kDetailAttributes | kDetailSize | kDetailTimes;
constexpr std::uint32_t kDosBits =
    kFileAttributeReadOnly | kFileAttributeHidden | kFileAttributeSystem | kFileAttributeArchive;
constexpr std::int64_t kMicrosecondsPerSecond = 1000000;

// Everything a read-only mount holds is read-only, so the mount is asked once per read.
bool IsOnReadOnlyMount(int directory) {
    struct statvfs info;
    return fstatvfs(directory, &info) == 0 && (info.f_flag & ST_RDONLY) != 0;
}

std::uint32_t AttributesOf(const DetailedEntry& entry, const Posix::EntryStat* own,
                           std::uint32_t dosBits, bool readOnlyMount) {
    std::uint32_t attributes = dosBits & kDosBits;
    if (entry.hidden)
        attributes |= kFileAttributeHidden;
    if (readOnlyMount)
        attributes |= kFileAttributeReadOnly;
    if (entry.kind == EntryKind::Directory)
        attributes |= kFileAttributeDirectory;
    if (entry.isLink)
        attributes |= kFileAttributeReparsePoint;
    if (entry.device)
        attributes |= kFileAttributeDevice;
    if (own == nullptr)
        return attributes;
    const mode_t mode = own->mode;
    // A link's own permission bits mean nothing; its target's are the target's business.
    if (!S_ISLNK(mode) && (mode & S_IWUSR) == 0)
        attributes |= kFileAttributeReadOnly;
    if (S_ISREG(mode) && own->allocatedBytes < own->size)
        attributes |= kFileAttributeSparseFile;
    if (own->compressed)
        attributes |= kFileAttributeCompressed;
    if (own->encrypted)
        attributes |= kFileAttributeEncrypted;
    if (S_ISREG(mode) && attributes == 0)
        attributes = kFileAttributeNormal;
    return attributes;
}

}  // namespace

namespace Posix {

std::int64_t MicrosecondsOf(std::int64_t seconds, std::int64_t nanoseconds) {
    constexpr std::int64_t kLimit =
        std::numeric_limits<std::int64_t>::max() / kMicrosecondsPerSecond - 1;
    if (seconds > kLimit)
        return kLimit * kMicrosecondsPerSecond;
    if (seconds < -kLimit)
        return -kLimit * kMicrosecondsPerSecond;
    return seconds * kMicrosecondsPerSecond + nanoseconds / 1000;
}

}  // namespace Posix

Status ReadDirectoryWithDetails(const NativeString& directory, EntryDetails details,
                                std::vector<DetailedEntry>& out,
                                const std::function<bool()>& abort) {
    DIR* dir = nullptr;
    if (Status opened = Posix::OpenDirectoryStream(directory, dir); !opened.IsOk())
        return opened;
    const int fd = dirfd(dir);
    const std::size_t before = out.size();
    Status status;

    const bool wantStat = (details & kStatDetails) != 0;
    const bool wantAttributes = (details & kDetailAttributes) != 0;
    const bool readOnlyMount = wantAttributes && IsOnReadOnlyMount(fd);
    std::optional<Posix::DosAttributeReader> dos;
    if (details & (kDetailAttributes | kDetailHidden))
        dos.emplace(fd, directory);

    for (;;) {
        const dirent* entry = nullptr;
        status = Posix::NextDirectoryEntry(dir, directory, entry);
        if (!status.IsOk() || entry == nullptr)
            break;
        if (abort && abort())
            break;
        DetailedEntry& added = out.emplace_back();
        added.name = entry->d_name;
        added.hidden = IsHiddenName(added.name);

        Posix::EntryStat own;
        if (wantStat && Posix::StatEntry(fd, entry->d_name, own)) {
            added.detailsKnown = true;
            if (S_ISLNK(own.mode)) {
                added.isLink = true;
                added.kind = Posix::KindOfLinkTarget(fd, entry->d_name);
            } else {
                added.kind = Posix::KindOfMode(own.mode);
                added.device = added.kind == EntryKind::Other;
            }
            if (details & kDetailSize)
                added.size = own.size;
            if (details & kDetailTimes) {
                added.creationTime = own.creationTime;
                added.lastAccessTime = own.accessTime;
                added.lastWriteTime = own.writeTime;
            }
        } else {
            Posix::ResolveKind(fd, *entry, added);
        }

        // Only the entry's own file or folder may be opened for its DOS attributes: a
        // link's kind is its target's, and anything else could be a FIFO or device.
        std::uint32_t dosBits = 0;
        if (dos && !added.isLink && added.kind != EntryKind::Other) {
            if (const auto bits = dos->Read(entry->d_name))
                dosBits = *bits;
        }
        if (dosBits & (kFileAttributeHidden | kFileAttributeSystem))
            added.hidden = true;
        if (wantAttributes) {
            added.attributes =
                AttributesOf(added, added.detailsKnown ? &own : nullptr, dosBits, readOnlyMount);
        }
    }
    closedir(dir);  // closes fd too
    if (!status.IsOk())
        out.resize(before);
    return status;
}

std::string FormatLocalTime(std::int64_t microsecondsSinceEpoch) {
    static std::once_flag timeZoneRead;
    std::call_once(timeZoneRead, [] { tzset(); });

    // Floor division, so that times before 1970 keep a non-negative millisecond part.
    std::int64_t seconds = microsecondsSinceEpoch / kMicrosecondsPerSecond;
    std::int64_t remainder = microsecondsSinceEpoch % kMicrosecondsPerSecond;
    if (remainder < 0) {
        --seconds;
        remainder += kMicrosecondsPerSecond;
    }
    if constexpr (sizeof(time_t) < sizeof(std::int64_t)) {
        if (seconds < std::numeric_limits<time_t>::min() ||
            seconds > std::numeric_limits<time_t>::max())
            return {};
    }
    const time_t time = static_cast<time_t>(seconds);
    struct tm local;
    if (localtime_r(&time, &local) == nullptr)
        return {};
    const long long year = static_cast<long long>(local.tm_year) + 1900;
    if (year < 1 || year > 9999)
        return {};
    char text[96];  // room for any int, so the compiler can see nothing is cut
    std::snprintf(text, sizeof(text), "%04lld-%02d-%02d %02d:%02d:%02d.%03d", year,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(remainder / 1000));
    return text;
}

}  // namespace Tessel::Platform

// POSIX file services. Everything here is plain POSIX 2008 (plus d_type, which every
// supported C library provides), so it serves Linux and macOS alike.
#include <tessel/platform/FileSystem.h>

#include <dirent.h>
#include <fcntl.h>
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wctype.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include <tessel/platform/FileDetails.h>

#include "EntryStat.h"

namespace Tessel::Platform {

namespace {

std::atomic<std::uint64_t> gDirectoryReadCount{0};
std::atomic<std::uint64_t> gEntryStatCount{0};

}  // namespace

namespace Posix {

void CountEntryStat() {
    gEntryStatCount.fetch_add(1, std::memory_order_relaxed);
}

void CountDirectoryRead() {
    gDirectoryReadCount.fetch_add(1, std::memory_order_relaxed);
}

EntryKind KindOfMode(mode_t mode) {
    if (S_ISREG(mode))
        return EntryKind::File;
    if (S_ISDIR(mode))
        return EntryKind::Directory;
    return EntryKind::Other;
}

EntryKind KindOfLinkTarget(int directory, const char* name) {
    struct stat target;
    CountEntryStat();
    if (fstatat(directory, name, &target, 0) != 0)
        return EntryKind::Other;
    return KindOfMode(target.st_mode);
}

void ResolveKind(int directory, const dirent& entry, DirectoryEntry& out) {
    switch (entry.d_type) {
        case DT_REG:
            out.kind = EntryKind::File;
            return;
        case DT_DIR:
            out.kind = EntryKind::Directory;
            return;
        case DT_LNK:
            out.isLink = true;
            out.kind = KindOfLinkTarget(directory, entry.d_name);
            return;
        case DT_UNKNOWN: {
            // Some file systems (older XFS, some network and FUSE ones) leave the type out.
            struct stat own;
            CountEntryStat();
            if (fstatat(directory, entry.d_name, &own, AT_SYMLINK_NOFOLLOW) != 0) {
                out.kind = EntryKind::Other;  // vanished since the read
                return;
            }
            if (S_ISLNK(own.st_mode)) {
                out.isLink = true;
                out.kind = KindOfLinkTarget(directory, entry.d_name);
            } else {
                out.kind = KindOfMode(own.st_mode);
            }
            return;
        }
        default:  // FIFO, socket, character or block device, whiteout
            out.kind = EntryKind::Other;
            return;
    }
}

}  // namespace Posix

namespace {

bool IsDotOrDotDot(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// The locale whose case mapping UpperCaseCodeUnit uses, made once and kept for the
// process; null when no UTF-8 locale is installed.
locale_t CaseMappingLocale() {
    static const locale_t locale = [] {
        // macOS has no C.UTF-8; its en_US.UTF-8 maps case the same way.
        for (const char* name : {"C.UTF-8", "en_US.UTF-8"}) {
            if (locale_t made = newlocale(LC_CTYPE_MASK, name, static_cast<locale_t>(0))) {
                return made;
            }
        }
        return static_cast<locale_t>(0);
    }();
    return locale;
}

bool IsSurrogate(char32_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

}  // namespace

bool ReadDirectory(const NativeString& directory, std::vector<DirectoryEntry>& out,
                   const std::function<bool()>& abort) {
    // O_NONBLOCK: should DIRECTORY name a FIFO, opening it must fail rather than wait
    // for a writer (O_DIRECTORY rejects it either way).
    const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return false;
    DIR* dir = fdopendir(fd);
    if (dir == nullptr) {
        close(fd);
        return false;
    }
    Posix::CountDirectoryRead();

    // A read error part-way (a card pulled out) ends the walk like an abort: what was read
    // is kept.
    while (const dirent* entry = readdir(dir)) {
        if (IsDotOrDotDot(entry->d_name))
            continue;
        if (abort && abort())
            break;
        DirectoryEntry& added = out.emplace_back();
        added.name = entry->d_name;
        added.hidden = IsHiddenName(added.name);
        Posix::ResolveKind(fd, *entry, added);
    }
    closedir(dir);  // closes fd too
    return true;
}

std::uint64_t DirectoryReadCount() {
    return gDirectoryReadCount.load(std::memory_order_relaxed);
}

std::uint64_t EntryStatCount() {
    return gEntryStatCount.load(std::memory_order_relaxed);
}

PathKind GetPathKind(const NativeString& path) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0)
        return PathKind::Missing;
    if (S_ISREG(info.st_mode))
        return PathKind::File;
    if (S_ISDIR(info.st_mode))
        return PathKind::Directory;
    return PathKind::Other;
}

bool PathEntryExists(const NativeString& path) {
    struct stat info;
    return lstat(path.c_str(), &info) == 0;
}

bool HasReadAccess(const NativeString& path) {
    return access(path.c_str(), R_OK) == 0;
}

bool IsHiddenName(const NativeString& name) {
    return !name.empty() && name[0] == '.';
}

bool IsHiddenEntry(const NativeString& path) {
    // The leaf is what follows the last separator; trailing separators name the same entry.
    const std::size_t end = path.find_last_not_of('/');
    if (end == NativeString::npos)
        return false;  // empty, or the root
    const std::size_t slash = path.find_last_of('/', end);
    const std::size_t start = slash == NativeString::npos ? 0 : slash + 1;
    return path[start] == '.';
}

char16_t UpperCaseCodeUnit(char16_t unit) {
    if (unit < 0x80)
        return (unit >= u'a' && unit <= u'z') ? static_cast<char16_t>(unit - 32) : unit;
    // A surrogate is half a character and has no case of its own.
    if (IsSurrogate(unit))
        return unit;
    const locale_t locale = CaseMappingLocale();
    if (locale == static_cast<locale_t>(0))
        return unit;
    const wint_t upper = towupper_l(static_cast<wint_t>(unit), locale);
    // Keep the unit when its upper case would not fit in one BMP code unit, as NTFS does.
    if (upper > 0xFFFF || IsSurrogate(static_cast<char32_t>(upper)))
        return unit;
    return static_cast<char16_t>(upper);
}

NativeString CurrentDirectory() {
    std::string buffer(256, '\0');
    for (;;) {
        if (getcwd(buffer.data(), buffer.size()) != nullptr) {
            buffer.resize(std::strlen(buffer.c_str()));
            return buffer;
        }
        // Only a buffer that is too small is worth another try; anything else (the
        // directory was removed, no permission) has no answer.
        if (errno != ERANGE || buffer.size() > (std::size_t{1} << 24))
            return {};
        buffer.resize(buffer.size() * 2);
    }
}

}  // namespace Tessel::Platform

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
#include <climits>
#include <cstring>

#include <tessel/platform/Counters.h>
#include <tessel/platform/FileDetails.h>

#include "EntryStat.h"

namespace Tessel::Platform {

namespace {

std::atomic<std::uint64_t> gDirectoryReadCount{0};
std::atomic<std::uint64_t> gEntryStatCount{0};

}  // namespace

namespace Posix {

namespace {

// The flags that open a directory only to resolve names below it: no read permission is
// needed, as for the components of a path.
#if defined(O_PATH)
constexpr int kSearchFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;
#elif defined(O_SEARCH)
constexpr int kSearchFlags = O_SEARCH | O_DIRECTORY | O_CLOEXEC;
#else
constexpr int kSearchFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
#endif

// How much of a long path one openat resolves: far below PATH_MAX, so that any path of
// components no longer than NAME_MAX splits into stretches that fit.
constexpr std::size_t kStretchLength = PATH_MAX / 2;

}  // namespace

PathAt::PathAt(const NativeString& path) : mDirectory(AT_FDCWD), mName(path.c_str()) {
    if (path.size() < PATH_MAX)
        return;
    // The leaf keeps any trailing separators, which require it to be a directory.
    const std::size_t end = path.find_last_not_of('/');
    const std::size_t slash = end == NativeString::npos ? NativeString::npos : path.rfind('/', end);
    if (slash == NativeString::npos)
        return;  // one name longer than any file system allows: the call fails by itself
    mLeaf = path.substr(slash + 1);
    mName = mLeaf.c_str();

    std::size_t at = 0;
    if (path[0] == '/') {
        mDirectory = open("/", kSearchFlags);
        if (mDirectory < 0) {
            mError = errno;
            return;
        }
        mOwned = true;
    }
    while (at < slash) {
        while (at < slash && path[at] == '/')
            ++at;
        if (at >= slash)
            break;
        // The longest run of whole components that fits a stretch (at least one component).
        const auto componentEnd = [&](std::size_t from) {
            const std::size_t found = path.find('/', from);
            return found == NativeString::npos || found > slash ? slash : found;
        };
        std::size_t stop = componentEnd(at);
        while (stop < slash) {
            const std::size_t next = componentEnd(stop + 1);
            if (next - at >= kStretchLength)
                break;
            stop = next;
        }
        const NativeString stretch = path.substr(at, stop - at);
        const int next = openat(mDirectory, stretch.c_str(), kSearchFlags);
        if (next < 0)
            mError = errno;
        if (mOwned)
            close(mDirectory);
        mDirectory = next;
        mOwned = next >= 0;
        if (next < 0)
            return;
        at = stop;
    }
}

PathAt::~PathAt() {
    if (mOwned)
        close(mDirectory);
}

Status OpenDirectoryStream(const NativeString& directory, DIR*& stream) {
    stream = nullptr;
    const std::string what = "cannot read " + directory;
    if (directory.empty())
        return Status::FromErrno(ENOENT, what);
    const PathAt at(directory);
    if (at.Error() != 0)
        return Status::FromErrno(at.Error(), what);
    // O_NONBLOCK: should DIRECTORY name a FIFO, opening it must fail rather than wait for a
    // writer (O_DIRECTORY rejects it either way).
    const int fd =
        openat(at.Directory(), at.Name(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return Status::FromErrno(errno, what);
    stream = fdopendir(fd);
    if (stream == nullptr) {
        const int error = errno;
        close(fd);
        return Status::FromErrno(error, what);
    }
    CountDirectoryRead();
    return Status::Ok();
}

Status NextDirectoryEntry(DIR* stream, const NativeString& directory, const dirent*& entry) {
    for (;;) {
        // readdir answers null both at the end and on an error; only errno tells them apart.
        errno = 0;
        entry = readdir(stream);
        if (entry == nullptr) {
            if (errno != 0)
                return Status::FromErrno(errno, "cannot read " + directory);
            return Status::Ok();
        }
        const char* name = entry->d_name;
        if (!(name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))))
            return Status::Ok();
    }
}

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
        case DT_FIFO:
        case DT_SOCK:
        case DT_CHR:
        case DT_BLK:
            out.kind = EntryKind::Other;
            out.device = true;
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
                out.device = out.kind == EntryKind::Other;
            }
            return;
        }
        default:  // a whiteout
            out.kind = EntryKind::Other;
            return;
    }
}

}  // namespace Posix

namespace {

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

Status ReadDirectory(const NativeString& directory, std::vector<DirectoryEntry>& out,
                     const std::function<bool()>& abort) {
    DIR* stream = nullptr;
    if (Status opened = Posix::OpenDirectoryStream(directory, stream); !opened.IsOk())
        return opened;
    const int fd = dirfd(stream);
    const std::size_t before = out.size();
    Status status;
    for (;;) {
        const dirent* entry = nullptr;
        status = Posix::NextDirectoryEntry(stream, directory, entry);
        if (!status.IsOk() || entry == nullptr)
            break;
        if (abort && abort())
            break;
        DirectoryEntry& added = out.emplace_back();
        added.name = entry->d_name;
        added.hidden = IsHiddenName(added.name);
        Posix::ResolveKind(fd, *entry, added);
    }
    closedir(stream);  // closes fd too
    if (!status.IsOk())
        out.resize(before);
    return status;
}

std::uint64_t DirectoryReadCount() {
    return gDirectoryReadCount.load(std::memory_order_relaxed);
}

std::uint64_t EntryStatCount() {
    return gEntryStatCount.load(std::memory_order_relaxed);
}

PathKind GetPathKind(const NativeString& path) {
    const Posix::PathAt at(path);
    struct stat info;
    if (fstatat(at.Directory(), at.Name(), &info, 0) != 0)
        return PathKind::Missing;
    if (S_ISREG(info.st_mode))
        return PathKind::File;
    if (S_ISDIR(info.st_mode))
        return PathKind::Directory;
    return PathKind::Other;
}

bool PathEntryExists(const NativeString& path) {
    const Posix::PathAt at(path);
    struct stat info;
    return fstatat(at.Directory(), at.Name(), &info, AT_SYMLINK_NOFOLLOW) == 0;
}

bool HasReadAccess(const NativeString& path) {
    const Posix::PathAt at(path);
    return faccessat(at.Directory(), at.Name(), R_OK, 0) == 0;
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

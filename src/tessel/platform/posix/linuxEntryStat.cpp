// Linux entry stats: statx (for the creation time and the compressed and encrypted flags,
// with fstatat where the kernel lacks it) and DOS attributes from the file systems that
// keep them: vfat through its ioctl, ntfs3 and SMB mounts through attribute xattrs.
#include <fcntl.h>
#include <linux/msdos_fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>

#include "EntryStat.h"

namespace Tessel::Platform::Posix {

namespace {

// statfs f_type values (linux/magic.h has them, though not in every header version).
constexpr unsigned long kMsdosMagic = 0x4d44;     // vfat and msdos
constexpr unsigned long kNtfsMagic = 0x5346544e;  // ntfs3 (and the old read-only ntfs)
constexpr unsigned long kCifsMagic = 0xff534d42;  // cifs
constexpr unsigned long kSmb2Magic = 0xfe534d42;  // smb3

// ntfs3 gives the NTFS attribute word, the SMB client the one the server reported, both as
// a native 32-bit value.
constexpr const char* kNtfsAttributeName = "system.ntfs_attrib";
constexpr const char* kSmbAttributeName = "user.cifs.dosattrib";

std::atomic<bool> gStatxMissing{false};

bool StatWithStatx(int directory, const char* name, EntryStat& out) {
    struct statx info;
    if (statx(directory, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
              STATX_BASIC_STATS | STATX_BTIME, &info) != 0) {
        return false;
    }
    out.mode = info.stx_mode;
    out.size = info.stx_size;
    out.allocatedBytes = info.stx_blocks * 512;
    out.accessTime = MicrosecondsOf(info.stx_atime.tv_sec, info.stx_atime.tv_nsec);
    out.writeTime = MicrosecondsOf(info.stx_mtime.tv_sec, info.stx_mtime.tv_nsec);
    if (info.stx_mask & STATX_BTIME)
        out.creationTime = MicrosecondsOf(info.stx_btime.tv_sec, info.stx_btime.tv_nsec);
    out.compressed = (info.stx_attributes_mask & info.stx_attributes & STATX_ATTR_COMPRESSED) != 0;
    out.encrypted = (info.stx_attributes_mask & info.stx_attributes & STATX_ATTR_ENCRYPTED) != 0;
    return true;
}

bool StatWithFstatat(int directory, const char* name, EntryStat& out) {
    struct stat info;
    if (fstatat(directory, name, &info, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0)
        return false;
    out.mode = info.st_mode;
    out.size = static_cast<std::uint64_t>(info.st_size);
    out.allocatedBytes = static_cast<std::uint64_t>(info.st_blocks) * 512;
    out.accessTime = MicrosecondsOf(info.st_atim.tv_sec, info.st_atim.tv_nsec);
    out.writeTime = MicrosecondsOf(info.st_mtim.tv_sec, info.st_mtim.tv_nsec);
    return true;
}

}  // namespace

bool StatEntry(int directory, const char* name, EntryStat& out) {
    CountEntryStat();
    if (!gStatxMissing.load(std::memory_order_relaxed)) {
        if (StatWithStatx(directory, name, out))
            return true;
        // Kernels before 4.11, and sandboxes that filter the call, answer ENOSYS.
        if (errno != ENOSYS)
            return false;
        gStatxMissing.store(true, std::memory_order_relaxed);
    }
    return StatWithFstatat(directory, name, out);
}

DosAttributeReader::DosAttributeReader(int directory, const NativeString& directoryPath)
    : mDirectory(directory), mDirectoryPath(directoryPath) {
    struct statfs info;
    if (fstatfs(directory, &info) != 0)
        return;
    // f_type is signed on some architectures; the magic values are 32-bit.
    switch (static_cast<unsigned long>(info.f_type) & 0xffffffffUL) {
        case kMsdosMagic:
            mSource = Source::FatIoctl;
            break;
        case kNtfsMagic:
            mSource = Source::NtfsAttribute;
            break;
        case kCifsMagic:
        case kSmb2Magic:
            mSource = Source::SmbAttribute;
            break;
        default:
            break;
    }
}

std::optional<std::uint32_t> DosAttributeReader::Read(const char* name) {
    std::uint32_t value = 0;
    switch (mSource) {
        case Source::None:
            return std::nullopt;
        case Source::FatIoctl: {
            // O_NONBLOCK and O_NOFOLLOW: should the entry have been replaced by a FIFO or a
            // link since it was read, the open neither waits nor leaves the folder.
            const int fd =
                openat(mDirectory, name, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
            if (fd < 0)
                return std::nullopt;
            const int result = ioctl(fd, FAT_IOCTL_GET_ATTRIBUTES, &value);
            const int error = errno;
            close(fd);
            if (result != 0) {
                if (error == ENOTTY || error == EINVAL)
                    mSource = Source::None;  // a msdos mount without the ioctl
                return std::nullopt;
            }
            break;
        }
        case Source::NtfsAttribute:
        case Source::SmbAttribute: {
            const char* attribute =
                mSource == Source::NtfsAttribute ? kNtfsAttributeName : kSmbAttributeName;
            // Beyond PATH_MAX the entry is named through the open directory's descriptor.
            NativeString path = mDirectoryPath.size() + std::strlen(name) + 1 < PATH_MAX
                                    ? mDirectoryPath
                                    : "/proc/self/fd/" + std::to_string(mDirectory);
            if (path.empty() || path.back() != '/')
                path += '/';
            path += name;
            const ssize_t length = lgetxattr(path.c_str(), attribute, &value, sizeof(value));
            if (length != static_cast<ssize_t>(sizeof(value))) {
                // The old ntfs driver, or a share mounted without xattrs: no entry has them.
                if (length < 0 && (errno == ENOTSUP || errno == EOPNOTSUPP))
                    mSource = Source::None;
                return std::nullopt;
            }
            break;
        }
    }
    return value & 0x27u;  // read-only, hidden, system, archive
}

}  // namespace Tessel::Platform::Posix

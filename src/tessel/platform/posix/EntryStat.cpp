// Entry stats for POSIX systems other than Linux (linuxEntryStat.cpp serves Linux): a
// plain fstatat, no creation time, no DOS attributes.
#if !defined(__linux__)

#include <fcntl.h>
#include <sys/stat.h>

#include "EntryStat.h"

namespace Tessel::Platform::Posix {

bool StatEntry(int directory, const char* name, EntryStat& out) {
    CountEntryStat();
    struct stat info;
    if (fstatat(directory, name, &info, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    out.mode = info.st_mode;
    out.size = static_cast<std::uint64_t>(info.st_size);
    out.allocatedBytes = static_cast<std::uint64_t>(info.st_blocks) * 512;
#if defined(__APPLE__)
    out.accessTime = MicrosecondsOf(info.st_atimespec.tv_sec, info.st_atimespec.tv_nsec);
    out.writeTime = MicrosecondsOf(info.st_mtimespec.tv_sec, info.st_mtimespec.tv_nsec);
#else
    out.accessTime = MicrosecondsOf(info.st_atim.tv_sec, info.st_atim.tv_nsec);
    out.writeTime = MicrosecondsOf(info.st_mtim.tv_sec, info.st_mtim.tv_nsec);
#endif
    return true;
}

DosAttributeReader::DosAttributeReader(int directory, const NativeString& directoryPath)
    : mDirectory(directory), mDirectoryPath(directoryPath) {}

std::optional<std::uint32_t> DosAttributeReader::Read(const char*) {
    return std::nullopt;
}

}  // namespace Tessel::Platform::Posix

#endif  // !__linux__

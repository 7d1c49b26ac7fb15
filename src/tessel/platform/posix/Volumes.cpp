// The drive walk over the mount table on every POSIX system, and the volumes of POSIX
// systems other than Linux (linuxVolumes.cpp serves Linux). Without a mount-table reader
// of their own those list only the root, and their volume-mounted test compares device
// numbers: a mount point lies on another device than its parent.
#include <tessel/platform/Volumes.h>

#include <sys/stat.h>

#include <string>

namespace Tessel::Platform {

#if !defined(__linux__)

std::vector<MountInfo> ReadMountTable(const MountTableFiles&) {
    return {};
}

std::vector<MountInfo> ListVolumes(const MountTableFiles&) {
    MountInfo root;
    root.mountPoint = "/";
    return {root};
}

std::vector<MountInfo> ListNetworkMounts(const MountTableFiles&) {
    return {};
}

bool IsMountPoint(const NativeString& path, const MountTableFiles&) {
    if (path.empty() || path.front() != '/')
        return false;
    struct stat own;
    struct stat parent;
    if (stat(path.c_str(), &own) != 0 || stat((path + "/..").c_str(), &parent) != 0)
        return false;
    return own.st_dev != parent.st_dev || own.st_ino == parent.st_ino;
}

#endif  // !__linux__

namespace {

std::string WithoutTrailingSeparators(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

}  // namespace

void ForEachMountedDriveRoot(const NativeString& skippedRoot,
                             const std::function<bool(const NativeString& root)>& visit,
                             const MountTableFiles& files) {
    if (!visit)
        return;
    const std::string skipped = WithoutTrailingSeparators(skippedRoot);
    for (const MountInfo& volume : ListVolumes(files)) {
        if (volume.isNetwork || volume.mountPoint == skipped)
            continue;
        // Every volume listed is mounted; the root may still be gone (a stale table) or
        // no folder at all.
        if (GetPathKind(volume.mountPoint) != PathKind::Directory)
            continue;
        if (!visit(volume.mountPoint))
            return;
    }
}

}  // namespace Tessel::Platform

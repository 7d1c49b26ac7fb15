// Volumes on POSIX systems other than Linux (linuxVolumes.cpp serves Linux). Without a
// mount-table reader of their own they list only the root, and the volume-mounted test
// compares device numbers: a mount point lies on another device than its parent.
#if !defined(__linux__)

#include <tessel/platform/Volumes.h>

#include <sys/stat.h>

namespace Tessel::Platform {

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

}  // namespace Tessel::Platform

#endif  // !__linux__

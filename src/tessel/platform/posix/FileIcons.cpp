#include <tessel/platform/FileIcons.h>

#include <sys/stat.h>

#include <tessel/platform/Volumes.h>

namespace Tessel::Platform {

namespace {

// The classic mount-point test: a folder on another device than its parent, or the root.
bool IsMountRoot(const NativeString& path, const struct stat& info) {
    std::string parent = path;
    while (parent.size() > 1 && parent.back() == '/')
        parent.pop_back();
    if (parent == "/")
        return true;
    parent += "/..";
    struct stat above;
    if (::stat(parent.c_str(), &above) != 0)
        return false;
    return above.st_dev != info.st_dev || above.st_ino == info.st_ino;
}

FileIconKind MountKind(const NativeString& path) {
    std::string wanted = path;
    while (wanted.size() > 1 && wanted.back() == '/')
        wanted.pop_back();
    for (const MountInfo& mount : ReadMountTable()) {
        if (mount.mountPoint != wanted)
            continue;
        if (mount.isNetwork)
            return FileIconKind::NetworkShare;
        if (mount.isRemovable || mount.isOptical)
            return FileIconKind::RemovableDrive;
        return FileIconKind::Drive;
    }
    return FileIconKind::Drive;
}

}  // namespace

FileIconKind ClassifyFileIcon(const NativeString& path) {
    if (path.empty())
        return FileIconKind::File;
    struct stat info;
    if (::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
        return IsMountRoot(path, info) ? MountKind(path) : FileIconKind::Folder;
    }
    const std::size_t slash = path.find_last_of('/');
    return FileIconKindForName(slash == NativeString::npos
                                   ? std::string_view(path)
                                   : std::string_view(path).substr(slash + 1));
}

std::optional<ShellIcon> DrawShellIcon(const NativeString&, std::uint32_t) {
    return std::nullopt;
}

}  // namespace Tessel::Platform

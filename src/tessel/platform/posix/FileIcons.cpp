#include <tessel/platform/FileIcons.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "EntryStat.h"

namespace Tessel::Platform {

namespace {

// More links than this on one path is a loop (the kernel's own limit is 40).
constexpr int kMaximumLinks = 40;

// The last component of PATH, trailing separators ignored.
std::string_view LeafOf(std::string_view path) {
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// The non-empty components of PATH, last first, so that the walk pops them in order.
void PushComponents(std::string_view path, std::vector<std::string>& pending) {
    std::vector<std::string> components;
    std::size_t at = 0;
    while (at < path.size()) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        if (end > at)
            components.emplace_back(path.substr(at, end - at));
        at = end + 1;
    }
    pending.insert(pending.end(), components.rbegin(), components.rend());
}

// The mount that holds PATH (absolute, clean): the one with the longest mount point at or
// above it; of several on the same point, the last, which covers the others.
const MountInfo* MountHolding(const std::vector<MountInfo>& mounts, std::string_view path) {
    const MountInfo* holding = nullptr;
    for (const MountInfo& mount : mounts) {
        const std::string_view point = mount.mountPoint;
        if (point.empty() || point.front() != '/')
            continue;
        const bool inside =
            point == "/" ||
            (path.starts_with(point) && (path.size() == point.size() || path[point.size()] == '/'));
        if (inside && (!holding || point.size() >= holding->mountPoint.size()))
            holding = &mount;
    }
    return holding;
}

FileIconKind KindOfMount(const MountInfo& mount) {
    if (mount.isNetwork)
        return FileIconKind::NetworkShare;
    if (mount.isRemovable || mount.isOptical)
        return FileIconKind::RemovableDrive;
    return FileIconKind::Drive;
}

// One counted lstat that never triggers an automount (an automounted share could hang).
bool LinkStat(const std::string& path, struct stat& info) {
    Posix::CountEntryStat();
    int flags = AT_SYMLINK_NOFOLLOW;
#if defined(AT_NO_AUTOMOUNT)
    flags |= AT_NO_AUTOMOUNT;
#endif
    return ::fstatat(AT_FDCWD, path.c_str(), &info, flags) == 0;
}

std::string ReadLink(const std::string& path) {
    std::string target(256, '\0');
    for (;;) {
        const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
        if (length < 0)
            return {};
        if (static_cast<std::size_t>(length) < target.size()) {
            target.resize(static_cast<std::size_t>(length));
            return target;
        }
        if (target.size() >= 65536)
            return {};
        target.resize(target.size() * 2);
    }
}

// The folder above PATH (absolute and clean); the root is its own parent.
std::string ParentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? std::string("/") : path.substr(0, slash);
}

// NAME inside FOLDER (absolute and clean).
std::string Join(const std::string& folder, const std::string& name) {
    std::string path = folder;
    if (path.back() != '/')
        path += '/';
    path += name;
    return path;
}

// The path of the components PENDING (last first) with "." and ".." taken lexically.
std::string LexicalPath(const std::vector<std::string>& pending) {
    std::string path(1, '/');
    for (auto part = pending.rbegin(); part != pending.rend(); ++part) {
        if (*part == "..")
            path = ParentOf(path);
        else if (*part != ".")
            path = Join(path, *part);
    }
    return path;
}

// Without a mount table (POSIX systems other than Linux) a mount root is told the classic
// way: a folder on another device than its parent, or the root itself.
bool IsMountRootByDevice(const std::string& path, const struct stat& info) {
    if (path == "/")
        return true;
    struct stat above;
    if (!LinkStat(ParentOf(path), above))
        return false;
    return above.st_dev != info.st_dev || above.st_ino == info.st_ino;
}

}  // namespace

FileIconKind ClassifyFileIcon(const NativeString& path, const MountTableFiles& files) {
    if (path.empty())
        return FileIconKind::File;
    const auto byName = [&] {
        return path.back() == '/' ? FileIconKind::Folder : FileIconKindForName(LeafOf(path));
    };
    if (path.front() != '/')
        return byName();
    // The table alone tells network mounts; the device facts (labels, removable flags) cost
    // reads under /dev and /sys and are fetched only for a mount root.
    MountTableFiles tableOnly = files;
    tableOnly.labelDirectory.clear();
    tableOnly.blockDeviceDirectory.clear();
    const std::vector<MountInfo> mounts = ReadMountTable(tableOnly);
    const auto onNetwork = [&](const std::string& at) {
        const MountInfo* mount = MountHolding(mounts, at);
        return mount && mount->isNetwork;
    };
    const auto atNetworkMountPoint = [&](const std::string& at) {
        return MountHolding(mounts, at)->mountPoint == at;
    };

    // First the path as written, "." and ".." taken lexically: what lies on a share by its
    // name is decided without a single stat.
    std::vector<std::string> pending;
    PushComponents(path, pending);
    if (const std::string lexical = LexicalPath(pending); onNetwork(lexical))
        return atNetworkMountPoint(lexical) ? FileIconKind::NetworkShare : byName();

    // Then as the kernel resolves it, one component at a time, links followed, but nothing on
    // a network mount looked up. RESOLVED stays absolute and clean; INFO describes it unless
    // STALE (after ".." or a link, when RESOLVED is a folder already passed).
    std::string resolved(1, '/');
    struct stat info;
    bool stale = true;
    int links = 0;
    while (!pending.empty() || stale) {
        if (onNetwork(resolved))
            return pending.empty() && atNetworkMountPoint(resolved) ? FileIconKind::NetworkShare
                                                                    : byName();
        if (stale) {
            if (!LinkStat(resolved, info))
                return byName();  // missing, or not to be examined
            stale = false;
            continue;
        }
        if (!S_ISDIR(info.st_mode))
            return byName();  // nothing lies below a file
        const std::string part = std::move(pending.back());
        pending.pop_back();
        if (part == ".")
            continue;
        if (part == "..") {
            resolved = ParentOf(resolved);
            stale = pending.empty();
            continue;
        }
        resolved = Join(resolved, part);
        if (onNetwork(resolved))
            continue;
        if (!LinkStat(resolved, info))
            return byName();
        if (S_ISLNK(info.st_mode)) {
            const std::string target = ReadLink(resolved);
            if (target.empty() || ++links > kMaximumLinks)
                return byName();  // unreadable, or a loop
            // The target takes the link's place: from the root when absolute, else from the
            // link's folder, which is known to be a folder.
            resolved = target.front() == '/' ? std::string("/") : ParentOf(resolved);
            PushComponents(target, pending);
            stale = pending.empty();
            if (!stale)
                info.st_mode = S_IFDIR;
        }
    }

    if (!S_ISDIR(info.st_mode))
        return byName();
    if (mounts.empty())
        return IsMountRootByDevice(resolved, info) ? FileIconKind::Drive : FileIconKind::Folder;
    if (const MountInfo* mount = MountHolding(mounts, resolved);
        !mount || mount->mountPoint != resolved)
        return FileIconKind::Folder;
    const std::vector<MountInfo> withDevices = ReadMountTable(files);
    const MountInfo* mount = MountHolding(withDevices, resolved);
    return mount && mount->mountPoint == resolved ? KindOfMount(*mount) : FileIconKind::Drive;
}

std::optional<ShellIcon> DrawShellIcon(const NativeString&, std::uint32_t, std::uint32_t) {
    return std::nullopt;
}

}  // namespace Tessel::Platform

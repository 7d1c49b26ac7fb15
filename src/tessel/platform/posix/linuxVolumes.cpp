// Linux volumes: the mount table through libmount, labels from udev's by-label links and
// the removable flag from sysfs. See Volumes.h for what is listed and what is left out.
#include <tessel/platform/Volumes.h>

#include <dirent.h>
#include <fcntl.h>
#include <libmount.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Tessel::Platform {

namespace {

struct TableDeleter {
    void operator()(libmnt_table* table) const { mnt_unref_table(table); }
};
struct IteratorDeleter {
    void operator()(libmnt_iter* iterator) const { mnt_free_iter(iterator); }
};
using TablePtr = std::unique_ptr<libmnt_table, TableDeleter>;
using IteratorPtr = std::unique_ptr<libmnt_iter, IteratorDeleter>;

// One entry with what the filters need beside the public record.
struct MountRecord {
    MountInfo info;
    dev_t device = 0;
    std::string root;  // the part of the device's file system that is mounted
    bool hiddenByOption = false;
    bool pseudo = false;
    bool loop = false;
    bool squashfs = false;
};

constexpr std::string_view kNetworkTypes[] = {
    "nfs",  "nfs4",   "cifs",      "smb3",           "smbfs",      "ncpfs",       "9p",
    "afs",  "ceph",   "glusterfs", "fuse.glusterfs", "fuse.sshfs", "sshfs",       "davfs",
    "coda", "lustre", "ocfs2",     "fuse.curlftpfs", "fuse.s3fs",  "fuse.rclone", "gfs2",
};

constexpr std::string_view kPseudoTypes[] = {
    "proc",      "sysfs",       "devtmpfs",        "devpts",      "tmpfs",      "ramfs",
    "cgroup",    "cgroup2",     "cpuset",          "securityfs",  "debugfs",    "tracefs",
    "configfs",  "pstore",      "efivarfs",        "bpf",         "mqueue",     "hugetlbfs",
    "fusectl",   "binfmt_misc", "autofs",          "rpc_pipefs",  "nfsd",       "nsfs",
    "selinuxfs", "smackfs",     "rootfs",          "none",        "sockfs",     "pipefs",
    "overlay",   "aufs",        "fuse.gvfsd-fuse", "fuse.portal", "fuse.lxcfs", "binder",
    "resctrl",   "dmabuf",
};

// Below these, mounts belong to the system rather than to a person.
constexpr std::string_view kSystemLocations[] = {"/proc", "/sys",     "/dev",      "/run", "/etc",
                                                 "/snap", "/var/lib", "/var/snap", "/boot"};
// Below these, people mount things on purpose.
constexpr std::string_view kUserLocations[] = {"/media", "/run/media", "/mnt"};

template <std::size_t N>
bool Contains(const std::string_view (&list)[N], std::string_view text) {
    return std::find(list, list + N, text) != list + N;
}

// True when PATH is LOCATION or lies below it.
bool IsAtOrBelow(std::string_view path, std::string_view location) {
    return path.size() >= location.size() && path.compare(0, location.size(), location) == 0 &&
           (path.size() == location.size() || path[location.size()] == '/');
}

template <std::size_t N>
bool IsAtOrBelowAny(std::string_view path, const std::string_view (&locations)[N]) {
    return std::any_of(locations, locations + N,
                       [&](std::string_view location) { return IsAtOrBelow(path, location); });
}

bool IsStrictlyBelowUserLocation(std::string_view path) {
    return std::any_of(std::begin(kUserLocations), std::end(kUserLocations),
                       [&](std::string_view location) {
                           return IsAtOrBelow(path, location) && path.size() > location.size();
                       });
}

bool IsInSystemLocation(std::string_view path) {
    if (IsAtOrBelow(path, "/run/media"))
        return false;
    return IsAtOrBelowAny(path, kSystemLocations);
}

std::string Text(const char* text) {
    return text == nullptr ? std::string() : std::string(text);
}

bool HasOption(libmnt_fs* fs, const char* name) {
    return mnt_fs_get_option(fs, name, nullptr, nullptr) == 0;
}

TablePtr ParseTable(const NativeString& file) {
    if (file.empty())
        return {};
    TablePtr table(mnt_new_table());
    if (!table)
        return {};
    // Broken lines are skipped (libmount's default); a missing or unreadable file leaves
    // the table empty.
    if (mnt_table_parse_file(table.get(), file.c_str()) != 0 &&
        mnt_table_get_nents(table.get()) <= 0)
        return {};
    return table;
}

// Calls VISIT for every entry of TABLE, in order.
template <typename Visit>
void ForEachEntry(libmnt_table* table, Visit&& visit) {
    IteratorPtr iterator(mnt_new_iter(MNT_ITER_FORWARD));
    if (!iterator)
        return;
    libmnt_fs* fs = nullptr;
    while (mnt_table_next_fs(table, iterator.get(), &fs) == 0 && fs != nullptr)
        visit(fs);
}

// PATH with "." and ".." resolved and repeated separators removed, without asking the
// file system. An absolute path stays absolute; ".." never climbs above the root.
std::string NormalizeLexically(std::string_view path) {
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    while (start <= path.size()) {
        std::size_t end = path.find('/', start);
        if (end == std::string_view::npos)
            end = path.size();
        const std::string_view part = path.substr(start, end - start);
        if (part == "..") {
            if (!parts.empty())
                parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        start = end + 1;
    }
    std::string out;
    for (std::string_view part : parts) {
        out += '/';
        out += part;
    }
    return out.empty() ? std::string("/") : out;
}

std::string ParentOf(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos || slash == 0 ? std::string("/") : path.substr(0, slash);
}

// Follows the links of a device path (/dev/mapper/x -> /dev/dm-0, by-label links) a few
// hops, lexically beyond that. Device nodes live on devtmpfs, so readlink never blocks.
std::string ResolveDevicePath(const std::string& path) {
    std::string current = NormalizeLexically(path);
    for (int hop = 0; hop < 8; ++hop) {
        char target[4096];
        const ssize_t length = readlink(current.c_str(), target, sizeof(target) - 1);
        if (length <= 0)
            break;
        const std::string_view link(target, static_cast<std::size_t>(length));
        current = NormalizeLexically(
            link.front() == '/' ? std::string(link) : ParentOf(current) + "/" + std::string(link));
    }
    return current;
}

int HexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Decodes udev's escapes in a by-label link name ("My\x20Disk" is "My Disk").
std::string DecodeLabelName(std::string_view name) {
    std::string out;
    out.reserve(name.size());
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] == '\\' && i + 3 < name.size() && name[i + 1] == 'x') {
            const int high = HexValue(name[i + 2]);
            const int low = HexValue(name[i + 3]);
            if (high >= 0 && low >= 0) {
                out += static_cast<char>(high * 16 + low);
                i += 3;
                continue;
            }
        }
        out += name[i];
    }
    return out;
}

// Device path -> label, from the links in DIRECTORY.
std::map<std::string, std::string> ReadLabels(const NativeString& directory) {
    std::map<std::string, std::string> labels;
    if (directory.empty())
        return labels;
    DIR* dir = opendir(directory.c_str());
    if (dir == nullptr)
        return labels;
    while (const dirent* entry = readdir(dir)) {
        const std::string_view name(entry->d_name);
        if (name == "." || name == "..")
            continue;
        const std::string device = ResolveDevicePath(directory + "/" + std::string(name));
        labels.emplace(device, DecodeLabelName(name));
    }
    closedir(dir);
    return labels;
}

// The first line of a small attribute file ("1\n"), or empty. O_NONBLOCK: a FIFO put
// where an attribute was expected must not stall the listing.
std::string ReadAttribute(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0)
        return {};
    char buffer[32];
    const ssize_t length = read(fd, buffer, sizeof(buffer));
    close(fd);
    if (length <= 0)
        return {};
    std::string text(buffer, static_cast<std::size_t>(length));
    return text.substr(0, text.find('\n'));
}

bool IsRemovableDevice(const NativeString& blockDirectory, const std::string& deviceName) {
    if (blockDirectory.empty() || deviceName.empty() || deviceName == "." || deviceName == "..")
        return false;
    const std::string device = blockDirectory + "/" + deviceName;
    if (ReadAttribute(device + "/removable") == "1")
        return true;
    // A partition has no flag of its own; its disk is the folder above it in sysfs.
    return access((device + "/partition").c_str(), F_OK) == 0 &&
           ReadAttribute(device + "/../removable") == "1";
}

// A mount point as the kernel writes it: repeated and trailing separators removed (fstab
// files may have them), "/" kept.
std::string CleanMountPoint(std::string_view path) {
    std::string out;
    for (char c : path) {
        if (c != '/' || out.empty() || out.back() != '/')
            out += c;
    }
    if (out.size() > 1 && out.back() == '/')
        out.pop_back();
    return out;
}

std::string BaseName(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

MountRecord RecordOf(libmnt_fs* fs) {
    MountRecord record;
    MountInfo& info = record.info;
    info.mountPoint = CleanMountPoint(Text(mnt_fs_get_target(fs)));
    info.source = Text(mnt_fs_get_source(fs));
    info.fileSystemType = Text(mnt_fs_get_fstype(fs));
    if (char* options = mnt_fs_strdup_options(fs)) {
        info.options = options;
        std::free(options);
    }
    info.readOnly = HasOption(fs, "ro");
    const std::string& type = info.fileSystemType;
    info.isNetwork = Contains(kNetworkTypes, type) || mnt_fs_is_netfs(fs) != 0;
    info.isRamDisk = type == "tmpfs" || type == "ramfs";
    record.device = mnt_fs_get_devno(fs);
    record.root = Text(mnt_fs_get_root(fs));
    record.hiddenByOption = HasOption(fs, "x-gvfs-hide");
    record.pseudo = Contains(kPseudoTypes, type) || mnt_fs_is_pseudofs(fs) != 0;
    record.squashfs = type == "squashfs";
    record.loop = info.source.compare(0, 9, "/dev/loop") == 0;
    return record;
}

// Labels, removable and optical flags, for local file systems on device nodes only.
void AddDeviceFacts(MountRecord& record, const std::map<std::string, std::string>& labels,
                    const MountTableFiles& files) {
    MountInfo& info = record.info;
    const std::string& type = info.fileSystemType;
    info.isOptical = type == "iso9660" || type == "udf";
    if (info.isNetwork || info.source.empty() || info.source.front() != '/')
        return;
    const std::string device = ResolveDevicePath(info.source);
    if (auto it = labels.find(device); it != labels.end())
        info.label = it->second;
    const std::string name = BaseName(device);
    if (name.compare(0, 2, "sr") == 0)
        info.isOptical = true;
    info.isRemovable = IsRemovableDevice(files.blockDeviceDirectory, name);
}

// Mount points that fstab marks x-gvfs-hide.
std::set<std::string> HiddenInFstab(const NativeString& fstab) {
    std::set<std::string> hidden;
    TablePtr table = ParseTable(fstab);
    if (!table)
        return hidden;
    ForEachEntry(table.get(), [&](libmnt_fs* fs) {
        if (HasOption(fs, "x-gvfs-hide"))
            hidden.insert(CleanMountPoint(Text(mnt_fs_get_target(fs))));
    });
    return hidden;
}

std::vector<MountRecord> ReadRecords(const MountTableFiles& files, bool withDeviceFacts) {
    std::vector<MountRecord> records;
    TablePtr table = ParseTable(files.mountTable);
    if (!table)
        return records;
    std::map<std::string, std::string> labels;
    if (withDeviceFacts)
        labels = ReadLabels(files.labelDirectory);
    ForEachEntry(table.get(), [&](libmnt_fs* fs) {
        MountRecord& record = records.emplace_back(RecordOf(fs));
        if (withDeviceFacts)
            AddDeviceFacts(record, labels, files);
    });
    return records;
}

bool IsVisible(const MountRecord& record, const std::set<std::string>& hiddenInFstab) {
    const std::string& point = record.info.mountPoint;
    if (point == "/")
        return true;
    if (point.empty() || point.front() != '/')
        return false;
    if (record.hiddenByOption || hiddenInFstab.count(point) != 0)
        return false;
    if (IsInSystemLocation(point) || record.squashfs)
        return false;
    if (record.pseudo)
        return record.info.isRamDisk && IsStrictlyBelowUserLocation(point);
    if (record.loop)
        return IsStrictlyBelowUserLocation(point);
    return true;
}

}  // namespace

std::vector<MountInfo> ReadMountTable(const MountTableFiles& files) {
    std::vector<MountInfo> out;
    for (MountRecord& record : ReadRecords(files, true))
        out.push_back(std::move(record.info));
    return out;
}

std::vector<MountInfo> ListVolumes(const MountTableFiles& files) {
    std::vector<MountRecord> records = ReadRecords(files, true);
    const std::set<std::string> hiddenInFstab = HiddenInFstab(files.fstab);

    // Only the last mount on a mount point can be seen; the ones below it are covered.
    std::map<std::string, std::size_t> topmost;
    for (std::size_t i = 0; i < records.size(); ++i)
        topmost[records[i].info.mountPoint] = i;

    std::set<std::pair<dev_t, std::string>> seen;
    std::vector<MountInfo> out;
    for (std::size_t i = 0; i < records.size(); ++i) {
        MountRecord& record = records[i];
        if (topmost[record.info.mountPoint] != i)
            continue;
        // Tables without device numbers (fstab format) cannot show bind duplicates.
        if (record.device != 0 && !seen.emplace(record.device, record.root).second)
            continue;
        if (IsVisible(record, hiddenInFstab))
            out.push_back(std::move(record.info));
    }
    std::sort(out.begin(), out.end(), [](const MountInfo& a, const MountInfo& b) {
        const bool aRoot = a.mountPoint == "/";
        const bool bRoot = b.mountPoint == "/";
        if (aRoot != bRoot)
            return aRoot;
        return a.mountPoint < b.mountPoint;
    });
    return out;
}

std::vector<MountInfo> ListNetworkMounts(const MountTableFiles& files) {
    std::vector<MountInfo> volumes = ListVolumes(files);
    volumes.erase(std::remove_if(volumes.begin(), volumes.end(),
                                 [](const MountInfo& volume) { return !volume.isNetwork; }),
                  volumes.end());
    return volumes;
}

bool IsMountPoint(const NativeString& path, const MountTableFiles& files) {
    if (path.empty() || path.front() != '/')
        return false;
    const std::string wanted = CleanMountPoint(path);
    for (const MountRecord& record : ReadRecords(files, false)) {
        if (record.info.mountPoint == wanted)
            return true;
    }
    return false;
}

}  // namespace Tessel::Platform

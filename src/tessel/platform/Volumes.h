// Mounted file systems, for the volume and network-volume lists, the volume-mounted test
// and the walk over the machine's drives.
//
// Windows asks the system itself: the drive letters, each drive's type and label, the
// volume-mounted test and the connected network disks, one question at a time, so that a
// listing can stop between drives and asks for a label only when it shows one.
//
// On Linux they come from the kernel's mount table through libmount; the files read can be
// replaced (MountTableFiles), so that tests feed tables of their own. Nothing here stats,
// opens or lists a mount point: a dead network server must never block a listing. Only
// the mount table, the device links under /dev/disk/by-label and the block-device
// attributes under /sys are read.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <tessel/platform/Export.h>
#include <tessel/platform/FileSystem.h>

namespace Tessel::Platform {

// Where the mount information comes from. The defaults are the running system's.
struct MountTableFiles {
#if !defined(_WIN32)
    // In mountinfo or fstab format (libmount tells them apart).
    NativeString mountTable = "/proc/self/mountinfo";
    // Mounts marked x-gvfs-hide here are hidden too (the kernel's table does not carry
    // such marks). Empty: no such file.
    NativeString fstab = "/etc/fstab";
    // Links named after labels (udev's \xHH escapes) pointing at the device nodes.
    NativeString labelDirectory = "/dev/disk/by-label";
    // One folder per block device with its "removable" flag (and "partition" for parts).
    NativeString blockDeviceDirectory = "/sys/class/block";
#endif
    // Windows asks the system itself (drive letters, network connections): nothing to
    // replace there.
};

#if defined(_WIN32)

// The roots of the drive letters ("A:\", "C:\", ...) in the system's order
// (GetLogicalDriveStringsW). Empty when the list cannot be read.
TESSEL_API std::vector<NativeString> ListDriveRoots();

// The type of the drive at ROOT ("C:\") as GetDriveTypeW answers it: 0 unknown, 1 no root
// directory, 2 removable, 3 fixed, 4 remote, 5 CD-ROM, 6 RAM disk.
TESSEL_API std::uint32_t DriveTypeOf(const NativeString& root);

// The label of the volume at ROOT ("C:\"); empty when it has none or cannot be asked.
TESSEL_API NativeString VolumeLabelOf(const NativeString& root);

// The volume-mounted test of a drive string ("C:"): the volume device "\\.\C:" is opened
// for reading (read and write sharing) and asked whether a file system is mounted on it. A
// device that cannot be opened (no such drive, no medium, no permission) is not mounted.
TESSEL_API bool IsVolumeMounted(const NativeString& drive);

struct NetworkConnection {
    NativeString localName;   // "Z:" for a connection mapped to a drive letter, else empty
    NativeString remoteName;  // "\\server\share"
};

// The connected network disk resources (WNetEnumResourceW), containers left out. ABORT,
// when set, is asked before each batch the system hands over; a true answer keeps what was
// read so far. Empty when the enumeration cannot be opened (no network).
TESSEL_API std::vector<NetworkConnection> ListNetworkConnections(
    const std::function<bool()>& abort);

#else

struct MountInfo {
    // Escapes of the table decoded ("\040" is a blank), no repeated or trailing separators.
    NativeString mountPoint;
    NativeString source;         // the device ("/dev/sdb1") or share ("server:/export")
    std::string fileSystemType;  // "ext4", "vfat", "nfs4", "fuse.sshfs", ...
    std::string options;         // the mount's options, comma-separated
    std::string label;           // the file system's label (bytes), empty when unknown
    bool readOnly = false;
    bool isNetwork = false;
    bool isRemovable = false;  // the device, or the disk it is a partition of, is removable
    bool isOptical = false;    // a CD or DVD drive (sr*), or an ISO 9660 or UDF file system
    bool isRamDisk = false;    // tmpfs or ramfs
};

// Every entry of the mount table, in its order, unfiltered. Empty when it cannot be read.
TESSEL_API std::vector<MountInfo> ReadMountTable(const MountTableFiles& files = {});

// The mounted file systems a person would call volumes: "/" first, then the others sorted
// by mount point (bytes). Left out are
// - pseudo file systems (proc, sysfs, cgroup, devpts, ...), except tmpfs and ramfs mounted
//   under /media, /run/media or /mnt, which someone made on purpose; overlay except as "/";
// - mounts in system locations: under /proc, /sys, /dev, /run (but /run/media), /etc
//   (files a container binds in), /snap, /var/lib and /var/snap;
// - /boot and everything under it (/boot/efi);
// - loop-mounted images: every squashfs (snaps), and other loop devices unless mounted
//   under /media, /run/media or /mnt (a disk image someone opened);
// - bind-mount duplicates: a mount of the same device and the same root as one before it;
// - mounts hidden by a later mount on the same mount point;
// - mounts whose options, or whose line in fstab, carry x-gvfs-hide.
// Network mounts are listed among the volumes (isNetwork).
TESSEL_API std::vector<MountInfo> ListVolumes(const MountTableFiles& files = {});

// The network file systems among ListVolumes (cifs, smb3, nfs, nfs4, fuse.sshfs, 9p, afs,
// ceph, glusterfs, davfs, ...), in the same order.
TESSEL_API std::vector<MountInfo> ListNetworkMounts(const MountTableFiles& files = {});

// The volume-mounted test: true when PATH is a mount point in the mount table (repeated
// and trailing separators ignored; no links resolved, nothing on the path touched).
TESSEL_API bool IsMountPoint(const NativeString& path, const MountTableFiles& files = {});

#endif  // _WIN32

// The drive walk: calls VISIT with the root of each mounted drive, in ascending order, and
// stops after the first VISIT that returns false. Left out are SKIPPEDROOT, drives whose
// volume is not mounted and roots that do not exist.
// - Windows: the drive letters of GetLogicalDrives (bit 0 is A:), each root as "E:\";
//   SKIPPEDROOT may be given as "E:\" or "\\?\E:\", letter case ignored; the mounted test
//   is IsVolumeMounted.
// - POSIX: the mount points of ListVolumes ("/" first, then by bytes) other than network
//   mounts, whose roots a dead server could leave hanging; SKIPPEDROOT is compared with
//   trailing separators ignored.
TESSEL_API void ForEachMountedDriveRoot(const NativeString& skippedRoot,
                                        const std::function<bool(const NativeString& root)>& visit,
                                        const MountTableFiles& files = {});

}  // namespace Tessel::Platform

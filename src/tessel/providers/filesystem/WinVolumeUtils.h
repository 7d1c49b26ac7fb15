// The machine's volumes and network volumes as item records, for the volume and
// network-volume providers. Records carry up to three fields, each only when asked for:
// Name, Path (the folder the file directory provider opens, also the record's key) and
// ExtraPath (a second path of the item; no provider reads it back).
//
// Windows: the drive letters and the connected network disks.
// - A drive's key and Path are its root in the long form, "\\?\C:\" (the trailing
//   backslash included, as the file directory provider opens a drive root only with it).
//   Name is the volume's label, or the localized drive-type name when it has none,
//   followed by " (", the drive and ")": "Media (D:)", "Local Disk (C:)". ExtraPath is the
//   root as people type it, "C:\". Drives whose volume is not mounted are not listed.
// - A network connection's Name is its share, "\\server\media", or for a drive mapped to
//   it the drive followed by " (", the share and ")": "Z: (\\server\media)". Its key and
//   Path are the share in the long form, "\\?\UNC\server\media"; for a mapped drive, while
//   the feature switch "MediaBrowser.MaintainMappedDrivePaths" is on, the drive instead,
//   "\\?\Z:\". ExtraPath is the share as the system names it, "\\server\media".
// - The drive list holds each mapped drive once, as its connection record: the drive
//   letter's own record would name the drive by its label instead of its share and would
//   ignore the feature switch. Connections without a drive letter belong to the network
//   list only.
//
// POSIX: the mounted file systems of Platform::ListVolumes ("/" first) and its network
// mounts; nothing here stats, opens or lists a mount point, so a dead server never blocks a
// listing. Keys and Path are the mount points (UTF-8 bytes).
// - Name: the file system's label, or the localized drive-type name when it has none,
//   followed by " (", the mount point and ")": "Media (/media/x)", "Local Disk (/)".
//   Network mounts are named like mapped network drives: the mount point followed by
//   " (", the share and ")": "/mnt/media (//server/media)".
// - ExtraPath: the mounted device or share ("/dev/sdb1", "server:/export"), which says
//   what is behind the mount point.
//
// Both listings call the abort predicate, when set, before each drive (Windows: also before
// each batch of network connections); a true answer stops the listing and keeps the
// records made so far. Neither reports errors: what the system cannot tell is not listed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <tessel/foundation/Directory.h>
#include <tessel/framework/ContentRecord.h>
#include <tessel/platform/Export.h>
#include <tessel/platform/Volumes.h>

namespace Tessel::WinVolumeUtils {

// The drive types, numbered as the system's drive-type query answers them.
enum DriveType : std::uint32_t {
    kDriveUnknown = 0,
    kDriveNoRootDirectory = 1,
    kDriveRemovable = 2,
    kDriveFixed = 3,
    kDriveRemote = 4,
    kDriveCDROM = 5,
    kDriveRAMDisk = 6,
};

// The feature switch that keeps mapped network drives under their drive letters.
inline constexpr const char* kMaintainMappedDrivePathsFeature =
    "MediaBrowser.MaintainMappedDrivePaths";

// The localized name of a drive type ("Local Disk" for 3); "error" for values above 6.
TESSEL_API std::string GetDriveTypeName(std::uint32_t driveType);

// A drive's display name: LABEL (UTF-8), or the name of DRIVETYPE when LABEL is empty,
// followed by " (", PLACE and ")". Undecodable bytes show as U+FFFD.
TESSEL_API std::string ComposeDriveName(std::string_view label, std::uint32_t driveType,
                                        std::string_view place);

// Adds one record per volume to CONTENT (which is not cleared); see above. Network mounts
// and mapped drives get network-connection names, so each drive has exactly one record.
TESSEL_API void GetDriveLetterContent(SDKContentMap& content, const SDKFieldSet& fields,
                                      const AbortPredicate& abort,
                                      const Platform::MountTableFiles& files = {});

// Adds one record per network connection (POSIX: network mount) to CONTENT (which is not
// cleared). On POSIX the feature switch "MediaBrowser.MaintainMappedDrivePaths" has no
// effect: a network mount has only its mount point, so there is no second form of its path
// to choose between.
TESSEL_API void GetNetUseContent(SDKContentMap& content, const SDKFieldSet& fields,
                                 const AbortPredicate& abort,
                                 const Platform::MountTableFiles& files = {});

// The volume-mounted test. Windows: PATH is a drive ("C:") whose volume is mounted. POSIX:
// PATH is a mount point in the mount table.
TESSEL_API bool IsVolumeMounted(const std::string& path,
                                const Platform::MountTableFiles& files = {});

#if defined(_WIN32)

// The drive record of the drive at ROOT ("C:\"), added to CONTENT; see above.
TESSEL_API void AddDriveRecord(SDKContentMap& content, const SDKFieldSet& fields,
                               const Platform::NativeString& root);

// The record of the connection of LOCALNAME ("Z:", or empty when the share is not mapped
// to a drive letter) to REMOTENAME ("\\server\media"), added to CONTENT; see above.
TESSEL_API void AddConnectionRecord(SDKContentMap& content, const SDKFieldSet& fields,
                                    const Platform::NativeString& localName,
                                    const Platform::NativeString& remoteName);

#else

// The drive type of a mount: network mounts are Remote, optical drives and disc file
// systems CD-ROM, tmpfs and ramfs RAM Disk, mounts of removable devices Removable, and
// everything else Fixed. A network or optical test wins over the removable flag, which the
// kernel also sets for optical drives. Unknown and Invalid never occur: a mount always has
// a root.
TESSEL_API std::uint32_t GetDriveType(const Platform::MountInfo& mount);

// The display name of a volume record (see above), with undecodable bytes as U+FFFD.
TESSEL_API std::string GetDriveName(const Platform::MountInfo& mount);
// The display name of a network-connection record: "mountpoint (share)".
TESSEL_API std::string GetConnectionName(const Platform::MountInfo& mount);

#endif

}  // namespace Tessel::WinVolumeUtils

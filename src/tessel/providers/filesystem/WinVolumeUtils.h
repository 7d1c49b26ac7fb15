// The machine's volumes and network volumes as item records, for the volume and
// network-volume providers. On POSIX the "drive letters" are the mounted file systems of
// Platform::ListVolumes ("/" first) and the "network connections" are its network mounts;
// nothing here stats, opens or lists a mount point, so a dead server never blocks a listing.
//
// Records (keyed by the mount point, as UTF-8 bytes) carry up to three fields, each only when
// asked for:
// - Name: the file system's label, or the localized drive-type name when it has none,
//   followed by " (", the mount point and ")": "Media (/media/x)", "Local Disk (/)".
//   Network mounts are named like mapped network drives: the mount point followed by
//   " (", the share and ")": "/mnt/media (//server/media)".
// - Path: the mount point, the folder the file directory provider opens.
// - ExtraPath: the mounted device or share ("/dev/sdb1", "server:/export"), which says
//   what is behind the mount point; no provider reads it back.
//
// Both listings call the abort predicate, when set, before each record; a true answer stops
// the listing and keeps the records made so far. Neither reports errors: an unreadable
// mount table lists nothing.
#pragma once

#include <cstdint>
#include <string>

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

// The localized name of a drive type ("Local Disk" for 3); "error" for values above 6.
TESSEL_API std::string GetDriveTypeName(std::uint32_t driveType);

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

// Adds one record per volume to CONTENT (which is not cleared). Network mounts among the
// volumes get network-connection names (see above), so each mount has exactly one record;
// the network listing is not read a second time.
TESSEL_API void GetDriveLetterContent(SDKContentMap& content, const SDKFieldSet& fields,
                                      const AbortPredicate& abort,
                                      const Platform::MountTableFiles& files = {});

// Adds one record per network mount to CONTENT (which is not cleared). The feature switch
// "MediaBrowser.MaintainMappedDrivePaths" has no effect here: a network mount has only its
// mount point, so there is no second form of its path to choose between.
TESSEL_API void GetNetUseContent(SDKContentMap& content, const SDKFieldSet& fields,
                                 const AbortPredicate& abort,
                                 const Platform::MountTableFiles& files = {});

// The volume-mounted test: true when PATH is a mount point in the mount table.
TESSEL_API bool IsVolumeMounted(const std::string& path,
                                const Platform::MountTableFiles& files = {});

}  // namespace Tessel::WinVolumeUtils

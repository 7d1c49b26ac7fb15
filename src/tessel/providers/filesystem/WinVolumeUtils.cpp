#include <tessel/providers/filesystem/WinVolumeUtils.h>

#include <vector>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>

namespace Tessel::WinVolumeUtils {

namespace {

// The three fields a record can carry, as bits of the requested set.
enum FieldBit : unsigned {
    kNameBit = 1u << 0,
    kPathBit = 1u << 1,
    kExtraPathBit = 1u << 2,
};

unsigned ToFieldBits(const SDKFieldSet& fields) {
    unsigned bits = 0;
    if (fields.count(kSDKNameField))
        bits |= kNameBit;
    if (fields.count(kSDKPathField))
        bits |= kPathBit;
    if (fields.count(kSDKExtraPathField))
        bits |= kExtraPathBit;
    return bits;
}

std::string DisplayMountPoint(const Platform::MountInfo& mount) {
    return ToDisplayUtf8(Path::FromNativeUtf8(mount.mountPoint));
}

void AddRecord(SDKContentMap& content, const Platform::MountInfo& mount, std::string name,
               unsigned bits) {
    const std::string key = Path::FromNativeUtf8(mount.mountPoint);
    SDKPropertyMap& record = content[key];
    if (bits & kNameBit)
        record[kSDKNameField] = Utf8ToUtf16(name);
    if (bits & kPathBit)
        record[kSDKPathField] = Utf8ToUtf16(key);
    if (bits & kExtraPathBit) {
        record[kSDKExtraPathField] = Utf8ToUtf16(Path::FromNativeUtf8(mount.source));
    }
}

void AddRecords(SDKContentMap& content, const std::vector<Platform::MountInfo>& mounts,
                const SDKFieldSet& fields, const AbortPredicate& abort) {
    const unsigned bits = ToFieldBits(fields);
    for (const Platform::MountInfo& mount : mounts) {
        if (abort && abort())
            return;
        // Only build the name when it is shown: it may read the localization table.
        AddRecord(content, mount, (bits & kNameBit) ? GetDriveName(mount) : std::string(), bits);
    }
}

}  // namespace

std::string GetDriveTypeName(std::uint32_t driveType) {
    switch (driveType) {
        case kDriveUnknown:
            return Localize("$$$/Pelimar/Tessel/WinProvider/DriveType/Unknown=Unknown");
        case kDriveNoRootDirectory:
            return Localize("$$$/Pelimar/Tessel/WinProvider/DriveType/Invalid=Invalid");
        case kDriveRemovable:
            return Localize("$$$/Pelimar/Tessel/WinProvider/DriveType/Removable=Removable");
        case kDriveFixed:
            return Localize("$$$/Pelimar/Tessel/WinProvider/DriveType/Fixed=Local Disk");
        case kDriveRemote:
            return Localize("$$$/Pelimar/Tessel/WinProvider/DriveType/Remote=Network");
        case kDriveCDROM:
            return Localize("$$$/Pelimar/Tessel/WinProvider/DriveType/CDROM=CD-ROM");
        case kDriveRAMDisk:
            return Localize("$$$/Pelimar/Tessel/WinProvider/DriveType/RAMDisk=RAM Disk");
        default:
            return Localize("$$$/Pelimar/Tessel/WinProvider/DriveType/Error=error");
    }
}

std::uint32_t GetDriveType(const Platform::MountInfo& mount) {
    if (mount.isNetwork)
        return kDriveRemote;
    if (mount.isOptical)
        return kDriveCDROM;
    if (mount.isRamDisk)
        return kDriveRAMDisk;
    if (mount.isRemovable)
        return kDriveRemovable;
    return kDriveFixed;
}

std::string GetDriveName(const Platform::MountInfo& mount) {
    if (mount.isNetwork)
        return GetConnectionName(mount);
    const std::string label =
        mount.label.empty() ? GetDriveTypeName(GetDriveType(mount)) : ToDisplayUtf8(mount.label);
    return label + " (" + DisplayMountPoint(mount) + ")";
}

std::string GetConnectionName(const Platform::MountInfo& mount) {
    return DisplayMountPoint(mount) + " (" + ToDisplayUtf8(Path::FromNativeUtf8(mount.source)) +
           ")";
}

void GetDriveLetterContent(SDKContentMap& content, const SDKFieldSet& fields,
                           const AbortPredicate& abort, const Platform::MountTableFiles& files) {
    if (abort && abort())
        return;
    AddRecords(content, Platform::ListVolumes(files), fields, abort);
}

void GetNetUseContent(SDKContentMap& content, const SDKFieldSet& fields,
                      const AbortPredicate& abort, const Platform::MountTableFiles& files) {
    if (abort && abort())
        return;
    AddRecords(content, Platform::ListNetworkMounts(files), fields, abort);
}

bool IsVolumeMounted(const std::string& path, const Platform::MountTableFiles& files) {
    return Platform::IsMountPoint(Path::ToNative(std::string_view(path)), files);
}

}  // namespace Tessel::WinVolumeUtils

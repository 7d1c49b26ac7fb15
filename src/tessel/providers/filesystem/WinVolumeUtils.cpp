#include <tessel/providers/filesystem/WinVolumeUtils.h>

#include <set>
#include <vector>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Settings.h>
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

// Stores a record under KEY, which is also its Path. NAME and EXTRAPATH are UTF-8.
void AddRecord(SDKContentMap& content, const std::string& key, const std::string& name,
               const std::string& extraPath, unsigned bits) {
    SDKPropertyMap& record = content[key];
    if (bits & kNameBit)
        record[kSDKNameField] = Utf8ToUtf16(name);
    if (bits & kPathBit)
        record[kSDKPathField] = Utf8ToUtf16(key);
    if (bits & kExtraPathBit)
        record[kSDKExtraPathField] = Utf8ToUtf16(extraPath);
}

std::string ComposeConnectionName(std::string_view place, std::string_view share) {
    return ToDisplayUtf8(place) + " (" + ToDisplayUtf8(share) + ")";
}

#if defined(_WIN32)

std::string Utf8(const std::wstring& text) {
    return Path::FromNativeUtf8(text);
}

bool IsDriveLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// The long form of a share: "\\?\UNC" and the share without its first backslash.
std::string ShareLongForm(const std::string& remote) {
    if (remote.starts_with("\\\\?\\"))
        return remote;
    return "\\\\?\\UNC" + remote.substr(1);
}

// "Z:" of a local name that is a drive; empty for anything else.
std::wstring DriveOf(const std::wstring& localName) {
    if (localName.size() != 2 || localName[1] != L':' || localName[0] > 0x7F ||
        !IsDriveLetter(static_cast<char>(localName[0])))
        return {};
    std::wstring drive = localName;
    if (drive[0] >= L'a')
        drive[0] = static_cast<wchar_t>(drive[0] - L'a' + L'A');
    return drive;
}

void AddConnectionRecord(SDKContentMap& content, unsigned bits, const std::wstring& localName,
                         const std::wstring& remoteName) {
    if (remoteName.empty())
        return;
    const std::string remote = Utf8(remoteName);
    const std::string local = Utf8(localName);
    if (local.empty()) {
        AddRecord(content, ShareLongForm(remote), ToDisplayUtf8(remote), remote, bits);
        return;
    }
    const std::string path = IsFeatureEnabled(kMaintainMappedDrivePathsFeature)
                                 ? "\\\\?\\" + local + "\\"
                                 : ShareLongForm(remote);
    AddRecord(content, path, (bits & kNameBit) ? ComposeConnectionName(local, remote) : "", remote,
              bits);
}

void AddDriveRecord(SDKContentMap& content, unsigned bits, const std::wstring& root) {
    const std::string rootUtf8 = Utf8(root);
    // The key keeps the root's backslash ("\\?\C:\"): without it, it would name the current
    // folder of the drive, which the file directory provider does not open.
    const std::string key = "\\\\?\\" + rootUtf8;
    std::string name;
    if (bits & kNameBit) {
        const std::string drive = rootUtf8.substr(0, 2);
        name = ComposeDriveName(Utf8(Platform::VolumeLabelOf(root)), Platform::DriveTypeOf(root),
                                drive);
    }
    AddRecord(content, key, name, rootUtf8, bits);
}

#else

std::string DisplayMountPoint(const Platform::MountInfo& mount) {
    return ToDisplayUtf8(Path::FromNativeUtf8(mount.mountPoint));
}

void AddMountRecords(SDKContentMap& content, const std::vector<Platform::MountInfo>& mounts,
                     const SDKFieldSet& fields, const AbortPredicate& abort) {
    const unsigned bits = ToFieldBits(fields);
    for (const Platform::MountInfo& mount : mounts) {
        if (abort && abort())
            return;
        // Only build the name when it is shown: it may read the localization table.
        AddRecord(content, Path::FromNativeUtf8(mount.mountPoint),
                  (bits & kNameBit) ? GetDriveName(mount) : std::string(),
                  Path::FromNativeUtf8(mount.source), bits);
    }
}

#endif

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

std::string ComposeDriveName(std::string_view label, std::uint32_t driveType,
                             std::string_view place) {
    const std::string shown = label.empty() ? GetDriveTypeName(driveType) : ToDisplayUtf8(label);
    return shown + " (" + ToDisplayUtf8(place) + ")";
}

#if defined(_WIN32)

void AddDriveRecord(SDKContentMap& content, const SDKFieldSet& fields,
                    const Platform::NativeString& root) {
    AddDriveRecord(content, ToFieldBits(fields), root);
}

void AddConnectionRecord(SDKContentMap& content, const SDKFieldSet& fields,
                         const Platform::NativeString& localName,
                         const Platform::NativeString& remoteName) {
    AddConnectionRecord(content, ToFieldBits(fields), localName, remoteName);
}

void GetDriveLetterContent(SDKContentMap& content, const SDKFieldSet& fields,
                           const AbortPredicate& abort, const Platform::MountTableFiles&) {
    const unsigned bits = ToFieldBits(fields);
    // A mapped drive is listed once, as its connection, which names the share and follows
    // the feature switch; the connections come first, so that the walk knows which drives
    // are mapped (and never opens their volume devices through the redirector).
    std::vector<Platform::NetworkConnection> mapped = Platform::ListNetworkConnections(abort);
    std::set<std::wstring> mappedDrives;
    for (auto it = mapped.begin(); it != mapped.end();) {
        const std::wstring drive = DriveOf(it->localName);
        if (drive.empty()) {
            it = mapped.erase(it);
        } else {
            mappedDrives.insert(drive);
            ++it;
        }
    }
    for (const std::wstring& root : Platform::ListDriveRoots()) {
        if (abort && abort())
            return;
        const std::wstring drive = DriveOf(root.substr(0, 2));
        if (mappedDrives.count(drive) != 0 || !Platform::IsVolumeMounted(root.substr(0, 2)))
            continue;
        AddDriveRecord(content, bits, root);
    }
    for (const Platform::NetworkConnection& connection : mapped)
        AddConnectionRecord(content, bits, connection.localName, connection.remoteName);
}

void GetNetUseContent(SDKContentMap& content, const SDKFieldSet& fields,
                      const AbortPredicate& abort, const Platform::MountTableFiles&) {
    const unsigned bits = ToFieldBits(fields);
    for (const Platform::NetworkConnection& connection : Platform::ListNetworkConnections(abort))
        AddConnectionRecord(content, bits, connection.localName, connection.remoteName);
}

bool IsVolumeMounted(const std::string& path, const Platform::MountTableFiles&) {
    return Platform::IsVolumeMounted(Path::ToNative(std::string_view(path)));
}

#else

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
    return ComposeDriveName(mount.label, GetDriveType(mount), DisplayMountPoint(mount));
}

std::string GetConnectionName(const Platform::MountInfo& mount) {
    return ComposeConnectionName(Path::FromNativeUtf8(mount.mountPoint),
                                 Path::FromNativeUtf8(mount.source));
}

void GetDriveLetterContent(SDKContentMap& content, const SDKFieldSet& fields,
                           const AbortPredicate& abort, const Platform::MountTableFiles& files) {
    if (abort && abort())
        return;
    AddMountRecords(content, Platform::ListVolumes(files), fields, abort);
}

void GetNetUseContent(SDKContentMap& content, const SDKFieldSet& fields,
                      const AbortPredicate& abort, const Platform::MountTableFiles& files) {
    if (abort && abort())
        return;
    AddMountRecords(content, Platform::ListNetworkMounts(files), fields, abort);
}

bool IsVolumeMounted(const std::string& path, const Platform::MountTableFiles& files) {
    return Platform::IsMountPoint(Path::ToNative(std::string_view(path)), files);
}

#endif

}  // namespace Tessel::WinVolumeUtils

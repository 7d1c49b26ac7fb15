// Win32 volumes: the drive letters, their types and labels, the volume-mounted test, the
// connected network disks and the drive walk. This is the reference behaviour that the
// POSIX backend maps onto the mount table.
#include <tessel/platform/Volumes.h>

// clang-format off
#include "FindFiles.h"  // <windows.h> first, as every Win32 source includes it
#include <winioctl.h>
#include <winnetwk.h>
// clang-format on

#include <cwchar>

namespace Tessel::Platform {

using Win32::CriticalErrorDialogsOff;

namespace {

// The first buffer for the drive list: 26 roots of four characters and the final null.
constexpr DWORD kDriveStringsLength = 105;
// Added to a reported need, so that drives appearing between the two calls still fit.
constexpr DWORD kDriveStringsSlack = 106;
constexpr DWORD kLabelLength = MAX_PATH + 1;
constexpr DWORD kNetworkBufferBytes = 16384;
constexpr DWORD kDiskUsage = 0x13;  // connectable, container, attached
constexpr DWORD kAllEntries = static_cast<DWORD>(-1);

wchar_t AsciiUpper(wchar_t c) {
    return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
}

bool EqualsIgnoringAsciiCase(const std::wstring& a, const std::wstring& b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (AsciiUpper(a[i]) != AsciiUpper(b[i]))
            return false;
    }
    return true;
}

// The network functions live in mpr.dll, loaded on first use: programs that never list
// network connections do not load the network provider router at all.
struct NetworkFunctions {
    decltype(&WNetOpenEnumW) openEnum = nullptr;
    decltype(&WNetEnumResourceW) enumResource = nullptr;
    decltype(&WNetCloseEnum) closeEnum = nullptr;

    bool Loaded() const { return openEnum && enumResource && closeEnum; }
};

template <typename Function>
Function Lookup(HMODULE module, const char* name) {
    // Through a generic function pointer, as GetProcAddress's type says nothing of the real one.
    return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

const NetworkFunctions& Network() {
    static const NetworkFunctions functions = [] {
        NetworkFunctions loaded;
        // Never unloaded: the functions are kept for the life of the process.
        const HMODULE module = LoadLibraryExW(L"mpr.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
        if (module == nullptr)
            return loaded;
        loaded.openEnum = Lookup<decltype(&WNetOpenEnumW)>(module, "WNetOpenEnumW");
        loaded.enumResource = Lookup<decltype(&WNetEnumResourceW)>(module, "WNetEnumResourceW");
        loaded.closeEnum = Lookup<decltype(&WNetCloseEnum)>(module, "WNetCloseEnum");
        return loaded;
    }();
    return functions;
}

// "\\?\E:\" and "E:\" name the same root.
std::wstring WithoutLongPathPrefix(const std::wstring& path) {
    return path.compare(0, 4, L"\\\\?\\") == 0 ? path.substr(4) : path;
}

}  // namespace

std::vector<NativeString> ListDriveRoots() {
    std::vector<wchar_t> buffer(kDriveStringsLength, L'\0');
    DWORD length = GetLogicalDriveStringsW(static_cast<DWORD>(buffer.size()), buffer.data());
    if (length > buffer.size()) {
        buffer.assign(length + kDriveStringsSlack, L'\0');
        length = GetLogicalDriveStringsW(static_cast<DWORD>(buffer.size()), buffer.data());
    }
    std::vector<NativeString> roots;
    if (length == 0 || length > buffer.size())
        return roots;
    // A double-null-terminated list: "A:\", "C:\", ... each followed by its null.
    for (const wchar_t* root = buffer.data(); *root != L'\0'; root += std::wcslen(root) + 1)
        roots.emplace_back(root);
    return roots;
}

std::uint32_t DriveTypeOf(const NativeString& root) {
    return GetDriveTypeW(root.c_str());
}

NativeString VolumeLabelOf(const NativeString& root) {
    CriticalErrorDialogsOff dialogsOff;
    wchar_t label[kLabelLength] = {};
    if (!GetVolumeInformationW(root.c_str(), label, kLabelLength, nullptr, nullptr, nullptr,
                               nullptr, 0)) {
        return {};
    }
    label[kLabelLength - 1] = L'\0';
    return label;
}

bool IsVolumeMounted(const NativeString& drive) {
    if (drive.empty())
        return false;
    CriticalErrorDialogsOff dialogsOff;
    const std::wstring device = L"\\\\.\\" + drive;
    const HANDLE volume =
        CreateFileW(device.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                    OPEN_EXISTING, 0, nullptr);
    if (volume == INVALID_HANDLE_VALUE)
        return false;  // no such drive, no medium, or no access: not a mounted volume to us
    DWORD returned = 0;
    const bool mounted = DeviceIoControl(volume, FSCTL_IS_VOLUME_MOUNTED, nullptr, 0, nullptr, 0,
                                         &returned, nullptr) != FALSE;
    CloseHandle(volume);
    return mounted;
}

std::vector<NetworkConnection> ListNetworkConnections(const std::function<bool()>& abort) {
    std::vector<NetworkConnection> connections;
    const NetworkFunctions& network = Network();
    if (!network.Loaded())
        return connections;
    HANDLE enumeration = nullptr;
    if (network.openEnum(RESOURCE_CONNECTED, RESOURCETYPE_DISK, kDiskUsage, nullptr,
                         &enumeration) != NO_ERROR) {
        return connections;
    }
    void* buffer = GlobalAlloc(GPTR, kNetworkBufferBytes);
    if (buffer != nullptr) {
        for (;;) {
            if (abort && abort())
                break;
            ZeroMemory(buffer, kNetworkBufferBytes);
            DWORD count = kAllEntries;
            DWORD size = kNetworkBufferBytes;
            // Any answer but success ends the walk: ERROR_NO_MORE_ITEMS at the end, or a
            // failure that leaves what was read so far.
            if (network.enumResource(enumeration, &count, buffer, &size) != NO_ERROR)
                break;
            const auto* resources = static_cast<const NETRESOURCEW*>(buffer);
            for (DWORD i = 0; i < count; ++i) {
                const NETRESOURCEW& resource = resources[i];
                if (resource.lpRemoteName == nullptr || resource.lpRemoteName[0] == L'\0' ||
                    (resource.dwUsage & RESOURCEUSAGE_CONTAINER))
                    continue;
                connections.push_back(
                    {resource.lpLocalName ? resource.lpLocalName : L"", resource.lpRemoteName});
            }
        }
        GlobalFree(buffer);
    }
    network.closeEnum(enumeration);
    return connections;
}

void ForEachMountedDriveRoot(const NativeString& skippedRoot,
                             const std::function<bool(const NativeString& root)>& visit,
                             const MountTableFiles&) {
    if (!visit)
        return;
    const std::wstring skipped = WithoutLongPathPrefix(skippedRoot);
    std::wstring root = L"A:\\";
    for (DWORD mask = GetLogicalDrives(); mask != 0 && root[0] <= L'Z'; mask >>= 1, ++root[0]) {
        if (!(mask & 1u) || EqualsIgnoringAsciiCase(root, skipped))
            continue;
        if (!IsVolumeMounted(root.substr(0, 2)))
            continue;
        if (GetPathKind(root) != PathKind::Directory)
            continue;
        if (!visit(root))
            return;
    }
}

}  // namespace Tessel::Platform

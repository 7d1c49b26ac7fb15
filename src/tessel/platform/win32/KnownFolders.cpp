// Win32 known folders (SHGetKnownFolderPath), environment variables and registry values.
#include <tessel/platform/KnownFolders.h>

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <knownfolders.h>
#include <shlobj.h>

#include <vector>

namespace Tessel::Platform {

namespace {

constexpr DWORD kLargestRegistryText = 64 * 1024;

}  // namespace

NativeString GetKnownFolder(KnownFolder folder) {
    const KNOWNFOLDERID* id = &FOLDERID_Profile;
    if (folder == KnownFolder::RoamingAppData)
        id = &FOLDERID_RoamingAppData;
    else if (folder == KnownFolder::LocalAppData)
        id = &FOLDERID_LocalAppData;
    PWSTR path = nullptr;
    NativeString out;
    if (SUCCEEDED(SHGetKnownFolderPath(*id, KF_FLAG_DONT_VERIFY, nullptr, &path)) && path)
        out = path;
    CoTaskMemFree(path);  // also when the call failed
    return out;
}

std::optional<NativeString> GetEnvironmentValue(const NativeString& name) {
    if (name.empty())
        return std::nullopt;
    std::vector<wchar_t> buffer(256);
    for (int attempt = 0; attempt < 4; ++attempt) {
        SetLastError(ERROR_SUCCESS);
        const DWORD length =
            GetEnvironmentVariableW(name.c_str(), buffer.data(), static_cast<DWORD>(buffer.size()));
        if (length == 0) {
            if (GetLastError() == ERROR_ENVVAR_NOT_FOUND)
                return std::nullopt;
            return NativeString();  // set, but empty
        }
        if (length < buffer.size())
            return NativeString(buffer.data(), length);
        buffer.resize(length);  // LENGTH includes the terminating null here
    }
    return std::nullopt;  // changing under our feet
}

std::optional<NativeString> ReadRegistryString(RegistryRoot root, const NativeString& key,
                                               const NativeString& valueName) {
    const HKEY rootKey = root == RegistryRoot::CurrentUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
    // A REG_EXPAND_SZ value passes this restriction once RegGetValueW has expanded it.
    constexpr DWORD kFlags = RRF_RT_REG_SZ;
    for (int attempt = 0; attempt < 4; ++attempt) {
        DWORD bytes = 0;
        if (RegGetValueW(rootKey, key.c_str(), valueName.c_str(), kFlags, nullptr, nullptr,
                         &bytes) != ERROR_SUCCESS ||
            bytes > kLargestRegistryText) {
            return std::nullopt;
        }
        std::vector<wchar_t> buffer(bytes / sizeof(wchar_t) + 1, L'\0');
        bytes = static_cast<DWORD>(buffer.size() * sizeof(wchar_t));
        const LSTATUS status = RegGetValueW(rootKey, key.c_str(), valueName.c_str(), kFlags,
                                            nullptr, buffer.data(), &bytes);
        if (status == ERROR_MORE_DATA)
            continue;  // the value grew in between
        if (status != ERROR_SUCCESS)
            return std::nullopt;
        // RegGetValueW ends the text with a null, counted in BYTES.
        return NativeString(buffer.data());
    }
    return std::nullopt;
}

}  // namespace Tessel::Platform

// The known folders of the XDG base-directory rules, which ignore a relative
// XDG_CONFIG_HOME or XDG_DATA_HOME. POSIX has no registry.
#include <tessel/platform/KnownFolders.h>

#include <cstdlib>
#include <string>

namespace Tessel::Platform {

namespace {

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? std::string(value) : std::string();
}

bool IsAbsolute(const std::string& path) {
    return !path.empty() && path.front() == '/';
}

// VARIABLE when it is absolute, else LEAF in the home folder (when that is absolute).
std::string BaseDirectory(const char* variable, const char* leaf) {
    std::string folder = Environment(variable);
    if (IsAbsolute(folder))
        return folder;
    std::string home = Environment("HOME");
    if (!IsAbsolute(home))
        return {};
    while (home.size() > 1 && home.back() == '/')
        home.pop_back();
    return (home == "/" ? home : home + "/") + leaf;
}

}  // namespace

NativeString GetKnownFolder(KnownFolder folder) {
    switch (folder) {
        case KnownFolder::Home:
            return Environment("HOME");
        case KnownFolder::RoamingAppData:
            return BaseDirectory("XDG_CONFIG_HOME", ".config");
        case KnownFolder::LocalAppData:
            return BaseDirectory("XDG_DATA_HOME", ".local/share");
    }
    return {};
}

std::optional<NativeString> GetEnvironmentValue(const NativeString& name) {
    const char* value = std::getenv(name.c_str());
    if (value == nullptr)
        return std::nullopt;
    return NativeString(value);
}

std::optional<NativeString> ReadRegistryString(RegistryRoot, const NativeString&,
                                               const NativeString&) {
    return std::nullopt;
}

}  // namespace Tessel::Platform

// Where the running user's programs keep their files and settings: the user's known
// folders, environment variables and, on Windows, the registry. Programs such as the cloud
// storage clients are found through them.
#pragma once

#include <optional>

#include <tessel/platform/Export.h>
#include <tessel/platform/FileSystem.h>

namespace Tessel::Platform {

enum class KnownFolder {
    Home,            // Windows: the profile folder; POSIX: $HOME
    RoamingAppData,  // Windows: the roaming application data ("AppData\Roaming");
                     // POSIX: $XDG_CONFIG_HOME when absolute, else $HOME/.config
    LocalAppData,    // Windows: the local application data ("AppData\Local");
                     // POSIX: $XDG_DATA_HOME when absolute, else $HOME/.local/share
};

// The folder, as the system (Windows) or the environment (POSIX) gives it; empty when it
// is unknown. POSIX's $HOME is answered as it is set, even when it is not absolute.
TESSEL_API NativeString GetKnownFolder(KnownFolder folder);

// The value of the environment variable NAME; none when it is not set.
TESSEL_API std::optional<NativeString> GetEnvironmentValue(const NativeString& name);

enum class RegistryRoot { CurrentUser, LocalMachine };

// The text value VALUENAME of KEY ("Software\Vendor\Program") under ROOT, a REG_EXPAND_SZ
// value with its variables expanded. None when the key or the value is missing, the value
// is not text or is larger than 64 KiB. There is no registry on POSIX: always none.
TESSEL_API std::optional<NativeString> ReadRegistryString(RegistryRoot root,
                                                          const NativeString& key,
                                                          const NativeString& valueName);

}  // namespace Tessel::Platform

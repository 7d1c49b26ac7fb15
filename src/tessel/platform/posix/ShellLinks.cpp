// POSIX has no shell links: a symbolic link is followed by the kernel and listed as itself.
#include <tessel/platform/ShellLinks.h>

namespace Tessel::Platform {

bool IsShellLinkName(const NativeString&) {
    return false;
}

std::optional<NativeString> ReadShellLinkTarget(const NativeString&) {
    return std::nullopt;
}

}  // namespace Tessel::Platform

// Shell links (".lnk" files), which Windows lists under the path they point to. POSIX has no
// shell links (a symbolic link is followed by the kernel instead): there no entry is one.
#pragma once

#include <optional>

#include <tessel/platform/Export.h>
#include <tessel/platform/FileSystem.h>

namespace Tessel::Platform {

// True when a file named NAME is taken for a shell link: a name ending in ".lnk", in any
// case, on Windows; never on POSIX.
TESSEL_API bool IsShellLinkName(const NativeString& name);

// The file-system path the shell link at LINKPATH points to, in long-path form: a UNC
// target "\\server\share\x" becomes "\\?\UNC\server\share\x" and a drive target "C:\x"
// becomes "\\?\C:\x"; any other target is given as the link holds it. Nothing when the link
// cannot be loaded or points at no file-system path (a printer, the control panel). The
// link is read, never resolved: a target that no longer exists is still given, and no
// search of disks or network starts. Any thread may call this: one without COM gets it for
// the duration of the call.
TESSEL_API std::optional<NativeString> ReadShellLinkTarget(const NativeString& linkPath);

}  // namespace Tessel::Platform

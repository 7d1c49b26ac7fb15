// The system's test for UNC paths. The folder provider's path rule starts with it.
#pragma once

#include <tessel/platform/Export.h>
#include <tessel/platform/FileSystem.h>

namespace Tessel::Platform {

// Windows: PathIsUNCW, as Windows Vista and later answer it: "\\server\share" paths and the
// long-path form "\\?\UNC\server\share" are UNC; "\\?\C:\" and the other "\\?\" forms are
// not. POSIX has no UNC paths: always false.
TESSEL_API bool IsUncPath(const NativeString& path);

}  // namespace Tessel::Platform

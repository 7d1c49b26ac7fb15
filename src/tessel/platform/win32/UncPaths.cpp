#include <tessel/platform/UncPaths.h>

#include "FindFiles.h"

#include <shlwapi.h>

namespace Tessel::Platform {

bool IsUncPath(const NativeString& path) {
    // Older versions of PathIsUNCW, and Wine's, call every path that begins with "\\" UNC,
    // the long-path drive form "\\?\C:\" included; Vista and later count only "\\?\UNC\"
    // among the long-path forms. The later answer is the one the folder rules are written for.
    if (path.size() >= 4 && path.compare(0, 4, L"\\\\?\\") == 0) {
        return path.size() >= 8 &&
               CompareStringOrdinal(path.c_str() + 4, 4, L"UNC\\", 4, TRUE) == CSTR_EQUAL;
    }
    return PathIsUNCW(path.c_str()) != FALSE;
}

}  // namespace Tessel::Platform

#include <tessel/platform/UncPaths.h>

namespace Tessel::Platform {

// POSIX paths have no UNC form.
bool IsUncPath(const NativeString&) {
    return false;
}

}  // namespace Tessel::Platform

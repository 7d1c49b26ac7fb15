#include <tessel/platform/ModulePath.h>

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>

namespace Tessel::Platform {

namespace {

// Any object inside the library will do: dladdr answers the file that maps it.
const char kAnchor = 0;

}  // namespace

NativeString LibraryDirectory() {
    Dl_info info{};
    if (dladdr(&kAnchor, &info) == 0 || !info.dli_fname || !*info.dli_fname)
        return {};
    NativeString file = info.dli_fname;
    // The loader reports the name it opened, relative when a search path was relative.
    if (file.front() != '/') {
        char* absolute = realpath(file.c_str(), nullptr);
        if (!absolute)
            return {};
        file = absolute;
        free(absolute);
    }
    const std::size_t slash = file.rfind('/');
    return slash == 0 ? NativeString("/") : file.substr(0, slash);
}

}  // namespace Tessel::Platform

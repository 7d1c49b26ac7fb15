#include <tessel/platform/DynamicLibrary.h>

#include <dlfcn.h>

namespace Tessel::Platform {

// RTLD_LOCAL keeps the library's symbols out of the global scope, so that they cannot
// interpose on anything loaded later.
DynamicLibrary::DynamicLibrary(const char* fileName)
    : mHandle(fileName && *fileName ? dlopen(fileName, RTLD_NOW | RTLD_LOCAL) : nullptr) {}

DynamicLibrary::~DynamicLibrary() {
    if (mHandle)
        dlclose(mHandle);
}

void* DynamicLibrary::FindSymbol(const char* symbol) const {
    return mHandle && symbol ? dlsym(mHandle, symbol) : nullptr;
}

}  // namespace Tessel::Platform

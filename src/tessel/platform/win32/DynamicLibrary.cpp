#include <tessel/platform/DynamicLibrary.h>

#include <string>

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

namespace Tessel::Platform {

namespace {

std::wstring Widen(const char* text) {
    const int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, nullptr, 0);
    if (length <= 1)
        return {};
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, wide.data(), length);
    wide.resize(static_cast<std::size_t>(length) - 1);
    return wide;
}

}  // namespace

// No dialog box when the library or one of its dependencies is missing: the caller hears
// of it as a library that is not open.
DynamicLibrary::DynamicLibrary(const char* fileName) {
    const std::wstring name = fileName ? Widen(fileName) : std::wstring();
    if (name.empty())
        return;
    const UINT previous = SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
    mHandle = LoadLibraryExW(name.c_str(), nullptr, LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
    SetErrorMode(previous);
}

DynamicLibrary::~DynamicLibrary() {
    if (mHandle)
        FreeLibrary(static_cast<HMODULE>(mHandle));
}

// GetProcAddress searches only the module itself, not the DLLs it imports.
void* DynamicLibrary::FindSymbol(const char* symbol) const {
    if (!mHandle || !symbol)
        return nullptr;
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(mHandle), symbol));
}

}  // namespace Tessel::Platform

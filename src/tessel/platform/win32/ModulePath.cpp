#include <tessel/platform/ModulePath.h>

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

namespace Tessel::Platform {

namespace {

// Any object inside the DLL will do: the module that holds its address is the library.
const char kAnchor = 0;

}  // namespace

NativeString LibraryDirectory() {
    HMODULE module = nullptr;
    if (!GetModuleHandleExW(
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
            reinterpret_cast<LPCWSTR>(&kAnchor), &module)) {
        return {};
    }
    // Long install paths exceed MAX_PATH; grow the buffer until the name fits.
    std::wstring file(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(module, file.data(), DWORD(file.size()));
        if (length == 0)
            return {};
        if (length < file.size()) {
            file.resize(length);
            break;
        }
        if (file.size() >= 32768)
            return {};
        file.resize(file.size() * 2);
    }
    const std::size_t separator = file.find_last_of(L"\\/");
    if (separator == std::wstring::npos)
        return {};
    // A drive root keeps its separator ("C:\").
    return file.substr(0, separator == 2 && file[1] == L':' ? 3 : separator);
}

}  // namespace Tessel::Platform

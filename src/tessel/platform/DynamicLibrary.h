// Shared libraries opened while the program runs instead of when it starts. A dependency
// that only some calls need (the SVG renderer and its large tree of libraries) then costs
// nothing to the programs that never make those calls, and a missing one turns into an
// empty answer instead of a program that cannot start.
#pragma once

#include <utility>

namespace Tessel::Platform {

class DynamicLibrary {
public:
    // Opens the shared library FILE_NAME (UTF-8), searched for the system's usual way; an
    // object that is not open (IsOpen false) when it cannot be loaded.
    explicit DynamicLibrary(const char* fileName);
    ~DynamicLibrary();  // closes it
    DynamicLibrary(const DynamicLibrary&) = delete;
    DynamicLibrary& operator=(const DynamicLibrary&) = delete;

    bool IsOpen() const { return mHandle != nullptr; }
    // The address of the exported SYMBOL; null when there is none or the library is not
    // open. POSIX also searches the libraries it depends on (dlsym), Windows only the
    // library itself.
    void* FindSymbol(const char* symbol) const;

    // FindSymbol as a pointer to the function type of DECLARED (pass the function itself,
    // as declared by the library's header: Find(name, &function)).
    template <typename Function>
    Function* Find(const char* symbol, Function* declared) const {
        (void)declared;  // only its type counts
        return reinterpret_cast<Function*>(FindSymbol(symbol));
    }

private:
    void* mHandle = nullptr;
};

}  // namespace Tessel::Platform

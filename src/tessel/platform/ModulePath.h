// Where the library itself was loaded from, so that files installed beside it (the
// resources folder) are found wherever the install prefix is, even after it was moved.
#pragma once

#include <tessel/platform/Export.h>
#include <tessel/platform/FileSystem.h>

namespace Tessel::Platform {

// The absolute directory holding the loaded libtessel (no trailing separator, "/" for the
// root); empty when the system cannot say.
TESSEL_API NativeString LibraryDirectory();

}  // namespace Tessel::Platform

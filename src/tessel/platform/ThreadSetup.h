// What a library worker thread sets up when it starts and undoes before it ends. Windows
// puts the thread into COM's multithreaded apartment, which reading shell links needs;
// POSIX needs nothing.
#pragma once

#include <tessel/platform/Export.h>

namespace Tessel::Platform {

// Called by a worker thread before it runs its first task.
TESSEL_API void InitializeThread();
// Called by the same thread after its last task; undoes what InitializeThread did there.
TESSEL_API void UninitializeThread();

}  // namespace Tessel::Platform

// How the C library hands out memory to the process's threads.
#pragma once

#include <tessel/platform/Export.h>

namespace Tessel::Platform {

// One memory arena for every thread. A tool lists a folder on an executor's thread and
// prints it on the main thread, after a ranking pass on another thread: with an arena each,
// none reuses what another freed, and a listing of a hundred thousand entries costs a fifth
// more memory. Call before other threads start. Nothing where the C library keeps no arenas.
TESSEL_API void UseOneMemoryArena();

}  // namespace Tessel::Platform

#include <tessel/platform/MemoryArenas.h>

namespace Tessel::Platform {

// The process heap is shared by every thread already.
void UseOneMemoryArena() {}

}  // namespace Tessel::Platform

#include <tessel/platform/MemoryArenas.h>

#include <cstdlib>  // defines __GLIBC__ with the GNU C library

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace Tessel::Platform {

void UseOneMemoryArena() {
#if defined(__GLIBC__)
    mallopt(M_ARENA_MAX, 1);
#endif
}

}  // namespace Tessel::Platform

#include <tessel/platform/ThreadSetup.h>

namespace Tessel::Platform {

// POSIX worker threads need nothing of their own.
void InitializeThread() {}
void UninitializeThread() {}

}  // namespace Tessel::Platform

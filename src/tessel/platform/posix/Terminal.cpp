#include <tessel/platform/Terminal.h>

#include <unistd.h>

namespace Tessel::Platform {

bool StandardErrorIsTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

}  // namespace Tessel::Platform

#include <tessel/platform/Terminal.h>

#include <io.h>
#include <stdio.h>

namespace Tessel::Platform {

bool StandardErrorIsTerminal() {
    return _isatty(_fileno(stderr)) != 0;
}

}  // namespace Tessel::Platform

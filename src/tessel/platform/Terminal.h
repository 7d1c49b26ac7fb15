// Whether the process's standard error is a terminal (the tools show progress only there).
#pragma once

#include <tessel/platform/Export.h>

namespace Tessel::Platform {

TESSEL_API bool StandardErrorIsTerminal();

}  // namespace Tessel::Platform

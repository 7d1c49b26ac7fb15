// The `tessel` command line, runnable in process (the tests do) or from main().
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace Tessel::Tool {

// Runs one command line (ARGS without the program name), writing to OUT and ERR.
// Returns the exit status. The caller has named the main thread and initialised the host.
int Run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

}  // namespace Tessel::Tool

// Ctrl-C handling for the tool: the first interrupt asks the running request to abort
// (the tool then exits with status 3); the handler only sets a flag.
#pragma once

namespace Tessel::Tool {

void InstallInterruptHandler();
bool InterruptRequested();
// For tests: behaves as if Ctrl-C had been pressed (or clears it).
void SetInterruptRequested(bool requested);

}  // namespace Tessel::Tool

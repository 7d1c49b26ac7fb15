// The `tessel` command line: names the main thread, reads the environment's settings,
// translations and trace categories, and runs one command.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Trace.h>
#include <tessel/platform/MemoryArenas.h>

#include "Interrupt.h"
#include "Tool.h"

int main(int argc, char** argv) {
    Tessel::Platform::UseOneMemoryArena();
    Tessel::MainThread::SetCurrent();
    Tessel::Tool::InstallInterruptHandler();
    for (const Tessel::Status& status :
         {Tessel::Settings::LoadFromEnvironment(), Tessel::Localizer::LoadFromEnvironment()}) {
        if (!status.IsOk())
            std::cerr << "tessel: warning: " << status.Message() << "\n";
    }
    Tessel::Trace::EnableFromEnvironment();
    std::vector<std::string> args(argv + 1, argv + argc);
    const int status = Tessel::Tool::Run(args, std::cout, std::cerr);
    // Output that could not be written (a full disk, a closed file) is a failure: a script
    // must never take a cut-off listing for a whole one.
    errno = 0;
    std::cout.flush();
    const bool flushed = std::fflush(stdout) == 0;
    if (!std::cout || !flushed || std::ferror(stdout)) {
        std::cerr << "tessel: cannot write to standard output";
        if (errno != 0)
            std::cerr << ": " << std::strerror(errno);
        std::cerr << "\n";
        return status == 0 ? 1 : status;
    }
    return status;
}

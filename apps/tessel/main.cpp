// The `tessel` command line: names the main thread, reads the environment's settings,
// translations and trace categories, and runs one command.
#include <iostream>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Trace.h>

#include "Interrupt.h"
#include "Tool.h"

int main(int argc, char** argv) {
    Tessel::MainThread::SetCurrent();
    Tessel::Tool::InstallInterruptHandler();
    for (const Tessel::Status& status :
         {Tessel::Settings::LoadFromEnvironment(), Tessel::Localizer::LoadFromEnvironment()}) {
        if (!status.IsOk()) std::cerr << "tessel: warning: " << status.Message() << "\n";
    }
    Tessel::Trace::EnableFromEnvironment();
    std::vector<std::string> args(argv + 1, argv + argc);
    return Tessel::Tool::Run(args, std::cout, std::cerr);
}

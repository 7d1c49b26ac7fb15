#include "Interrupt.h"

#include <atomic>
#include <csignal>

namespace Tessel::Tool {

namespace {
std::atomic<bool> gInterrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "used from a signal handler");

extern "C" void OnInterrupt(int) {
    gInterrupted.store(true);
}
}  // namespace

void InstallInterruptHandler() {
    std::signal(SIGINT, OnInterrupt);
}
bool InterruptRequested() {
    return gInterrupted.load();
}
void SetInterruptRequested(bool requested) {
    gInterrupted.store(requested);
}

}  // namespace Tessel::Tool

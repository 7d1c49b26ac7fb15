#include <tessel/platform/ThreadSetup.h>

#include "FindFiles.h"

#include <objbase.h>

namespace Tessel::Platform {

namespace {

// Whether this thread's InitializeThread joined COM and so owes a CoUninitialize.
thread_local bool tComJoined = false;

}  // namespace

void InitializeThread() {
    if (tComJoined)
        return;
    // A worker pumps no messages, so it joins the multithreaded apartment.
    tComJoined = SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
}

void UninitializeThread() {
    if (!tComJoined)
        return;
    CoUninitialize();
    tComJoined = false;
}

}  // namespace Tessel::Platform

// Captures the trace lines written while a piece of a test runs.
#pragma once

#include <functional>
#include <string>

namespace Tessel::Test {

// Runs BODY with the trace CATEGORY enabled and standard error sent to a file; returns
// what was written meanwhile.
std::string CaptureTrace(const char* category, const std::function<void()>& body);

}  // namespace Tessel::Test

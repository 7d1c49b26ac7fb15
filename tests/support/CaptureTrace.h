// Captures the trace lines written while a piece of a test runs.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace Tessel::Test {

// Runs BODY with the trace CATEGORY enabled and standard error sent to a file; returns
// what was written meanwhile. None on Windows, where the trace sink keeps writing to the
// handle it found first (and redirecting would close it): BODY runs, nothing is captured.
std::optional<std::string> CaptureTrace(const char* category, const std::function<void()>& body);

}  // namespace Tessel::Test

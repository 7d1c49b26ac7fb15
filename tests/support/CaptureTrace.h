// Captures the trace lines written while a piece of a test runs.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace Tessel::Test {

// Runs BODY with the trace CATEGORY enabled and the trace's sink collecting; returns the
// lines written meanwhile, "[category] text" each.
std::optional<std::string> CaptureTrace(const char* category, const std::function<void()>& body);

}  // namespace Tessel::Test

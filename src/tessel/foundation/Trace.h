// Per-category tracing with millisecond timings. Categories are off until enabled (the
// tools' --trace CATEGORY, or TESSEL_TRACE=cat1,cat2; "all" enables every category).
// Lines go to standard error as "[HH:MM:SS.mmm] [category] text", or to a sink the host
// sets. They reach the real standard error also while a library's printing is being
// captured (platform/StandardErrorCapture.h).
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <tessel/platform/Export.h>

namespace Tessel {

class TESSEL_API Trace {
public:
    static void Enable(std::string_view category);
    static void Disable(std::string_view category);
    static void EnableFromEnvironment();
    static bool IsEnabled(std::string_view category);
    static void Write(std::string_view category, std::string_view text);

    // Receives the lines of enabled categories instead of standard error, as given to
    // Write, for a host that keeps a log of its own; it may be called from any thread.
    // An empty function restores standard error.
    using Sink = std::function<void(std::string_view category, std::string_view text)>;
    static void SetSink(Sink sink);

    // Names CATEGORY as one the library writes, so that tools can list the categories and
    // warn of a name nobody writes. Returns CATEGORY, which must outlive the process (a
    // literal): `const std::string_view kTraceCategory = Trace::DeclareCategory("XMP");`.
    static std::string_view DeclareCategory(std::string_view category);
    // The declared categories, sorted.
    static std::vector<std::string> DeclaredCategories();
};

// Measures the time from construction; Milliseconds() is the elapsed time so far.
class TESSEL_API TraceTimer {
public:
    TraceTimer() : mStart(std::chrono::steady_clock::now()) {}
    double Milliseconds() const {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - mStart)
            .count();
    }

private:
    std::chrono::steady_clock::time_point mStart;
};

}  // namespace Tessel

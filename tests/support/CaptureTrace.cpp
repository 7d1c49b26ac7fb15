#include "support/CaptureTrace.h"

#include <memory>
#include <mutex>

#include <tessel/foundation/Trace.h>

namespace Tessel::Test {

std::optional<std::string> CaptureTrace(const char* category, const std::function<void()>& body) {
    // Shared with the sink: a line a worker is still writing when the capture ends lands here
    // rather than in freed memory.
    struct Lines {
        std::mutex mutex;
        std::string text;
    };
    const auto lines = std::make_shared<Lines>();
    Trace::SetSink([lines](std::string_view lineCategory, std::string_view line) {
        const std::lock_guard<std::mutex> lock(lines->mutex);
        lines->text.append("[").append(lineCategory).append("] ").append(line).append("\n");
    });
    Trace::Enable(category);
    body();
    Trace::Disable(category);
    Trace::SetSink({});
    const std::lock_guard<std::mutex> lock(lines->mutex);
    return lines->text;
}

}  // namespace Tessel::Test

// Catching what libraries print to the process's standard error.
//
// Some libraries report problems by printing them: exempi writes each error it raises to
// std::cerr ("XML parsing failure", "XMPFiles_IO::Seek, read-only seek beyond EOF") and
// offers no callback that would catch them, and Xerces' fallback handlers print too. A
// tool built on the library must keep its standard error for its own messages, so calls
// into such libraries run inside a StandardErrorCapture, and the text caught is sent to
// the trace with the file it is about.
//
// A capture points file descriptor 2 at a private temporary file (a file rather than a
// pipe, so a library printing a lot never blocks on a full pipe) from construction until
// Finish. Only one capture exists at a time in the process (they would otherwise undo
// each other's redirection), so constructing one waits for any other to finish; keep
// captures short and take them inside the lock that serialises the library's calls.
//
// The trade-off: descriptor 2 belongs to the whole process, so whatever another thread
// writes to standard error while a capture is active lands in the capture too and is
// reported with it. The library's own trace lines are not affected: they are written with
// WriteStandardError, which reaches the real standard error during a capture.
#pragma once

#include <mutex>
#include <string>
#include <string_view>

#include <tessel/platform/Export.h>

namespace Tessel::Platform {

class TESSEL_API StandardErrorCapture {
public:
    // Starts capturing. When the redirection cannot be made (no standard error, no
    // temporary file) nothing is captured and output goes where it went before.
    StandardErrorCapture();
    // Ends the capture if Finish was not called.
    ~StandardErrorCapture();
    StandardErrorCapture(const StandardErrorCapture&) = delete;
    StandardErrorCapture& operator=(const StandardErrorCapture&) = delete;

    // Ends the capture and returns what was written meanwhile (at most kMaximumBytes; the
    // rest is dropped). Later calls return an empty string.
    std::string Finish();

    static constexpr std::size_t kMaximumBytes = 64 * 1024;

private:
    std::unique_lock<std::mutex> mLock;
    bool mActive = false;
};

// Writes TEXT to the process's standard error, also while a capture is active.
TESSEL_API void WriteStandardError(std::string_view text);

}  // namespace Tessel::Platform

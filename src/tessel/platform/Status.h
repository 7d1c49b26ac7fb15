// Status: the one way the library reports an error, from the platform layer up.
//
// A Status is "ok" or carries a code and a message for a person ("cannot read
// /media/card: Permission denied"). It is [[nodiscard]], so a failure cannot be ignored
// by accident, and it has no conversion to bool: callers write `status.IsOk()`, never
// `if (status)`, so nobody has to remember which way round a truth value means failure.
//
// std::optional<T> in this library always means "a value or none"; it never carries an
// error. The system's own API signatures (bool answers, empty maps, result codes in
// completion messages) stay as they are; Status is for everything else.
#pragma once

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace Tessel {

enum class StatusCode {
    kOk = 0,
    kNotFound,          // the file, folder or key does not exist
    kPermissionDenied,  // it exists but may not be read or written
    kInvalidArgument,   // the caller's input is not acceptable (a bad path, a bad option)
    kMalformed,         // outside bytes that cannot be parsed (JSON, XML, images)
    kIOError,           // the operating system failed a read or write
    kAborted,           // the work was aborted before it finished
    kUnsupported,       // not possible on this platform or for this kind of item
    kInternal,          // a fault inside the library (an exception caught at a boundary)
};

class [[nodiscard]] Status {
public:
    // Ok.
    Status() = default;
    Status(StatusCode code, std::string message) : mCode(code), mMessage(std::move(message)) {}

    static Status Ok() { return {}; }
    // An operating-system error number, mapped onto the codes above; the message is
    // "WHAT: strerror-text".
    static Status FromErrno(int error, const std::string& what) {
        StatusCode code = StatusCode::kIOError;
        switch (error) {
            case ENOENT:
            case ENOTDIR:
                code = StatusCode::kNotFound;
                break;
            case EACCES:
            case EPERM:
                code = StatusCode::kPermissionDenied;
                break;
            case EINVAL:
            case ENAMETOOLONG:
                code = StatusCode::kInvalidArgument;
                break;
            default:
                break;
        }
        return {code, what + ": " + std::generic_category().message(error)};
    }

    bool IsOk() const { return mCode == StatusCode::kOk; }
    StatusCode Code() const { return mCode; }
    // Empty when ok.
    const std::string& Message() const { return mMessage; }

    // Marks a status as deliberately not looked at (best-effort clean-up).
    void Ignore() const {}

    friend bool operator==(const Status& a, const Status& b) {
        return a.mCode == b.mCode && a.mMessage == b.mMessage;
    }

private:
    StatusCode mCode = StatusCode::kOk;
    std::string mMessage;
};

}  // namespace Tessel

// Win32 error codes as the library's Status. The texts are the POSIX ones ("Permission
// denied", "No such file or directory"), so that a message reads alike on both platforms
// and the tool's outputs compare equal.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <cerrno>
#include <string>

#include <tessel/platform/Status.h>

namespace Tessel::Platform::Win32 {

// "WHAT: text" for ERROR, with the code it maps to.
inline Status StatusFromError(DWORD error, const std::string& what) {
    switch (error) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
        case ERROR_INVALID_NAME:
        case ERROR_BAD_NETPATH:
        case ERROR_NOT_READY:  // a card reader without a card
            return Status::FromErrno(ENOENT, what);
        case ERROR_DIRECTORY:
            return Status::FromErrno(ENOTDIR, what);
        case ERROR_ACCESS_DENIED:
        case ERROR_SHARING_VIOLATION:
            return Status::FromErrno(EACCES, what);
        case ERROR_FILENAME_EXCED_RANGE:
            return Status::FromErrno(ENAMETOOLONG, what);
        case ERROR_DISK_FULL:
        case ERROR_HANDLE_DISK_FULL:
            return Status::FromErrno(ENOSPC, what);
        default:
            return {StatusCode::kIOError,
                    what + ": input/output error (Windows error " + std::to_string(error) + ")"};
    }
}

}  // namespace Tessel::Platform::Win32

#include <tessel/platform/StandardErrorCapture.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <iostream>

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#else
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#endif

namespace Tessel::Platform {

namespace {

#if defined(_WIN32)
int Duplicate(int fd) {
    return _dup(fd);
}
int Redirect(int from, int to) {
    return _dup2(from, to);
}
bool Rewind(int fd) {
    return _lseek(fd, 0, SEEK_SET) == 0;
}
bool Empty(int fd) {
    return _chsize(fd, 0) == 0 && Rewind(fd);
}
long long End(int fd) {
    return _lseeki64(fd, 0, SEEK_END);
}
int Read(int fd, char* buffer, unsigned size) {
    return _read(fd, buffer, size);
}
int Write(int fd, const char* text, unsigned size) {
    return _write(fd, text, size);
}

// A temporary file deleted when the process ends, as a descriptor; -1 when none can be made.
int OpenTemporaryFile() {
    wchar_t folder[MAX_PATH + 1];
    wchar_t name[MAX_PATH + 1];
    const DWORD length = GetTempPathW(MAX_PATH + 1, folder);
    if (length == 0 || length > MAX_PATH || GetTempFileNameW(folder, L"tsl", 0, name) == 0)
        return -1;
    const HANDLE file =
        CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                    FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        DeleteFileW(name);
        return -1;
    }
    const int fd = _open_osfhandle(reinterpret_cast<intptr_t>(file), _O_BINARY | _O_RDWR);
    if (fd < 0)
        CloseHandle(file);
    return fd;
}
#else
int Duplicate(int fd) {
    return fcntl(fd, F_DUPFD_CLOEXEC, 3);
}
int Redirect(int from, int to) {
    return dup2(from, to);
}
bool Rewind(int fd) {
    return lseek(fd, 0, SEEK_SET) == 0;
}
bool Empty(int fd) {
    return ftruncate(fd, 0) == 0 && Rewind(fd);
}
long long End(int fd) {
    return lseek(fd, 0, SEEK_END);
}
int Read(int fd, char* buffer, unsigned size) {
    return static_cast<int>(read(fd, buffer, size));
}
int Write(int fd, const char* text, unsigned size) {
    return static_cast<int>(write(fd, text, size));
}

int OpenTemporaryFile() {
    const char* folder = std::getenv("TMPDIR");
    std::string name = std::string(folder && *folder == '/' ? folder : "/tmp") + "/tessel-XXXXXX";
    const int fd = mkostemp(name.data(), O_CLOEXEC);
    if (fd < 0)
        return -1;
    unlink(name.c_str());
    if (fd > 2)
        return fd;
    // Standard error itself was closed and the file took its number; keep it apart.
    const int moved = Duplicate(fd);
    close(fd);
    return moved;
}
#endif

struct Redirection {
    std::mutex mutex;  // one capture at a time
    int file = -1;     // the temporary file, made by the first capture and kept
    int saved = -1;    // the real standard error, kept for WriteStandardError
    // The descriptor WriteStandardError writes to: saved during a capture, else 2.
    std::atomic<int> writeTo{2};
};

Redirection& GetRedirection() {
    static Redirection* redirection = new Redirection;  // never destroyed: usable at exit
    return *redirection;
}

void FlushStandardError() {
    std::cerr.flush();
    std::fflush(stderr);
}

}  // namespace

StandardErrorCapture::StandardErrorCapture() : mLock(GetRedirection().mutex) {
    Redirection& redirection = GetRedirection();
    if (redirection.file < 0)
        redirection.file = OpenTemporaryFile();
    if (redirection.file < 0 || !Empty(redirection.file))
        return;
    FlushStandardError();
    // The copy of the real standard error is made once and refreshed, never closed, so a
    // writer that read its number a moment ago never writes to a closed or reused one.
    if (redirection.saved < 0) {
        redirection.saved = Duplicate(2);
        if (redirection.saved < 0)
            return;  // no standard error to protect
    } else if (Redirect(2, redirection.saved) < 0) {
        return;
    }
    redirection.writeTo.store(redirection.saved);
    mActive = Redirect(redirection.file, 2) >= 0;
    if (!mActive)
        redirection.writeTo.store(2);
}

StandardErrorCapture::~StandardErrorCapture() {
    (void)Finish();
}

std::string StandardErrorCapture::Finish() {
    if (!mActive)
        return {};
    mActive = false;
    Redirection& redirection = GetRedirection();
    FlushStandardError();
    Redirect(redirection.saved, 2);
    redirection.writeTo.store(2);
    std::string text;
    const long long written = End(redirection.file);
    if (written > 0 && Rewind(redirection.file)) {
        text.resize(static_cast<std::size_t>(std::min<long long>(written, kMaximumBytes)));
        std::size_t done = 0;
        while (done < text.size()) {
            const int got = Read(redirection.file, text.data() + done,
                                 static_cast<unsigned>(text.size() - done));
            if (got <= 0)
                break;
            done += static_cast<std::size_t>(got);
        }
        text.resize(done);
    }
    return text;
}

void WriteStandardError(std::string_view text) {
    const int fd = GetRedirection().writeTo.load();
    while (!text.empty()) {
        const int wrote = Write(fd, text.data(), static_cast<unsigned>(text.size()));
        if (wrote <= 0)
            return;
        text.remove_prefix(static_cast<std::size_t>(wrote));
    }
}

}  // namespace Tessel::Platform

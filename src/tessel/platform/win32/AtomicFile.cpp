// Win32 whole-file reads and atomic replacement: MoveFileExW with MOVEFILE_REPLACE_EXISTING
// replaces the target in one step, and MOVEFILE_WRITE_THROUGH returns only once the move is
// on the disk.
#include <tessel/platform/AtomicFile.h>

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include "Win32Status.h"

#include <algorithm>
#include <atomic>
#include <random>

namespace Tessel::Platform {

namespace {

std::string ErrorText(DWORD error) {
    wchar_t* text = nullptr;
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, error, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    std::string out;
    if (length > 0 && text) {
        const int size = WideCharToMultiByte(CP_UTF8, 0, text, static_cast<int>(length), nullptr, 0,
                                             nullptr, nullptr);
        out.resize(static_cast<std::size_t>(size > 0 ? size : 0));
        if (size > 0) {
            WideCharToMultiByte(CP_UTF8, 0, text, static_cast<int>(length), out.data(), size,
                                nullptr, nullptr);
        }
        while (!out.empty() && (out.back() == '\n' || out.back() == '\r' || out.back() == ' ')) {
            out.pop_back();
        }
    }
    if (text)
        LocalFree(text);
    return out.empty() ? "Windows error " + std::to_string(error) : out;
}

Status FromWin32(DWORD code, const std::string& what) {
    return Win32::StatusFromError(code, what);
}

void SplitPath(const std::wstring& path, std::wstring& folder, std::wstring& leaf) {
    const std::size_t separator = path.find_last_of(L"\\/");
    if (separator == std::wstring::npos) {
        folder = L".";
        leaf = path;
    } else {
        folder = path.substr(0, separator);
        leaf = path.substr(separator + 1);
    }
}

std::string Narrow(const std::wstring& text) {
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                         nullptr, 0, nullptr, nullptr);
    std::string out(static_cast<std::size_t>(size > 0 ? size : 0), '\0');
    if (size > 0) {
        WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(),
                            size, nullptr, nullptr);
    }
    return out;
}

class Handle {
public:
    explicit Handle(HANDLE handle) : mHandle(handle) {}
    ~Handle() {
        if (mHandle != INVALID_HANDLE_VALUE)
            CloseHandle(mHandle);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    HANDLE get() const { return mHandle; }
    bool Close() {
        const HANDLE handle = mHandle;
        mHandle = INVALID_HANDLE_VALUE;
        return CloseHandle(handle) != 0;
    }

private:
    HANDLE mHandle;
};

std::wstring UniqueSuffix() {
    static std::atomic<std::uint64_t> counter{0};
    static const std::uint64_t seed = std::random_device{}();
    return std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(seed % 1000000) + L"-" +
           std::to_wstring(counter.fetch_add(1));
}

}  // namespace

ReadFileStatus ReadWholeFile(const NativeString& path, std::string& out, std::string& error,
                             std::uint64_t maxBytes) {
    out.clear();
    Handle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (file.get() == INVALID_HANDLE_VALUE) {
        const DWORD code = GetLastError();
        if (code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND) {
            return ReadFileStatus::Missing;
        }
        error = ErrorText(code);
        return ReadFileStatus::Failed;
    }
    char buffer[65536];
    for (;;) {
        if (out.size() > maxBytes) {
            error = "it is larger than " + std::to_string(maxBytes) + " bytes";
            out.clear();
            return ReadFileStatus::Failed;
        }
        DWORD count = 0;
        if (!ReadFile(file.get(), buffer, sizeof buffer, &count, nullptr)) {
            error = ErrorText(GetLastError());
            out.clear();
            return ReadFileStatus::Failed;
        }
        if (count == 0)
            break;
        out.append(buffer, count);
    }
    return ReadFileStatus::Ok;
}

ReadFileStatus ReadFileHead(const NativeString& path, std::string& out, std::string& error,
                            std::size_t bytes) {
    out.clear();
    Handle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (file.get() == INVALID_HANDLE_VALUE) {
        const DWORD code = GetLastError();
        if (code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND)
            return ReadFileStatus::Missing;
        error = ErrorText(code);
        return ReadFileStatus::Failed;
    }
    // Only a file on a disk: a pipe or a device could keep the read waiting.
    if (GetFileType(file.get()) != FILE_TYPE_DISK) {
        error = "it is not a regular file";
        return ReadFileStatus::Failed;
    }
    out.resize(bytes);
    std::size_t filled = 0;
    while (filled < bytes) {
        const DWORD wanted = static_cast<DWORD>(std::min<std::size_t>(bytes - filled, 1u << 20));
        DWORD count = 0;
        if (!ReadFile(file.get(), out.data() + filled, wanted, &count, nullptr)) {
            error = ErrorText(GetLastError());
            out.clear();
            return ReadFileStatus::Failed;
        }
        if (count == 0)
            break;
        filled += count;
    }
    out.resize(filled);
    return ReadFileStatus::Ok;
}

NativeString AtomicTemporaryPrefix(const NativeString& path) {
    std::wstring folder, leaf;
    SplitPath(path, folder, leaf);
    return leaf + L".tmp-";
}

Status WriteFileAtomically(const NativeString& path, std::string_view content,
                           Durability durability) {
    const bool durable = durability == Durability::Durable;
    std::wstring temporary;
    HANDLE created = INVALID_HANDLE_VALUE;
    for (int attempt = 0; attempt < 100 && created == INVALID_HANDLE_VALUE; ++attempt) {
        temporary = path + L".tmp-" + UniqueSuffix();
        created = CreateFileW(temporary.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
        if (created == INVALID_HANDLE_VALUE) {
            const DWORD code = GetLastError();
            if (code != ERROR_FILE_EXISTS) {
                return FromWin32(code, "cannot create " + Narrow(temporary));
            }
        }
    }
    if (created == INVALID_HANDLE_VALUE)
        return {StatusCode::kIOError, "cannot create a temporary file beside " + Narrow(path)};
    Handle file(created);

    auto fail = [&](const char* what, DWORD code) {
        if (file.get() != INVALID_HANDLE_VALUE)
            file.Close();
        DeleteFileW(temporary.c_str());
        return FromWin32(code, std::string(what) + " " + Narrow(temporary));
    };

    const char* data = content.data();
    std::size_t left = content.size();
    while (left > 0) {
        const DWORD chunk = static_cast<DWORD>(left < (1u << 30) ? left : (1u << 30));
        DWORD written = 0;
        if (!WriteFile(file.get(), data, chunk, &written, nullptr)) {
            return fail("cannot write", GetLastError());
        }
        data += written;
        left -= written;
    }
    if (durable && !FlushFileBuffers(file.get()))
        return fail("cannot flush", GetLastError());
    if (!file.Close())
        return fail("cannot close", GetLastError());
    if (!MoveFileExW(temporary.c_str(), path.c_str(),
                     MOVEFILE_REPLACE_EXISTING | (durable ? MOVEFILE_WRITE_THROUGH : DWORD{0}))) {
        return fail("cannot rename", GetLastError());
    }
    return Status::Ok();
}

void RemoveStaleAtomicTemporaries(const NativeString& path, std::chrono::seconds minimumAge) {
    std::wstring folder, leaf;
    SplitPath(path, folder, leaf);
    const std::wstring pattern = folder + L"\\" + leaf + L".tmp-*";
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
        return;
    FILETIME nowFileTime;
    GetSystemTimeAsFileTime(&nowFileTime);
    const auto ticks = [](const FILETIME& t) {
        return (static_cast<std::uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime;
    };
    const std::uint64_t now = ticks(nowFileTime);
    const std::uint64_t age = static_cast<std::uint64_t>(minimumAge.count()) * 10000000ull;
    do {
        if (found.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) {
            continue;
        }
        const std::uint64_t written = ticks(found.ftLastWriteTime);
        if (now > written && now - written > age) {
            DeleteFileW((folder + L"\\" + found.cFileName).c_str());
        }
    } while (FindNextFileW(search, &found));
    FindClose(search);
}

RenameStatus RenameWithoutReplacing(const NativeString& from, const NativeString& to,
                                    std::string& error) {
    // Without MOVEFILE_REPLACE_EXISTING the move fails rather than replace TO.
    if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_WRITE_THROUGH))
        return RenameStatus::Done;
    const DWORD code = GetLastError();
    if (code == ERROR_ALREADY_EXISTS || code == ERROR_FILE_EXISTS) {
        return RenameStatus::TargetExists;
    }
    error = ErrorText(code);
    return RenameStatus::Failed;
}

Status CreateDirectories(const NativeString& directory) {
    if (directory.empty())
        return Status::Ok();
    const DWORD attributes = GetFileAttributesW(directory.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES) {
        if (attributes & FILE_ATTRIBUTE_DIRECTORY)
            return Status::Ok();
        return {StatusCode::kInvalidArgument, Narrow(directory) + " exists and is not a folder"};
    }
    std::wstring parent, leaf;
    SplitPath(directory, parent, leaf);
    // Stop at roots ("C:", "\\?\C:", "\\server\share"), which cannot be created.
    if (!parent.empty() && parent != L"." && parent != directory && parent.back() != L':' &&
        GetFileAttributesW(parent.c_str()) == INVALID_FILE_ATTRIBUTES) {
        if (Status status = CreateDirectories(parent); !status.IsOk())
            return status;
    }
    if (!CreateDirectoryW(directory.c_str(), nullptr)) {
        const DWORD code = GetLastError();
        if (code != ERROR_ALREADY_EXISTS)
            return FromWin32(code, "cannot create folder " + Narrow(directory));
    }
    return Status::Ok();
}

}  // namespace Tessel::Platform

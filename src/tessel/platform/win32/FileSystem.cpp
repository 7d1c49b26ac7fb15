// Win32 file services. This is the reference behaviour that the POSIX backend maps.
#include <tessel/platform/Counters.h>
#include <tessel/platform/FileSystem.h>

#include <io.h>

#include <atomic>
#include <cerrno>
#include <string>

#include "FindFiles.h"
#include "Win32Status.h"

namespace Tessel::Platform {

namespace Win32 {

EntryKind KindOfAttributes(DWORD attributes) {
    if (attributes & FILE_ATTRIBUTE_DEVICE)
        return EntryKind::Other;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY)
        return EntryKind::Directory;
    return EntryKind::File;
}

}  // namespace Win32

namespace {

std::atomic<std::uint64_t> gDirectoryReadCount{0};

constexpr int kReadAccessMode = 4;  // _waccess: read permission

bool IsDotOrDotDot(const wchar_t* name) {
    return name[0] == L'.' && (name[1] == L'\0' || (name[1] == L'.' && name[2] == L'\0'));
}

bool IsSurrogate(wchar_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

DWORD AttributesOf(const NativeString& path) {
    Win32::CriticalErrorDialogsOff dialogsOff;
    return GetFileAttributesW(path.c_str());
}

// Closes a find handle whichever way the walk ends.
class FindHandle {
public:
    explicit FindHandle(HANDLE handle) : mHandle(handle) {}
    ~FindHandle() {
        if (mHandle != INVALID_HANDLE_VALUE)
            FindClose(mHandle);
    }
    FindHandle(const FindHandle&) = delete;
    FindHandle& operator=(const FindHandle&) = delete;
    HANDLE get() const { return mHandle; }

private:
    HANDLE mHandle;
};

// A wide path as UTF-8, for messages.
std::string Utf8Of(const std::wstring& text) {
    if (text.empty())
        return {};
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                         nullptr, 0, nullptr, nullptr);
    std::string out(static_cast<std::size_t>(size > 0 ? size : 0), '\0');
    if (size > 0)
        WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(),
                            size, nullptr, nullptr);
    return out;
}

}  // namespace

Status Win32::ReadFailure(DWORD error, const NativeString& directory) {
    return StatusFromError(error, "cannot read " + Utf8Of(directory));
}

Status Win32::FindFiles(const NativeString& directory, const std::function<bool()>& abort,
                        AbortCheck check,
                        const std::function<void(const WIN32_FIND_DATAW&)>& onEntry) {
    if (directory.empty())
        return ReadFailure(ERROR_PATH_NOT_FOUND, directory);
    std::wstring pattern = directory;
    if (pattern.back() != L'\\')
        pattern.push_back(L'\\');
    pattern.push_back(L'*');

    CriticalErrorDialogsOff dialogsOff;
    WIN32_FIND_DATAW data;
    const FindHandle find(FindFirstFileExW(pattern.c_str(), FindExInfoStandard, &data,
                                           FindExSearchNameMatch, nullptr, 0));
    if (find.get() == INVALID_HANDLE_VALUE) {
        // The root of an empty volume has no "." or ".." and so no first entry at all;
        // a missing folder fails with ERROR_PATH_NOT_FOUND instead.
        const DWORD error = GetLastError();
        if (error != ERROR_FILE_NOT_FOUND)
            return ReadFailure(error, directory);
        const DWORD attributes = GetFileAttributesW(directory.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES)
            return ReadFailure(GetLastError(), directory);
        if (!(attributes & FILE_ATTRIBUTE_DIRECTORY))
            return ReadFailure(ERROR_DIRECTORY, directory);
        gDirectoryReadCount.fetch_add(1, std::memory_order_relaxed);
        return Status::Ok();
    }
    gDirectoryReadCount.fetch_add(1, std::memory_order_relaxed);

    const bool askPerEntry = check == AbortCheck::BeforeEachEntry;
    for (;;) {
        if (!IsDotOrDotDot(data.cFileName)) {
            if (askPerEntry && abort && abort())
                return Status::Ok();
            onEntry(data);
        }
        if (!askPerEntry && abort && abort())
            return Status::Ok();
        if (!FindNextFileW(find.get(), &data)) {
            // Any other failure (a volume removed, a share gone part-way) leaves the listing
            // incomplete, and an incomplete listing is not offered as the folder's content.
            const DWORD error = GetLastError();
            return error == ERROR_NO_MORE_FILES ? Status::Ok() : ReadFailure(error, directory);
        }
    }
}

Status ReadDirectory(const NativeString& directory, std::vector<DirectoryEntry>& out,
                     const std::function<bool()>& abort) {
    const std::size_t before = out.size();
    // Asked per entry: directory walks cap their reads by counting entries through ABORT.
    Status read = Win32::FindFiles(
        directory, abort, Win32::AbortCheck::BeforeEachEntry, [&](const WIN32_FIND_DATAW& data) {
            DirectoryEntry& added = out.emplace_back();
            added.name = data.cFileName;
            added.kind = Win32::KindOfAttributes(data.dwFileAttributes);
            added.isLink = (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
            added.hidden = (data.dwFileAttributes & Win32::kHiddenAttributes) != 0;
            added.device = (data.dwFileAttributes & FILE_ATTRIBUTE_DEVICE) != 0;
        });
    if (!read.IsOk())
        out.resize(before);
    return read;
}

std::uint64_t DirectoryReadCount() {
    return gDirectoryReadCount.load(std::memory_order_relaxed);
}

PathKind GetPathKind(const NativeString& path) {
    if (path.empty())
        return PathKind::Missing;
    const DWORD attributes = AttributesOf(path);
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return PathKind::Missing;
    if (attributes & FILE_ATTRIBUTE_DEVICE)
        return PathKind::Other;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY)
        return PathKind::Directory;
    return PathKind::File;
}

bool PathEntryExists(const NativeString& path) {
    // GetFileAttributesW describes a reparse point itself, so a dangling link exists.
    return !path.empty() && AttributesOf(path) != INVALID_FILE_ATTRIBUTES;
}

bool HasReadAccess(const NativeString& path) {
    Win32::CriticalErrorDialogsOff dialogsOff;
    return _waccess(path.c_str(), kReadAccessMode) == 0;
}

// Windows hides by attribute, not by name.
bool IsHiddenName(const NativeString&) {
    return false;
}

bool IsHiddenEntry(const NativeString& path) {
    if (path.empty())
        return false;
    const DWORD attributes = AttributesOf(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & Win32::kHiddenAttributes) != 0;
}

char16_t UpperCaseCodeUnit(char16_t unit) {
    if (unit < 0x80)
        return (unit >= u'a' && unit <= u'z') ? static_cast<char16_t>(unit - 32) : unit;
    // A surrogate is half a character and has no case of its own.
    if (IsSurrogate(static_cast<wchar_t>(unit)))
        return unit;
    // The invariant locale maps case as NTFS's upcase table does, whatever the user's
    // language (no Turkish dotted I).
    const wchar_t in = static_cast<wchar_t>(unit);
    wchar_t out = 0;
    if (LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, &in, 1, &out, 1, nullptr, nullptr,
                      0) != 1 ||
        IsSurrogate(out))
        return unit;
    return static_cast<char16_t>(out);
}

NativeString CurrentDirectory() {
    std::wstring buffer;
    DWORD size = GetCurrentDirectoryW(0, nullptr);  // includes the terminating null
    while (size != 0) {
        buffer.resize(size);
        const DWORD written = GetCurrentDirectoryW(size, buffer.data());
        if (written == 0)
            return {};
        if (written < size) {  // fitted: WRITTEN excludes the null
            buffer.resize(written);
            return buffer;
        }
        size = written;  // the directory changed to a longer one in between
    }
    return {};
}

}  // namespace Tessel::Platform

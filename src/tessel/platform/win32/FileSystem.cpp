// Win32 file services. This is the reference behaviour that the POSIX backend maps.
#include <tessel/platform/FileSystem.h>

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <io.h>
#include <windows.h>

#include <atomic>

namespace Tessel::Platform {

namespace {

std::atomic<std::uint64_t> gDirectoryReadCount{0};

constexpr DWORD kHiddenAttributes = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
constexpr int kReadAccessMode = 4;  // _waccess: read permission

// Keeps Windows from asking the user to insert a disk when a path names an empty
// removable drive (a card reader without a card): the call fails instead.
class CriticalErrorDialogsOff {
public:
    CriticalErrorDialogsOff() {
        if (!SetThreadErrorMode(SEM_FAILCRITICALERRORS, &mPrevious))
            mRestore = false;
    }
    ~CriticalErrorDialogsOff() {
        if (mRestore)
            SetThreadErrorMode(mPrevious, nullptr);
    }
    CriticalErrorDialogsOff(const CriticalErrorDialogsOff&) = delete;
    CriticalErrorDialogsOff& operator=(const CriticalErrorDialogsOff&) = delete;

private:
    DWORD mPrevious = 0;
    bool mRestore = true;
};

EntryKind KindOfAttributes(DWORD attributes) {
    if (attributes & FILE_ATTRIBUTE_DEVICE)
        return EntryKind::Other;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY)
        return EntryKind::Directory;
    return EntryKind::File;
}

bool IsDotOrDotDot(const wchar_t* name) {
    return name[0] == L'.' && (name[1] == L'\0' || (name[1] == L'.' && name[2] == L'\0'));
}

bool IsSurrogate(wchar_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

DWORD AttributesOf(const NativeString& path) {
    CriticalErrorDialogsOff dialogsOff;
    return GetFileAttributesW(path.c_str());
}

}  // namespace

bool ReadDirectory(const NativeString& directory, std::vector<DirectoryEntry>& out,
                   const std::function<bool()>& abort) {
    if (directory.empty())
        return false;
    std::wstring pattern = directory;
    if (pattern.back() != L'\\' && pattern.back() != L'/')
        pattern.push_back(L'\\');
    pattern.push_back(L'*');

    CriticalErrorDialogsOff dialogsOff;
    WIN32_FIND_DATAW data;
    const HANDLE find = FindFirstFileExW(pattern.c_str(), FindExInfoStandard, &data,
                                         FindExSearchNameMatch, nullptr, 0);
    if (find == INVALID_HANDLE_VALUE) {
        // The root of an empty volume has no "." or ".." and so no first entry at all;
        // a missing folder fails with ERROR_PATH_NOT_FOUND instead.
        if (GetLastError() != ERROR_FILE_NOT_FOUND)
            return false;
        const DWORD attributes = GetFileAttributesW(directory.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
            return false;
        }
        gDirectoryReadCount.fetch_add(1, std::memory_order_relaxed);
        return true;
    }
    gDirectoryReadCount.fetch_add(1, std::memory_order_relaxed);

    // FindNextFileW fails with ERROR_NO_MORE_FILES at the end; any other failure (a volume
    // removed part-way) ends the walk like an abort, and what was read is kept.
    do {
        if (IsDotOrDotDot(data.cFileName))
            continue;
        if (abort && abort())
            break;
        DirectoryEntry& added = out.emplace_back();
        added.name = data.cFileName;
        added.kind = KindOfAttributes(data.dwFileAttributes);
        added.isLink = (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
        added.hidden = (data.dwFileAttributes & kHiddenAttributes) != 0;
    } while (FindNextFileW(find, &data));
    FindClose(find);
    return true;
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
    CriticalErrorDialogsOff dialogsOff;
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
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & kHiddenAttributes) != 0;
}

char16_t UpperCaseCodeUnit(char16_t unit) {
    // A surrogate is half a character and has no case of its own.
    if (IsSurrogate(static_cast<wchar_t>(unit)))
        return unit;
    wchar_t buffer = static_cast<wchar_t>(unit);
    if (CharUpperBuffW(&buffer, 1) != 1 || IsSurrogate(buffer))
        return unit;
    return static_cast<char16_t>(buffer);
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

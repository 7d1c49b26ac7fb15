// Internal to the Win32 backend: the one directory enumeration that ReadDirectory and
// ReadDirectoryWithDetails share, and what every Win32 source includes first.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <functional>

#include <tessel/platform/FileSystem.h>

namespace Tessel::Platform::Win32 {

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

// The hidden and system attributes, either of which hides an entry.
constexpr DWORD kHiddenAttributes = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

EntryKind KindOfAttributes(DWORD attributes);

// When a walk asks its abort predicate.
enum class AbortCheck {
    // Before each FindNextFileW, as a folder listing does: the first record is taken unasked,
    // and "." and ".." are asked after like entries.
    BeforeEachFindNext,
    // Before each entry but "." and ".." is taken, so that a caller can count entries
    // through the predicate (a walk capped at N entries).
    BeforeEachEntry,
};

// Walks one level of DIRECTORY with FindFirstFileExW and FindNextFileW, handing each entry
// but "." and ".." to ON_ENTRY. ABORT, when set, is asked as CHECK says; a true answer ends
// the walk successfully. Fails, with the reason, when the directory cannot be opened or when
// FindNextFileW fails with anything but ERROR_NO_MORE_FILES (the caller then discards what
// it was handed). An empty volume root, which has no "." and so no first entry, succeeds.
Status FindFiles(const NativeString& directory, const std::function<bool()>& abort,
                 AbortCheck check, const std::function<void(const WIN32_FIND_DATAW&)>& onEntry);

// The status of the Win32 error ERROR met while reading DIRECTORY: "cannot read PATH: text",
// with the codes and texts of the matching POSIX errors where there is one.
Status ReadFailure(DWORD error, const NativeString& directory);

}  // namespace Tessel::Platform::Win32

// Change notification: the operating system tells us when the entries of a watched
// directory change, or when file systems are mounted or unmounted. One background thread
// (started with the first watch, joined when the last one stops) waits for the system's
// events and calls back, gathering a burst of changes into one call per watch: a copy of a
// thousand files gives a few calls, not a thousand.
//
// Callbacks run on that thread. They must return quickly and must not start watches (such
// a start fails); they may stop watches. Once StopWatching returns on another thread, the
// watch's callback is not running and is never called again.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include <tessel/platform/Export.h>
#include <tessel/platform/FileSystem.h>

namespace Tessel::Platform {

enum class ChangeKind {
    Added,          // created, or moved into the directory
    Removed,        // deleted, or moved out of the directory
    Modified,       // content or attributes changed
    Renamed,        // renamed within the directory: NAME is the new name, PREVIOUS_NAME the old
    DirectoryGone,  // the directory itself was deleted, moved or unmounted; the watch has
                    // ended (it still needs StopWatching)
    Overflow,       // too many changes to tell apart: any entry may have changed
};

struct DirectoryChange {
    ChangeKind kind = ChangeKind::Modified;
    NativeString name;          // the entry's leaf name; empty for DirectoryGone and Overflow
    NativeString previousName;  // Renamed only
};

// Identifies a watch; 0 is none.
using ChangeWatchId = std::uint64_t;

// The watched DIRECTORY as it was given, and the changes of one burst: each (kind, name)
// once, in the order they first happened.
using DirectoryChangeCallback =
    std::function<void(const NativeString& directory, const std::vector<DirectoryChange>& changes)>;

// Watches one level of DIRECTORY (its entries, not their contents; a link to a directory
// is followed). A rename within the directory is told as Renamed when the system reports
// its two halves in one burst, as it does but for the rarest timing; otherwise as Removed
// and Added. Returns 0 when it cannot be watched: missing, not a directory, no
// permission, the system's watch limit reached, or called from a callback. On Windows a
// directory moved away or deleted is noticed within about a second: the system does not
// always say so.
TESSEL_API ChangeWatchId WatchDirectory(const NativeString& directory,
                                        DirectoryChangeCallback callback);

// Calls CALLBACK after file systems were mounted or unmounted (once per burst). On Windows
// that is a drive letter coming or going, or a medium put into or taken out of a drive,
// noticed within about a second. Returns 0 where the system cannot tell.
TESSEL_API ChangeWatchId WatchMountTable(std::function<void()> callback);

// Ends a watch of either kind; unknown ids and 0 are ignored.
TESSEL_API void StopWatching(ChangeWatchId id);

// True while the notification thread runs (for tests of clean shutdown).
TESSEL_API bool IsChangeNotificationRunning();

}  // namespace Tessel::Platform

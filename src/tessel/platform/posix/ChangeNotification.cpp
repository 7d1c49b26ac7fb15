// Change notification on POSIX systems other than Linux (linuxChangeNotification.cpp
// serves Linux): none yet, so every watch fails and listings are refreshed by hand.
#if !defined(__linux__)

#include <tessel/platform/ChangeNotification.h>

namespace Tessel::Platform {

ChangeWatchId WatchDirectory(const NativeString&, DirectoryChangeCallback) {
    return 0;
}

ChangeWatchId WatchMountTable(std::function<void()>) {
    return 0;
}

void StopWatching(ChangeWatchId) {}

bool IsChangeNotificationRunning() {
    return false;
}

}  // namespace Tessel::Platform

#endif  // !__linux__

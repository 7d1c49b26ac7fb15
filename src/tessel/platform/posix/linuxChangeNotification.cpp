// Linux change notification: inotify for directories, and poll() on /proc/self/mountinfo,
// which the kernel marks with POLLPRI whenever the mount table changes. One thread waits
// on both and on an eventfd that asks it to stop.
#include <tessel/platform/ChangeDelivery.h>
#include <tessel/platform/ChangeNotification.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

namespace Tessel::Platform {

namespace {

using Clock = std::chrono::steady_clock;

// Changes that come within this time of the first one are delivered together.
constexpr std::chrono::milliseconds kCoalescingDelay(100);

constexpr std::uint32_t kDirectoryEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                           IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_DELETE_SELF |
                                           IN_MOVE_SELF;
constexpr std::uint32_t kGoneEvents = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;

constexpr const char* kMountTable = "/proc/self/mountinfo";

// The changes gathered since the first one of a burst.
using Pending = Internal::PendingChanges;

class Notifier {
public:
    ChangeWatchId AddDirectory(const NativeString& directory, DirectoryChangeCallback callback);
    ChangeWatchId AddMountTable(std::function<void()> callback);
    void Remove(ChangeWatchId id);
    bool IsRunning() {
        std::lock_guard lifecycle(mLifecycleMutex);
        return mThread.joinable();
    }

private:
    struct Watch {
        NativeString directory;
        int descriptor = -1;  // the inotify watch; -1 for the mount table or once gone
        DirectoryChangeCallback onDirectory;
        std::function<void()> onMounts;
    };

    bool OnNotifierThread() const { return mThreadId.load() == std::this_thread::get_id(); }
    bool StartThread();  // lifecycle mutex held
    void StopThread();   // lifecycle mutex held
    void Run(int inotify, int wake);
    void ReadEvents(int inotify, Pending& pending);
    void Deliver(Pending& pending);
    // Detaches every watch on DESCRIPTOR after the directory went away (state mutex held).
    void EndDescriptor(int descriptor, Pending& pending);

    // Order: lifecycle before state; delivery before state. The lifecycle mutex guards the
    // thread and the descriptors, serialising starts and stops; the state mutex guards the
    // watch tables; the delivery mutex is held while callbacks run, so that a stop can
    // wait for a call in progress.
    std::mutex mLifecycleMutex;
    std::mutex mStateMutex;
    std::mutex mDeliveryMutex;

    std::map<ChangeWatchId, Watch> mWatches;
    std::map<int, std::set<ChangeWatchId>> mWatchesByDescriptor;
    ChangeWatchId mNextId = 1;

    int mInotify = -1;
    int mWake = -1;
    std::thread mThread;
    std::atomic<std::thread::id> mThreadId{};
};

// Never destroyed: a watch may still be stopped while statics are torn down at exit.
Notifier& TheNotifier() {
    static auto* notifier = new Notifier();
    return *notifier;
}

bool Notifier::StartThread() {
    if (mThread.joinable())
        return true;
    mInotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (mInotify < 0)
        return false;
    mWake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (mWake < 0) {
        close(mInotify);
        mInotify = -1;
        return false;
    }
    try {
        mThread = std::thread([this, inotify = mInotify, wake = mWake] { Run(inotify, wake); });
    } catch (const std::system_error&) {  // out of threads: no watching, but no exception
        close(mWake);
        close(mInotify);
        mWake = -1;
        mInotify = -1;
        return false;
    }
    return true;
}

void Notifier::StopThread() {
    if (!mThread.joinable())
        return;
    const std::uint64_t one = 1;
    while (write(mWake, &one, sizeof(one)) < 0 && errno == EINTR) {
    }
    mThread.join();
    mThreadId.store(std::thread::id());
    close(mWake);
    close(mInotify);
    mWake = -1;
    mInotify = -1;
}

ChangeWatchId Notifier::AddDirectory(const NativeString& directory,
                                     DirectoryChangeCallback callback) {
    if (directory.empty() || !callback || OnNotifierThread())
        return 0;
    std::lock_guard lifecycle(mLifecycleMutex);
    if (!StartThread())
        return 0;
    bool none = false;
    {
        std::lock_guard state(mStateMutex);
        // The same directory watched twice (or through a link) shares one descriptor.
        const int descriptor =
            inotify_add_watch(mInotify, directory.c_str(), kDirectoryEvents | IN_ONLYDIR);
        if (descriptor >= 0) {
            const ChangeWatchId id = mNextId++;
            mWatches[id] = Watch{directory, descriptor, std::move(callback), {}};
            mWatchesByDescriptor[descriptor].insert(id);
            return id;
        }
        none = mWatches.empty();
    }
    if (none)
        StopThread();  // started for this watch alone
    return 0;
}

ChangeWatchId Notifier::AddMountTable(std::function<void()> callback) {
    if (!callback || OnNotifierThread())
        return 0;
    std::lock_guard lifecycle(mLifecycleMutex);
    if (!StartThread())
        return 0;
    std::lock_guard state(mStateMutex);
    const ChangeWatchId id = mNextId++;
    mWatches[id] = Watch{{}, -1, {}, std::move(callback)};
    return id;
}

void Notifier::Remove(ChangeWatchId id) {
    const bool onThread = OnNotifierThread();
    std::unique_lock<std::mutex> lifecycle;
    if (!onThread)
        lifecycle = std::unique_lock(mLifecycleMutex);
    bool none = false;
    {
        std::lock_guard state(mStateMutex);
        if (auto it = mWatches.find(id); it != mWatches.end()) {
            const int descriptor = it->second.descriptor;
            mWatches.erase(it);
            auto shared = mWatchesByDescriptor.find(descriptor);
            if (descriptor >= 0 && shared != mWatchesByDescriptor.end()) {
                shared->second.erase(id);
                if (shared->second.empty()) {
                    inotify_rm_watch(mInotify, descriptor);
                    mWatchesByDescriptor.erase(shared);
                }
            }
        }
        none = mWatches.empty();
    }
    if (onThread)
        return;  // the thread cannot join itself: the next stop from elsewhere ends it
    // Waits for a delivery in progress, which may have taken the callback already.
    { std::lock_guard delivery(mDeliveryMutex); }
    if (none)
        StopThread();
}

void Notifier::EndDescriptor(int descriptor, Pending& pending) {
    auto shared = mWatchesByDescriptor.find(descriptor);
    if (shared == mWatchesByDescriptor.end())
        return;  // already ended, or a stop's own removal
    for (ChangeWatchId id : shared->second) {
        auto it = mWatches.find(id);
        if (it != mWatches.end())
            it->second.descriptor = -1;
        pending.Add(id, ChangeKind::DirectoryGone, {});
    }
    mWatchesByDescriptor.erase(shared);
    // A moved directory would still be watched at its new place; nobody asked for that.
    inotify_rm_watch(mInotify, descriptor);
}

void Notifier::ReadEvents(int inotify, Pending& pending) {
    alignas(inotify_event) char buffer[64 * 1024];
    for (;;) {
        const ssize_t length = read(inotify, buffer, sizeof(buffer));
        if (length < 0 && errno == EINTR)
            continue;
        if (length <= 0)
            return;  // EAGAIN: all read
        std::lock_guard state(mStateMutex);
        std::size_t offset = 0;
        const std::size_t end = static_cast<std::size_t>(length);
        while (offset + sizeof(inotify_event) <= end) {
            inotify_event event;
            std::memcpy(&event, buffer + offset, sizeof(event));
            const std::size_t nameOffset = offset + sizeof(inotify_event);
            if (event.len > end - nameOffset)
                break;  // the kernel never splits an event; stop rather than read past it
            const char* nameStart = buffer + nameOffset;
            NativeString name(nameStart, strnlen(nameStart, event.len));
            offset = nameOffset + event.len;

            if (event.mask & IN_Q_OVERFLOW) {
                for (const auto& [descriptor, ids] : mWatchesByDescriptor) {
                    for (ChangeWatchId id : ids)
                        pending.Add(id, ChangeKind::Overflow, {});
                }
                continue;
            }
            if (event.mask & kGoneEvents) {
                EndDescriptor(event.wd, pending);
                continue;
            }
            if (name.empty())
                continue;  // the directory's own attributes: its entries are unchanged
            ChangeKind kind = ChangeKind::Modified;
            if (event.mask & (IN_CREATE | IN_MOVED_TO))
                kind = ChangeKind::Added;
            else if (event.mask & (IN_DELETE | IN_MOVED_FROM))
                kind = ChangeKind::Removed;
            auto shared = mWatchesByDescriptor.find(event.wd);
            if (shared == mWatchesByDescriptor.end())
                continue;  // stopped meanwhile
            for (ChangeWatchId id : shared->second) {
                // A rename within the folder is a pair of moves with one cookie.
                if (event.mask & IN_MOVED_FROM)
                    pending.AddMovedFrom(id, name, event.cookie);
                else if (event.mask & IN_MOVED_TO)
                    pending.AddMovedTo(id, name, event.cookie);
                else
                    pending.Add(id, kind, name);
            }
        }
    }
}

void Notifier::Deliver(Pending& pending) {
    std::lock_guard delivery(mDeliveryMutex);
    Internal::DeliverChanges(mStateMutex, mWatches, pending);
}

void Notifier::Run(int inotify, int wake) {
    mThreadId.store(std::this_thread::get_id());
    const int mounts = open(kMountTable, O_RDONLY | O_CLOEXEC);
    pollfd fds[3] = {{wake, POLLIN, 0}, {inotify, POLLIN, 0}, {mounts, POLLPRI, 0}};
    const nfds_t count = mounts >= 0 ? 3 : 2;

    Pending pending;
    bool collecting = false;  // a burst has begun and is delivered at DEADLINE
    Clock::time_point deadline;
    for (;;) {
        int timeout = -1;
        if (collecting) {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
            timeout = static_cast<int>(std::max<decltype(left)>(left, 0));
        }
        const int ready = poll(fds, count, timeout);
        if (ready < 0 && errno != EINTR)
            break;
        if (ready > 0) {
            if (fds[0].revents != 0)
                break;  // asked to stop
            if (fds[1].revents & POLLIN)
                ReadEvents(inotify, pending);
            if (count == 3 && (fds[2].revents & (POLLPRI | POLLERR)))
                pending.mountsChanged = true;
        }
        if (pending.Empty())
            continue;
        if (!collecting) {
            collecting = true;
            deadline = Clock::now() + kCoalescingDelay;
        }
        if (Clock::now() >= deadline) {
            Deliver(pending);
            collecting = false;
        }
    }
    if (mounts >= 0)
        close(mounts);
}

}  // namespace

ChangeWatchId WatchDirectory(const NativeString& directory, DirectoryChangeCallback callback) {
    return TheNotifier().AddDirectory(directory, std::move(callback));
}

ChangeWatchId WatchMountTable(std::function<void()> callback) {
    return TheNotifier().AddMountTable(std::move(callback));
}

void StopWatching(ChangeWatchId id) {
    if (id != 0)
        TheNotifier().Remove(id);
}

bool IsChangeNotificationRunning() {
    return TheNotifier().IsRunning();
}

}  // namespace Tessel::Platform

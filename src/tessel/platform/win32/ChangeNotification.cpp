// Win32 change notification: ReadDirectoryChangesW on each watched directory, with the
// completions of all of them gathered on one I/O completion port that a single thread
// waits on. The same thread polls the drives once a second for the mount-table watches
// (see CaptureVolumes) and checks that each watched directory is still where it was, which
// is how a directory moved away is noticed: the system reports nothing for that.
#include <tessel/platform/ChangeDelivery.h>
#include <tessel/platform/ChangeNotification.h>

#include "FindFiles.h"  // <windows.h> as every Win32 source includes it

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include <tessel/platform/Volumes.h>

namespace Tessel::Platform {

using Win32::CriticalErrorDialogsOff;

namespace {

using Clock = std::chrono::steady_clock;

// Changes that come within this time of the first one are delivered together.
constexpr std::chrono::milliseconds kCoalescingDelay(100);
// How often the drives are polled and the watched directories checked.
constexpr std::chrono::milliseconds kPollInterval(1000);
// How long a stop waits for the system to hand back a cancelled read.
constexpr DWORD kCancelWaitMilliseconds = 5000;

constexpr DWORD kNotifyFilter = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME |
                                FILE_NOTIFY_CHANGE_ATTRIBUTES | FILE_NOTIFY_CHANGE_SIZE |
                                FILE_NOTIFY_CHANGE_LAST_WRITE;
// The largest buffer the system fills for a directory on a network share.
constexpr DWORD kBufferBytes = 64 * 1024;

constexpr ULONG_PTR kReadKey = 1;
constexpr ULONG_PTR kStopKey = 2;

bool IsDirectory(const NativeString& path) {
    CriticalErrorDialogsOff dialogsOff;
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) &&
           !(attributes & FILE_ATTRIBUTE_DEVICE);
}

// The drives as the mount-table watches see them: which letters exist, and which of them
// have a mounted volume.
struct VolumeState {
    DWORD drives = 0;
    DWORD mounted = 0;
    bool operator==(const VolumeState&) const = default;
};

// Polled rather than told: WM_DEVICECHANGE reaches only a window with a message loop of
// its own, is not sent for every kind of drive (Wine rarely sends it at all), and says
// nothing when a card reader's medium is swapped. Asking for 26 bits and the mounted state
// of each local drive once a second is cheap and always right.
VolumeState CaptureVolumes() {
    VolumeState state;
    state.drives = GetLogicalDrives();
    wchar_t root[] = L"A:\\";
    for (DWORD bit = 1; bit != 0 && root[0] <= L'Z'; bit <<= 1, ++root[0]) {
        if (!(state.drives & bit))
            continue;
        // A network drive has no local volume to ask; its device would be opened through
        // the network redirector.
        if (GetDriveTypeW(root) == DRIVE_REMOTE)
            continue;
        if (IsVolumeMounted(std::wstring(root, 2)))
            state.mounted |= bit;
    }
    return state;
}

// One directory handle and the read in flight on it. Owned by the notifier's table until
// the system has handed the read back: the buffer and OVERLAPPED must live until then.
struct DirectoryRead {
    ChangeWatchId id = 0;  // 0 once the watch is gone: the read is being cancelled
    HANDLE handle = INVALID_HANDLE_VALUE;
    OVERLAPPED overlapped = {};
    bool pending = false;
    alignas(DWORD) unsigned char buffer[kBufferBytes];

    ~DirectoryRead() {
        if (handle != INVALID_HANDLE_VALUE)
            CloseHandle(handle);
    }
    bool Issue() {
        overlapped = OVERLAPPED{};
        pending = ReadDirectoryChangesW(handle, buffer, kBufferBytes, FALSE, kNotifyFilter, nullptr,
                                        &overlapped, nullptr) != FALSE;
        return pending;
    }
};

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
        DirectoryRead* read = nullptr;  // null for the mount table, or once the folder went
        DirectoryChangeCallback onDirectory;
        std::function<void()> onMounts;
    };

    bool OnNotifierThread() const { return mThreadId.load() == std::this_thread::get_id(); }
    bool StartThread();  // lifecycle mutex held
    void StopThread();   // lifecycle mutex held
    void Run(HANDLE port);
    // The rest run with the state mutex held.
    void Complete(DirectoryRead* read, bool succeeded, DWORD error, DWORD bytes, Pending& pending);
    void ReadChanges(const DirectoryRead& read, DWORD bytes, Pending& pending);
    void EndWatchRead(Watch& watch, Pending& pending);
    void Retire(DirectoryRead* read);
    void CheckDirectories(Pending& pending);
    bool HasMountWatches() const;
    void Deliver(Pending& pending);

    // Order: lifecycle before state; delivery before state. The lifecycle mutex guards the
    // thread and the port, serialising starts and stops; the state mutex guards the
    // tables; the delivery mutex is held while callbacks run, so that a stop can wait for
    // a call in progress.
    std::mutex mLifecycleMutex;
    std::mutex mStateMutex;
    std::mutex mDeliveryMutex;

    std::map<ChangeWatchId, Watch> mWatches;
    std::map<const OVERLAPPED*, std::unique_ptr<DirectoryRead>> mReads;
    std::uint64_t mEntryNumber = 0;       // numbers the entries of the system's change records
    std::optional<VolumeState> mVolumes;  // the last state seen, while mount watches exist
    ChangeWatchId mNextId = 1;

    HANDLE mPort = nullptr;
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
    mPort = CreateIoCompletionPort(INVALID_HANDLE_VALUE, nullptr, 0, 1);
    if (mPort == nullptr)
        return false;
    try {
        mThread = std::thread([this, port = mPort] { Run(port); });
    } catch (const std::system_error&) {  // out of threads: no watching, but no exception
        CloseHandle(mPort);
        mPort = nullptr;
        return false;
    }
    return true;
}

void Notifier::StopThread() {
    if (!mThread.joinable())
        return;
    PostQueuedCompletionStatus(mPort, 0, kStopKey, nullptr);
    mThread.join();
    mThreadId.store(std::thread::id());

    // Reads cancelled by the last stops may not have come back yet.
    std::unique_lock state(mStateMutex);
    for (auto& [overlapped, read] : mReads) {
        if (read->pending)
            CancelIoEx(read->handle, &read->overlapped);
    }
    for (;;) {
        auto it = std::find_if(mReads.begin(), mReads.end(),
                               [](const auto& entry) { return entry.second->pending; });
        if (it == mReads.end())
            break;
        DWORD bytes = 0;
        ULONG_PTR key = 0;
        OVERLAPPED* overlapped = nullptr;
        GetQueuedCompletionStatus(mPort, &bytes, &key, &overlapped, kCancelWaitMilliseconds);
        if (overlapped == nullptr) {
            // The system keeps the reads it never handed back: their memory must stay.
            for (auto& entry : mReads) {
                if (entry.second->pending)
                    static_cast<void>(entry.second.release());
            }
            break;
        }
        if (auto found = mReads.find(overlapped); found != mReads.end())
            found->second->pending = false;
    }
    mReads.clear();
    CloseHandle(mPort);
    mPort = nullptr;
}

ChangeWatchId Notifier::AddDirectory(const NativeString& directory,
                                     DirectoryChangeCallback callback) {
    if (directory.empty() || !callback || OnNotifierThread())
        return 0;
    // Only a directory is opened: never a device, a pipe or a file.
    if (!IsDirectory(directory))
        return 0;
    auto read = std::make_unique<DirectoryRead>();
    {
        CriticalErrorDialogsOff dialogsOff;
        // Delete sharing lets the folder be deleted or moved while it is watched.
        read->handle =
            CreateFileW(directory.c_str(), FILE_LIST_DIRECTORY,
                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr);
    }
    if (read->handle == INVALID_HANDLE_VALUE)
        return 0;

    std::lock_guard lifecycle(mLifecycleMutex);
    if (!StartThread())
        return 0;
    bool none = false;
    {
        std::lock_guard state(mStateMutex);
        // The first read is issued here, so that nothing done after the call is missed.
        if (CreateIoCompletionPort(read->handle, mPort, kReadKey, 0) != nullptr && read->Issue()) {
            const ChangeWatchId id = mNextId++;
            read->id = id;
            mWatches[id] = Watch{directory, read.get(), std::move(callback), {}};
            mReads.emplace(&read->overlapped, std::move(read));
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
    // Taken before the call returns, so that a change right after it is seen.
    const VolumeState now = CaptureVolumes();
    std::lock_guard lifecycle(mLifecycleMutex);
    if (!StartThread())
        return 0;
    std::lock_guard state(mStateMutex);
    if (!HasMountWatches())
        mVolumes = now;
    const ChangeWatchId id = mNextId++;
    mWatches[id] = Watch{{}, nullptr, {}, std::move(callback)};
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
            if (it->second.read != nullptr)
                Retire(it->second.read);
            mWatches.erase(it);
            if (!HasMountWatches())
                mVolumes.reset();
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

bool Notifier::HasMountWatches() const {
    return std::any_of(mWatches.begin(), mWatches.end(),
                       [](const auto& entry) { return bool(entry.second.onMounts); });
}

void Notifier::Retire(DirectoryRead* read) {
    read->id = 0;
    if (read->pending) {
        // Freed when the cancelled read comes back to the thread.
        CancelIoEx(read->handle, &read->overlapped);
        return;
    }
    mReads.erase(&read->overlapped);
}

void Notifier::EndWatchRead(Watch& watch, Pending& pending) {
    const ChangeWatchId id = watch.read->id;
    Retire(watch.read);
    watch.read = nullptr;
    pending.Add(id, ChangeKind::DirectoryGone, {});
}

void Notifier::ReadChanges(const DirectoryRead& read, DWORD bytes, Pending& pending) {
    const std::size_t end = std::min<std::size_t>(bytes, kBufferBytes);
    std::size_t offset = 0;
    const std::size_t header = offsetof(FILE_NOTIFY_INFORMATION, FileName);
    while (offset + header <= end) {
        FILE_NOTIFY_INFORMATION entry;
        std::memcpy(&entry, read.buffer + offset, header);
        const std::size_t nameBytes = entry.FileNameLength;
        if (nameBytes > end - offset - header)
            break;  // the system never cuts an entry short; stop rather than read past it
        NativeString name(nameBytes / sizeof(wchar_t), L'\0');
        std::memcpy(name.data(), read.buffer + offset + header, name.size() * sizeof(wchar_t));
        ChangeKind kind = ChangeKind::Modified;
        switch (entry.Action) {
            case FILE_ACTION_ADDED:
            case FILE_ACTION_RENAMED_NEW_NAME:
                kind = ChangeKind::Added;
                break;
            case FILE_ACTION_REMOVED:
            case FILE_ACTION_RENAMED_OLD_NAME:
                kind = ChangeKind::Removed;
                break;
            default:
                break;
        }
        // A rename is told as its old name directly followed by its new one: the entries
        // are numbered, and the new name's must follow the old one's.
        const std::uint64_t number = ++mEntryNumber;
        if (name.empty()) {
            // nothing to tell
        } else if (entry.Action == FILE_ACTION_RENAMED_OLD_NAME) {
            pending.AddMovedFrom(read.id, std::move(name), number);
        } else if (entry.Action == FILE_ACTION_RENAMED_NEW_NAME) {
            pending.AddMovedTo(read.id, std::move(name), number - 1);
        } else {
            pending.Add(read.id, kind, std::move(name));
        }
        if (entry.NextEntryOffset == 0)
            break;
        offset += entry.NextEntryOffset;
    }
}

void Notifier::Complete(DirectoryRead* read, bool succeeded, DWORD error, DWORD bytes,
                        Pending& pending) {
    read->pending = false;
    auto watch = mWatches.find(read->id);
    if (read->id == 0 || watch == mWatches.end()) {
        mReads.erase(&read->overlapped);  // a stopped watch's cancelled read
        return;
    }
    if (succeeded && bytes > 0) {
        ReadChanges(*read, bytes, pending);
    } else if ((succeeded || error == ERROR_NOTIFY_ENUM_DIR) &&
               IsDirectory(watch->second.directory)) {
        // Nothing in the buffer: more changes came than it holds.
        pending.Add(read->id, ChangeKind::Overflow, {});
    } else {
        // Deleted (the read fails with access denied), unmounted, or gone some other way.
        EndWatchRead(watch->second, pending);
        return;
    }
    if (!read->Issue())
        EndWatchRead(watch->second, pending);
}

void Notifier::CheckDirectories(Pending& pending) {
    for (auto& [id, watch] : mWatches) {
        if (watch.read != nullptr && !IsDirectory(watch.directory))
            EndWatchRead(watch, pending);
    }
}

void Notifier::Deliver(Pending& pending) {
    std::lock_guard delivery(mDeliveryMutex);
    Internal::DeliverChanges(mStateMutex, mWatches, pending);
}

void Notifier::Run(HANDLE port) {
    mThreadId.store(std::this_thread::get_id());
    Pending pending;
    bool collecting = false;  // a burst has begun and is delivered at DEADLINE
    Clock::time_point deadline;
    Clock::time_point nextPoll = Clock::now() + kPollInterval;
    for (;;) {
        const Clock::time_point wake = collecting ? std::min(deadline, nextPoll) : nextPoll;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(wake - Clock::now()).count();
        DWORD bytes = 0;
        ULONG_PTR key = 0;
        OVERLAPPED* overlapped = nullptr;
        const BOOL succeeded = GetQueuedCompletionStatus(
            port, &bytes, &key, &overlapped, static_cast<DWORD>(std::max<decltype(left)>(left, 0)));
        const DWORD error = succeeded ? ERROR_SUCCESS : GetLastError();
        if (overlapped == nullptr && key == kStopKey && succeeded)
            break;  // asked to stop
        if (overlapped != nullptr) {
            std::lock_guard state(mStateMutex);
            if (auto it = mReads.find(overlapped); it != mReads.end())
                Complete(it->second.get(), succeeded, error, bytes, pending);
        }
        if (Clock::now() >= nextPoll) {
            nextPoll = Clock::now() + kPollInterval;
            bool watchVolumes = false;
            {
                std::lock_guard state(mStateMutex);
                CheckDirectories(pending);
                watchVolumes = mVolumes.has_value();
            }
            if (watchVolumes) {
                // Asked outside the lock: opening volume devices may take a moment.
                const VolumeState now = CaptureVolumes();
                std::lock_guard state(mStateMutex);
                if (mVolumes && !(*mVolumes == now)) {
                    mVolumes = now;
                    pending.mountsChanged = true;
                }
            }
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

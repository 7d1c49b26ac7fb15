#include <tessel/media/DirectoryChangeMonitor.h>

#include <tessel/foundation/MainThread.h>
#include <tessel/foundation/Path.h>
#include <tessel/platform/ChangeNotification.h>

#include <map>
#include <memory>
#include <mutex>
#include <set>

namespace Tessel::MF {

const ImmutableString DirectoryChangeMonitor::sChangeStation("Tessel.changes");

namespace {

struct DirectoryWatch {
    int count = 0;
    Platform::ChangeWatchId watch = 0;  // 0 while the path cannot be watched
    // Which start of the platform watch a message comes from: one sent before a stop
    // must not be taken for the watch started after it.
    std::uint64_t generation = 0;
};

// The platform watches are started and stopped with the mutex held, so that counts and
// watches always agree. Platform callbacks never take it (they only post to the main
// thread), so waiting for one in StopWatching cannot deadlock.
struct WatchTable {
    std::mutex mutex;
    std::map<std::u16string, DirectoryWatch> directories;
    int volumeCount = 0;
    Platform::ChangeWatchId volumeWatch = 0;
    std::uint64_t volumeGeneration = 0;
    std::uint64_t nextGeneration = 1;
};

// Never destroyed: the main thread may still run a posted delivery while statics go.
WatchTable& Table() {
    static auto* table = new WatchTable();
    return *table;
}

// On the main thread: sends MESSAGE unless its watch stopped since it was posted.
void DeliverDirectoryChange(const std::shared_ptr<DirectoryChangedMessage>& message,
                            std::uint64_t generation) {
    {
        WatchTable& table = Table();
        std::lock_guard lock(table.mutex);
        auto it = table.directories.find(message->directory);
        if (it == table.directories.end() || it->second.generation != generation)
            return;
        if (message->directoryGone) {
            Platform::StopWatching(it->second.watch);
            it->second.watch = 0;
            it->second.generation = 0;
        }
    }
    Messaging::BroadcastOnMainThread(DirectoryChangeMonitor::sChangeStation, *message);
}

// On the notification thread: turns one burst into a message for the main thread.
void OnDirectoryChanges(const std::u16string& directory, std::uint64_t generation,
                        const std::vector<Platform::DirectoryChange>& changes) {
    auto message = std::make_shared<DirectoryChangedMessage>();
    message->directory = directory;
    bool overflow = false;
    std::set<std::u16string> seen;
    for (const Platform::DirectoryChange& change : changes) {
        switch (change.kind) {
            case Platform::ChangeKind::DirectoryGone:
                message->directoryGone = true;
                break;
            case Platform::ChangeKind::Overflow:
                overflow = true;
                break;
            default: {
                EntryChange entry{EntryChangeKind::Changed, Path::FromNative(change.name), {}};
                if (change.kind == Platform::ChangeKind::Added)
                    entry.kind = EntryChangeKind::Created;
                else if (change.kind == Platform::ChangeKind::Removed)
                    entry.kind = EntryChangeKind::Removed;
                else if (change.kind == Platform::ChangeKind::Renamed)
                    entry.kind = EntryChangeKind::Renamed;
                if (!change.previousName.empty()) {
                    entry.previousName = Path::FromNative(change.previousName);
                    if (seen.insert(entry.previousName).second)
                        message->entries.push_back(entry.previousName);
                }
                if (seen.insert(entry.name).second)
                    message->entries.push_back(entry.name);
                message->changes.push_back(std::move(entry));
                break;
            }
        }
    }
    if (overflow) {
        message->entries.clear();
        message->changes.clear();
    }
    MainThread::Post([message, generation] { DeliverDirectoryChange(message, generation); });
}

// Table mutex held.
void StartDirectoryWatch(WatchTable& table, const std::u16string& directory,
                         DirectoryWatch& entry) {
    const std::uint64_t generation = table.nextGeneration++;
    entry.watch = Platform::WatchDirectory(
        Path::ToNative(std::u16string_view(directory)),
        [directory, generation](const Platform::NativeString&,
                                const std::vector<Platform::DirectoryChange>& changes) {
            OnDirectoryChanges(directory, generation, changes);
        });
    entry.generation = entry.watch != 0 ? generation : 0;
}

void DeliverVolumesChanged(std::uint64_t generation) {
    {
        WatchTable& table = Table();
        std::lock_guard lock(table.mutex);
        if (table.volumeWatch == 0 || table.volumeGeneration != generation)
            return;
    }
    Messaging::BroadcastOnMainThread(DirectoryChangeMonitor::sChangeStation,
                                     VolumesChangedMessage());
}

}  // namespace

void DirectoryChangeMonitor::MonitorDirectory(const std::u16string& directory, std::uint32_t,
                                              std::uint32_t) {
    if (directory.empty())
        return;
    Messaging::RegisterStation(sChangeStation);
    WatchTable& table = Table();
    std::lock_guard lock(table.mutex);
    DirectoryWatch& entry = table.directories[directory];
    ++entry.count;
    if (entry.watch == 0)
        StartDirectoryWatch(table, directory, entry);
}

void DirectoryChangeMonitor::StopMonitoringDirectory(const std::u16string& directory,
                                                     std::uint32_t) {
    WatchTable& table = Table();
    std::lock_guard lock(table.mutex);
    auto it = table.directories.find(directory);
    if (it == table.directories.end() || --it->second.count > 0)
        return;
    Platform::StopWatching(it->second.watch);
    table.directories.erase(it);
}

bool DirectoryChangeMonitor::IsMonitoring(const std::u16string& directory) {
    WatchTable& table = Table();
    std::lock_guard lock(table.mutex);
    return table.directories.count(directory) != 0;
}

std::vector<std::u16string> DirectoryChangeMonitor::GetMonitoredDirectories() {
    WatchTable& table = Table();
    std::lock_guard lock(table.mutex);
    std::vector<std::u16string> out;
    for (const auto& [path, entry] : table.directories)
        out.push_back(path);
    return out;
}

void DirectoryChangeMonitor::MonitorVolumeChanges() {
    Messaging::RegisterStation(sChangeStation);
    WatchTable& table = Table();
    std::lock_guard lock(table.mutex);
    ++table.volumeCount;
    if (table.volumeWatch != 0)
        return;
    const std::uint64_t generation = table.nextGeneration++;
    table.volumeWatch = Platform::WatchMountTable(
        [generation] { MainThread::Post([generation] { DeliverVolumesChanged(generation); }); });
    table.volumeGeneration = generation;
}

void DirectoryChangeMonitor::StopMonitoringVolumeChanges() {
    WatchTable& table = Table();
    std::lock_guard lock(table.mutex);
    if (table.volumeCount == 0 || --table.volumeCount > 0)
        return;
    Platform::StopWatching(table.volumeWatch);
    table.volumeWatch = 0;
}

bool DirectoryChangeMonitor::IsMonitoringVolumeChanges() {
    WatchTable& table = Table();
    std::lock_guard lock(table.mutex);
    return table.volumeCount > 0;
}

void DirectoryChangeMonitor::StopAll() {
    WatchTable& table = Table();
    std::lock_guard lock(table.mutex);
    for (const auto& [path, entry] : table.directories)
        Platform::StopWatching(entry.watch);
    table.directories.clear();
    Platform::StopWatching(table.volumeWatch);
    table.volumeWatch = 0;
    table.volumeCount = 0;
}

}  // namespace Tessel::MF

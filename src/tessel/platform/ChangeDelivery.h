// What a change-notification thread gathered in one pass, and its hand-over to the watches'
// callbacks. Shared by the Linux and Windows backends; not part of the installed interface.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include <tessel/platform/ChangeNotification.h>

namespace Tessel::Platform::Internal {

struct PendingChanges {
    std::map<ChangeWatchId, std::vector<DirectoryChange>> changes;
    bool mountsChanged = false;

    bool Empty() const { return changes.empty() && !mountsChanged; }
    // Repeats within one pass (a file written in several pieces) are told once.
    void Add(ChangeWatchId id, ChangeKind kind, NativeString name) {
        std::vector<DirectoryChange>& list = changes[id];
        for (const DirectoryChange& change : list) {
            if (change.kind == kind && change.name == name)
                return;
        }
        list.push_back({kind, std::move(name)});
    }
};

// Calls the callbacks of PENDING's watches and empties it. WATCHES maps ids to records with
// `directory`, `onDirectory` and `onMounts`; the callbacks are copied under STATE and called
// without it, so a callback may add or remove watches.
template <typename WatchMap>
void DeliverChanges(std::mutex& state, const WatchMap& watches, PendingChanges& pending) {
    struct Call {
        NativeString directory;
        std::vector<DirectoryChange> changes;
        DirectoryChangeCallback onDirectory;
        std::function<void()> onMounts;
    };
    std::vector<Call> calls;
    {
        std::lock_guard lock(state);
        for (auto& [id, changes] : pending.changes) {
            auto it = watches.find(id);
            if (it != watches.end() && it->second.onDirectory)
                calls.push_back(
                    {it->second.directory, std::move(changes), it->second.onDirectory, {}});
        }
        if (pending.mountsChanged) {
            for (const auto& [id, watch] : watches) {
                if (watch.onMounts)
                    calls.push_back({{}, {}, {}, watch.onMounts});
            }
        }
    }
    pending = PendingChanges();
    for (const Call& call : calls) {
        // The thread must outlive a callback that throws; nothing else could catch it.
        try {
            if (call.onDirectory)
                call.onDirectory(call.directory, call.changes);
            else
                call.onMounts();
        } catch (...) {
        }
    }
}

}  // namespace Tessel::Platform::Internal

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
    // Repeats within one pass (a file written in several pieces) are told once. Returns the
    // change's place in its watch's list.
    std::size_t Add(ChangeWatchId id, ChangeKind kind, NativeString name) {
        std::vector<DirectoryChange>& list = changes[id];
        for (std::size_t i = 0; i < list.size(); ++i) {
            if (list[i].kind == kind && list[i].name == name)
                return i;
        }
        list.push_back({kind, std::move(name), {}});
        return list.size() - 1;
    }
    // The two halves of a rename, tied by COOKIE (the system's, or the place of the half in
    // its buffer). The first half is told as a removal until the second one comes.
    void AddMovedFrom(ChangeWatchId id, NativeString name, std::uint64_t cookie) {
        mMovedFrom[id] = {Add(id, ChangeKind::Removed, std::move(name)), cookie};
    }
    void AddMovedTo(ChangeWatchId id, NativeString name, std::uint64_t cookie) {
        auto origin = mMovedFrom.find(id);
        if (origin != mMovedFrom.end() && origin->second.cookie == cookie) {
            DirectoryChange& change = changes[id][origin->second.index];
            mMovedFrom.erase(origin);
            if (change.kind == ChangeKind::Removed && change.name != name) {
                change.kind = ChangeKind::Renamed;
                change.previousName = std::move(change.name);
                change.name = std::move(name);
                return;
            }
        }
        Add(id, ChangeKind::Added, std::move(name));
    }

private:
    struct MoveOrigin {
        std::size_t index;
        std::uint64_t cookie;
    };
    std::map<ChangeWatchId, MoveOrigin> mMovedFrom;
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

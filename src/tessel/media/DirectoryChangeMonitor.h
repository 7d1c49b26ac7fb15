// Directory change monitoring. A provider asks for a directory to be watched while a
// host shows it; the host is then told of changes by a message on its main thread.
// Requests are counted per path: a directory asked for twice is watched until both have
// stopped. The watching itself is done by the platform's change notification.
//
// Messages go to the station sChangeStation ("Tessel.changes"), which the first watch
// registers; a host listens there for DirectoryChangedMessage and VolumesChangedMessage.
// A burst of changes in one directory gives one message. Nothing is delivered for a watch
// that has stopped by the time the main thread takes the message.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <tessel/foundation/ImmutableString.h>
#include <tessel/foundation/Messaging.h>
#include <tessel/platform/Export.h>

namespace Tessel::MF {

struct MessageNameForDirectoryChangedMessage {};
struct MessageNameForVolumesChangedMessage {};

// One change of a watched directory's entries.
enum class EntryChangeKind {
    Created,  // made, or moved into the directory
    Changed,  // content or attributes changed
    Removed,  // deleted, or moved out of the directory
    Renamed,  // renamed within the directory
};
struct EntryChange {
    EntryChangeKind kind = EntryChangeKind::Changed;
    std::u16string name;          // the entry's leaf name (its new name when renamed)
    std::u16string previousName;  // the name before a rename
};

struct TESSEL_API DirectoryChangedMessage : MessageBase {
    using Name = MessageNameForDirectoryChangedMessage;
    std::u16string directory;  // exactly as it was given to MonitorDirectory
    // The leaf names of the entries that were added, removed or changed, each once. Empty
    // when there were too many changes to tell apart: the whole directory may have changed.
    std::vector<std::u16string> entries;
    // The same changes with what happened to each entry, in the order they happened (each
    // kind and name once); empty when ENTRIES is. A rename's names are both in ENTRIES.
    std::vector<EntryChange> changes;
    // The directory itself was deleted, moved or unmounted. Its watch has ended; the next
    // MonitorDirectory of the path watches whatever is there then.
    bool directoryGone = false;
};

// File systems were mounted or unmounted: the volume lists may have changed.
struct TESSEL_API VolumesChangedMessage : MessageBase {
    using Name = MessageNameForVolumesChangedMessage;
};

class TESSEL_API DirectoryChangeMonitor {
public:
    static const ImmutableString sChangeStation;  // "Tessel.changes"

    // FLAGS and RESERVED are 0 for a plain one-level watch of the directory's entries.
    // A path that cannot be watched now (missing, not a directory) is still counted.
    static void MonitorDirectory(const std::u16string& directory, std::uint32_t flags,
                                 std::uint32_t reserved);
    static void StopMonitoringDirectory(const std::u16string& directory, std::uint32_t reserved);

    static bool IsMonitoring(const std::u16string& directory);
    // Every watched directory, sorted.
    static std::vector<std::u16string> GetMonitoredDirectories();

    // Volume-change monitoring, counted like a directory: VolumesChangedMessage is sent
    // while at least one start has not been stopped.
    static void MonitorVolumeChanges();
    static void StopMonitoringVolumeChanges();
    static bool IsMonitoringVolumeChanges();

    // Stops every watch, volume monitoring included (the host calls it when it shuts down).
    static void StopAll();
};

}  // namespace Tessel::MF

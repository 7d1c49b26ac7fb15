// Directory change monitoring. A provider asks for a directory to be watched while a
// host shows it; the host is then told of changes by a message on its main thread.
// Requests are counted per path: a directory asked for twice is watched until both have
// stopped. The watching itself is done by the platform's change notification.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <tessel/platform/Export.h>

namespace Tessel::MF {

class TESSEL_API DirectoryChangeMonitor {
public:
    // FLAGS and RESERVED are 0 for a plain one-level watch of the directory's entries.
    static void MonitorDirectory(const std::u16string& directory, std::uint32_t flags,
                                 std::uint32_t reserved);
    static void StopMonitoringDirectory(const std::u16string& directory, std::uint32_t reserved);

    static bool IsMonitoring(const std::u16string& directory);
    // Every watched directory, sorted.
    static std::vector<std::u16string> GetMonitoredDirectories();
    // Stops every watch (the host calls it when it shuts down).
    static void StopAll();
};

}  // namespace Tessel::MF

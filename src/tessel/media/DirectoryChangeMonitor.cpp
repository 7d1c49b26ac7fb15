#include <tessel/media/DirectoryChangeMonitor.h>

#include <map>
#include <mutex>

namespace Tessel::MF {

namespace {

struct WatchTable {
    std::mutex mutex;
    std::map<std::u16string, int> counts;
};

WatchTable& Table() {
    static WatchTable table;
    return table;
}

}  // namespace

void DirectoryChangeMonitor::MonitorDirectory(const std::u16string& directory, std::uint32_t,
                                              std::uint32_t) {
    if (directory.empty()) return;
    std::lock_guard lock(Table().mutex);
    ++Table().counts[directory];
}

void DirectoryChangeMonitor::StopMonitoringDirectory(const std::u16string& directory,
                                                     std::uint32_t) {
    std::lock_guard lock(Table().mutex);
    auto it = Table().counts.find(directory);
    if (it != Table().counts.end() && --it->second <= 0) Table().counts.erase(it);
}

bool DirectoryChangeMonitor::IsMonitoring(const std::u16string& directory) {
    std::lock_guard lock(Table().mutex);
    return Table().counts.count(directory) != 0;
}

std::vector<std::u16string> DirectoryChangeMonitor::GetMonitoredDirectories() {
    std::lock_guard lock(Table().mutex);
    std::vector<std::u16string> out;
    for (const auto& [path, count] : Table().counts) out.push_back(path);
    return out;
}

void DirectoryChangeMonitor::StopAll() {
    std::lock_guard lock(Table().mutex);
    Table().counts.clear();
}

}  // namespace Tessel::MF

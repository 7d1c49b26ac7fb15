// Feeds arbitrary bytes to the mount-table reader as a mountinfo or fstab file (libmount
// parses it; our code walks what it made of it) and checks what callers rely on: "/" comes
// first when listed, the rest is sorted and unique, every volume has an absolute mount
// point, network mounts are exactly the network volumes, and every listed mount point
// passes the volume-mounted test. Labels and removable flags are looked up in folders
// that do not exist, so nothing outside the fuzzer's own file is read.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <tessel/platform/Volumes.h>

namespace {

using Tessel::Platform::MountInfo;

void Check(bool condition) {
    if (!condition)
        std::abort();
}

// One file per process, rewritten for every input.
const std::string& TablePath() {
    static const std::string path = [] {
        char name[] = "/tmp/tessel-fuzz-mounts-XXXXXX";
        const int fd = mkstemp(name);
        Check(fd >= 0);
        close(fd);
        return std::string(name);
    }();
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string& path = TablePath();
    {
        std::FILE* file = std::fopen(path.c_str(), "wb");
        Check(file != nullptr);
        Check(std::fwrite(data, 1, size, file) == size);
        std::fclose(file);
    }
    Tessel::Platform::MountTableFiles files;
    files.mountTable = path;
    files.fstab = path;  // the same bytes read as the file of x-gvfs-hide marks
    files.labelDirectory = "/nonexistent/tessel-fuzz/by-label";
    files.blockDeviceDirectory = "/nonexistent/tessel-fuzz/block";

    const std::vector<MountInfo> all = Tessel::Platform::ReadMountTable(files);
    const std::vector<MountInfo> volumes = Tessel::Platform::ListVolumes(files);
    const std::vector<MountInfo> network = Tessel::Platform::ListNetworkMounts(files);
    Check(volumes.size() <= all.size());

    for (std::size_t i = 0; i < volumes.size(); ++i) {
        const std::string& point = volumes[i].mountPoint;
        Check(!point.empty() && point.front() == '/');
        Check(point == "/" ? i == 0 : true);
        if (i > 1 || (i == 1 && volumes[0].mountPoint != "/"))
            Check(volumes[i - 1].mountPoint < point);
        Check(volumes[i].label.empty());
        Check(!volumes[i].isRemovable);
        if (i < 4)  // each test reads the table again
            Check(Tessel::Platform::IsMountPoint(point, files));
    }
    std::vector<MountInfo> expectedNetwork;
    std::copy_if(volumes.begin(), volumes.end(), std::back_inserter(expectedNetwork),
                 [](const MountInfo& volume) { return volume.isNetwork; });
    Check(network.size() == expectedNetwork.size());
    for (std::size_t i = 0; i < network.size(); ++i)
        Check(network[i].mountPoint == expectedNetwork[i].mountPoint);
    return 0;
}

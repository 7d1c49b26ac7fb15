// The volume lists against a fake machine and the real root; on Windows the system's drives.
#include <tessel/platform/Volumes.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "support/TempDir.h"

#if defined(__linux__)

#include "support/FakeMachine.h"

namespace {

namespace fs = std::filesystem;
using Tessel::Platform::MountInfo;
using Tessel::Platform::MountTableFiles;
using Tessel::Test::FakeMachine;
using Tessel::Test::TempDir;
using Strings = std::vector<std::string>;
namespace P = Tessel::Platform;

Strings MountPoints(const std::vector<MountInfo>& mounts) {
    Strings points;
    for (const MountInfo& mount : mounts)
        points.push_back(mount.mountPoint);
    return points;
}

MountInfo FindMount(const std::vector<MountInfo>& mounts, const std::string& point) {
    for (const MountInfo& mount : mounts)
        if (mount.mountPoint == point)
            return mount;
    ADD_FAILURE() << "no mount " << point;
    return {};
}

TEST_F(FakeMachine, VolumesAreTheMountsAPersonWouldPickAndMountPointsAreExact) {
    const std::vector<MountInfo> volumes = P::ListVolumes(mFiles);
    EXPECT_EQ(MountPoints(volumes),
              (Strings{"/", "/data", "/home/u/nfs", "/home/u/remote", "/media/cdrom", "/media/ram",
                       "/media/shadowed", "/media/u/My Stick", "/media/u/image", "/mnt/photos",
                       "/mnt/share", "/run/media/u/Card", "/srv/data"}));
    const MountInfo stick = FindMount(volumes, "/media/u/My Stick");
    EXPECT_TRUE(stick.isRemovable) << "the flag of the disk the partition is on";
    EXPECT_FALSE(stick.isNetwork || stick.readOnly);
    EXPECT_EQ(FindMount(volumes, "/data").label, "Caf\xc3\xa9/Media");
    EXPECT_EQ(FindMount(volumes, "/srv/data").label, "Data");  // through the mapper link
    EXPECT_EQ(FindMount(volumes, "/media/shadowed").label, "Sys\xff");
    EXPECT_FALSE(FindMount(volumes, "/data").isRemovable);
    EXPECT_TRUE(FindMount(volumes, "/media/cdrom").isOptical &&
                FindMount(volumes, "/media/cdrom").readOnly);
    EXPECT_TRUE(FindMount(volumes, "/media/ram").isRamDisk);
    EXPECT_TRUE(FindMount(volumes, "/media/u/image").isOptical);
    EXPECT_EQ(FindMount(volumes, "/media/shadowed").source, mDir.str() + "/dev/sdf1")
        << "the mount on top is the one that can be seen";

    const std::vector<MountInfo> network = P::ListNetworkMounts(mFiles);
    EXPECT_EQ(MountPoints(network), (Strings{"/home/u/nfs", "/home/u/remote", "/mnt/share"}));
    for (const MountInfo& mount : network)
        EXPECT_TRUE(mount.isNetwork && !mount.isRemovable && mount.label.empty())
            << mount.mountPoint;
    EXPECT_EQ(network.back().source, "//server/media");

    EXPECT_EQ(P::ReadMountTable(mFiles).size(), 29u) << "every line but the broken one";
    // "/proc" is left out of the lists but still mounted.
    for (const char* point : {"/", "/media/u/My Stick//", "//media//u/My Stick", "/proc"})
        EXPECT_TRUE(P::IsMountPoint(point, mFiles)) << point;
    for (const char* point : {"/media/u", "/media/u/My Stick/DCIM", "media/cdrom", ""})
        EXPECT_FALSE(P::IsMountPoint(point, mFiles)) << point;
    MountTableFiles missing = mFiles;
    missing.mountTable = (mDir.path() / "no-such-table").native();
    EXPECT_TRUE(P::ListVolumes(missing).empty());
    EXPECT_FALSE(P::IsMountPoint("/", missing));
}

MountTableFiles TableOnly(const TempDir& dir, const fs::path& table) {
    MountTableFiles files;
    files.mountTable = table.native();
    files.fstab.clear();
    files.labelDirectory = files.blockDeviceDirectory = (dir.path() / "none").native();
    return files;
}

TEST(Volumes, FstabFormatTablesHaveNoDevicesToCompare) {
    TempDir dir;
    const fs::path table = dir.WriteFile("fstab",
                                         "UUID=1 / ext4 defaults 0 1\n"
                                         "/dev/sdb1 /media/usb vfat noauto,x-gvfs-hide 0 0\n"
                                         "server:/e /nfs// nfs defaults 0 0\n"
                                         "/dev/sdb1 /media/usb2 vfat noauto 0 0\n"
                                         "proc /proc proc defaults 0 0\n");
    EXPECT_EQ(MountPoints(P::ListVolumes(TableOnly(dir, table))),
              (Strings{"/", "/media/usb2", "/nfs"}));
}

TEST(Volumes, TheRealRootComesFirstAndTheDriveWalkOffersMountedLocalRootsInOrder) {
    const std::vector<MountInfo> real = P::ListVolumes();
    ASSERT_FALSE(real.empty());
    EXPECT_EQ(real.front().mountPoint, "/");
    EXPECT_TRUE(P::IsMountPoint("/"));

    TempDir dir;
    EXPECT_FALSE(P::IsMountPoint(dir.path().native())) << "a fresh folder mounts nothing";
    const std::string base = dir.str();
    for (const char* folder : {"cardA", "cardB", "share"})
        dir.MakeDir(folder);
    dir.WriteFile("file", "x");
    std::string table = "22 1 8:1 / / rw - ext4 /dev/sda1 rw\n";
    for (const char* mount :
         {"cardB rw - vfat /dev/sdb1", "cardA rw - vfat /dev/sdc1", "gone rw - vfat /dev/sdd1",
          "file rw - vfat /dev/sde1", "share rw - cifs //server/media"})
        table += std::to_string(table.size()) + " 22 8:" + std::to_string(table.size()) + " / " +
                 base + "/" + mount + " rw\n";
    const MountTableFiles files = TableOnly(dir, dir.WriteFile("mountinfo", table));
    const auto walk = [&](const std::string& skipped, int visits) {
        Strings roots;
        P::ForEachMountedDriveRoot(
            skipped,
            [&](const std::string& root) {
                roots.push_back(root);
                return static_cast<int>(roots.size()) < visits;
            },
            files);
        return roots;
    };
    // Missing roots, files and network mounts are left out.
    EXPECT_EQ(walk("", 10), (Strings{"/", base + "/cardA", base + "/cardB"}));
    EXPECT_EQ(walk(base + "/cardA/", 10), (Strings{"/", base + "/cardB"}));
    EXPECT_EQ(walk("/", 10), (Strings{base + "/cardA", base + "/cardB"}));
    EXPECT_EQ(walk("", 2), (Strings{"/", base + "/cardA"}));
    P::ForEachMountedDriveRoot("", {}, files);  // no visitor, no walk
}

}  // namespace

#endif  // __linux__

#if defined(_WIN32)

namespace {

namespace P = Tessel::Platform;

// A letter no drive has, from the end of the alphabet (Wine keeps Z: for the root).
std::wstring UnusedDrive() {
    const std::vector<std::wstring> roots = P::ListDriveRoots();
    for (wchar_t letter = L'Y'; letter > L'C'; --letter) {
        const std::wstring drive{letter, L':'};
        if (std::none_of(roots.begin(), roots.end(),
                         [&](const std::wstring& root) { return root.compare(0, 2, drive) == 0; }))
            return drive;
    }
    return {};
}

TEST(Volumes, TheSystemDriveIsListedAndWalkedInLetterOrderAndAbortsStop) {
    const std::vector<std::wstring> roots = P::ListDriveRoots();
    EXPECT_NE(std::find(roots.begin(), roots.end(), L"C:\\"), roots.end());
    for (const std::wstring& root : roots)
        EXPECT_TRUE(root.size() == 3 && root.substr(1) == L":\\")
            << std::filesystem::path(root).string();
    EXPECT_EQ(P::DriveTypeOf(L"C:\\"), 3u);

    const std::wstring unused = UnusedDrive();
    ASSERT_FALSE(unused.empty());
    EXPECT_FALSE(P::IsVolumeMounted(unused)) << "no such drive";
    EXPECT_EQ(P::DriveTypeOf(unused + L"\\"), 1u) << "no root directory";
    EXPECT_EQ(P::VolumeLabelOf(unused + L"\\"), L"");
    EXPECT_FALSE(P::IsVolumeMounted(L""));
    EXPECT_TRUE(P::ListNetworkConnections([] { return true; }).empty());

    const auto walk = [](const std::wstring& skipped, int visits) {
        std::vector<std::wstring> roots;
        P::ForEachMountedDriveRoot(skipped, [&](const std::wstring& root) {
            roots.push_back(root);
            return static_cast<int>(roots.size()) < visits;
        });
        return roots;
    };
    const std::vector<std::wstring> all = walk(L"", 26);
    EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
    ASSERT_NE(std::find(all.begin(), all.end(), L"C:\\"), all.end());
    for (const std::wstring& root : all)
        EXPECT_TRUE(P::IsVolumeMounted(root.substr(0, 2))) << root;

    // The skipped root in either form and either case.
    for (const wchar_t* skipped : {L"C:\\", L"c:\\", L"\\\\?\\C:\\"}) {
        const std::vector<std::wstring> rest = walk(skipped, 26);
        EXPECT_EQ(std::find(rest.begin(), rest.end(), L"C:\\"), rest.end());
        EXPECT_EQ(rest.size(), all.size() - 1);
    }
    EXPECT_EQ(walk(L"", 1), std::vector<std::wstring>{all.front()});
}

}  // namespace

#endif  // _WIN32

// The volume lists against fake mount tables, label links and block-device folders
// written to a temporary folder, plus the real system's root; on Windows the system's own
// drives (under Wine: C:, the prefix's drive, and Z:, the build machine's root).
#include <tessel/platform/Volumes.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/TempDir.h"

#if defined(__linux__)

namespace {

namespace fs = std::filesystem;
using Tessel::Platform::MountInfo;
using Tessel::Platform::MountTableFiles;
using Tessel::Test::TempDir;
namespace P = Tessel::Platform;

std::vector<std::string> MountPoints(const std::vector<MountInfo>& mounts) {
    std::vector<std::string> points;
    for (const MountInfo& mount : mounts)
        points.push_back(mount.mountPoint);
    return points;
}

const MountInfo* FindMount(const std::vector<MountInfo>& mounts, const std::string& point) {
    auto it = std::find_if(mounts.begin(), mounts.end(),
                           [&](const MountInfo& mount) { return mount.mountPoint == point; });
    return it == mounts.end() ? nullptr : &*it;
}

// A machine in a folder: its mountinfo, fstab, by-label links and sysfs block devices.
class FakeMachine : public ::testing::Test {
protected:
    // TEXT with "DEV" standing for the machine's device folder.
    std::string WithDev(std::string text) const {
        for (std::size_t at; (at = text.find("DEV")) != std::string::npos;)
            text.replace(at, 3, mDir.str() + "/dev");
        return text;
    }

    void SetUp() override {
        mFiles.labelDirectory = mDir.MakeDir("dev/disk/by-label").native();
        mFiles.blockDeviceDirectory = mDir.MakeDir("sys/class/block").native();
        mFiles.fstab = (mDir.path() / "fstab").native();
        mFiles.mountTable = (mDir.path() / "mountinfo").native();

        // sdb is a removable stick with one partition; sdc a fixed disk; sr0 an optical drive.
        for (const std::string disk : {"sdb", "sdc"}) {
            const std::string block = "sys/class/block/" + disk;
            mDir.WriteFile(block + "/removable", disk == "sdb" ? "1\n" : "0\n");
            mDir.WriteFile(block + "/" + disk + "1/partition", "1\n");
            fs::create_directory_symlink(disk + "/" + disk + "1", mDir.path() / (block + "1"));
        }
        mDir.WriteFile("sys/class/block/sr0/removable", "1\n");

        // udev escapes blanks and slashes in label names; the links are relative.
        fs::create_symlink("../../sdb1", mDir.path() / "dev/disk/by-label/My\\x20Stick");
        fs::create_symlink("../../sdc1", mDir.path() / "dev/disk/by-label/Caf\\xc3\\xa9\\x2fMedia");
        fs::create_symlink("../../sr0", mDir.path() / "dev/disk/by-label/Odd\\xZZ");
        // A mapper name is a link to the real node; its label link points at the node.
        fs::create_symlink("../dm-0", mDir.MakeDir("dev/mapper") / "vg-data");
        fs::create_symlink("../../dm-0", mDir.path() / "dev/disk/by-label/Data");

        mDir.WriteFile("fstab", WithDev("# static file systems\nUUID=1234 / ext4 defaults 0 1\n"
                                        "DEV/sdd1 /srv/hidden ext4 defaults,x-gvfs-hide 0 2\n"));

        mDir.WriteFile("mountinfo", WithDev(R"(22 1 8:1 / / rw,relatime - ext4 /dev/sda1 rw
23 22 0:21 / /proc rw,nosuid - proc proc rw
24 22 0:22 / /sys rw - sysfs sysfs rw
25 22 8:2 / /boot rw - ext4 /dev/sda2 rw
26 25 8:3 / /boot/efi rw - vfat /dev/sda3 rw
27 22 7:0 / /snap/core/123 ro - squashfs /dev/loop0 ro
28 22 7:5 / /media/u/squash ro - squashfs /dev/loop5 ro
29 22 8:17 / /media/u/My\040Stick rw - vfat DEV/sdb1 rw
30 22 8:17 / /mnt/again rw - vfat DEV/sdb1 rw
31 22 8:17 /DCIM /mnt/photos rw - vfat DEV/sdb1 rw
32 22 8:33 / /data rw - ext4 DEV/sdc1 rw
33 22 0:50 / /mnt/share rw - cifs //server/media rw
34 22 0:51 / /home/u/nfs rw - nfs4 server:/export rw
35 22 0:52 / /home/u/remote rw - fuse.sshfs u@host:/ rw
36 22 0:53 / /media/ram rw - tmpfs tmpfs rw
37 22 0:54 / /run/user/1000 rw - tmpfs tmpfs rw
38 22 0:55 / /tmp rw - tmpfs tmpfs rw
39 22 11:0 / /media/cdrom ro - iso9660 DEV/sr0 ro
40 22 8:49 / /srv/hidden rw - ext4 DEV/sdd1 rw
41 22 8:50 / /srv/marked rw - ext4 /dev/sdd2 rw,x-gvfs-hide
42 22 7:1 / /media/u/image ro - iso9660 /dev/loop1 ro
43 22 7:2 / /opt/loopimg rw - ext4 /dev/loop2 rw
44 22 8:1 /var/lib/docker/c/hosts /etc/hosts rw - ext4 /dev/sda1 rw
45 22 8:65 / /media/shadowed rw - ext4 /dev/sde1 rw
46 22 8:81 / /media/shadowed rw - ext4 /dev/sdf1 rw
47 22 0:70 / /var/lib/docker/overlay2/x/merged rw - overlay overlay rw
48 22 0:71 / /run/media/u/Card rw - exfat /dev/mmcblk0p1 rw
49 22 253:0 / /srv/data rw - xfs DEV/mapper/vg-data rw
50 22 0:72 / /media/u/overlay rw - overlay overlay rw
this line is no mount at all
)"));
    }

    TempDir mDir;
    MountTableFiles mFiles;
};

TEST_F(FakeMachine, VolumesAreTheMountsAPersonWouldPick) {
    const std::vector<MountInfo> volumes = P::ListVolumes(mFiles);
    EXPECT_EQ(MountPoints(volumes),
              (std::vector<std::string>{"/", "/data", "/home/u/nfs", "/home/u/remote",
                                        "/media/cdrom", "/media/ram", "/media/shadowed",
                                        "/media/u/My Stick", "/media/u/image", "/mnt/photos",
                                        "/mnt/share", "/run/media/u/Card", "/srv/data"}));

    const MountInfo* stick = FindMount(volumes, "/media/u/My Stick");
    ASSERT_NE(stick, nullptr);
    EXPECT_EQ(stick->label, "My Stick");
    EXPECT_TRUE(stick->isRemovable) << "the flag of the disk the partition is on";
    EXPECT_FALSE(stick->isNetwork || stick->readOnly);
    EXPECT_EQ(stick->fileSystemType, "vfat");
    EXPECT_EQ(stick->source, mDir.str() + "/dev/sdb1");
    EXPECT_EQ(FindMount(volumes, "/data")->label, "Caf\xc3\xa9/Media");
    EXPECT_FALSE(FindMount(volumes, "/data")->isRemovable);
    const MountInfo* cdrom = FindMount(volumes, "/media/cdrom");
    EXPECT_TRUE(cdrom->isOptical && cdrom->readOnly);
    EXPECT_EQ(cdrom->label, "Odd\\xZZ") << "a broken escape stays as it is";

    EXPECT_EQ(FindMount(volumes, "/srv/data")->label, "Data") << "found through the mapper link";
    EXPECT_TRUE(FindMount(volumes, "/media/ram")->isRamDisk);
    EXPECT_TRUE(FindMount(volumes, "/media/u/image")->isOptical);
    EXPECT_EQ(FindMount(volumes, "/media/shadowed")->source, "/dev/sdf1")
        << "the mount on top is the one that can be seen";
    EXPECT_EQ(FindMount(volumes, "/")->label, "");

    const std::vector<MountInfo> network = P::ListNetworkMounts(mFiles);
    EXPECT_EQ(MountPoints(network),
              (std::vector<std::string>{"/home/u/nfs", "/home/u/remote", "/mnt/share"}));
    for (const MountInfo& mount : network)
        EXPECT_TRUE(mount.isNetwork && !mount.isRemovable && mount.label.empty())
            << mount.mountPoint;
    EXPECT_EQ(network.back().source, "//server/media");
}

TEST_F(FakeMachine, TableIsReadWholeAndMountPointsAreTestedExactly) {
    const std::vector<MountInfo> all = P::ReadMountTable(mFiles);
    ASSERT_EQ(all.size(), 29u) << "every line but the broken one";
    EXPECT_EQ(all.front().mountPoint, "/");
    EXPECT_EQ(all[1].fileSystemType, "proc");

    // "/proc" is left out of the lists but still mounted.
    for (const char* point :
         {"/", "/media/u/My Stick", "/media/u/My Stick//", "//media//u/My Stick", "/proc"})
        EXPECT_TRUE(P::IsMountPoint(point, mFiles)) << point;
    for (const char* point : {"/media/u", "/media/u/My Stick/DCIM", "media/cdrom", ""})
        EXPECT_FALSE(P::IsMountPoint(point, mFiles)) << point;

    MountTableFiles missing = mFiles;
    missing.mountTable = (mDir.path() / "no-such-table").native();
    EXPECT_TRUE(P::ListVolumes(missing).empty());
    EXPECT_FALSE(P::IsMountPoint("/", missing));
}

// A machine with only the mount table TABLE in DIR.
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
              (std::vector<std::string>{"/", "/media/usb2", "/nfs"}));
}

TEST(Volumes, TheRealRootIsAMountPointAndListedFirst) {
    EXPECT_TRUE(P::IsMountPoint("/"));
    TempDir dir;
    EXPECT_FALSE(P::IsMountPoint(dir.path().native())) << "a fresh folder mounts nothing";
    const std::vector<MountInfo> volumes = P::ListVolumes();
    ASSERT_FALSE(volumes.empty());
    EXPECT_EQ(volumes.front().mountPoint, "/");
    EXPECT_TRUE(std::is_sorted(
        volumes.begin() + 1, volumes.end(),
        [](const MountInfo& a, const MountInfo& b) { return a.mountPoint < b.mountPoint; }));
}

TEST(Volumes, TheDriveWalkOffersMountedLocalRootsInOrderAndStopsWhenTold) {
    TempDir dir;
    const std::string base = dir.str();
    dir.MakeDir("cardA");
    dir.MakeDir("cardB");
    dir.MakeDir("share");
    dir.WriteFile("file", "x");
    std::string table = "22 1 8:1 / / rw - ext4 /dev/sda1 rw\n";
    for (const char* mount :
         {"cardB rw - vfat /dev/sdb1", "cardA rw - vfat /dev/sdc1", "gone rw - vfat /dev/sdd1",
          "file rw - vfat /dev/sde1", "share rw - cifs //server/media"})
        table += std::to_string(table.size()) + " 22 8:" + std::to_string(table.size()) + " / " +
                 base + "/" + mount + " rw\n";
    const MountTableFiles files = TableOnly(dir, dir.WriteFile("mountinfo", table));

    const auto walk = [&](const std::string& skipped, int visits) {
        std::vector<std::string> roots;
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
    EXPECT_EQ(walk("", 10), (std::vector<std::string>{"/", base + "/cardA", base + "/cardB"}));
    EXPECT_EQ(walk(base + "/cardA/", 10), (std::vector<std::string>{"/", base + "/cardB"}));
    EXPECT_EQ(walk("/", 10), (std::vector<std::string>{base + "/cardA", base + "/cardB"}));
    EXPECT_EQ(walk("", 2), (std::vector<std::string>{"/", base + "/cardA"}));
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

TEST(Volumes, TheSystemDriveIsListedMountedAndFixed) {
    const std::vector<std::wstring> roots = P::ListDriveRoots();
    EXPECT_NE(std::find(roots.begin(), roots.end(), L"C:\\"), roots.end());
    for (const std::wstring& root : roots)
        EXPECT_TRUE(root.size() == 3 && root.substr(1) == L":\\")
            << std::filesystem::path(root).string();
    EXPECT_TRUE(P::IsVolumeMounted(L"C:"));
    EXPECT_EQ(P::DriveTypeOf(L"C:\\"), 3u);

    const std::wstring unused = UnusedDrive();
    ASSERT_FALSE(unused.empty());
    EXPECT_FALSE(P::IsVolumeMounted(unused)) << "no such drive";
    EXPECT_EQ(P::DriveTypeOf(unused + L"\\"), 1u) << "no root directory";
    EXPECT_EQ(P::VolumeLabelOf(unused + L"\\"), L"");
    EXPECT_FALSE(P::IsVolumeMounted(L""));
}

TEST(Volumes, TheDriveWalkOffersMountedRootsInLetterOrderAndStopsWhenTold) {
    const auto walk = [](const std::wstring& skipped, int visits) {
        std::vector<std::wstring> roots;
        P::ForEachMountedDriveRoot(skipped, [&](const std::wstring& root) {
            roots.push_back(root);
            return static_cast<int>(roots.size()) < visits;
        });
        return roots;
    };
    const std::vector<std::wstring> all = walk(L"", 26);
    ASSERT_FALSE(all.empty());
    EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
    EXPECT_NE(std::find(all.begin(), all.end(), L"C:\\"), all.end());
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

TEST(Volumes, NetworkConnectionsAreNotReadOnceAborted) {
    int asked = 0;
    EXPECT_TRUE(P::ListNetworkConnections([&] { return ++asked > 0; }).empty());
}

}  // namespace

#endif  // _WIN32

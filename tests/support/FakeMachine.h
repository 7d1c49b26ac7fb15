// A Linux machine in a temporary folder: its mountinfo, fstab, by-label links and sysfs
// block devices, for the tests of the volume lists and of the providers built on them.
#pragma once

#if defined(__linux__)

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <tessel/platform/Volumes.h>

#include "support/TempDir.h"

namespace Tessel::Test {

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
            std::filesystem::create_directory_symlink(disk + "/" + disk + "1",
                                                      mDir.path() / (block + "1"));
        }
        mDir.WriteFile("sys/class/block/sr0/removable", "1\n");
        // A card in a reader: removable, without a label.
        mDir.WriteFile("sys/class/block/mmcblk0/removable", "1\n");
        mDir.WriteFile("sys/class/block/mmcblk0/mmcblk0p1/partition", "1\n");
        std::filesystem::create_directory_symlink("mmcblk0/mmcblk0p1",
                                                  mDir.path() / "sys/class/block/mmcblk0p1");

        // udev escapes blanks and slashes in label names; the links are relative.
        std::filesystem::create_symlink("../../sdb1",
                                        mDir.path() / "dev/disk/by-label/My\\x20Stick");
        std::filesystem::create_symlink("../../sdc1",
                                        mDir.path() / "dev/disk/by-label/Caf\\xc3\\xa9\\x2fMedia");
        std::filesystem::create_symlink("../../sr0", mDir.path() / "dev/disk/by-label/Odd\\xZZ");
        // A label that is not UTF-8.
        std::filesystem::create_symlink("../../sdf1", mDir.path() / "dev/disk/by-label/Sys\\xff");
        // A mapper name is a link to the real node; its label link points at the node.
        std::filesystem::create_symlink("../dm-0", mDir.MakeDir("dev/mapper") / "vg-data");
        std::filesystem::create_symlink("../../dm-0", mDir.path() / "dev/disk/by-label/Data");

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
46 22 8:81 / /media/shadowed rw - ext4 DEV/sdf1 rw
47 22 0:70 / /var/lib/docker/overlay2/x/merged rw - overlay overlay rw
48 22 0:71 / /run/media/u/Card rw - exfat DEV/mmcblk0p1 rw
49 22 253:0 / /srv/data rw - xfs DEV/mapper/vg-data rw
50 22 0:72 / /media/u/overlay rw - overlay overlay rw
this line is no mount at all
)"));
    }

    TempDir mDir;
    Platform::MountTableFiles mFiles;
};

}  // namespace Tessel::Test

#endif  // __linux__

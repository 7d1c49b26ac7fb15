// The volume utilities against a fake machine's mount table (POSIX) or the system's own
// drives (Windows), and the two volume-list providers: their scores, columns, listings,
// thumbnails and volume monitoring.
#include <tessel/providers/filesystem/WinProviderNetworkVolume.h>
#include <tessel/providers/filesystem/WinProviderVolume.h>
#include <tessel/providers/filesystem/WinVolumeUtils.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderRequests.h>
#include <tessel/media/DirectoryChangeMonitor.h>

#include "support/TempDir.h"
#include "support/TestProvider.h"

namespace Tessel {
namespace {

std::u16string Text(const SDKPropertyMap& record, const char* field) {
    auto it = record.find(field);
    if (it == record.end())
        return u"<absent>";
    const std::u16string* text = it->second.get_if<std::u16string>();
    return text ? *text : u"<not text>";
}

std::vector<std::string> Keys(const SDKContentMap& content) {
    std::vector<std::string> keys;
    for (const auto& entry : content)
        keys.push_back(entry.first);
    return keys;
}

TEST(VolumeUtils, DriveNamesComeFromTheLabelOrTheLocalizedType) {
    EXPECT_EQ(WinVolumeUtils::GetDriveTypeName(6), "RAM Disk");
    EXPECT_EQ(WinVolumeUtils::GetDriveTypeName(7), "error");
    EXPECT_EQ(WinVolumeUtils::GetDriveTypeName(0xFFFFFFFFu), "error");
    EXPECT_EQ(WinVolumeUtils::ComposeDriveName("Media", 3, "D:"), "Media (D:)");
    EXPECT_EQ(WinVolumeUtils::ComposeDriveName("", 2, "E:"), "Removable (E:)");
    EXPECT_EQ(WinVolumeUtils::ComposeDriveName("", 9, "F:"), "error (F:)");

    ASSERT_TRUE(Localizer::LoadTable(
                    R"({"$$$/Pelimar/Tessel/WinProvider/DriveType/Fixed": "Disque local",
            "$$$/Pelimar/Tessel/WinProvider/DriveType/Error": "erreur"})")
                    .IsOk());
    EXPECT_EQ(WinVolumeUtils::GetDriveTypeName(3), "Disque local");
    EXPECT_EQ(WinVolumeUtils::GetDriveTypeName(9), "erreur");
    EXPECT_EQ(WinVolumeUtils::ComposeDriveName("", 3, "C:"), "Disque local (C:)");
    Localizer::ClearTable();
}

#if !defined(_WIN32)

namespace fs = std::filesystem;
using Platform::MountTableFiles;

// A machine in a folder: a root disk, a labelled and an unlabelled stick, an optical disc,
// a RAM disk, and two network shares.
class VolumeMachine : public ::testing::Test {
protected:
    void SetUp() override {
        mFiles.labelDirectory = mDir.MakeDir("dev/disk/by-label").native();
        mFiles.blockDeviceDirectory = mDir.MakeDir("sys/class/block").native();
        mFiles.fstab.clear();
        mFiles.mountTable = (mDir.path() / "mountinfo").native();
        const std::string dev = mDir.str() + "/dev";
        for (const char* disk : {"sdb", "sdd"}) {
            mDir.WriteFile(std::string("sys/class/block/") + disk + "/removable", "1\n");
            mDir.WriteFile(std::string("sys/class/block/") + disk + "/" + disk + "1/partition",
                           "1\n");
            fs::create_directory_symlink(
                std::string(disk) + "/" + disk + "1",
                mDir.path() / "sys/class/block" / (std::string(disk) + "1"));
        }
        mDir.WriteFile("sys/class/block/sr0/removable", "1\n");
        fs::create_symlink("../../sdb1", mDir.path() / "dev/disk/by-label/Media");
        // A label that is not UTF-8 is shown with U+FFFD.
        fs::create_symlink("../../sda1", mDir.path() / "dev/disk/by-label/Sys\\xff");
        std::string table =
            "22 1 8:2 / / rw - ext4 DEV/sda2 rw\n"
            "23 22 8:17 / /media/u/Media rw - vfat DEV/sdb1 rw\n"
            "24 22 8:49 / /media/u/STICK rw - exfat DEV/sdd1 rw\n"
            "25 22 11:0 / /media/cdrom ro - iso9660 DEV/sr0 ro\n"
            "26 22 0:53 / /media/ram rw - tmpfs tmpfs rw\n"
            "27 22 0:50 / /mnt/share rw - cifs //server/media rw\n"
            "28 22 0:51 / /home/u/nfs rw - nfs4 server:/export rw\n"
            "29 22 8:1 / /data rw - ext4 DEV/sda1 rw\n";
        for (std::size_t at; (at = table.find("DEV")) != std::string::npos;)
            table.replace(at, 3, dev);
        mDir.WriteFile("mountinfo", table);
    }

    Tessel::Test::TempDir mDir;
    MountTableFiles mFiles;
};

TEST_F(VolumeMachine, DrivesAreNamedByLabelOrTypeNetworkMountsLikeMappedDrivesAndAbortsStop) {
    SDKContentMap content;
    WinVolumeUtils::GetDriveLetterContent(
        content, {kSDKNameField, kSDKPathField, kSDKExtraPathField}, {}, mFiles);
    // An optical drive is removable too, but named as optical.
    const std::pair<std::string, std::u16string> names[] = {
        {"/", u"Local Disk (/)"},
        {"/data", u"Sys\uFFFD (/data)"},
        {"/home/u/nfs", u"/home/u/nfs (server:/export)"},
        {"/media/cdrom", u"CD-ROM (/media/cdrom)"},
        {"/media/ram", u"RAM Disk (/media/ram)"},
        {"/media/u/Media", u"Media (/media/u/Media)"},
        {"/media/u/STICK", u"Removable (/media/u/STICK)"},
        {"/mnt/share", u"/mnt/share (//server/media)"}};
    ASSERT_EQ(content.size(), std::size(names));
    for (const auto& [key, name] : names)
        EXPECT_EQ(Text(content[key], kSDKNameField), name) << key;
    EXPECT_EQ(Text(content["/media/u/Media"], kSDKPathField), u"/media/u/Media");
    EXPECT_EQ(Text(content["/media/u/Media"], kSDKExtraPathField),
              Utf8ToUtf16(mDir.str() + "/dev/sdb1"));

    // Fields only when asked; a record without fields still lists the volume.
    SDKContentMap bare;
    WinVolumeUtils::GetDriveLetterContent(bare, {"Size"}, {}, mFiles);
    EXPECT_EQ(bare.size(), 8u);
    EXPECT_TRUE(bare["/"].empty());

    // The map is added to, not cleared.
    SDKContentMap added{{"kept", {}}};
    WinVolumeUtils::GetNetUseContent(added, {kSDKNameField}, {}, mFiles);
    EXPECT_EQ(Keys(added), (std::vector<std::string>{"/home/u/nfs", "/mnt/share", "kept"}));

    int asked = 0;
    SDKContentMap aborted;
    WinVolumeUtils::GetDriveLetterContent(
        aborted, {kSDKNameField}, [&] { return ++asked > 3; }, mFiles);
    EXPECT_EQ(Keys(aborted), (std::vector<std::string>{"/", "/data"}))
        << "asked once before reading and once before each record";
    SDKContentMap none;
    WinVolumeUtils::GetNetUseContent(
        none, {kSDKNameField}, [] { return true; }, mFiles);
    EXPECT_TRUE(none.empty());

    EXPECT_TRUE(WinVolumeUtils::IsVolumeMounted("/media/u/Media", mFiles));
    EXPECT_FALSE(WinVolumeUtils::IsVolumeMounted("/media/u", mFiles));
    mDir.WriteFile("mountinfo", "22 1 8:1 / / rw - ext4 /dev/sda2 rw\n");
    WinVolumeUtils::GetNetUseContent(none, {kSDKNameField}, {}, mFiles);
    EXPECT_TRUE(none.empty());
}

#else

const SDKFieldSet kAllFields{kSDKNameField, kSDKPathField, kSDKExtraPathField};

TEST(VolumeUtils, DrivesAreListedUnderLongRootsTheFolderProviderOpens) {
    const std::string system = "\\\\?\\C:\\";
    SDKContentMap content;
    WinVolumeUtils::GetDriveLetterContent(content, kAllFields, {});
    ASSERT_TRUE(content.count(system)) << "the system drive";
    EXPECT_EQ(Text(content[system], kSDKNameField), u"Local Disk (C:)");
    EXPECT_EQ(Text(content[system], kSDKExtraPathField), u"C:\\");
    for (const auto& [key, record] : content) {
        EXPECT_TRUE(Path::IsValidDirectoryPath(key)) << key;
        EXPECT_TRUE(WinVolumeUtils::IsVolumeMounted(key.substr(4, 2))) << key;
    }
    EXPECT_FALSE(WinVolumeUtils::IsVolumeMounted(""));

    // Fields only when asked; a record without fields still lists the drive.
    SDKContentMap bare;
    WinVolumeUtils::GetDriveLetterContent(bare, {"Size"}, {});
    EXPECT_EQ(Keys(bare), Keys(content));
    EXPECT_TRUE(bare[system].empty());

    // Asked before each drive; the map is added to, not cleared.
    SDKContentMap none{{"kept", {}}};
    WinVolumeUtils::GetDriveLetterContent(none, kAllFields, [] { return true; });
    EXPECT_EQ(Keys(none), std::vector<std::string>{"kept"});
    int asked = 0;
    SDKContentMap first;
    WinVolumeUtils::GetDriveLetterContent(first, kAllFields, [&] { return ++asked > 1; });
    EXPECT_EQ(Keys(first), std::vector<std::string>{system})
        << "the first drive (no A: or B: here), then the abort";
}

TEST(VolumeUtils, ConnectionsAreNamedByShareAndMappedDrivesFollowTheFeatureSwitch) {
    // The machines the tests run on have no network connections.
    SDKContentMap network;
    WinVolumeUtils::GetNetUseContent(network, kAllFields, {});
    EXPECT_TRUE(network.empty());

    SDKContentMap content;
    WinVolumeUtils::AddConnectionRecord(content, kAllFields, L"", L"\\\\server\\share");
    WinVolumeUtils::AddConnectionRecord(content, kAllFields, L"Z:", L"\\\\server\\media");
    WinVolumeUtils::AddConnectionRecord(content, kAllFields, L"", L"\\\\?\\UNC\\nas\\x");
    WinVolumeUtils::AddConnectionRecord(content, kAllFields, L"Y:", L"");  // no share, no record
    ASSERT_EQ(Keys(content),
              (std::vector<std::string>{"\\\\?\\UNC\\nas\\x", "\\\\?\\UNC\\server\\media",
                                        "\\\\?\\UNC\\server\\share"}));
    const SDKPropertyMap& share = content["\\\\?\\UNC\\server\\share"];
    EXPECT_EQ(Text(share, kSDKNameField), u"\\\\server\\share");
    EXPECT_EQ(Text(share, kSDKExtraPathField), u"\\\\server\\share");
    EXPECT_EQ(Text(content["\\\\?\\UNC\\server\\media"], kSDKNameField), u"Z: (\\\\server\\media)");
    for (const auto& [key, record] : content) {
        EXPECT_TRUE(Path::IsValidDirectoryPath(key)) << key;
        EXPECT_EQ(Text(record, kSDKPathField), Utf8ToUtf16(key));
    }

    SetFeatureEnabled(WinVolumeUtils::kMaintainMappedDrivePathsFeature, true);
    SDKContentMap kept;
    WinVolumeUtils::AddConnectionRecord(kept, kAllFields, L"Z:", L"\\\\server\\media");
    WinVolumeUtils::AddConnectionRecord(kept, kAllFields, L"", L"\\\\server\\share");
    Settings::Reset(WinVolumeUtils::kMaintainMappedDrivePathsFeature);
    ASSERT_EQ(Keys(kept), (std::vector<std::string>{"\\\\?\\UNC\\server\\share", "\\\\?\\Z:\\"}))
        << "only a mapped drive keeps its letter";
    EXPECT_EQ(Text(kept["\\\\?\\Z:\\"], kSDKNameField), u"Z: (\\\\server\\media)");
    EXPECT_EQ(Text(kept["\\\\?\\Z:\\"], kSDKPathField), u"\\\\?\\Z:\\");
}

#endif

TEST(VolumeProviders, ClaimOnlyTheirExactListPathAndSkipWorkWhenAborted) {
#if defined(_WIN32)
    const std::string kRoot = "\\\\?\\C:\\";
#else
    const std::string kRoot = "/";
#endif
    WinProviderVolume volume;
    WinProviderNetworkVolume network;
    DirectoryContents contents(u"");
    const auto score = [&](Provider& provider, const std::string& path) {
        return provider.CanProvideFor(path, any_regular_t(), contents, {});
    };
    for (const char* path : {"volumes:", "networkvolumes:", "Volumes:", "volumes:/",
                             "NetworkVolumes:", "networkvolumes:/", "", "volumes: "}) {
        EXPECT_EQ(score(volume, path), path == std::string("volumes:") ? 100 : 0) << path;
        EXPECT_EQ(score(network, path), path == std::string("networkvolumes:") ? 100 : 0) << path;
    }
    for (Provider* provider : std::initializer_list<Provider*>{&volume, &network}) {
        PelPixHandle icon = provider->GetThumbnail(kRoot, "", any_regular_t(), 64, 32, nullptr);
        ASSERT_NE(icon, nullptr);
        EXPECT_EQ(pelpixGetWidth(icon), 32u) << "a square icon fitting the box";
        EXPECT_EQ(pelpixGetHeight(icon), 32u);
        pelpixDispose(icon);
        auto aborted = ProviderThumbnailRequest::CreateClassRef();
        aborted->Abort();
        EXPECT_EQ(provider->GetThumbnail(kRoot, "", any_regular_t(), 64, 64, aborted.get()),
                  nullptr);
        EXPECT_TRUE(
            provider->GetContent("", any_regular_t(), {kSDKNameField}, aborted.get()).empty());
    }
}

TEST(VolumeProviders, OnlyTheVolumeListWatchesForVolumeChanges) {
    Tessel::Test::HostFixture host;
    WinProviderVolume volume;
    WinProviderNetworkVolume network;
    network.MonitorPath(kNetworkVolumeListPath, any_regular_t());
    EXPECT_FALSE(MF::DirectoryChangeMonitor::IsMonitoringVolumeChanges());
    EXPECT_TRUE(MF::DirectoryChangeMonitor::GetMonitoredDirectories().empty());
    volume.MonitorPath(u"ignored", any_regular_t());
    EXPECT_TRUE(MF::DirectoryChangeMonitor::IsMonitoringVolumeChanges());
    EXPECT_TRUE(MF::DirectoryChangeMonitor::GetMonitoredDirectories().empty());
    volume.StopMonitoringPath(kVolumeListPath, any_regular_t());
    EXPECT_FALSE(MF::DirectoryChangeMonitor::IsMonitoringVolumeChanges());
}

}  // namespace
}  // namespace Tessel

// The volume utilities on a fake machine (POSIX) or the system's drives (Windows), and the
// two volume-list providers.
#include <tessel/providers/filesystem/WinProviderNetworkVolume.h>
#include <tessel/providers/filesystem/WinProviderVolume.h>
#include <tessel/providers/filesystem/WinVolumeUtils.h>

#include <gtest/gtest.h>

#include <tessel/foundation/Localizer.h>
#include <tessel/foundation/Path.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderRequests.h>
#include <tessel/media/DirectoryChangeMonitor.h>

#include "support/FakeMachine.h"
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

using Strings = std::vector<std::string>;

Strings Keys(const SDKContentMap& content) {
    Strings keys;
    for (const auto& entry : content)
        keys.push_back(entry.first);
    return keys;
}

TEST(VolumeUtils, DriveNamesComeFromTheLabelOrTheLocalizedTypeAndUnknownTypesAreErrors) {
    EXPECT_EQ(WinVolumeUtils::ComposeDriveName("Media", 3, "D:"), "Media (D:)");
    for (const std::uint32_t unknown : {7u, 9u, 0xFFFFFFFFu})
        EXPECT_EQ(WinVolumeUtils::GetDriveTypeName(unknown), "error") << unknown;
    ASSERT_TRUE(Localizer::LoadTable(
                    R"({"$$$/Pelimar/Tessel/WinProvider/DriveType/Fixed": "Disque local",
            "$$$/Pelimar/Tessel/WinProvider/DriveType/Error": "erreur"})")
                    .IsOk());
    EXPECT_EQ(WinVolumeUtils::ComposeDriveName("", 3, "C:"), "Disque local (C:)");
    EXPECT_EQ(WinVolumeUtils::ComposeDriveName("", 9, "F:"), "erreur (F:)");
    Localizer::ClearTable();
}

#if defined(__linux__)

using Tessel::Test::FakeMachine;

TEST_F(FakeMachine, DrivesAreNamedByLabelOrTypeNetworkMountsLikeMappedDrivesAndAbortsStop) {
    SDKContentMap content;
    WinVolumeUtils::GetDriveLetterContent(
        content, {kSDKNameField, kSDKPathField, kSDKExtraPathField}, {}, mFiles);
    // An optical drive is named as optical; a label that is not UTF-8 shows U+FFFD.
    const std::pair<std::string, std::u16string> names[] = {
        {"/", u"Local Disk (/)"},
        {"/home/u/nfs", u"/home/u/nfs (server:/export)"},
        {"/media/cdrom", u"Odd\\xZZ (/media/cdrom)"},
        {"/media/ram", u"RAM Disk (/media/ram)"},
        {"/media/shadowed", u"Sys\uFFFD (/media/shadowed)"},
        {"/run/media/u/Card", u"Removable (/run/media/u/Card)"}};
    ASSERT_EQ(content.size(), 13u);
    for (const auto& [key, name] : names)
        EXPECT_EQ(Text(content[key], kSDKNameField), name) << key;
    EXPECT_EQ(Text(content["/media/u/My Stick"], kSDKNameField), u"My Stick (/media/u/My Stick)");
    EXPECT_EQ(Text(content["/media/u/My Stick"], kSDKPathField), u"/media/u/My Stick");
    EXPECT_EQ(Text(content["/media/u/My Stick"], kSDKExtraPathField),
              Utf8ToUtf16(mDir.str() + "/dev/sdb1"));

    // Fields only when asked; a record without fields still lists the volume.
    SDKContentMap bare;
    WinVolumeUtils::GetDriveLetterContent(bare, {"Size"}, {}, mFiles);
    EXPECT_EQ(Keys(bare), Keys(content));
    EXPECT_TRUE(bare["/"].empty());
    // The map is added to, not cleared.
    SDKContentMap added{{"kept", {}}};
    WinVolumeUtils::GetNetUseContent(added, {kSDKNameField}, {}, mFiles);
    EXPECT_EQ(Keys(added), (Strings{"/home/u/nfs", "/home/u/remote", "/mnt/share", "kept"}));

    int asked = 0;
    SDKContentMap aborted;
    WinVolumeUtils::GetDriveLetterContent(
        aborted, {kSDKNameField}, [&] { return ++asked > 3; }, mFiles);
    EXPECT_EQ(Keys(aborted), (Strings{"/", "/data"}))
        << "asked once before reading and once before each record";
    WinVolumeUtils::GetNetUseContent(
        bare, {kSDKNameField}, [] { return true; }, mFiles);
    EXPECT_EQ(Keys(bare), Keys(content)) << "nothing added once aborted";
    EXPECT_TRUE(WinVolumeUtils::IsVolumeMounted("/media/u/My Stick", mFiles));
    EXPECT_FALSE(WinVolumeUtils::IsVolumeMounted("/media/u", mFiles));
}

#elif defined(_WIN32)

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
    EXPECT_EQ(Keys(none), Strings{"kept"});
    int asked = 0;
    SDKContentMap first;
    WinVolumeUtils::GetDriveLetterContent(first, kAllFields, [&] { return ++asked > 1; });
    EXPECT_EQ(Keys(first), Strings{system}) << "the first drive (no A: or B: here), then the abort";
}

TEST(VolumeUtils, ConnectionsAreNamedByShareAndMappedDrivesFollowTheFeatureSwitch) {
    SDKContentMap content;
    WinVolumeUtils::AddConnectionRecord(content, kAllFields, L"", L"\\\\server\\share");
    WinVolumeUtils::AddConnectionRecord(content, kAllFields, L"Z:", L"\\\\server\\media");
    WinVolumeUtils::AddConnectionRecord(content, kAllFields, L"", L"\\\\?\\UNC\\nas\\x");
    WinVolumeUtils::AddConnectionRecord(content, kAllFields, L"Y:", L"");  // no share, no record
    ASSERT_EQ(Keys(content), (Strings{"\\\\?\\UNC\\nas\\x", "\\\\?\\UNC\\server\\media",
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
    ASSERT_EQ(Keys(kept), (Strings{"\\\\?\\UNC\\server\\share", "\\\\?\\Z:\\"}))
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
    for (const std::string path : {"volumes:", "networkvolumes:", "Volumes:", "volumes:/",
                                   "NetworkVolumes:", "networkvolumes:/", "", "volumes: "}) {
        EXPECT_EQ(score(volume, path), path == "volumes:" ? 100 : 0) << path;
        EXPECT_EQ(score(network, path), path == "networkvolumes:" ? 100 : 0) << path;
    }
    for (Provider* provider : std::initializer_list<Provider*>{&volume, &network}) {
        PelPixHandle icon = provider->GetThumbnail(kRoot, "", any_regular_t(), 64, 32, nullptr);
        ASSERT_NE(icon, nullptr);
        EXPECT_TRUE(pelpixGetWidth(icon) == 32u && pelpixGetHeight(icon) == 32u)
            << "a square icon fitting the box";
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
    volume.MonitorPath(u"ignored", any_regular_t());
    EXPECT_TRUE(MF::DirectoryChangeMonitor::IsMonitoringVolumeChanges());
    EXPECT_TRUE(MF::DirectoryChangeMonitor::GetMonitoredDirectories().empty());
    volume.StopMonitoringPath(kVolumeListPath, any_regular_t());
    EXPECT_FALSE(MF::DirectoryChangeMonitor::IsMonitoringVolumeChanges());
}

}  // namespace
}  // namespace Tessel

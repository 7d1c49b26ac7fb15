// The card providers that fold clips (XDCAM EX, XAVC, Canon XF and XF-HEVC): recognition by each
// layout's exact names, clips folded with their files, values of the clips' own metadata,
// thumbnails, and the order and ranking of all providers with the XAVC beta feature off and on.
#include <tessel/providers/cards/ProviderCanonXF.h>
#include <tessel/providers/cards/ProviderCanonXFHEVC.h>
#include <tessel/providers/cards/ProviderXAVC.h>
#include <tessel/providers/cards/ProviderXDCAMEX.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <numeric>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/providers/cards/CardPathUtils.h>

#include "fixtures/CanonCards.h"
#include "fixtures/P2Card.h"
#include "fixtures/SonyCards.h"
#include "support/TempDir.h"
#include "support/TestProvider.h"

namespace Tessel {
namespace {

namespace F = Fixtures;
namespace T = Tessel::Test;
namespace fs = std::filesystem;
using Change = std::function<void(const fs::path&)>;
using Strings = std::vector<std::string>;
constexpr const char* kXAVCFeature = "ZEBFM-3873";

// RELATIVE (with '/') inside DIR, in the native form the library takes.
std::string In(const T::TempDir& dir, std::string relative) {
    std::replace(relative.begin(), relative.end(), '/', static_cast<char>(Path::kSeparator));
    return Utf16ToUtf8(CardPathUtils::JoinPath(dir.longU16(), Utf8ToUtf16(relative)));
}

Strings Keys(const SDKContentMap& content) {
    Strings keys;
    for (const auto& entry : content)
        keys.push_back(entry.first);
    return keys;
}

Strings Files(const SDKPropertyMap& record) {
    Strings files;
    for (const any_regular_t& file : *record.at("ExtraPath").get_if<any_regular_t::array_t>())
        files.push_back(Utf16ToUtf8(*file.get_if<std::u16string>()));
    return files;
}

std::u16string Text(const SDKPropertyMap& record, const char* field) {
    const auto it = record.find(field);
    const auto* text = it == record.end() ? nullptr : it->second.get_if<std::u16string>();
    return text ? *text : u"(none)";
}

Change Add(const char* relative) {
    return [=](const fs::path& card) { F::WriteFile(card / relative, "x"); };
}
Change Remove(const char* relative) {
    return [=](const fs::path& card) { fs::remove_all(card / relative); };
}
// In two steps, as a case-insensitive file system needs.
Change Rename(const char* from, const char* to) {
    return [=](const fs::path& card) {
        fs::rename(card / from, card / "renamed");
        fs::create_directories((card / to).parent_path());
        fs::rename(card / "renamed", card / to);
    };
}

// A thumbnail's bytes summed, plus one (0 for none), to tell pictures apart.
std::uint64_t Checksum(PelPixHandle thumbnail) {
    const OwnedPelPix owned(thumbnail);
    if (!owned)
        return 0;
    EXPECT_LE(pelpixGetHeight(owned.get()), 16u);
    const PelPixLock lock(owned.get());
    const std::size_t size = pelpixGetHeight(owned.get()) * pelpixGetRowbytes(owned.get());
    return std::accumulate(lock.Pixels(), lock.Pixels() + size, 1ull);
}

TEST(CardClipProviders, RecognitionByEachLayoutsExactNames) {
    T::HostFixture host;
    ProviderXDCAMEX ex;
    ProviderXAVC xavc;
    ProviderCanonXF xf;
    ProviderCanonXFHEVC hevc;
    const Change exCard = [](const fs::path& card) { F::WriteXDCAMEXCard(card); };
    const Change xdroot = [](const fs::path& card) { F::WriteXAVCCard(card); };
    const Change m4root = [](const fs::path& card) {
        F::WriteXAVCCard(card, {F::XAVCLayout::M4ROOT, F::XAVCCard{}.clips, true});
    };
    const Change xfCard = [](const fs::path& card) { F::WriteCanonXFCard(card); };
    const Change xfvc = [](const fs::path& card) { F::WriteCanonXFHEVCCard(card); };
    const auto dcim = [](bool photos) {
        return Change([=](const fs::path& card) { F::WriteCanonXFHEVCCard(card, true, photos); });
    };
    const auto then = [](Change a, Change b) {
        return Change([=](auto& card) { a(card), b(card); });
    };
    const struct {
        const char* name;
        Provider& provider;
        Change write;
        int score;
    } cases[] = {
        {"EX as written", ex, exCard, 100},
        {"EX without its take folder", ex, then(exCard, Remove("BPAV/TAKR")), 100},
        {"EX without its media profile", ex, then(exCard, Remove("BPAV/MEDIAPRO.XML")), 0},
        {"EX with clpr in lower case", ex, then(exCard, Rename("BPAV/CLPR", "BPAV/clpr")), 0},
        {"EX with a file beside BPAV", ex, then(exCard, Add("notes.txt")), 40},
        {"EX with an unknown folder in BPAV", ex, then(exCard, Add("BPAV/GENERAL/a.txt")), 40},
        {"XDROOT as written", xavc, xdroot, 100},
        {"M4ROOT with photos beside", xavc, m4root, 100},
        {"XDROOT in PRIVATE", xavc, then(xdroot, Rename("XDROOT", "PRIVATE/XDROOT")), 100},
        {"XDROOT with CLIP for Clip", xavc, then(xdroot, Rename("XDROOT/Clip", "XDROOT/CLIP")), 0},
        {"M4ROOT outside PRIVATE", xavc, then(m4root, Rename("PRIVATE/M4ROOT", "M4ROOT")), 0},
        {"M4ROOT beside AVCHD", xavc, then(m4root, Add("PRIVATE/AVCHD/BDMV/index.bdmv")), 40},
        {"XDROOT with an XDCAM disc index", xavc, then(xdroot, Add("XDROOT/INDEX.XML")), 40},
        {"XF as written", xf, xfCard, 100},
        {"XF beside a P2 folder", xf, then(xfCard, Add("CONTENTS/CLIP/0001AB.XML")), 40},
        {"XF with clips001 in lower case", xf,
         then(xfCard, Rename("CONTENTS/CLIPS001", "CONTENTS/clips001")), 0},
        {"XF-HEVC in XFVC", hevc, xfvc, 100},
        {"XF-HEVC in DCIM", hevc, dcim(false), 100},
        {"XF-HEVC in DCIM beside photos", hevc, dcim(true), 40},
        {"videos in DCIM without clip XML", hevc,
         then(dcim(false), Remove("DCIM/100CANON/A001C001_190315AB.XML")), 0},
        {"XFVC without a group folder", hevc, then(xfvc, Rename("XFVC/CLIPS001", "XFVC/Clips")), 0},
    };
    for (const auto& c : cases) {
        T::TempDir dir;
        c.write(dir.path() / "Card");
        DirectoryContents contents(Utf8ToUtf16(In(dir, "Card")));
        EXPECT_EQ(c.provider.CanProvideFor(In(dir, "Card"), {}, contents, NeverAbort()), c.score)
            << c.name;
    }
    // Heights above 16, compared as signed numbers, are capped.
    for (const auto& [asked, given] : std::vector<std::pair<std::uint32_t, std::uint32_t>>{
             {16, 16}, {17, 16}, {0x80000000u, 0x80000000u}})
        EXPECT_EQ(xavc.GetMaximumThumbnailHeight(asked), given) << asked;
}

TEST(CardClipProviders, XDCAMEXFoldsTheTakesOfItsMediaProfile) {
    T::HostFixture host;
    T::TempDir dir;
    const fs::path card = F::WriteXDCAMEXCard(dir.path() / "Card");
    dir.WriteFile("Card/BPAV/CLPR/readme.txt", "x");
    dir.WriteFile("Card/BPAV/TAKR/431_0009/431_0009U01.SMI", "x");  // its clips are elsewhere
    ProviderXDCAMEX provider;
    const SDKFieldSet fields{"Name", "duration", "startTimecode"};
    const std::string take = In(dir, "Card/BPAV/CLPR/431_0001_01/431_0001_01.MP4");
    SDKContentMap content = provider.GetContent(In(dir, "Card"), {}, fields, nullptr);
    EXPECT_EQ(Keys(content),
              (Strings{take, In(dir, "Card/BPAV/CLPR/431_0002_01/431_0002_01.MP4"),
                       In(dir, "Card/BPAV/CLPR/readme.txt"), In(dir, "Card/BPAV/TAKR/431_0009")}));
    EXPECT_EQ(Text(content[take], "Name"), u"431_0001");
    EXPECT_EQ(Text(content[take], "duration"), u"00:00:30:00") << "600 + 300 frames";
    EXPECT_EQ(Text(content[take], "startTimecode"), u"01:00:00:00");
    const Strings files = Files(content[take]);
    ASSERT_EQ(files.size(), 12u) << "five files of each clip, then the take's two";
    EXPECT_EQ(files[0], take);
    EXPECT_EQ(files[5], In(dir, "Card/BPAV/CLPR/431_0001_02/431_0001_02.MP4"));
    EXPECT_EQ(files[11], In(dir, "Card/BPAV/TAKR/431_0001/431_0001M01.XML"));
    EXPECT_NE(Checksum(provider.GetThumbnail(take, take, {}, 80, 60, nullptr)), 0u);

    // Without a readable media profile every clip stands alone and the take folder is shown.
    F::WriteFile(card / "BPAV/MEDIAPRO.XML", "<MediaProfile");
    content = provider.GetContent(In(dir, "Card"), {}, fields, nullptr);
    EXPECT_EQ(content.size(), 6u);
    EXPECT_EQ(Text(content[take], "Name"), u"431_0001_01");
    EXPECT_EQ(content[In(dir, "Card/BPAV/TAKR/431_0001")].count("Directory"), 1u);
}

TEST(CardClipProviders, XAVCListsEachClipWithItsFilesAndPicture) {
    T::HostFixture host;
    T::TempDir dir;
    F::XAVCCard xdroot;
    xdroot.clips.push_back(xdroot.clips.front());
    xdroot.clips.back().name = "C0002";
    xdroot.clips.back().ltcStart = "00001010";
    const fs::path card = F::WriteXAVCCard(dir.path() / "XD", xdroot);
    dir.WriteFile("XD/XDROOT/Clip/notes.txt", "x");
    dir.WriteFile("XD/XDROOT/General/Sony/plan.xml", "x");
    F::WriteXAVCCard(dir.path() / "M4", {F::XAVCLayout::M4ROOT, F::XAVCCard{}.clips, true});
    ProviderXAVC provider;
    const std::string clip = In(dir, "XD/XDROOT/Clip/C0001.MXF");
    SDKContentMap content = provider.GetContent(In(dir, "XD"), {}, {"startTimecode"}, nullptr);
    EXPECT_EQ(Keys(content),
              (Strings{clip, In(dir, "XD/XDROOT/Clip/C0002.MXF"),
                       In(dir, "XD/XDROOT/Clip/notes.txt"), In(dir, "XD/XDROOT/General")}));
    Strings files;
    for (const char* file : {"Clip/C0001.MXF", "Clip/C0001M01.XML", "Clip/C0001R01.BIM",
                             "Sub/C0001S03.MXF", "Thmbnl/C0001T01.JPG"})
        files.push_back(In(dir, std::string("XD/XDROOT/") + file));
    EXPECT_EQ(Files(content[clip]), files);
    EXPECT_EQ(Text(content[In(dir, "XD/XDROOT/Clip/C0002.MXF")], "startTimecode"), u"10:10:00:00");
    EXPECT_EQ(Keys(provider.GetContent(In(dir, "M4"), {}, {"Name"}, nullptr)),
              (Strings{In(dir, "M4/DCIM"), In(dir, "M4/PRIVATE/M4ROOT/CLIP/C0001.MP4")}));

    // The clip's own picture, else the camera-card picture.
    const std::uint64_t picture = Checksum(provider.GetThumbnail(clip, clip, {}, 80, 60, nullptr));
    fs::remove(card / "XDROOT/Thmbnl/C0001T01.JPG");
    const std::uint64_t cardPicture =
        Checksum(provider.GetThumbnail(clip, clip, {}, 80, 60, nullptr));
    EXPECT_NE(picture, 0u);
    EXPECT_NE(cardPicture, 0u);
    EXPECT_NE(picture, cardPicture);
}

TEST(CardClipProviders, CanonFoldsPiecesInOrderFromThePreviousCardToo) {
    T::HostFixture host;
    T::TempDir dir;
    const F::CanonClip interview{"AA0001", "CLIPS001", 1, 2, "01:00:00;00", "Interview", true};
    F::CanonClip relay{"AA0002", "CLIPS001", 1, 2};
    F::WriteCanonXFCard(dir.path() / "Card1", {interview, relay});
    relay.firstPiece = relay.lastPiece = 3;  // recorded on past the end of the first card
    F::WriteCanonXFCard(dir.path() / "Card2", {relay});
    dir.WriteFile("Card2/CONTENTS/CLIPS001/A001C001_110315AB.MXF", "x");  // an XF-AVC clip
    dir.WriteFile("Card2/CONTENTS/CLIPS001/A001C001_110315AB.XML", F::CanonClipXml({}));
    ProviderCanonXF provider;
    const SDKFieldSet fields{"Name", "startTimecode", "duration", "title", "good"};
    const auto clip = [&](const char* card, const char* file) {
        return In(dir, std::string(card) + "/CONTENTS/CLIPS001/" + file);
    };

    SDKContentMap content = provider.GetContent(In(dir, "Card1"), {}, fields, nullptr);
    const std::string first = clip("Card1", "AA0001/AA000101.MXF");
    ASSERT_EQ(content.size(), 2u);
    EXPECT_EQ(Files(content[first]),
              (Strings{first, clip("Card1", "AA0001/AA000102.MXF"),
                       clip("Card1", "AA0001/AA0001.CIF"), clip("Card1", "AA0001/AA0001.XML")}));
    EXPECT_EQ(Text(content[first], "Name"), u"AA0001");
    EXPECT_EQ(Text(content[first], "startTimecode"), u"01:00:00;00");
    EXPECT_EQ(Text(content[first], "duration"), u"00:00:30;00");
    EXPECT_EQ(Text(content[first], "title"), u"Interview");
    EXPECT_EQ(content[first].at("good"), any_regular_t(true));
    EXPECT_NE(Checksum(provider.GetThumbnail(first, first, {}, 80, 60, nullptr)), 0u);

    content = provider.GetContent(In(dir, "Card2"), {}, fields, nullptr);
    const std::string third = clip("Card2", "AA0002/AA000203.MXF");
    const std::string flat = clip("Card2", "A001C001_110315AB.MXF");
    EXPECT_EQ(Keys(content), (Strings{flat, third})) << "INDEX.MIF is structure";
    EXPECT_EQ(
        Files(content[third]),
        (Strings{third, clip("Card1", "AA0002/AA000201.MXF"), clip("Card1", "AA0002/AA000202.MXF"),
                 clip("Card2", "AA0002/AA0002.CIF"), clip("Card2", "AA0002/AA0002.XML")}));
    EXPECT_EQ(Files(content[flat]), (Strings{flat, clip("Card2", "A001C001_110315AB.XML")}));
    EXPECT_EQ(Text(content[flat], "startTimecode"), u"01:00:00:00");

    // XF-HEVC: the proxy goes with its clip, a photo beside is shown as itself.
    F::WriteCanonXFHEVCCard(dir.path() / "HEVC", true, true);
    content = ProviderCanonXFHEVC().GetContent(In(dir, "HEVC"), {}, {"Name"}, nullptr);
    const std::string hevc = In(dir, "HEVC/DCIM/100CANON/A001C001_190315AB.MP4");
    EXPECT_EQ(Keys(content), (Strings{hevc, In(dir, "HEVC/DCIM/100CANON/IMG_0001.JPG")}));
    EXPECT_EQ(Files(content[hevc]),
              (Strings{hevc, In(dir, "HEVC/DCIM/100CANON/A001C001_190315AB.XML"),
                       In(dir, "HEVC/DCIM/100CANON/A001C001_190315AB_Proxy.MP4")}));
}

Strings RegisteredClassNames(bool xavc) {
    SetFeatureEnabled(kXAVCFeature, xavc);
    T::HostFixture host(true);
    Strings names;
    for (const auto& wrapper : ProviderHost::GetAllProviders())
        names.push_back(
            Utf16ToUtf8(wrapper->GetIdentification()).substr(std::strlen(kProviderIDPrefix)));
    Settings::Reset(kXAVCFeature);
    return names;
}

TEST(CardClipProviders, RegistrationOrderWithTheXAVCFeatureOffAndOn) {
    const Strings off{"WinProviderDirectory", "WinProviderVolume",   "WinProviderNetworkVolume",
                      "ProviderFavorites",    "ProviderAVCHD",       "ProviderCloudSync",
                      "ProviderCanonXF",      "ProviderCanonXFHEVC", "ProviderXDCAM",
                      "ProviderXDCAMEX",      "ProviderP2",          "ProviderSonyHDV",
                      "ProviderRED",          "ProviderARRIRAW",     "ProviderCanonRAW",
                      "ProviderCinemaDNG",    "ProviderDPX"};
    Strings on = off;
    on.insert(std::find(on.begin(), on.end(), "ProviderXDCAMEX"), "ProviderXAVC");
    EXPECT_EQ(RegisteredClassNames(false), off);
    EXPECT_EQ(RegisteredClassNames(true), on);
}

TEST(CardClipProviders, EachCardRanksItsProviderFirstAmongAllProviders) {
    T::TempDir dir;
    F::WriteXDCAMEXCard(dir.path() / "EX");
    F::WriteXAVCCard(dir.path() / "XDROOT");
    F::WriteXAVCCard(dir.path() / "M4ROOT", {F::XAVCLayout::M4ROOT, F::XAVCCard{}.clips, true});
    F::WriteXDCAMDisc(dir.path() / "Disc");
    const auto ranking = [&](const char* folder) { return T::Ranking(In(dir, folder)); };
    {
        T::HostFixture host(true);  // the XAVC beta feature off
        EXPECT_EQ(ranking("XDROOT"), "File Directory;");
        EXPECT_EQ(ranking("M4ROOT"), "File Directory;");
    }
    SetFeatureEnabled(kXAVCFeature, true);
    T::HostFixture host(true);
    const std::pair<const char*, const char*> cases[] = {
        {"EX", "XDCAM-EX;File Directory;"},
        {"EX/BPAV", "File Directory;"},
        {"XDROOT", "XAVC;File Directory;"},
        {"M4ROOT", "XAVC;File Directory;"},
        // An XDCAM disc in the root layout, and an XDROOT folder opened itself, stay XDCAM's.
        {"Disc", "XDCAM-HD;File Directory;"},
        {"XDROOT/XDROOT", "XDCAM-HD;File Directory;"},
    };
    for (const auto& [folder, expected] : cases)
        EXPECT_EQ(ranking(folder), expected) << folder;
    Settings::Reset(kXAVCFeature);
}

}  // namespace
}  // namespace Tessel

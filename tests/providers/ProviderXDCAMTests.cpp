// ProviderXDCAM: recognition of both layouts by their tables and walk end, clips folded with
// their files, values exempi leaves out (start timecode, the disc's last update), the thumbnail
// cap, and the ranking a user sees among every registered provider, in a cloud-sync folder too.
#include <tessel/providers/cards/ProviderXDCAM.h>

#include <gtest/gtest.h>

#include <functional>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/providers/cards/CardPathUtils.h>
#include <tessel/providers/cards/SonyClipMetadata.h>

#include "fixtures/P2Card.h"
#include "fixtures/SonyHDVCard.h"
#include "fixtures/XDCAMDisc.h"
#include "support/TempDir.h"
#include "support/TestProvider.h"

namespace Tessel {
namespace {

namespace F = Fixtures;
namespace T = Tessel::Test;
namespace fs = std::filesystem;

// RELATIVE (with '/') inside DIR, in the native form the library takes.
std::string In(const T::TempDir& dir, std::string relative) {
    for (char& c : relative)
        c = c == '/' ? static_cast<char>(Path::kSeparator) : c;
    return Utf16ToUtf8(CardPathUtils::JoinPath(dir.longU16(), Utf8ToUtf16(relative)));
}

std::u16string Text(const SDKPropertyMap& record, const char* field) {
    const auto it = record.find(field);
    const auto* text = it == record.end() ? nullptr : it->second.get_if<std::u16string>();
    return text ? *text : u"(none)";
}

F::XDCAMDisc PROAVDisc() {
    F::XDCAMDisc disc;
    disc.layout = F::XDCAMLayout::PROAV;
    return disc;
}

TEST(ProviderXDCAM, RecognitionFollowsTheLayoutTablesAndWalkEnd) {
    T::HostFixture host;
    using Change = std::function<void(const fs::path&)>;
    const auto remove = [](std::vector<const char*> names) {
        return Change([names](const fs::path& disc) {
            for (const char* name : names)
                fs::remove_all(disc / name);
        });
    };
    const auto add = [](const char* name) {
        return Change([name](const fs::path& disc) { F::WriteFile(disc / name, "x"); });
    };
    const Change fourOnly = remove(
        {"PROAV/EDTR", "PROAV/General", "PROAV/USERDATA", "PROAV/INDEX.BUP", "PROAV/DISCINFO.BUP"});
    const Change sixNames = [](const fs::path& disc) {
        fs::remove_all(disc / "Edit"), fs::remove(disc / "INDEX.XML");
        F::WriteFile(disc / "ALIAS.XML", "<Alias/>");
    };
    const auto both = [](Change a, Change b) { return Change([=](auto& d) { a(d), b(d); }); };
    const struct {
        const char* name;
        F::XDCAMLayout layout;
        Change change;
        int score;
    } cases[] = {
        {"PROAV as written: EDTR, General, USERDATA", F::XDCAMLayout::PROAV, {}, 40},
        {"PROAV with the four required names", F::XDCAMLayout::PROAV, fourOnly, 100},
        {"and INDEX.BUP", F::XDCAMLayout::PROAV, both(fourOnly, add("PROAV/INDEX.BUP")), 100},
        {"and an unknown entry before the last required one", F::XDCAMLayout::PROAV,
         both(fourOnly, add("PROAV/ABC.TXT")), 40},
        // The walk ends at it, the flag raised.
        {"and an unknown entry after the last required one", F::XDCAMLayout::PROAV,
         both(fourOnly, add("PROAV/ZZZ.TXT")), 40},
        {"three entries", F::XDCAMLayout::PROAV, both(fourOnly, remove({"PROAV/DISCINFO.XML"})), 0},
        // Renamed in two steps: Wine, like Windows, keeps a name whose case alone changes.
        {"index.xml in lower case", F::XDCAMLayout::PROAV,
         both(fourOnly,
              [](auto& d) {
                  fs::rename(d / "PROAV/INDEX.XML", d / "PROAV/x"),
                      fs::rename(d / "PROAV/x", d / "PROAV/index.xml");
              }),
         0},
        {"an unreadable clip table", F::XDCAMLayout::PROAV,
         both(fourOnly, [](auto& d) { F::WriteFile(d / "PROAV/INDEX.XML", "<indexFile"); }), 100},
        {"root as written: INDEX.XML and Edit", F::XDCAMLayout::Root, {}, 40},
        {"root with its six table names", F::XDCAMLayout::Root, sixNames, 100},
        {"root with five entries", F::XDCAMLayout::Root, both(sixNames, remove({"ALIAS.XML"})), 0},
        {"root without Sub", F::XDCAMLayout::Root, remove({"Sub"}), 0},
    };
    for (const auto& c : cases) {
        T::TempDir dir;
        F::XDCAMDisc disc;
        disc.layout = c.layout;
        const fs::path root = F::WriteXDCAMDisc(dir.path() / "Disc", disc);
        if (c.change)
            c.change(root);
        ProviderXDCAM provider;
        DirectoryContents contents(Utf8ToUtf16(In(dir, "Disc")));
        EXPECT_EQ(provider.CanProvideFor(In(dir, "Disc"), {}, contents, NeverAbort()), c.score)
            << c.name;
    }
    // Heights above 16, compared as signed numbers, are capped.
    ProviderXDCAM provider;
    for (const auto& [asked, given] : std::vector<std::pair<std::uint32_t, std::uint32_t>>{
             {0, 0}, {16, 16}, {17, 16}, {480, 16}, {0x80000000u, 0x80000000u}})
        EXPECT_EQ(provider.GetMaximumThumbnailHeight(asked), given) << asked;
}

TEST(ProviderXDCAM, ListsOneItemPerClipWithItsFilesAndValuesOfItsOwnFiles) {
    T::HostFixture host;
    T::TempDir dir;
    F::XDCAMClip dropFrame;
    dropFrame.ltcStart = "69595900";  // the drop-frame bit on 29 frames
    F::XDCAMClip pal = dropFrame;
    pal.name = "C0002";
    pal.formatFps = "25p";  // the bit means nothing at 25
    F::XDCAMClip broken = dropFrame;
    broken.name = "C0003";
    broken.ltcStart = "0000000A";  // no BCD digit
    F::XDCAMDisc disc = PROAVDisc();
    disc.clips = {dropFrame, pal, broken};
    F::WriteXDCAMDisc(dir.path() / "Disc", disc);
    dir.WriteFile("Disc/notes.txt", "x");
    dir.WriteFile("Disc/PROAV/CLPR/C0002/C0002M01.XMP", "x");
    F::WriteXDCAMDisc(dir.path() / "Root", {});
    dir.WriteFile("Root/Clip/readme.txt", "x");

    ProviderXDCAM provider;
    const SDKFieldSet fields{"Name", "Path", "startTimecode", "ModifyDate", "videoFrameRate"};
    const SDKContentMap proav = provider.GetContent(In(dir, "Disc"), {}, fields, nullptr);
    std::vector<std::string> keys;
    for (const auto& [key, record] : proav)
        keys.push_back(key);
    EXPECT_EQ(keys,
              (std::vector<std::string>{In(dir, "Disc/PROAV/CLPR/C0001/C0001V01.MXF"),
                                        In(dir, "Disc/PROAV/CLPR/C0002/C0002V01.MXF"),
                                        In(dir, "Disc/PROAV/CLPR/C0003/C0003V01.MXF"),
                                        In(dir, "Disc/PROAV/General"), In(dir, "Disc/notes.txt")}));
    const SDKPropertyMap& first = proav.at(keys[0]);
    EXPECT_EQ(Text(first, "Name"), u"C0001");
    EXPECT_EQ(Text(first, "startTimecode"), u"00:59:59;29");
    EXPECT_EQ(Text(proav.at(keys[1]), "startTimecode"), u"00:59:59:29");
    EXPECT_EQ(Text(proav.at(keys[2]), "startTimecode"), u"(none)");
    EXPECT_EQ(Text(first, "ModifyDate"), u"2008-05-12 11:02:41") << "the disc's last update";
    EXPECT_EQ(Text(proav.at(keys[1]), "videoFrameRate"), u"25p");
    const auto& files = *first.at("ExtraPath").get_if<any_regular_t::array_t>();
    ASSERT_EQ(files.size(), 10u) << "SMI, video, four audio, proxy, BIM, M01.XML, PPN";
    EXPECT_EQ(files.front(), any_regular_t(Utf8ToUtf16(keys[0])));
    EXPECT_EQ(proav.at(keys[3]).at("Directory"), any_regular_t(true));
    EXPECT_EQ(proav.at(keys[1]).at("ExtraPath").get_if<any_regular_t::array_t>()->size(), 11u);

    // The root layout: the clip's files in Clip and Sub; Edit is structure, strays are shown.
    const SDKContentMap root = provider.GetContent(In(dir, "Root"), {}, fields, nullptr);
    ASSERT_EQ(root.size(), 3u);
    const SDKPropertyMap& clip = root.at(In(dir, "Root/Clip/C0001.MXF"));
    EXPECT_EQ(clip.at("ExtraPath"),
              any_regular_t(any_regular_t::array_t{
                  any_regular_t(Utf8ToUtf16(In(dir, "Root/Clip/C0001.MXF"))),
                  any_regular_t(Utf8ToUtf16(In(dir, "Root/Clip/C0001M01.XML"))),
                  any_regular_t(Utf8ToUtf16(In(dir, "Root/Sub/C0001S01.MXF")))}));
    EXPECT_EQ(Text(clip, "startTimecode"), u"01:00:00:00");
    EXPECT_TRUE(root.count(In(dir, "Root/Clip/readme.txt")));

    // The clip table's files become the disc's known files, after its own structure.
    std::vector<XDCAMClipTableEntry> table;
    ASSERT_TRUE(ReadXDCAMClipTable(Utf8ToUtf16(In(dir, "Disc/PROAV/INDEX.XML")), table));
    ASSERT_EQ(table.size(), 3u);
    EXPECT_EQ(table[1].audio.size(), 4u);
    const std::vector<std::u16string> known = XDCAMKnownFiles(u"D", table);
    EXPECT_EQ(known.size(), 8u + 3 * 8);
    EXPECT_EQ(known[8],
              CardPathUtils::JoinPath(CardPathUtils::JoinPath(u"D", u"PROAV", u"CLPR", u"C0001"),
                                      u"C0001C01.SMI"));
    EXPECT_FALSE(ReadXDCAMClipTableFromBytes("<indexFile/>", u"INDEX.XML", table));

    // The thumbnail is the essence's icon, 16 pixels at most.
    OwnedPelPix thumbnail(provider.GetThumbnail(keys[0], keys[0], {}, 80, 60, nullptr));
    ASSERT_NE(thumbnail, nullptr);
    EXPECT_LE(pelpixGetHeight(thumbnail.get()), 16u);
}

TEST(ProviderXDCAM, CardsRankAboveTheFolderProviderAmongAllProviders) {
    T::HostFixture host(true);
    T::TempDir dir;
    F::WriteXDCAMDisc(dir.path() / "Disc", PROAVDisc());
    F::WriteXDCAMDisc(dir.path() / "Root");
    F::WriteSonyHDVCard(dir.path() / "HDV", {{}, false});
    // A card copied into a cloud-sync folder is still a card.
    F::WriteXDCAMDisc(dir.path() / "Dropbox" / "Disc", PROAVDisc());
    Settings::Set("Tessel.CloudSync.Dropbox", (dir.path() / "Dropbox").string());
    const struct {
        const char* folder;
        const char* expected;
    } cases[] = {
        {"Disc", "XDCAM-HD;File Directory;"}, {"Root", "XDCAM-HD;File Directory;"},
        {"HDV", "Sony HDV;File Directory;"},  {"Dropbox/Disc", "XDCAM-HD;File Directory;"},
        {"Disc/PROAV", "File Directory;"},    {"HDV/VIDEO/HVR", "File Directory;"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(T::Ranking(In(dir, c.folder)), c.expected) << c.folder;
    EXPECT_EQ(T::Ranking("cloudsync:"), "CloudSync;");
    const SDKContentMap synced =
        ProviderXDCAM().GetContent(In(dir, "Dropbox/Disc"), {}, {"Name"}, nullptr);
    EXPECT_EQ(synced.size(), 2u) << "the clip and General";
    Settings::Reset("Tessel.CloudSync.Dropbox");
}

}  // namespace
}  // namespace Tessel

// ProviderAVCHD: the claim rules and the ranking a user sees among every registered provider,
// the playlist walk's bounds on hostile bytes, and shots folded across continued clips with
// their related files and the camera's values.
#include <tessel/providers/cards/ProviderAVCHD.h>

#include <gtest/gtest.h>

#include <functional>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/providers/cards/AVCHDMetadata.h>
#include <tessel/providers/cards/AVCHDUtils.h>
#include <tessel/providers/cards/CardPathUtils.h>

#include "fixtures/AVCHDCard.h"
#include "support/TempDir.h"
#include "support/TestProvider.h"

namespace Tessel {
namespace {

namespace F = Fixtures;
namespace T = Tessel::Test;
namespace fs = std::filesystem;
using namespace AVCHDUtils;

std::string In(const T::TempDir& dir, std::string relative) {
    for (char& c : relative)
        c = c == '/' ? static_cast<char>(Path::kSeparator) : c;
    return Utf16ToUtf8(CardPathUtils::JoinPath(dir.longU16(), Utf8ToUtf16(relative)));
}

std::span<const std::uint8_t> Span(const std::string& bytes) {
    return {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
}

std::string Joined(const std::vector<std::u16string>& names) {
    std::string text;
    for (const std::u16string& name : names)
        text +=
            (text.empty() ? "" : " ") + Utf16ToUtf8(Path::GetFilePart(std::u16string_view(name)));
    return text;
}

F::AVCHDClip Clip(int number, bool continues = false) {
    F::AVCHDClip clip;
    clip.number = number, clip.continuesShot = continues;
    return clip;
}

using Change = std::function<void(const fs::path&)>;
Change Write(const char* name) {
    return [name](const fs::path& card) { F::WriteFile(card / name, "x"); };
}
// Through another name: Windows (and Wine) keep a name whose letter case alone changes.
Change Rename(const char* from, const char* to) {
    return [=](const fs::path& card) {
        fs::rename(card / from, card / "renamed"), fs::rename(card / "renamed", card / to);
    };
}

TEST(ProviderAVCHD, ClaimsTheLayoutByItsRules) {
    T::HostFixture host(true);
    const struct {
        const char* name;
        const char* folder;
        Change change;
        int score;
        bool longNames = false;
    } cases[] = {
        {"a card's PRIVATE, AVCHD its only entry", "PRIVATE", {}, 100},
        {"its AVCHD folder", "PRIVATE/AVCHD", {}, 100},
        {"the card root", "", {}, 0},
        {"the layout root itself", "PRIVATE/AVCHD/BDMV", {}, 0},
        {"a file beside AVCHD", "PRIVATE", Write("PRIVATE/notes.txt"), 0},
        {"a folder beside AVCHD", "PRIVATE", Write("PRIVATE/M4ROOT/x"), 0},
        {"a dot file beside AVCHD", "PRIVATE", Write("PRIVATE/.DS_Store"), 100},
        {"a README in STREAM", "PRIVATE", Write("PRIVATE/AVCHD/BDMV/STREAM/README.TXT"), 40},
        {"long names in a copy", "", {}, 100, true},
        {"no movie-object file", "PRIVATE", Rename("PRIVATE/AVCHD/BDMV/MOVIEOBJ.BDM", "x"), 0},
        {"STREAM in another letter case", "PRIVATE/AVCHD",
         Rename("PRIVATE/AVCHD/BDMV/STREAM", "PRIVATE/AVCHD/BDMV/Stream"), 100},
    };
    for (const auto& c : cases) {
        T::TempDir dir;
        F::WriteAVCHDCard(dir.path() / "Card", {{Clip(0)}, !c.longNames, !c.longNames});
        if (c.change)
            c.change(dir.path() / "Card");
        const std::string path = In(dir, std::string("Card") + (*c.folder ? "/" : "") + c.folder);
        DirectoryContents contents(Utf8ToUtf16(path));
        EXPECT_EQ(ProviderAVCHD().CanProvideFor(path, {}, contents, NeverAbort()), c.score)
            << c.name;
        EXPECT_EQ(T::Ranking(path), c.score ? "AVCHD;File Directory;" : "File Directory;")
            << c.name;
    }
    EXPECT_EQ(ProviderHost::GetAllProviders()[4]->GetUIString(), u"AVCHD");
    for (const char16_t* name : {u"00001.MTS", u"00001.m2ts"})
        EXPECT_TRUE(IsStreamFileName(name));
    for (const char16_t* name :
         {u"00001.Mts", u"0001.MTS", u"00001.TS", u"0000A.MTS", u"00001-MTS"})
        EXPECT_FALSE(IsStreamFileName(name)) << Utf16ToUtf8(name);
}

TEST(ProviderAVCHD, PlaylistWalkKeepsToItsBounds) {
    const std::vector<F::AVCHDClip> clips{Clip(0), Clip(1, true), Clip(2), Clip(3, true)};
    const std::string playlist = F::AVCHDPlaylist(clips);
    F::AVCHDCard bare;
    bare.extensions = false;
    const auto set = [](std::string bytes, std::size_t at, std::string value) {
        return bytes.replace(at, value.size(), value);
    };
    const std::size_t itemsAt = 40 + 18 + 10;  // the header, AppInfo, PlayList's fixed fields
    const struct {
        const char* name;
        std::string bytes;
        const char* heads;
        const char* shotOf00001;
    } cases[] = {
        {"as written", playlist, "00000 00002", "00000 00001"},
        {"a Blu-ray version", set(playlist, 4, "0200"), "", ""},
        {"another type", set(playlist, 0, "MPLT"), "", ""},
        {"20 bytes", playlist.substr(0, 20), "", ""},
        {"no PlayItems", set(playlist, 64, std::string(2, '\0')), "", ""},
        {"a PlayList beyond the end", set(playlist, 8, "\xFF\xFF\xFF\x00"), "", ""},
        {"a PlayList longer than the file", set(playlist, 58, std::string("\0\x10\0\0", 4)), "",
         ""},
        {"the second of two ending the file", F::AVCHDPlaylist({Clip(0), Clip(1)}, bare), "00000",
         ""},
        {"a PlayItem longer than the file", set(playlist, itemsAt + 2 * 50, "\xFF\xFF"), "00000",
         "00000 00001"},
        {"a PlayItem of 3 bytes", set(playlist, itemsAt + 50, std::string("\0\x01", 2)), "00000",
         ""},
        {"letters for a clip's digits", set(playlist, itemsAt + 2, "0000A"), "00002", "00001"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Joined(ShotHeadNames(Span(c.bytes))), c.heads) << c.name;
        EXPECT_EQ(Joined(ShotNames(Span(c.bytes), u"00001")), c.shotOf00001) << c.name;
        AVCHDPlaylistInfo info;  // the metadata reader walks the same PlayItems
        ReadAVCHDPlaylistInfo(Span(c.bytes), info);
        EXPECT_EQ(info.items.size() == 0, std::string(c.heads).empty()) << c.name;
    }
}

TEST(ProviderAVCHD, ListsShotsWithTheirFilesAndTheCameraValues) {
    T::HostFixture host(true);
    T::TempDir dir;
    F::AVCHDCard card{{Clip(0), Clip(1, true), Clip(2), Clip(3, true), Clip(4)}};
    card.clips[2].xmp = F::XMPPacket({{"xmpDM:shotDate", "2020-01-02T03:04:05"}});
    card.clips[4].streamExtension = "m2ts";
    card.clipsPerPlaylist = 2;  // playlists 00000 (0, 1), 00002 (2, 3), 00004 (4)
    card.panasonicData = true;
    card.maker = 0x0103;
    const fs::path bdmv = F::WriteAVCHDCard(dir.path() / "Card", card);
    // A playlist naming clip 00000 again, and one of a Blu-ray disc, add no item.
    F::WriteFile(bdmv / "PLAYLIST/00009.MPL", F::AVCHDPlaylist({Clip(0)}));
    F::WriteFile(bdmv / "PLAYLIST/00010.MPL",
                 F::AVCHDPlaylist({Clip(3)}, {{}, true, true, "0200"}));

    const SDKContentMap listing =
        ProviderAVCHD().GetContent(In(dir, "Card/PRIVATE"), {},
                                   {"Name", "ExtraPath", "duration", "shotDate", "startTimecode",
                                    "videoFrameRate", "Make", "good", "SerialNumber", "identifier"},
                                   nullptr);
    std::string keys;
    for (const auto& [key, record] : listing)
        keys += key + " ";
    ASSERT_EQ(keys, "00000.MTS 00002.MTS 00004.m2ts ");
    const SDKPropertyMap& first = listing.at("00000.MTS");
    const std::string b = "Card/PRIVATE/AVCHD/BDMV/";
    EXPECT_EQ(first.at("Path"), any_regular_t(In(dir, b + "STREAM/00000.MTS")));
    any_regular_t::array_t related;
    for (const char* file :
         {"CLIPINF/00000.CPI", "CLIPINF/00001.CPI", "STREAM/00001.MTS", "PLAYLIST/00000.MPL",
          "PLAYLIST/00002.MPL", "PLAYLIST/00004.MPL", "PLAYLIST/00009.MPL", "PLAYLIST/00010.MPL",
          "MOVIEOBJ.BDM", "INDEX.BDM", "BACKUP", "STREAM", "PLAYLIST", "CLIPINF"})
        related.emplace_back(In(dir, b + file));
    EXPECT_EQ(first.at("ExtraPath"), any_regular_t(related));
    // The camera's values, and a sidecar's where it has one.
    const auto values = [&](const char* key) {
        std::string text;
        for (const auto& [field, value] : listing.at(key))
            text += field + "=" + Utf16ToUtf8(value.value_or(std::u16string())) + " ";
        return text;
    };
    EXPECT_EQ(values("00000.MTS").substr(values("00000.MTS").find("Make")),
              "Make=Panasonic Name=00000 Path= SerialNumber=C0FFEE duration=00:00:19:29 good= "
              "identifier=ABABABABABABABABABABABABABABABABABABABABABABABABABABABABABABABAB "
              "shotDate=2015-07-04 18:30:00 startTimecode=01:00:00:00 videoFrameRate=59.94i ");
    EXPECT_NE(values("00002.MTS").find("shotDate=2020-01-02 03:04:05 "), std::string::npos);
    EXPECT_EQ(first.at("good"), any_regular_t(true));

    // The shot of a continuation is found by searching the playlists downwards.
    std::vector<std::u16string> shot;
    GetShotClips(Utf8ToUtf16(In(dir, b + "STREAM/00003.MTS")), shot);
    EXPECT_EQ(Joined(shot), "00002.MTS 00003.MTS");
    EXPECT_FALSE(IsAVCHDClipFile(Utf8ToUtf16(In(dir, b + "CLIPINF/00003.MTS"))));

    // A clip ID block that lies about its length is left out; the rest is still read.
    std::string info = F::AVCHDClipInfo(Clip(0), card);
    info.replace(info.size() - 42, 2, "\xFF\xFF");
    AVCHDClipInfo read;
    EXPECT_TRUE(ReadAVCHDClipInfo(Span(info), read));
    EXPECT_EQ(read.globalClipID + std::to_string(read.makerID), "259") << "0x0103";

    ProviderAVCHD provider;  // its picture, 16 pixels high at most
    OwnedPelPix thumbnail(provider.GetThumbnail("00000.MTS", {}, {}, 80, 60, nullptr));
    ASSERT_NE(thumbnail, nullptr);
    EXPECT_EQ(pelpixGetHeight(thumbnail.get()), 16u);
}

}  // namespace
}  // namespace Tessel

// ProviderP2: recognition by the card's exact names and walk order, the missing-media check,
// shots folded across cards standing side by side, the extra-contents item, start timecodes
// as the camera shows them, and thumbnails from a neighbouring card.
#include <tessel/providers/cards/ProviderP2.h>

#include <gtest/gtest.h>

#include <functional>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Settings.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/metadata/Timecode.h>
#include <tessel/providers/cards/CardPathUtils.h>

#include "fixtures/P2Card.h"
#include "support/CaptureTrace.h"
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

int Score(const std::string& path) {
    ProviderP2 provider;
    DirectoryContents contents(Utf8ToUtf16(path));
    return provider.CanProvideFor(path, {}, contents, NeverAbort());
}

std::u16string Text(const SDKPropertyMap& record, const char* field) {
    const auto it = record.find(field);
    const auto* text = it == record.end() ? nullptr : it->second.get_if<std::u16string>();
    return text ? *text : u"(none)";
}

TEST(ProviderP2, RecognitionFollowsExactNamesAndWalkOrder) {
    T::HostFixture host;
    using Change = std::function<void(const fs::path&)>;
    const auto add = [](const char* relative) {
        return Change([relative](const fs::path& card) {
            std::string name(relative);
            name.back() == '/' ? (void)F::MakeFolder(card / name)
                               : (void)F::WriteFile(card / name, "x");
        });
    };
    const auto remove = [](const char* relative) {
        return Change([relative](const fs::path& card) { fs::remove_all(card / relative); });
    };
    const struct {
        const char* name;
        Change change;
        int score;
    } cases[] = {
        {"as the camera wrote it", {}, 100},
        {"no LASTCLIP.TXT", remove("LASTCLIP.TXT"), 100},
        {"a second file in the root", add("notes.txt"), 40},
        {"Desktop beside CONTENTS", add("Desktop/"), 100},
        {"a dot folder beside CONTENTS", add(".Trashes/"), 100},
        // The root's files decide over its folders: with LASTCLIP.TXT alone the card is clean.
        {"a foreign folder beside LASTCLIP.TXT", add("Backup/"), 100},
        {"a foreign folder, no files",
         [](auto& c) { fs::create_directory(c / "Backup"), fs::remove(c / "LASTCLIP.TXT"); }, 40},
        {"contents in lower case",
         [](auto& c) { fs::rename(c / "CONTENTS", c / "x"), fs::rename(c / "x", c / "contents"); },
         0},
        {"no PROXY", remove("CONTENTS/PROXY"), 0},
        {"AVCLIP", add("CONTENTS/AVCLIP/"), 100},
        {"OTHER, examined before the mask is complete", add("CONTENTS/OTHER/"), 40},
        // NTFS order puts "extra" before ICON; byte order would put it after VIDEO.
        {"extra in lower case, before ICON in walk order", add("CONTENTS/extra/"), 40},
        {"ZZZ, after the mask is complete", add("CONTENTS/ZZZ/"), 100},
        {"a lone .DS_Store in CONTENTS", add("CONTENTS/.DS_Store"), 100},
        {"a lone text file in CONTENTS", add("CONTENTS/notes.txt"), 40},
        {"video essence missing", remove("CONTENTS/VIDEO/0001AB.MXF"), 0},
        {"an audio channel missing", remove("CONTENTS/AUDIO/0001AB01.MXF"), 0},
        {"essence named in lower case",
         [](auto& c) {
             fs::rename(c / "CONTENTS/VIDEO/0001AB.MXF", c / "CONTENTS/VIDEO/0001ab.mxf");
         },
         100},
        {"an unreadable clip file", add("CONTENTS/CLIP/0002CD.XML"), 100},
    };
    for (const auto& c : cases) {
        T::TempDir dir;
        const fs::path card = F::WriteP2Card(dir.path() / "Card");
        if (c.change)
            c.change(card);
        EXPECT_EQ(Score(In(dir, "Card")), c.score) << c.name;
    }
    T::TempDir dir;
    fs::remove(F::WriteP2Card(dir.path() / "Card") / "CONTENTS/VIDEO/0001AB.MXF");
    Settings::Set(kSettingP2EnableMissingMediaCheck, any_regular_t(false));
    EXPECT_EQ(Score(In(dir, "Card")), 100) << "the check turned off";
    Settings::Reset(kSettingP2EnableMissingMediaCheck);
    EXPECT_EQ(Score(In(dir, "Card/LASTCLIP.TXT")), 0);
    // Clip files are kept between reads; one rewritten since is read again.
    T::TempDir again;
    const fs::path card = F::WriteP2Card(again.path() / "Card");
    EXPECT_EQ(Score(In(again, "Card")), 100);
    F::P2Clip fourChannels;
    fourChannels.audioChannels = 4;
    F::WriteFile(card / "CONTENTS/CLIP/0001AB.XML", F::P2ClipXml(fourChannels));
    EXPECT_EQ(Score(In(again, "Card")), 0) << "the rewritten clip needs two more channels";
    EXPECT_EQ(Score(""), 0);
}

TEST(ProviderP2, FoldsShotsAcrossCardsSideBySide) {
    T::HostFixture host;
    T::TempDir dir;
    const std::vector<F::P2Clip> shot = F::P2ShotClips({"0001AA", "0002AA", "0003AA"}, "SHOT1");
    // One clip per rate a card holds: the start timecode shown is the one the camera wrote.
    const struct {
        const char* name;
        const char* rate;
        bool dropFrame;
        const char* start;
        const char* shown;
    } rates[] = {
        {"0101TC", "50p", false, "10:00:00:12", "10:00:00:12"},
        {"0102TC", "59.94p", true, "10:00:00:15", "10:00:00;15"},
        {"0103TC", "59.94p", false, "10:00:00:29", "10:00:00:29"},
        {"0104TC", "59.94i", true, "01:00:00:02", "01:00:00;02"},
        {"0106TC", "25p", true, "00:59:59:24", "00:59:59:24"},
        {"0107TC", "23.98p", false, "00:00:01:23", "00:00:01:23"},
    };
    F::P2Card card1{{shot[0], shot[1]}};
    for (const auto& r : rates) {
        F::P2Clip& clip = card1.clips.emplace_back();
        clip.name = r.name;
        clip.frameRate = r.rate;
        clip.dropFrame = r.dropFrame;
        clip.startTimecode = r.start;
    }
    F::WriteP2Card(dir.path() / "Card1", card1);
    F::WriteP2Card(dir.path() / "Card2", {{shot[2]}});
    dir.WriteFile("Card1/readme.txt", "x");
    dir.WriteFile("Card1/CONTENTS/VIDEO/notes.txt", "x");
    dir.WriteFile("Card1/CONTENTS/CLIP/0009BB.XML", "<P2Main><ClipContent><ClipName>0009");

    ProviderP2 provider;
    const SDKFieldSet fields{"Name", "Path", "startTimecode", "duration", "videoFrameRate"};
    SDKContentMap card;
    const auto trace = T::CaptureTrace(
        "ProviderP2", [&] { card = provider.GetContent(In(dir, "Card1"), {}, fields, nullptr); });
    ASSERT_TRUE(trace);
    EXPECT_NE(trace->find("[ProviderP2] GetContents took "), std::string::npos) << *trace;
    EXPECT_NE(trace->find(" ms for path: " + In(dir, "Card1")), std::string::npos) << *trace;
    ASSERT_EQ(card.size(), 1 + std::size(rates) + 1) << "one item per shot, and the extra item";
    const SDKPropertyMap& folded = card.at(In(dir, "Card1/CONTENTS/CLIP/0001AA.XML"));
    EXPECT_EQ(Text(folded, "Name"), u"0001AA");
    EXPECT_EQ(Text(folded, "startTimecode"), u"01:00:00;00");
    EXPECT_EQ(Text(folded, "duration"),
              Utf8ToUtf16(FormatTimecode(750, *ParseFrameRate("59.94i", true))));
    const auto& pieces = *folded.at("ExtraPath").get_if<any_regular_t::array_t>();
    ASSERT_EQ(pieces.size(), 3u);
    EXPECT_EQ(pieces.back(), any_regular_t(Utf8ToUtf16(In(dir, "Card2/CONTENTS/CLIP/0003AA.XML"))));
    for (const auto& r : rates) {
        const SDKPropertyMap& clip =
            card.at(In(dir, "Card1/CONTENTS/CLIP/" + std::string(r.name) + ".XML"));
        EXPECT_EQ(Text(clip, "startTimecode"), Utf8ToUtf16(r.shown)) << r.rate;
        EXPECT_EQ(Text(clip, "videoFrameRate"), Utf8ToUtf16(r.rate));
    }

    // From the second card the shot is one item too, named after its first clip, and its
    // thumbnail is that clip's bitmap, which only the first card has.
    const SDKContentMap second = provider.GetContent(In(dir, "Card2"), {}, fields, nullptr);
    ASSERT_EQ(second.size(), 1u);
    const std::string item = In(dir, "Card2/CONTENTS/CLIP/0003AA.XML");
    EXPECT_EQ(Text(second.at(item), "Name"), u"0001AA");
    const std::string top = In(dir, "Card1/CONTENTS/CLIP/0001AA.XML");
    OwnedPelPix thumbnail(provider.GetThumbnail(item, top, {}, 80, 60, nullptr));
    EXPECT_NE(thumbnail, nullptr);
    fs::remove(dir.path() / "Card1/CONTENTS/ICON/0001AA.BMP");
    EXPECT_EQ(OwnedPelPix(provider.GetThumbnail(item, top, {}, 80, 60, nullptr)), nullptr);

    // What lies beside the P2 structure, the unreadable clip's file included.
    const std::string extra = In(dir, "Card1/-Extra P2 Directory Contents-");
    EXPECT_EQ(card.at(extra).at("Directory"), any_regular_t(true));
    DirectoryContents none(Utf8ToUtf16(extra));
    EXPECT_EQ(provider.CanProvideFor(extra, {}, none, NeverAbort()), 100);
    const SDKContentMap beside = provider.GetContent(extra, {}, fields, nullptr);
    std::vector<std::string> keys;
    for (const auto& [key, record] : beside) {
        keys.push_back(key);
        EXPECT_EQ(record.at("ExtraPath"), any_regular_t(std::string(kP2NonP2FileMarker)));
    }
    EXPECT_EQ(keys, (std::vector<std::string>{In(dir, "Card1/CONTENTS/CLIP/0009BB.XML"),
                                              In(dir, "Card1/CONTENTS/VIDEO/notes.txt"),
                                              In(dir, "Card1/readme.txt")}));
}

}  // namespace
}  // namespace Tessel

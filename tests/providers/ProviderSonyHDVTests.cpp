// ProviderSonyHDV: the recording name test at its bounds, recognition of the recording folder,
// and recordings folded with their sidecars, numbered parts and the unit's track table.
#include <tessel/providers/cards/ProviderSonyHDV.h>

#include <gtest/gtest.h>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/providers/cards/CardPathUtils.h>

#include "fixtures/SonyHDVCard.h"
#include "support/TempDir.h"
#include "support/TestProvider.h"

namespace Tessel {
namespace {

namespace F = Fixtures;
namespace T = Tessel::Test;
namespace fs = std::filesystem;

std::string In(const T::TempDir& dir, std::string relative) {
    for (char& c : relative)
        c = c == '/' ? static_cast<char>(Path::kSeparator) : c;
    return Utf16ToUtf8(CardPathUtils::JoinPath(dir.longU16(), Utf8ToUtf16(relative)));
}

TEST(ProviderSonyHDV, NameTestAndRecognition) {
    const struct {
        const char16_t* name;
        bool recording;
        bool withSidecars;
    } names[] = {
        {u"07_0001_2008-05-17_153000.M2T", true, true},
        {u"07_0001_2008-05-17_153000.DV", true, true},
        {u"07_0001_2008-05-17_153000.AVI", true, true},
        {u"07_0001_2008-05-17_153000.IDX", false, true},
        {u"07_0001_2008-05-17_153000.XMP", false, true},
        {u"07_0001_2008-05-17_153000.m2t", false, false},  // extensions exactly
        {u"07_0001_2008-05-17_153000.M2TS", false, false},
        {u"07_0001_2008-05-17_153000.M", false, false},    // 27 characters
        {u"07_000A_2008-05-17_153000.M2T", false, false},  // a letter for a digit
        {u"07-0001_2008-05-17_153000.M2T", false, false},
        {u"07_0001_2008-05-17_153000-01.M2T", false, false},    // a numbered part
        {u"\uFF107_0001_2008-05-17_153000.M2T", false, false},  // a wide digit
    };
    for (const auto& n : names) {
        EXPECT_EQ(IsSonyHDVRecordingName(n.name, false), n.recording) << Utf16ToUtf8(n.name);
        EXPECT_EQ(IsSonyHDVRecordingName(n.name, true), n.withSidecars) << Utf16ToUtf8(n.name);
    }

    T::HostFixture host;
    const struct {
        const char* name;
        F::SonyHDVCard card;
        const char* extra;
        int score;
    } cases[] = {
        {"an empty recording folder", {{}, false}, nullptr, 100},
        {"a recording and its index", {{{}}, false}, nullptr, 100},
        {"the unit's track table", {}, nullptr, 40},
        {"a letter in a digit position",
         {{{}}, false},
         "VIDEO/HVR/07_0001_2008-05-1X_153000.M2T",
         40},
        {"a name of 27 characters", {{{}}, false}, "VIDEO/HVR/07_0001_2008-05-17_153000.M", 40},
        {"a hidden file", {{{}}, false}, "VIDEO/HVR/.DS_Store", 100},
        {"a file beside VIDEO", {{{}}, false}, "notes.txt", 100},
    };
    for (const auto& c : cases) {
        T::TempDir dir;
        F::WriteSonyHDVCard(dir.path() / "Card", c.card);
        if (c.extra)
            dir.WriteFile(std::string("Card/") + c.extra, "x");
        ProviderSonyHDV provider;
        DirectoryContents contents(Utf8ToUtf16(In(dir, "Card")));
        EXPECT_EQ(provider.CanProvideFor(In(dir, "Card"), {}, contents, NeverAbort()), c.score)
            << c.name;
    }
    T::TempDir dir;
    dir.WriteFile("Card/VIDEO/HVR", "a file, not the folder");
    dir.WriteFile("Card/HVR/07_0001_2008-05-17_153000.M2T", "x");
    ProviderSonyHDV provider;
    for (const char* path : {"Card", "Card/HVR", "Card/VIDEO/HVR"}) {
        DirectoryContents contents(Utf8ToUtf16(In(dir, path)));
        EXPECT_EQ(provider.CanProvideFor(In(dir, path), {}, contents, NeverAbort()), 0) << path;
    }
}

TEST(ProviderSonyHDV, ListsRecordingsWithTheirSidecarsPartsAndTrackTable) {
    T::HostFixture host;
    T::TempDir dir;
    F::SonyHDVRecording split;
    split.parts = 2;
    split.xmp = "<x:xmpmeta xmlns:x='adobe:ns:meta/'/>";
    F::SonyHDVRecording dv;
    dv.stem = "07_0002_2008-05-17_160512";
    dv.extension = "DV";
    dv.index = false;
    F::WriteSonyHDVCard(dir.path() / "Card", {{split, dv}});
    // A third part without its second is no part: the chain of names stops at the gap.
    dir.WriteFile("Card/VIDEO/HVR/07_0002_2008-05-17_160512-02.DV", "x");
    dir.WriteFile("Card/VIDEO/readme.txt", "x");

    ProviderSonyHDV provider;
    const SDKContentMap card =
        provider.GetContent(In(dir, "Card"), {}, {"Name", "Path", "duration"}, nullptr);
    std::vector<std::string> keys;
    for (const auto& [key, record] : card)
        keys.push_back(key);
    const std::string hvr = "Card/VIDEO/HVR/";
    EXPECT_EQ(keys, (std::vector<std::string>{In(dir, hvr + "07_0001_2008-05-17_153000.M2T"),
                                              In(dir, hvr + "07_0002_2008-05-17_160512-02.DV"),
                                              In(dir, hvr + "07_0002_2008-05-17_160512.DV"),
                                              In(dir, "Card/VIDEO/readme.txt")}));
    const SDKPropertyMap& first = card.at(keys[0]);
    EXPECT_EQ(first.at("Name"), any_regular_t(std::u16string(u"07_0001_2008-05-17_153000")));
    any_regular_t::array_t expected;
    for (const char* leaf : {"07_0001_2008-05-17_153000.M2T", "07_0001_2008-05-17_153000.IDX",
                             "07_0001_2008-05-17_153000.XMP", "07_0001_2008-05-17_153000-01.M2T",
                             "07_0001_2008-05-17_153000-01.IDX", "07_0001_2008-05-17_153000-02.M2T",
                             "07_0001_2008-05-17_153000-02.IDX", "Tracks.dat"})
        expected.emplace_back(Utf8ToUtf16(In(dir, hvr + leaf)));
    EXPECT_EQ(first.at("ExtraPath"), any_regular_t(expected));
    EXPECT_EQ(card.at(keys[2]).at("ExtraPath").get_if<any_regular_t::array_t>()->size(), 2u)
        << "the recording and the track table";
    EXPECT_EQ(card.count(In(dir, hvr + "Tracks.dat")), 0u) << "listed with the recordings";
    EXPECT_NE(OwnedPelPix(provider.GetThumbnail(keys[0], {}, {}, 64, 64, nullptr)), nullptr);
}

}  // namespace
}  // namespace Tessel

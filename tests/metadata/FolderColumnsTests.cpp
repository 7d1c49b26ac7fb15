// The folder provider's metadata columns (Media Start, Tape Name, Description, Scene, Shot,
// Log Comment): values from each file's sidecar in the listing, the alternative timecode and
// tape name taking the place of the first when present, and nothing read unless asked for.
#include <tessel/providers/filesystem/WinProviderDirectory.h>

#include <gtest/gtest.h>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>

#include "fixtures/FixtureFiles.h"
#include "fixtures/P2Card.h"
#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using namespace Tessel;
namespace F = Tessel::Fixtures;
using W = WinProviderDirectory;

std::string Text(const SDKPropertyMap& record, const std::string& key) {
    const auto found = record.find(key);
    if (found == record.end())
        return "<absent>";
    const auto* text = found->second.get_if<std::u16string>();
    return text ? Utf16ToUtf8(*text) : "<not text>";
}

TEST(FolderColumns, MetadataFromSidecars) {
    Tessel::Test::TempDir dir;
    F::WriteFile(dir.path() / "a.mov", "a");
    F::WriteFile(dir.path() / "a.xmp",
                 F::XMPPacket({{"xmpDM:startTimecode/xmpDM:timeValue", "01:00:00:00"},
                               {"xmpDM:startTimecode/xmpDM:timeFormat", "25Timecode"},
                               {"xmpDM:altTimecode/xmpDM:timeValue", "02:00:00:00"},
                               {"xmpDM:altTimecode/xmpDM:timeFormat", "25Timecode"},
                               {"xmpDM:tapeName", "Tape 1"},
                               {"dc:description", "Pier"},
                               {"xmpDM:scene", "4"},
                               {"xmpDM:shotName", "Close"},
                               {"xmpDM:logComment", "Gull in frame"}}));
    F::WriteFile(dir.path() / "b.mov", "b");
    F::WriteFile(dir.path() / "B.XMP",
                 F::XMPPacket({{"xmpDM:tapeName", "T2"}, {"xmpDM:altTapeName", "Reel 9"}}));
    F::WriteFile(dir.path() / "c.mov", "c");
    F::MakeFolder(dir.path() / "d");
    F::WriteFile(dir.path() / "d.xmp", F::XMPPacket({{"xmpDM:scene", "folder"}}));
    // A P2 card's clip file in a listing of its VIDEO folder reads the card's metadata.
    F::WriteP2Card(dir.path() / "card");

    WinProviderDirectory provider;
    const char* const metadata[] = {W::kMediaStartField, W::kTapeNameField, W::kDescriptionField,
                                    W::kSceneField,      W::kShotField,     W::kLogCommentField};
    SDKFieldSet columns(std::begin(metadata), std::end(metadata));
    columns.insert(kSDKNameField);
    const SDKContentMap listing = provider.GetContent(dir.longStr(), {}, columns, nullptr);
    const std::string prefix = Path::AddTrailingSeparator(std::string_view(dir.longStr()));
    ASSERT_EQ(listing.size(), 8u);
    // The alternative start replaces the first; without an alternative tape name the first
    // stays.
    const std::vector<std::string> values = {"02:00:00:00", "Tape 1", "Pier",
                                             "4",           "Close",  "Gull in frame"};
    for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_EQ(Text(listing.at(prefix + "a.mov"), metadata[i]), values[i]) << metadata[i];
    const SDKPropertyMap& b = listing.at(prefix + "b.mov");
    EXPECT_EQ(Text(b, W::kTapeNameField) + "|" + Text(b, W::kMediaStartField), "Reel 9|");
    // Files without metadata and folders show the columns empty.
    for (const char* name : {"c.mov", "d", "card"}) {
        for (const char* key : metadata)
            EXPECT_EQ(Text(listing.at(prefix + name), key), "") << name << " " << key;
    }
    // A sidecar shows its own metadata.
    EXPECT_EQ(Text(listing.at(prefix + "a.xmp"), W::kShotField), "Close");

    const std::string video =
        Utf16ToUtf8(Path::ToLongPath((dir.path() / "card" / "CONTENTS" / "VIDEO").u16string()));
    const SDKContentMap clips = provider.GetContent(video, {}, columns, nullptr);
    const std::string clip = Path::AddTrailingSeparator(std::string_view(video)) + "0001AB.MXF";
    ASSERT_TRUE(clips.count(clip));
    EXPECT_EQ(Text(clips.at(clip), W::kMediaStartField), "01:00:00;00");

    // Not asked for, not read.
    const SDKContentMap names = provider.GetContent(dir.longStr(), {}, {kSDKNameField}, nullptr);
    EXPECT_EQ(Text(names.at(prefix + "a.mov"), W::kMediaStartField), "<absent>");
}

}  // namespace

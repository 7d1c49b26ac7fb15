// The frame-folder providers and RED: recognition and the first frame in walk order, the DPX
// header at its bounds, the fields and related files of each kind, and the ranking a user sees.
#include <tessel/providers/cards/ProviderARRIRAW.h>
#include <tessel/providers/cards/ProviderCanonRAW.h>
#include <tessel/providers/cards/ProviderCinemaDNG.h>
#include <tessel/providers/cards/ProviderDPX.h>
#include <tessel/providers/cards/ProviderRED.h>

#include <gtest/gtest.h>

#include <memory>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ProviderHost.h>
#include <tessel/providers/cards/DPXHeader.h>

#include "fixtures/FrameSequences.h"
#include "fixtures/REDCard.h"
#include "support/TempDir.h"
#include "support/TestProvider.h"

namespace Tessel {
namespace {

namespace F = Fixtures;
namespace T = Tessel::Test;

// RELATIVE (with '/') inside DIR, in the native form the library takes.
std::string In(const T::TempDir& dir, std::string relative) {
    for (char& c : relative)
        c = c == '/' ? static_cast<char>(Path::kSeparator) : c;
    return Utf16ToUtf8(dir.longU16()) + static_cast<char>(Path::kSeparator) + relative;
}

std::u16string Text(const SDKPropertyMap& record, const char* field) {
    const auto it = record.find(field);
    const auto* text = it == record.end() ? nullptr : it->second.get_if<std::u16string>();
    return text ? *text : u"(none)";
}

// The leaves of the ExtraPath list, each followed by a space.
std::string Related(const SDKPropertyMap& record) {
    std::string leaves;
    for (const any_regular_t& path : *record.at("ExtraPath").get_if<any_regular_t::array_t>())
        leaves += Utf16ToUtf8(Path::LeafDisplayString(*path.get_if<std::u16string>())) + " ";
    return leaves;
}

TEST(ProviderFileSequence, ClaimsFramesAmongTheFolderOwnFilesAndListsTheFirstInWalkOrder) {
    T::HostFixture host;
    const struct {
        std::vector<const char*> files;
        std::shared_ptr<ProviderFileSequenceBase> provider;
        const char* item;  // null: not claimed
    } cases[] = {
        {{"README.dng.txt"}, std::make_shared<ProviderCinemaDNG>(), nullptr},
        {{"sub/0001.dpx", "notes.txt"}, std::make_shared<ProviderDPX>(), nullptr},
        {{"A001.RMF", "A000.txt"}, std::make_shared<ProviderCanonRAW>(), "A001.RMF"},
        {{"C.0000001.arx", "C.0000002.ari", "B.0000009.arx"},
         std::make_shared<ProviderARRIRAW>(),
         "B.0000009.arx"},
        // Upper-cased order: "A" sorts before "_", though "a" would not.
        {{"_0001.dpx", "a_0002.DPX", "0003.dpx.bak"},
         std::make_shared<ProviderDPX>(),
         "a_0002.DPX"},
        {{".dpx", "x.dpx~", "dpx"}, std::make_shared<ProviderDPX>(), nullptr},
    };
    for (const auto& c : cases) {
        T::TempDir dir;
        for (const char* file : c.files)
            dir.WriteFile(std::string("Clip/") + file, "x");
        DirectoryContents contents(Utf8ToUtf16(In(dir, "Clip")));
        EXPECT_EQ(c.provider->CanProvideFor(In(dir, "Clip"), {}, contents, NeverAbort()),
                  c.item ? 100 : 0)
            << c.files.front();
        const SDKContentMap listing =
            c.provider->GetContent(In(dir, "Clip"), {}, {"Name"}, nullptr);
        ASSERT_EQ(listing.size(), c.item ? 1u : 0u) << c.files.front();
        if (c.item) {
            EXPECT_EQ(Text(listing.begin()->second, "Name"), Utf8ToUtf16(c.item));
        }
    }
}

TEST(ProviderFileSequence, DPXHeaderAtItsBounds) {
    const auto read = [](const std::string& bytes) {
        DPXHeader header;
        const bool ok = ReadDPXHeader(
            {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}, header);
        return std::make_pair(ok, header);
    };
    // Little-endian, with the drop-frame flag (0x40) in the frames byte.
    auto [ok, header] = read(F::DPXHeaderBytes({.bigEndian = false, .timecode = 0x23595963}));
    ASSERT_TRUE(ok && header.timecode);
    EXPECT_TRUE(header.width == 2048 && header.timecode->frames == 23 &&
                header.timecode->dropFrame);
    EXPECT_EQ(header.creationTime, "2014-03-01 10:15:00");
    // Cut in the middle of the time code: what lies before it is read.
    std::tie(ok, header) = read(F::DPXHeaderBytes({}).substr(0, 1922));
    EXPECT_TRUE(ok && header.height == 1556 && !header.timecode && header.frameRate == 24);
    // Rates undefined; a time code whose hours are not decimal digits.
    std::tie(ok, header) =
        read(F::DPXHeaderBytes({.frameRate = 0, .filmFrameRate = 0, .timecode = 0x0A000000}));
    EXPECT_TRUE(ok && header.frameRate == 0 && !header.timecode);
    EXPECT_FALSE(read("XDPS").first);
    EXPECT_FALSE(read("SDP").first);
}

TEST(ProviderFileSequence, FieldsAndRelatedFilesOfEachKind) {
    T::HostFixture host;
    T::TempDir dir;
    // A scan at 23.976 with dropped frames and one frame past its padding, beside another
    // sequence that sorts after it; the sidecar's date wins over the header's.
    F::DPXFrameHeader scanned;
    scanned.frameRate = 23.976f;
    F::WriteFrames(dir.path() / "Scan", {"reel1_", ".dpx", 86398, 30, 7, {86398, 86410}},
                   F::DPXHeaderBytes(scanned));
    F::WriteFrames(dir.path() / "Scan", {"reel1_", ".dpx", 86428, 1, 1, {}}, "");
    F::WriteFrames(dir.path() / "Scan", {"take2_", ".dpx", 1, 200, 7, {}}, "");
    dir.WriteFile("Scan/reel1_0086399.XMP",
                  F::XMPPacket({{"xmp:CreateDate", "2020-01-02T03:04:05"}}));
    const SDKFieldSet all{"Name",  "Path",       "ExtraPath",      "startTimecode",  "duration",
                          "Model", "CreateDate", "videoFrameSize", "videoFrameRate", "shotName"};
    const SDKContentMap scan = ProviderDPX().GetContent(In(dir, "Scan"), {}, all, nullptr);
    ASSERT_EQ(scan.size(), 1u);
    const SDKPropertyMap& item = scan.at(In(dir, "Scan/reel1_0086399.dpx"));
    EXPECT_EQ(Text(item, "startTimecode"), u"01:00:00:00");
    EXPECT_EQ(Text(item, "videoFrameRate"), u"23.976");
    EXPECT_EQ(Text(item, "duration"), u"00:00:01:06") << "30 frames, 86399 to 86428";
    EXPECT_EQ(Text(item, "videoFrameSize"), u"2048 x 1556");
    EXPECT_EQ(Text(item, "Model"), u"Filmscanner 4K");
    EXPECT_EQ(Text(item, "CreateDate"), u"2020-01-02 03:04:05");
    EXPECT_EQ(Related(item), "reel1_0086399.XMP ");

    // CinemaDNG: every frame, then the sound; values from the XMP each frame holds.
    F::WriteCameraClip(dir.path(), F::FrameCamera::CinemaDNG, "A001_C001", 3);
    F::WriteFrames(dir.path() / "A001_C001", {"A001_C001_", ".dng", 0, 1, 6, {}},
                   F::DNGFrameBytes(F::XMPPacket({{"xmpDM:shotName", "Pier"}})));
    const SDKContentMap dng =
        ProviderCinemaDNG().GetContent(In(dir, "A001_C001"), {}, all, nullptr);
    EXPECT_EQ(Related(dng.begin()->second),
              "A001_C001_000000.dng A001_C001_000001.dng A001_C001_000002.dng A001_C001.wav ");
    EXPECT_EQ(Text(dng.begin()->second, "shotName"), u"Pier");
    F::WriteCameraClip(dir.path(), F::FrameCamera::CanonRAW, "B002");
    dir.WriteFile("B002/B002_0000000.xmp", F::XMPPacket({}));
    const SDKContentMap canon = ProviderCanonRAW().GetContent(In(dir, "B002"), {}, all, nullptr);
    EXPECT_EQ(Related(canon.begin()->second), "CLIPINFO.XML HrClip.inf B002.WAV B002_0000000.xmp ");

    // The pictures, never higher than 16 pixels.
    for (const std::shared_ptr<Provider>& provider : std::vector<std::shared_ptr<Provider>>{
             std::make_shared<ProviderDPX>(), std::make_shared<ProviderCinemaDNG>(),
             std::make_shared<ProviderARRIRAW>(), std::make_shared<ProviderCanonRAW>(),
             std::make_shared<ProviderRED>()}) {
        const OwnedPelPix picture(provider->GetThumbnail("x", "", {}, 64, 64, nullptr));
        ASSERT_NE(picture, nullptr) << provider->GetIdentification();
        EXPECT_EQ(pelpixGetHeight(picture.get()), 16u);
    }
}

TEST(ProviderFileSequence, REDClipsAndTheRankingAUserSees) {
    T::HostFixture host(true);
    T::TempDir dir;
    F::WriteREDReel(dir.path(), "A001_0101AB", {{"A001_C002_0101AB", 2}, {"A001_C003_0101AB", 1}});
    dir.WriteFile("A001_0101AB.RDM/A001_C002_0101AB.RDC/A001_C00.RMD", "x");  // a shorter title
    dir.WriteFile("A001_0101AB.RDM/Extra/B_001.R3D", "x");  // no ".rdc", but listed
    dir.WriteFile("Plain/A.RDC/notes.txt", "x");
    dir.WriteFile("Plain/B/A_001.R3D", "x");
    const std::string reelPath = In(dir, "A001_0101AB.RDM");
    const SDKContentMap clips =
        ProviderRED().GetContent(reelPath, {}, {"Name", "ExtraPath"}, nullptr);
    ASSERT_EQ(clips.size(), 3u);
    const SDKPropertyMap& clip =
        clips.at(In(dir, "A001_0101AB.RDM/A001_C002_0101AB.RDC/A001_C002_0101AB_001.R3D"));
    EXPECT_EQ(Related(clip), "A001_C002_0101AB.RMD A001_C002_0101AB_002.R3D ");
    EXPECT_TRUE(clips.count(In(dir, "A001_0101AB.RDM/Extra/B_001.R3D")));

    // What a user sees: the best provider first, ties in registration order.
    dir.WriteFile("Mixed/0001.dpx", "x");
    dir.WriteFile("Mixed/0001.dng", "x");
    // (One card of each kind ranks as the golden output cards-ranked shows.)
    EXPECT_EQ(T::Ranking(In(dir, "Mixed")), "Cinema DNG;DPX;File Directory;");
    EXPECT_EQ(T::Ranking(In(dir, "Plain")), "File Directory;");
}

}  // namespace
}  // namespace Tessel

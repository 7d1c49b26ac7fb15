// Values read through exempi: sidecars, XMP embedded in a JPEG, card clips, malformed and
// hostile input, and reads from several threads at once.
#include <tessel/metadata/XMPValues.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Trace.h>
#include <tessel/foundation/Unicode.h>

#include "fixtures/P2Card.h"
#include "fixtures/XDCAMDisc.h"
#include "support/FileKinds.h"
#include "support/StandardErrorFile.h"
#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using namespace Tessel;
namespace F = Tessel::Fixtures;

// PATH in the form the library takes it (UTF-8; the long-path form on Windows).
std::string LibraryPath(const fs::path& path) {
    return Utf16ToUtf8(Path::ToLongPath(path.u16string()));
}

XMPFieldSet Fields(std::initializer_list<const char*> names) {
    return ParseFields(SDKFieldSet(names.begin(), names.end()));
}

// A text value as UTF-8, "<absent>" or "<not text>" for readable failures.
std::string Text(const SDKPropertyMap& values, const std::string& field) {
    const auto found = values.find(field);
    if (found == values.end())
        return "<absent>";
    const auto* text = found->second.get_if<std::u16string>();
    return text ? Utf16ToUtf8(*text) : "<not text>";
}

// Expects each FIELD, TEXT pair of FIELDS_AND_TEXTS.
void ExpectTexts(const SDKPropertyMap& values, std::initializer_list<const char*> fieldsAndTexts) {
    for (auto it = fieldsAndTexts.begin(); it + 1 < fieldsAndTexts.end(); it += 2)
        EXPECT_EQ(Text(values, it[0]), it[1]) << it[0];
}

// The scene read for the media file at PATH.
std::string Scene(const fs::path& path) {
    return Text(MakeValue(LibraryPath(path), Fields({"scene"})), "scene");
}

// A baseline JPEG's opening with PACKET in its XMP segment (APP1).
std::string JpegWithXmp(const std::string& packet) {
    std::string jpeg{'\xFF', '\xD8', '\xFF', '\xE0', '\x00', '\x10', 'J',
                     'F',    'I',    'F',    '\0',   '\x01', '\x01', '\x00',
                     '\x00', '\x01', '\x00', '\x01', '\x00', '\x00'};
    const std::string signature("http://ns.adobe.com/xap/1.0/", 29);  // with its NUL
    const std::size_t length = 2 + signature.size() + packet.size();
    jpeg += {'\xFF', '\xE1', static_cast<char>(length >> 8), static_cast<char>(length & 0xFF)};
    jpeg += signature + packet;
    jpeg += {'\xFF', '\xD9'};
    return jpeg;
}

const std::string kMediaBytes(256, '\x5A');  // a media file exempi has nothing to say about

TEST(XMPValues, SidecarBesideMedia) {
    Tessel::Test::TempDir dir;
    F::WriteFile(dir.path() / "clip.mov", kMediaBytes);
    F::WriteFile(dir.path() / "clip.xmp",
                 F::XMPPacket({{"xmpDM:scene", "12"},
                               {"dc:creator", "Ana; Ben"},
                               {"xmpDM:good", "True"},
                               {"xmpDM:startTimecode/xmpDM:timeValue", "00;59;59;28"},
                               {"xmpDM:startTimecode/xmpDM:timeFormat", "2997DropTimecode"},
                               {"xmpDM:duration/xmpDM:value", "1800"},
                               {"xmpDM:duration/xmpDM:scale", "1001/30000"},
                               {"xmpDM:videoFrameRate", "29.970030"},
                               {"xmpDM:videoFrameSize/stDim:w", "1920"},
                               {"xmpDM:videoFrameSize/stDim:h", "1080"},
                               {"xmp:CreateDate", "2020-01-02T03:04:05.250+01:00"},
                               {"tiff:Make", "Acme"}}));
    const std::string clip = LibraryPath(dir.path() / "clip.mov");

    const SDKPropertyMap values = MakeValue(
        clip, Fields({"scene", "creator", "good", "startTimecode", "duration", "videoFrameRate",
                      "videoFrameSize", "CreateDate", "tapeName", "Name", "Path"}));
    // 1800 frames in drop frame last 00:01:00;02.
    ExpectTexts(values, {"scene", "12", "creator", "Ana; Ben", "startTimecode", "00:59:59;28",
                         "duration", "00:01:00;02", "videoFrameRate", "29.97", "videoFrameSize",
                         "1920 x 1080", "CreateDate", "2020-01-02 03:04:05"});
    // Fields without a value, and those providers fill, are absent.
    EXPECT_EQ(values.size(), 8u);
    EXPECT_EQ(values.at("good"), any_regular_t(true));

    // Only what is asked for; nothing at all for no XMP field.
    EXPECT_EQ(MakeValue(clip, Fields({"Make"})).size(), 1u);
    EXPECT_TRUE(MakeValue(clip, Fields({"Name", "Path", "ExtraPath"})).empty());

    // The sidecar given is used; an empty one means none (and a .mov says nothing itself).
    F::WriteFile(dir.path() / "other.xmp", F::XMPPacket({{"xmpDM:scene", "99"}}));
    EXPECT_EQ(
        Text(MakeValue(clip, LibraryPath(dir.path() / "other.xmp"), Fields({"scene"})), "scene"),
        "99");
    EXPECT_TRUE(MakeValue(clip, "", Fields({"scene"})).empty());

    // "name.ext.xmp" is not the sidecar convention looked for.
    F::WriteFile(dir.path() / "take.mov", kMediaBytes);
    F::WriteFile(dir.path() / "take.mov.xmp", F::XMPPacket({{"xmpDM:scene", "7"}}));
    EXPECT_EQ(Scene(dir.path() / "take.mov"), "<absent>");
    EXPECT_EQ(SidecarPathFor("/a/b.c/clip.MOV"), "/a/b.c/clip.xmp");
    EXPECT_EQ(SidecarPathFor("/a/b.c/clip"), "/a/b.c/clip.xmp");

    // A folder named like a card's but on no card keeps its sidecars; a sidecar spelled in
    // capitals is found on every platform.
    for (const fs::path& media : {fs::path("Clip") / "cut.mov", fs::path("SHOUT.mov")}) {
        F::WriteFile(dir.path() / media, kMediaBytes);
        const fs::path sidecar =
            fs::path(media).replace_extension(media.filename() == "SHOUT.mov" ? ".XMP" : ".xmp");
        F::WriteFile(dir.path() / sidecar, F::XMPPacket({{"xmpDM:scene", "5"}}));
        EXPECT_EQ(Scene(dir.path() / media), "5") << media;
    }
}

TEST(XMPValues, EmbeddedAndMalformed) {
    Tessel::Test::TempDir dir;
    // What exempi prints about bad input reaches the trace with the file's path, never the
    // process's standard error.
    std::vector<std::string> traced;
    Trace::SetSink([&](std::string_view, std::string_view text) { traced.emplace_back(text); });
    Trace::Enable("XMP");
    Tessel::Test::StandardErrorFile standardError(dir.path() / "stderr.txt");
    const std::string embedded = F::XMPPacket({{"xmpDM:scene", "embedded"}});
    F::WriteFile(dir.path() / "photo.jpg", JpegWithXmp(embedded));
    EXPECT_EQ(Scene(dir.path() / "photo.jpg"), "embedded");

    // A sidecar that is not XMP counts as none: the file's own XMP is read.
    const std::vector<std::string> broken = {
        "", "not xml at all", std::string(1000, '\0'), embedded.substr(0, embedded.size() / 2),
        "<?xml version=\"1.0\"?><!DOCTYPE x [<!ENTITY a \"aaaa\">]><x>&a;</x>"};
    for (const std::string& sidecar : broken) {
        F::WriteFile(dir.path() / "photo.xmp", sidecar);
        EXPECT_EQ(Scene(dir.path() / "photo.jpg"), "embedded") << sidecar;
        EXPECT_TRUE(MakeValueFromPacket(sidecar, Fields({"scene"})).empty());
    }
    // A sidecar that is XMP wins, even when it says nothing.
    F::WriteFile(dir.path() / "photo.xmp", F::XMPPacket({}));
    EXPECT_EQ(Scene(dir.path() / "photo.jpg"), "<absent>");
    fs::remove(dir.path() / "photo.xmp");
    fs::create_directory(dir.path() / "photo.xmp");  // a folder in a sidecar's place
    EXPECT_EQ(Scene(dir.path() / "photo.jpg"), "embedded");

    // Nesting deep enough to exhaust a stack is refused, in a sidecar and in a file.
    std::string deep = F::XMPPacket({{"xmpDM:scene", "x"}});
    std::string nest;
    for (int i = 0; i < 100000; ++i)
        nest += "<a>";
    deep.insert(deep.find("<xmpDM:scene>"), nest);
    EXPECT_TRUE(MakeValueFromPacket(deep, Fields({"scene"})).empty());
    F::WriteFile(dir.path() / "deep.jpg", JpegWithXmp(deep.substr(0, 60000)));
    EXPECT_EQ(Scene(dir.path() / "deep.jpg"), "<absent>");

    // Damaged files of the formats exempi reads, and files that are not there.
    F::WriteFile(dir.path() / "cut.jpg", JpegWithXmp(embedded).substr(0, 40));
    F::WriteFile(dir.path() / "empty.mp4", "");
    F::WriteFile(dir.path() / "noise.png", std::string(4096, '\x89'));
    for (const char* name : {"cut.jpg", "empty.mp4", "noise.png", "missing.jpg"})
        EXPECT_TRUE(MakeValue(LibraryPath(dir.path() / name), Fields({"scene"})).empty()) << name;
    EXPECT_TRUE(MakeValue("", Fields({"scene"})).empty());
#if !defined(_WIN32)
    // Special files, as media or as sidecar, are never opened.
    ASSERT_TRUE(Tessel::Test::MakeFifo(dir.path() / "pipe.mov"));
    ASSERT_TRUE(Tessel::Test::MakeFifo(dir.path() / "pipe.xmp"));
    Tessel::Test::FifoReaderWatch media(dir.path() / "pipe.mov");
    Tessel::Test::FifoReaderWatch sidecar(dir.path() / "pipe.xmp");
    EXPECT_EQ(Scene(dir.path() / "pipe.mov"), "<absent>");
    EXPECT_FALSE(media.Stop());
    EXPECT_FALSE(sidecar.Stop());
#endif

    // Values of odd shapes: a structure where text is expected, an unknown date form, a list
    // holding a structure, a frame size missing its height.
    const SDKPropertyMap odd = MakeValueFromPacket(
        F::XMPPacket({{"xmpDM:scene/xmpDM:inner", "s"},
                      {"xmp:CreateDate", "yesterday"},
                      {"dc:subject", "one; two"},
                      {"xmpDM:videoFrameSize/stDim:w", "720"},
                      {"xmpDM:good", "perhaps"},
                      {"xmpDM:videoFrameRate", "fast"}}),
        Fields({"scene", "CreateDate", "subject", "videoFrameSize", "good", "videoFrameRate"}));
    ExpectTexts(odd, {"scene", "<absent>", "CreateDate", "yesterday", "subject", "one; two",
                      "videoFrameSize", "<absent>", "good", "<absent>", "videoFrameRate", "fast"});

    EXPECT_EQ(standardError.Finish(), "");
    Trace::SetSink({});
    Trace::Disable("XMP");
    for (const std::string& expected :
         {"exempi on " + LibraryPath(dir.path() / "photo.xmp") + ": XML parsing failure",
          "exempi on " + LibraryPath(dir.path() / "cut.jpg") + ": "})
        EXPECT_TRUE(std::any_of(traced.begin(), traced.end(), [&](const std::string& line) {
            return line.starts_with(expected);
        })) << expected;
}

TEST(XMPValues, CardClips) {
    Tessel::Test::TempDir dir;
    // P2: the clip's XML (and its XMP file) through exempi's P2 handler, from any of its files.
    F::P2Clip ntsc;
    ntsc.userClipName = "Interview";
    ntsc.shotMark = true;
    ntsc.xmp = F::XMPPacket({{"dc:description", "From the card"}});
    F::WriteP2Card(dir.path() / "P2", {{ntsc}});
    const fs::path contents = dir.path() / "P2" / "CONTENTS";
    const XMPFieldSet p2Fields =
        Fields({"duration", "startTimecode", "videoFrameRate", "CreateDate", "good", "shotName",
                "identifier", "description"});
    for (const fs::path& file :
         {contents / "VIDEO" / "0001AB.MXF", contents / "CLIP" / "0001AB.XML",
          contents / "AUDIO" / "0001AB01.MXF"}) {
        SCOPED_TRACE(file.string());
        const SDKPropertyMap clip = MakeValue(LibraryPath(file), p2Fields);
        // 250 frames at 29.97.
        ExpectTexts(clip, {"duration", "00:00:08;10", "startTimecode", "01:00:00;00",
                           "videoFrameRate", "59.94i", "CreateDate", "2011-05-20 14:03:09",
                           "shotName", "Interview", "description", "From the card"});
        EXPECT_EQ(Text(clip, "identifier"), F::P2GlobalClipId("0001AB"));
        EXPECT_EQ(clip.at("good"), any_regular_t(true));
    }

    // XDCAM: the clip's non-real-time metadata and the disc's media profile.
    F::XDCAMClip opening;
    opening.title = "Opening";
    F::XDCAMClip pal25;
    pal25.name = "C0002";
    pal25.formatFps = "25p";
    pal25.duration = 250;
    F::WriteXDCAMDisc(dir.path() / "DISC", {{opening, pal25}});
    const XMPFieldSet xdcamFields = Fields({"duration", "videoFrameRate", "title", "CreateDate"});
    // No drop-frame flag on the disc: the duration is counted without.
    ExpectTexts(MakeValue(LibraryPath(dir.path() / "DISC" / "Clip" / "C0001.MXF"), xdcamFields),
                {"videoFrameRate", "59.94i", "duration", "00:00:25:00", "title", "Opening",
                 "CreateDate", "2008-05-12 10:49:30"});
    EXPECT_EQ(
        Text(MakeValue(LibraryPath(dir.path() / "DISC" / "Sub" / "C0002S01.MXF"), xdcamFields),
             "videoFrameRate"),
        "25p");

    // Stream files (.MTS) have no handler in exempi: their sidecars carry the values, and a
    // stream without one has none.
    const fs::path streams = F::MakeFolder(dir.path() / "STREAM");
    F::WriteFile(streams / "00000.MTS", "a stream");
    F::WriteFile(streams / "00001.MTS", "another stream");
    F::WriteFile(streams / "00000.xmp", F::XMPPacket({{"xmpDM:shotDate", "2015-07-04T18:30:00"}}));
    const XMPFieldSet avchdFields = Fields({"shotDate", "duration"});
    ExpectTexts(MakeValue(LibraryPath(streams / "00000.MTS"), avchdFields),
                {"shotDate", "2015-07-04 18:30:00"});
    EXPECT_TRUE(MakeValue(LibraryPath(streams / "00001.MTS"), avchdFields).empty());

    // Reads from several threads at once agree with the one before.
    const std::string card = LibraryPath(contents / "VIDEO" / "0001AB.MXF");
    const std::string stream = LibraryPath(streams / "00000.MTS");
    const SDKPropertyMap cardValues = MakeValue(card, p2Fields);
    const SDKPropertyMap streamValues = MakeValue(stream, avchdFields);
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 25; ++i)
                mismatches += (MakeValue(card, p2Fields) != cardValues) +
                              (MakeValue(stream, avchdFields) != streamValues);
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(mismatches, 0);
}

}  // namespace

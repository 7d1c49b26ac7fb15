// The field table's contract with the providers that use it: the names they ask for by
// spelling, the bits card providers label by number, and parsing of requested names.
#include <tessel/metadata/XMPFields.h>

#include <gtest/gtest.h>

#include <set>
#include <string>

#include <tessel/foundation/Unicode.h>

namespace {

using namespace Tessel;

TEST(XMPFields, TableAndParsing) {
    std::set<std::string> names;
    for (const XMPCrossReferenceEntry& entry : kXMPCrossReference) {
        EXPECT_TRUE(names.insert(entry.name).second) << "twice: " << entry.name;
        const std::string title = entry.title;
        EXPECT_EQ(title.rfind("$$$/", 0), 0u) << entry.name;
        EXPECT_NE(title.find('='), std::string::npos) << entry.name;
        EXPECT_EQ(std::string(entry.nameSpace).empty(), entry.form == XMPValueForm::Record)
            << entry.name;
    }
    EXPECT_EQ(names.size(), kXMPFieldCount);
    EXPECT_EQ(GetXMPFieldNames().size(), kXMPFieldCount);

    // Names other parts of the system ask for, spelled as they ask.
    for (const char* used : {"Name",
                             "Path",
                             "ExtraPath",
                             "CreateDate",
                             "ModifyDate",
                             "duration",
                             "good",
                             "startTimecode",
                             "altTimecode",
                             "videoFrameRate",
                             "videoFrameSize",
                             "audioChannelType",
                             "audioSampleRate",
                             "shotDate",
                             "Make",
                             "Model",
                             "SerialNumber",
                             "shotName",
                             "shotLocation",
                             "creator",
                             "identifier",
                             "tapeName",
                             "altTapeName",
                             "description",
                             "scene",
                             "logComment"}) {
        EXPECT_TRUE(FindXMPField(used)) << used;
    }
    // The card columns labelled by bit, and the card's default columns among them.
    const std::size_t labelled[] = {0,  4,  6, 33, 35, 7, 11, 13, 15, 16, 22, 18,
                                    25, 26, 3, 39, 42, 1, 37, 70, 71, 69, 72, 73};
    const char* expected[] = {"Name",
                              "CreateDate",
                              "ModifyDate",
                              "duration",
                              "good",
                              "startTimecode",
                              "videoFrameRate",
                              "videoFrameSize",
                              "videoCompressor",
                              "videoPixelAspectRatio",
                              "audioSampleRate",
                              "audioSampleType",
                              "shotName",
                              "scene",
                              "title",
                              "creator",
                              "identifier",
                              "Path",
                              "shotLocation",
                              "Make",
                              "Model",
                              "Artist",
                              "SerialNumber",
                              "takeNumber"};
    for (std::size_t i = 0; i < std::size(labelled); ++i)
        EXPECT_STREQ(kXMPCrossReference[labelled[i]].name, expected[i]) << labelled[i];

    const XMPFieldSet parsed =
        ParseFields({"duration", "Name", "nonsense", "DURATION", "", "startTimecode"});
    EXPECT_EQ(parsed.count(), 3u);
    EXPECT_TRUE(parsed.test(33) && parsed.test(0) && parsed.test(7));
    EXPECT_TRUE(ParseFields({}).none());
    EXPECT_FALSE(XMPBackedFields().test(0));
    EXPECT_TRUE(XMPBackedFields().test(33));
    EXPECT_EQ(Utf16ToUtf8(GetXMPFieldTitle(7)), "Media Start");
    EXPECT_TRUE(GetXMPFieldTitle(kXMPFieldCount).empty());
}

}  // namespace

// The field table's contract with the providers that use it: the names they ask for by
// spelling, the bits card providers label by number, and parsing of requested names.
#include <tessel/metadata/XMPFields.h>

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

#include <tessel/foundation/Unicode.h>

namespace {

using namespace Tessel;

TEST(XMPFields, TableAndParsing) {
    std::set<std::string> names;
    for (const XMPCrossReferenceEntry& entry : kXMPCrossReference) {
        EXPECT_TRUE(names.insert(entry.name).second) << "twice: " << entry.name;
        EXPECT_EQ(std::string(entry.nameSpace).empty(), entry.form == XMPValueForm::Record)
            << entry.name;
    }
    EXPECT_EQ(GetXMPFieldNames().size(), names.size());

    // Names other parts of the system ask for, spelled as they ask.
    std::istringstream used(
        "ExtraPath altTimecode audioChannelType shotDate tapeName altTapeName description "
        "logComment");
    for (std::string name; used >> name;)
        EXPECT_TRUE(FindXMPField(name)) << name;
    // The card columns labelled by bit.
    std::istringstream labelled(
        "0 Name 4 CreateDate 6 ModifyDate 33 duration 35 good 7 startTimecode 11 videoFrameRate "
        "13 videoFrameSize 15 videoCompressor 16 videoPixelAspectRatio 22 audioSampleRate "
        "18 audioSampleType 25 shotName 26 scene 3 title 39 creator 42 identifier 1 Path "
        "37 shotLocation 70 Make 71 Model 69 Artist 72 SerialNumber 73 takeNumber");
    std::size_t bit = 0;
    for (std::string name; labelled >> bit >> name;)
        EXPECT_EQ(FindXMPField(name), bit) << name;

    // Names are matched exactly; unknown ones are ignored.
    EXPECT_EQ(ParseFields({"duration", "Name", "nonsense", "DURATION", "", "startTimecode"}),
              XMPFieldSet().set(33).set(0).set(7));
    EXPECT_TRUE(!XMPBackedFields().test(0) && XMPBackedFields().test(33));
    EXPECT_EQ(Utf16ToUtf8(GetXMPFieldTitle(7)), "Media Start");
    EXPECT_TRUE(GetXMPFieldTitle(kXMPFieldCount).empty());
}

}  // namespace

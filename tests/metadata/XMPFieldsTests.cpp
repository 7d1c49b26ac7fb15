// The field table's invariants and the parsing of requested names.
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
        EXPECT_EQ(std::string(entry.nameSpace).empty(), entry.form == XMPValueForm::Record)
            << entry.name;
    }
    EXPECT_EQ(GetXMPFieldNames().size(), names.size());

    // Names are matched exactly; unknown ones are ignored.
    EXPECT_EQ(ParseFields({"duration", "Name", "nonsense", "DURATION", "", "startTimecode"}),
              XMPFieldSet().set(33).set(0).set(7));
    EXPECT_TRUE(!XMPBackedFields().test(0) && XMPBackedFields().test(33));
    EXPECT_EQ(Utf16ToUtf8(GetXMPFieldTitle(7)), "Media Start");
    EXPECT_TRUE(GetXMPFieldTitle(kXMPFieldCount).empty());
}

}  // namespace

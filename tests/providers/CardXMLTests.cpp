// The card providers' XML helpers (lookups, getters and their asymmetries, hostile input,
// serialising) and the card path helpers (JoinPath, the sibling-folder walk).
#include <gtest/gtest.h>

#include <fstream>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/providers/cards/CardPathUtils.h>
#include <tessel/providers/cards/XMLUtils.h>

#include "support/TempDir.h"
#include "support/TestProvider.h"

#if !defined(_WIN32)
#include <sys/stat.h>
#endif

namespace Tessel {
namespace {

namespace X = XMLUtils;
namespace T = Tessel::Test;

// RELATIVE (with '/') inside DIR, in the native form the library takes.
std::string In(const T::TempDir& dir, std::string relative) {
    for (char& c : relative)
        c = c == '/' ? static_cast<char>(Path::kSeparator) : c;
    return Utf16ToUtf8(CardPathUtils::JoinPath(dir.longU16(), Utf8ToUtf16(relative)));
}

TEST(CardXML, LookupsAndGettersKeepTheirAsymmetries) {
    EXPECT_EQ(X::NewXMLParser(), nullptr) << "no parse before the host sets Xerces up";
    T::HostFixture host;
    auto parser = X::NewXMLParser();
    xercesc::DOMDocument* document = nullptr;
    ASSERT_TRUE(X::ParseXMLBytes(*parser,
                                 "<R t='true' b=' true' u='TRUE' one='1'><G><Deep>1</Deep></G>"
                                 "<ClipName>c1</ClipName><N>25p</N><A>abc</A><Neg>-7x</Neg><E/>"
                                 "<S><!--c-->t</S><Rep>1</Rep><x/><Rep>2</Rep></R>",
                                 u"getters", document));
    const xercesc::DOMElement* root = document->getDocumentElement();
    EXPECT_EQ(X::FindChildElement(nullptr, u"R"), nullptr);
    EXPECT_EQ(X::FindChildElement(root, u"Deep"), nullptr) << "grandchildren are not searched";
    EXPECT_EQ(X::FindChildElement(root, u"clipname"), nullptr) << "names match case-sensitively";
    int repeated = 0;
    for (auto* e = X::FindChildElement(root, u"Rep"); e; e = X::FindNextSiblingElement(e, u"Rep"))
        ++repeated;
    EXPECT_EQ(repeated, 2);

    // Numbers: the longest prefix, 0 for no number, the caller's value when absent or empty.
    const struct {
        const char16_t* child;
        std::int32_t expected;
    } numbers[] = {{u"N", 25}, {u"A", 0}, {u"Neg", -7}, {u"Missing", 99}, {u"E", 99}};
    for (const auto& c : numbers) {
        std::int32_t value = 99;
        X::GetChildInt(root, c.child, value);
        EXPECT_EQ(value, c.expected) << Utf16ToUtf8(c.child);
    }
    std::u16string text = u"preset";
    X::GetChildString(root, u"Missing", text);
    EXPECT_EQ(text, u"") << "an absent string reads as empty";
    X::GetChildString(root, u"S", text);
    EXPECT_EQ(text, u"c") << "only the first child node is the text";
    char16_t buffer[3];
    X::GetChildText(root, u"A", buffer);
    EXPECT_EQ(std::u16string(buffer), u"ab") << "cut to the buffer, terminated";

    // Booleans: exactly "true".
    const struct {
        const char16_t* attribute;
        bool expected;
    } flags[] = {{u"t", true}, {u"b", false}, {u"u", false}, {u"one", false}};
    for (const auto& c : flags) {
        bool value = !c.expected;
        X::GetAttributeBool(root, c.attribute, value);
        EXPECT_EQ(value, c.expected) << Utf16ToUtf8(c.attribute);
    }
    bool flag = true;
    X::GetAttributeBool(root, u"missing", flag);
    X::GetChildBool(root, u"Missing", flag);
    EXPECT_TRUE(flag);
    X::GetChildBoolOrFalse(root, u"Missing", flag);
    EXPECT_FALSE(flag);

    std::string written;
    ASSERT_TRUE(X::WriteXMLDocument(document, {}, &written).IsOk());
    EXPECT_NE(written.find("<ClipName>c1</ClipName>"), std::string::npos) << written;
}

TEST(CardXML, HostileFilesAreHarmless) {
    T::HostFixture host;
    T::TempDir dir;
    const std::string secretPath = (dir.path() / "secret.txt").generic_string();
    dir.WriteFile("secret.txt", "SECRET");
    dir.WriteFile("secret.dtd", "<!ENTITY leak 'SECRET'>");
    std::string laughs = "<?xml version='1.0'?><!DOCTYPE r [<!ENTITY l0 'ha'>";
    for (int i = 1; i < 10; ++i) {
        laughs += "<!ENTITY l" + std::to_string(i) + " '";
        for (int k = 0; k < 10; ++k)
            laughs += "&l" + std::to_string(i - 1) + ";";
        laughs += "'>";
    }
    laughs += "]><r>&l9;</r>";
    const struct {
        const char* name;
        std::string content;
    } files[] = {
        {"laughs.xml", laughs},
        {"external.xml",
         "<!DOCTYPE r [<!ENTITY x SYSTEM 'file://" + secretPath + "'>]><r>a&x;b</r>"},
        {"dtd.xml", "<!DOCTYPE r SYSTEM 'secret.dtd'><r>&leak;</r>"},
        {"truncated.xml", "<P2Main><ClipContent><ClipName>0001AB</Clip"},
        {"empty.xml", ""},
        {"", ""},
    };
    // Refused outright, and nothing they name is opened: the bomb, entities and DTDs outside
    // the file, the cut file, nothing at all, a folder.
    for (const auto& file : files) {
        if (*file.name)
            dir.WriteFile(file.name, file.content);
        auto parser = X::NewXMLParser();
        xercesc::DOMDocument* document = nullptr;
        EXPECT_FALSE(X::ParseXMLDocument(*parser, Utf8ToUtf16(In(dir, file.name)), document))
            << file.name;
        EXPECT_EQ(document, nullptr);
    }
#if !defined(_WIN32)
    // A FIFO is never opened: a read would block until someone writes.
    ASSERT_EQ(mkfifo((dir.path() / "fifo.xml").c_str(), 0600), 0);
    auto parser = X::NewXMLParser();
    xercesc::DOMDocument* document = nullptr;
    EXPECT_FALSE(X::ParseXMLDocument(*parser, dir.u16() + u"/fifo.xml", document));
#endif
}

class RecordingVisitor final : public DirVisitor {
public:
    explicit RecordingVisitor(std::size_t stopAfter = 100) : mStopAfter(stopAfter) {}
    bool Visit(const Directory& folder) override {
        visited.push_back(Path::LeafDisplayString(folder.GetFullPath()));
        return visited.size() < mStopAfter;
    }
    std::vector<std::u16string> visited;

private:
    std::size_t mStopAfter;
};

TEST(CardPaths, JoinAndSiblingWalk) {
    const std::u16string s(1, Path::kSeparator);
    EXPECT_EQ(CardPathUtils::JoinPath(u"E:" + s, u"CONTENTS", u"CLIP"),
              u"E:" + s + u"CONTENTS" + s + u"CLIP");
    EXPECT_EQ(CardPathUtils::JoinPath(u"a" + s, s + u"b", u"c", u"D.XML"),
              u"a" + s + u"b" + s + u"c" + s + u"D.XML");

    T::TempDir dir;
    dir.MakeDir("alone/Card");
    RecordingVisitor none;
    CardPathUtils::VisitSiblingDirectories(In(dir, "alone/Card"), none);
    EXPECT_TRUE(none.visited.empty());
    // Walk order is NTFS order whatever the case; the starting folder is left out.
    for (const char* name : {"cards/b", "cards/Card1", "cards/a", "cards/C", "cards/d"})
        dir.MakeDir(name);
    dir.WriteFile("cards/file");
    RecordingVisitor all, firstTwo(2);
    CardPathUtils::VisitSiblingDirectories(In(dir, "cards/Card1"), all);
    CardPathUtils::VisitSiblingDirectories(In(dir, "cards/Card1"), firstTwo);
    EXPECT_EQ(all.visited, (std::vector<std::u16string>{u"a", u"b", u"C", u"d"}));
    EXPECT_EQ(firstTwo.visited, (std::vector<std::u16string>{u"a", u"b"}));
#if !defined(_WIN32)
    // A card that is a volume of its own: the other mounted volumes are its neighbours, a
    // mount point whose folder is gone (an empty slot) is not.
    const std::string base = dir.str();
    dir.MakeDir("media/CARD1");
    dir.MakeDir("media/CARD2");
    std::ofstream(dir.path() / "mountinfo")
        << "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n"
        << "2 1 8:17 / " << base << "/media/CARD1 rw - vfat /dev/sdb1 rw\n"
        << "3 1 8:33 / " << base << "/media/CARD2 rw - vfat /dev/sdc1 rw\n"
        << "4 1 8:49 / " << base << "/media/SLOT rw - vfat /dev/sdd1 rw\n";
    Platform::MountTableFiles table;
    table.mountTable = base + "/mountinfo";
    table.fstab.clear();
    RecordingVisitor volumes;
    CardPathUtils::VisitSiblingDirectories(base + "/media/CARD1", volumes, table);
    EXPECT_EQ(volumes.visited, (std::vector<std::u16string>{u"/", u"CARD2"}));
#endif
}

}  // namespace
}  // namespace Tessel

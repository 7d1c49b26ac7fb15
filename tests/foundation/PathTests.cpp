// Path rules of both platforms (pure functions, tested everywhere) and the native path
// functions against real files.
#include <tessel/foundation/Path.h>
#include <tessel/foundation/PathStyle.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <tessel/foundation/Directory.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/platform/FileSystem.h>

#include "support/FileKinds.h"
#include "support/TempDir.h"

#if defined(_WIN32)
#include <windows.h>
#endif

namespace {

namespace fs = std::filesystem;
using Tessel::Path::PathStyle;
using Tessel::Test::TempDir;
constexpr PathStyle kPosix = PathStyle::Posix;
constexpr PathStyle kWindows = PathStyle::Windows;

// Walks up from PATH until the parent is empty; a rule that ever gave back the same path
// would loop forever, so the walk is bounded.
std::vector<std::u16string> ParentChain(PathStyle style, std::u16string path) {
    std::vector<std::u16string> chain;
    for (int i = 0; i < 100 && !path.empty(); ++i) {
        path = Tessel::Path::GetParent(style, path);
        chain.push_back(path);
    }
    return chain;
}

// RULE applied in STYLE to each input of PAIRS (input, expected, input, expected, ...).
template <typename Rule>
void ExpectRule(const char* name, Rule rule, PathStyle style,
                std::initializer_list<std::u16string_view> pairs) {
    for (auto it = pairs.begin(); it != pairs.end() && it + 1 != pairs.end(); it += 2) {
        EXPECT_EQ(rule(style, *it), it[1]) << name << "(" << (style == kPosix ? "posix" : "windows")
                                           << ", " << Tessel::Utf16ToUtf8(*it) << ")";
    }
}

TEST(PathRules, SeparatorsPartsParentsJoinsAndExtensions) {
    using namespace Tessel::Path;
    using V = std::u16string_view;
    for (V notRoot : {u"", u"//", u"/a", u"a", u"\\", u"C:\\"})
        EXPECT_FALSE(IsRoot(kPosix, notRoot)) << Tessel::Utf16ToUtf8(notRoot);
    const auto add = [](PathStyle s, V p) { return AddTrailingSeparator(s, p); };
    ExpectRule("AddTrailingSeparator", add, kPosix, {u"/a", u"/a/", u"/", u"/", u"", u""});
    ExpectRule("AddTrailingSeparator", add, kWindows, {u"C:\\a", u"C:\\a\\", u"C:/a/", u"C:/a/"});
    const auto strip = [](PathStyle s, V p) { return StripTrailingSeparator(s, p); };
    ExpectRule("StripTrailingSeparator", strip, kPosix,
               {u"/a///", u"/a", u"a/", u"a", u"///", u"/", u"", u""});
    ExpectRule("StripTrailingSeparator", strip, kWindows,
               {u"C:\\a/", u"C:\\a", u"C:\\\\", u"C:\\", u"\\\\?\\UNC\\s\\sh\\\\",
                u"\\\\?\\UNC\\s\\sh\\", u"\\\\s\\sh\\\\", u"\\\\s\\sh\\"});
    // On POSIX a backslash is an ordinary name character.
    const auto leaf = [](PathStyle s, V p) { return GetFilePart(s, p); };
    ExpectRule("GetFilePart", leaf, kPosix,
               {u"/a/b/c.mxf", u"c.mxf", u"/a/b/", u"b", u"c", u"c", u"/", u"", u"//", u"",
                u"/x/a\\b", u"a\\b"});
    ExpectRule("GetFilePart", leaf, kWindows, {u"C:\\a/b\\", u"b", u"\\\\?\\C:\\clip", u"clip"});
    const auto parent = [](PathStyle s, V p) { return GetParent(s, p); };
    ExpectRule(
        "GetParent", parent, kPosix,
        {u"/x/a\\b", u"/x", u"/a/b//", u"/a", u"a//b", u"a", u"//a", u"/", u"/", u"", u"a", u""});
    ExpectRule("GetParent", parent, kWindows,
               {u"C:\\a", u"C:\\", u"C:/a/b", u"C:/a", u"\\\\?\\C:\\a\\b\\", u"\\\\?\\C:\\a",
                u"\\\\?\\UNC\\s\\sh\\a", u"\\\\?\\UNC\\s\\sh\\", u"\\\\s\\sh\\a", u"\\\\s\\sh\\"});
    const auto join = [](PathStyle s, V p) { return Join(s, p, u"/b"); };
    ExpectRule("Join", join, kPosix, {u"/a//", u"/a/b", u"/", u"/b", u"", u"/b"});
    ExpectRule("Join", join, kWindows,
               {u"E:\\", u"E:\\b", u"C:/", u"C:/b", u"C:\\a", u"C:\\a\\b", u"\\\\?\\UNC\\s\\sh\\",
                u"\\\\?\\UNC\\s\\sh\\b"});
    // ASCII letters only are lower-cased; what separates differs by platform.
    const auto extension = [](PathStyle s, V p) { return GetExtensionLower(s, p); };
    // clang-format off
    ExpectRule("GetExtensionLower", extension, kPosix,
               {u"/x/CLIP.MXF", u".mxf",      u"/x/a.b.TXT", u".txt",
                u"/x/clip.MXF/", u".mxf",     u"/x/.profile", u"",
                u"/x/..profile", u".profile", u"/x.d/noext", u"",
                u"/", u"",                    u"/x/A.\u00C9", u".\u00C9",
                u"/x/a.M\xDCFF", u".m\xDCFF", u"/x/a.D\\noext", u".d\\noext"});
    // clang-format on
    ExpectRule("GetExtensionLower", extension, kWindows, {u"C:\\x.d\\noext", u""});
    // Walking up ends at the root and never loops, whatever the path.
    for (const auto& [style, path] :
         {std::pair{kPosix, u"/a/b/c/"}, std::pair{kPosix, u"a/b"},
          std::pair{kWindows, u"\\\\?\\UNC\\s\\sh\\a\\b"}, std::pair{kWindows, u"\\"},
          std::pair{kWindows, u"\\\\s"}, std::pair{kWindows, u"\\\\s\\sh"},
          std::pair{kWindows, u"C:"}, std::pair{kWindows, u"\\\\?\\x"}})
        EXPECT_LT(ParentChain(style, path).size(), 5u) << Tessel::Utf16ToUtf8(path);
    // The UTF-8 forms treat bytes that are not UTF-8 as name bytes like any other.
    EXPECT_EQ(StripTrailingSeparator(kPosix, std::string_view("/a\xff//")), "/a\xff");
    EXPECT_EQ(GetFilePart(kPosix, std::string_view("/\xfe/\xc3\xa9\xff")), "\xc3\xa9\xff");
    EXPECT_EQ(GetParent(kPosix, std::string_view("/\xfe/x")), "/\xfe");
    EXPECT_EQ(Join(kPosix, std::string_view("/\xfe/"), std::string_view("x")), "/\xfe/x");
    EXPECT_EQ(GetExtensionLower(kPosix, std::string_view("/x/a.\xff\xdfZ")), ".\xff\xdfz");
    EXPECT_EQ(Join(kWindows, std::string_view("E:\\"), std::string_view("CLIP")), "E:\\CLIP");
}

TEST(PathRules, ArePathsRelativeNeedsWholeComponents) {
    struct Case {
        PathStyle style;
        std::u16string_view base, candidate;
        const char16_t* relative;  // nullptr: not inside
    };
    // clang-format off
    const Case cases[] = {
        {kPosix, u"/a/b/", u"/a/bc/x", nullptr},  {kPosix, u"/a/b", u"/a/bc", nullptr},
        {kPosix, u"/a/b/", u"/a/B/c", nullptr},   {kPosix, u"/a/b/c", u"/a/b", nullptr},
        {kPosix, u"", u"/a", nullptr},            {kPosix, u"/a/b/", u"/a/b/c/d.mxf", u"c/d.mxf"},
        {kPosix, u"/a/b", u"/a/b/c/", u"c/"},     {kPosix, u"/a/b/", u"/a/b", u""},
        {kPosix, u"/", u"/x", u"x"},              {kPosix, u"/a", u"/a/../b", u"../b"},
        {kWindows, u"C:\\a", u"C:\\a\\b", u"b"},  {kWindows, u"C:\\a", u"C:\\ab", nullptr},
        {kWindows, u"\\\\?\\UNC\\s\\sh\\", u"\\\\?\\UNC\\s\\sh\\x", u"x"}};
    // clang-format on
    for (const Case& c : cases) {
        std::u16string relative = u"untouched";
        EXPECT_EQ(Tessel::Path::ArePathsRelative(c.style, c.base, c.candidate, &relative),
                  c.relative != nullptr)
            << Tessel::Utf16ToUtf8(c.candidate);
        EXPECT_EQ(relative, c.relative ? c.relative : u"untouched");
    }
    EXPECT_TRUE(Tessel::Path::ArePathsRelative(kPosix, u"/a", u"/a/b", nullptr));
}

TEST(WindowsPathRules, RootsOnlyWithTheirSeparator) {
    // clang-format off
    const std::u16string_view roots[] = {
        u"C:\\", u"z:/", u"\\\\?\\C:\\", u"\\\\server\\share\\", u"//server/share/",
        u"\\\\?\\UNC\\server\\share\\", u"\\\\?\\unc\\server\\share\\", u"\\\\?\\Volume{12ab-34cd}\\"};
    const std::u16string_view others[] = {
        u"C:", u"C:\\a", u"1:\\", u"\\\\?\\C:", u"\\\\?\\C:\\a", u"\\\\server\\share",
        u"\\\\server\\share\\x", u"\\\\server\\", u"\\\\\\share\\", u"\\\\?\\UNC\\server\\",
        u"\\\\?\\UNC\\server\\share", u"\\\\?\\UNC\\server\\share\\x", u"\\\\?\\UNC\\",
        u"\\\\?\\Volume{12ab-34cd}", u"\\\\?\\", u"\\\\?\\x\\", u"\\", u"/", u""};
    // clang-format on
    using namespace Tessel::Path;
    for (const std::u16string_view root : roots) {
        const std::string utf8 = Tessel::Utf16ToUtf8(root);
        EXPECT_TRUE(IsRoot(kWindows, root) && IsRoot(kWindows, std::string_view(utf8))) << utf8;
        // A root is its own stripped form and has no leaf or parent.
        EXPECT_EQ(StripTrailingSeparator(kWindows, root), root) << utf8;
        EXPECT_EQ(GetFilePart(kWindows, root) + GetParent(kWindows, root), u"") << utf8;
    }
    for (const std::u16string_view other : others) {
        const std::string utf8 = Tessel::Utf16ToUtf8(other);
        EXPECT_FALSE(IsRoot(kWindows, other) || IsRoot(kWindows, std::string_view(utf8))) << utf8;
    }
}

TEST(PathRules, MakeAbsoluteJoinsTheCurrentDirectoryAndLongFormsResolveDots) {
    using namespace Tessel::Path;
    using V = std::u16string_view;
    // Against "/work/" or "C:\work"; nothing is collapsed.
    const auto absolute = [](PathStyle s, V p) {
        return MakeAbsolute(s, p, s == kPosix ? u"/work/" : u"C:\\work");
    };
    ExpectRule("MakeAbsolute", absolute, kPosix,
               {u"a/b/", u"/work/a/b", u"./x/../y", u"/work/./x/../y", u"/x//", u"/x", u"/", u"/",
                u"", u""});
    ExpectRule("MakeAbsolute", absolute, kWindows,
               {u"a\\..\\b\\", u"C:\\work\\a\\..\\b", u"\\x", u"C:\\x", u"c:x", u"C:\\work\\x",
                u"D:x", u"D:\\x", u"\\\\?\\C:\\x\\", u"\\\\?\\C:\\x", u"\\\\server\\share",
                u"\\\\server\\share", u"C:\\", u"C:\\"});
    EXPECT_EQ(MakeAbsolute(kWindows, u"\\x", u"\\\\?\\UNC\\s\\sh\\dir"), u"\\\\?\\UNC\\s\\sh\\x");
    EXPECT_EQ(MakeAbsolute(kWindows, u"C:x", u"\\\\?\\C:\\work"), u"\\\\?\\C:\\work\\x");
    // Long-path and device forms are taken as they are, dots and all.
    const auto longForm = [](PathStyle s, V p) { return ToLongPath(s, p); };
    // clang-format off
    ExpectRule("ToLongPath", longForm, kWindows,
               {u"C:\\", u"\\\\?\\C:\\",                 u"C:/a/./b/../c", u"\\\\?\\C:\\a\\c",
                u"C:\\..\\..\\x", u"\\\\?\\C:\\x",        u"C:\\a\\\\b\\", u"\\\\?\\C:\\a\\b\\",
                u"//server/share/x", u"\\\\?\\UNC\\server\\share\\x",
                u"\\\\server\\share\\..\\..", u"\\\\?\\UNC\\server\\share\\",
                u"\\\\server\\share", u"\\\\?\\UNC\\server\\share",
                u"\\\\?\\C:\\a\\..", u"\\\\?\\C:\\a\\..", u"\\\\.\\PhysicalDrive0", u"\\\\.\\PhysicalDrive0",
                u"relative\\x", u"relative\\x",          u"C:x", u"C:x",  u"", u""});
    // clang-format on
    ExpectRule("ToLongPath", longForm, kPosix, {u"/a/../b", u"/a/../b", u"C:\\x", u"C:\\x"});
}

#if !defined(_WIN32)

TEST(Path, NativeFormsRoundTripBytesAndMakeAbsoluteUsesTheCurrentDirectory) {
    using namespace Tessel::Path;
    const std::string native = "/t/bad\xff\xc3(.txt";
    const std::u16string wide = FromNative(native);
    EXPECT_EQ(wide, u"/t/bad\xDCFF\xDCC3(.txt");
    EXPECT_EQ(ToNative(wide), native);
    EXPECT_EQ(FromNativeUtf8(native), native);
    const std::pair<std::u16string_view, std::u16string_view> shown[] = {
        {wide, u"bad\uFFFD\uFFFD(.txt"},
        {u"/a/b/", u"b"},
        {u"/", u"/"},
        {u"/a/\U0001F600", u"\U0001F600"}};
    for (const auto& [path, leaf] : shown)
        EXPECT_EQ(LeafDisplayString(path), leaf);

    TempDir dir;
    const fs::path here = fs::canonical(dir.path());
    const fs::path saved = fs::current_path();
    fs::current_path(here);
    const std::u16string base = Tessel::Utf8ToUtf16(here.native());
    EXPECT_EQ(MakeAbsolute(u"x/y/"), base + u"/x/y");
    EXPECT_EQ(MakeAbsolute(u"/abs//"), u"/abs");
    EXPECT_EQ(MakeAbsolute(u""), u"");
    fs::current_path(saved);
}

TEST(Path, ExistenceTestsFollowLinksAndSpecialFilesAreNeitherFileNorDirectory) {
    TempDir dir;
    const fs::path file = dir.WriteFile("file.txt", "x");
    fs::create_directory_symlink(dir.MakeDir("folder"), dir.path() / "link-to-folder");
    fs::create_symlink(dir.path() / "nowhere", dir.path() / "dangling");
    ASSERT_TRUE(Tessel::Test::MakeFifo(dir.path() / "fifo"));
    Tessel::Test::FifoReaderWatch watch(dir.path() / "fifo");
    // Name, and whether it is a file and a directory.
    for (const auto& [name, isFile, isDirectory] :
         {std::tuple{"file.txt", true, false}, std::tuple{"link-to-folder", false, true},
          std::tuple{"dangling", false, false}, std::tuple{"fifo", false, false},
          std::tuple{"missing", false, false}, std::tuple{"file.txt/below", false, false}}) {
        const std::string utf8 = (dir.path() / name).native();
        const std::u16string wide = Tessel::Utf8ToUtf16(utf8);
        EXPECT_EQ(Tessel::Path::FileExists(wide), isFile) << name;
        EXPECT_EQ(Tessel::Path::FileExists(std::string_view(utf8)), isFile) << name;
        EXPECT_EQ(Tessel::Path::DirectoryExists(wide), isDirectory) << name;
        EXPECT_EQ(Tessel::Path::FileOrDirectoryExists(std::string_view(utf8)),
                  isFile || isDirectory)
            << name;
    }
    EXPECT_FALSE(Tessel::Path::FileOrDirectoryExists(u""));
    EXPECT_FALSE(watch.Stop()) << "the FIFO was opened";
}

TEST(FindExistingName, AnswersTheNameAsItIsOnDiskTryingTheExactNameFirst) {
    TempDir dir;
    dir.WriteFile("INDEX.BDM");
    dir.MakeDir("BDMV");
    dir.WriteFile("\xc3\x89T\xc3\x89.txt");  // ÉTÉ.txt
    dir.WriteFile("BAD\xff");
    dir.WriteFile(".Hidden");
    // A case-sensitive disk can hold names that differ only in case.
    for (const char* name : {"clip.mxf", "Clip.MXF", "CLIP.mxf"})
        dir.WriteFile(name);
    const std::u16string base = dir.u16();
    using Tessel::Path::FindExistingName;
    using Tessel::Platform::DirectoryReadCount;
    struct Case {
        std::u16string_view asked;
        std::optional<std::u16string> found;
        int reads;
    };
    // None exact: the first in NTFS order, where upper case precedes lower case.
    // clang-format off
    const Case cases[] = {
        {u"index.bdm", u"INDEX.BDM", 1}, {u"bdmv", u"BDMV", 1}, {u".hidden", u".Hidden", 1},
        {u"\u00E9t\u00E9.TXT", u"\u00C9T\u00C9.txt", 1},  {u"bad\xDCFF", u"BAD\xDCFF", 1},
        {u"index.bdmv", std::nullopt, 1}, {u"", std::nullopt, 0},
        {u"Clip.MXF", u"Clip.MXF", 0}, {u"clip.mxf", u"clip.mxf", 0}, {u"cLIP.MXF", u"CLIP.mxf", 1}};
    // clang-format on
    for (const Case& c : cases) {
        const std::uint64_t before = DirectoryReadCount();
        EXPECT_EQ(FindExistingName(base, c.asked), c.found) << Tessel::Utf16ToUtf8(c.asked);
        EXPECT_EQ(DirectoryReadCount(), before + c.reads) << Tessel::Utf16ToUtf8(c.asked);
        if (c.found) {  // the path built from the answer names the entry
            EXPECT_TRUE(Tessel::Path::FileOrDirectoryExists(Tessel::Path::Join(base, *c.found)));
        }
    }
    EXPECT_EQ(FindExistingName(base + u"/missing", u"index.bdm"), std::nullopt);
    const std::string base8 = dir.str();
    EXPECT_EQ(FindExistingName(std::string_view(base8), "\xc3\xa9t\xc3\xa9.txt"),
              "\xc3\x89T\xc3\x89.txt");
    EXPECT_EQ(FindExistingName(std::string_view(base8), "bad\xff"), "BAD\xff");
    EXPECT_EQ(FindExistingName(std::string_view(base8), "nothing"), std::nullopt);
}

TEST(HiddenFiles, FilterLooksAtTheLeafAndKeepsTheOrder) {
    std::vector<std::u16string> paths = {u"/a/.x", u"/a/b",   u"/.c/d",    u"/a/.y/",
                                         u"/a/e",  u"/a/...", u"/a/f.txt", u"/"};
    Tessel::Path::RemoveHiddenFiles(paths);
    EXPECT_EQ(paths, (std::vector<std::u16string>{u"/a/b", u"/.c/d", u"/a/e", u"/a/f.txt", u"/"}));
    EXPECT_TRUE(Tessel::Path::IsHiddenPath(u"/a/.\xDCFF"));
}

#endif  // !_WIN32

#if defined(_WIN32)

TEST(Path, NativeFunctionsFollowTheWindowsRules) {
    using namespace Tessel::Path;
    EXPECT_TRUE(IsSeparator(u'\\'));
    EXPECT_TRUE(IsSeparator(u'/'));
    EXPECT_TRUE(IsRoot(u"\\\\?\\C:\\"));
    EXPECT_EQ(ToLongPath(u"C:\\x\\..\\y"), u"\\\\?\\C:\\y");
    EXPECT_EQ(GetFilePart(std::string_view("\\\\?\\C:\\a\\b.c")), "b.c");

    // The folder rule takes the system's UNC answer; Wine's PathIsUNCW also calls every
    // "\\?\" path UNC, which must not let "\\?\C:\Media\" through.
    const std::pair<const char*, bool> folders[] = {{"\\\\?\\C:\\Media\\", false},
                                                    {"\\\\?\\C:", false},
                                                    {"\\\\?\\C:\\", true},
                                                    {"\\\\?\\C:\\Media", true},
                                                    {"C:\\Media", false},
                                                    {"\\\\server\\share\\", true},
                                                    {"\\\\?\\UNC\\server\\share", true},
                                                    {"\\\\?\\Volume{1}\\x\\", false}};
    for (const auto& [path, valid] : folders)
        EXPECT_EQ(IsValidDirectoryPath(std::string_view(path)), valid) << path;
}

#endif  // _WIN32

}  // namespace

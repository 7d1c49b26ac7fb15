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

// One rule applied to one input, in either style, in UTF-16 or (for UTF-8 inputs) both.
struct RuleCase {
    PathStyle style;
    std::u16string_view path;
    std::u16string_view expected;
};

template <typename Rule>
void ExpectRule(const char* name, Rule rule, std::initializer_list<RuleCase> cases) {
    for (const RuleCase& c : cases) {
        EXPECT_EQ(rule(c.style, c.path), c.expected)
            << name << "(" << (c.style == kPosix ? "posix" : "windows") << ", "
            << Tessel::Utf16ToUtf8(c.path) << ")";
    }
}

TEST(PathRules, SeparatorsPartsParentsJoinsAndExtensions) {
    using namespace Tessel::Path;
    for (std::u16string_view notRoot : {u"", u"//", u"/a", u"a", u"\\", u"C:\\"})
        EXPECT_FALSE(IsRoot(kPosix, notRoot)) << Tessel::Utf16ToUtf8(notRoot);
    ExpectRule("AddTrailingSeparator",
               [](PathStyle s, std::u16string_view p) { return AddTrailingSeparator(s, p); },
               {{kPosix, u"/a", u"/a/"},
                {kPosix, u"/", u"/"},
                {kPosix, u"", u""},
                {kWindows, u"C:\\a", u"C:\\a\\"},
                {kWindows, u"C:/a/", u"C:/a/"}});
    ExpectRule("StripTrailingSeparator",
               [](PathStyle s, std::u16string_view p) { return StripTrailingSeparator(s, p); },
               {{kPosix, u"/a///", u"/a"},
                {kPosix, u"a/", u"a"},
                {kPosix, u"///", u"/"},
                {kPosix, u"", u""},
                {kWindows, u"C:\\a/", u"C:\\a"},
                {kWindows, u"C:\\\\", u"C:\\"},
                {kWindows, u"\\\\?\\UNC\\s\\sh\\\\", u"\\\\?\\UNC\\s\\sh\\"},
                {kWindows, u"\\\\s\\sh\\\\", u"\\\\s\\sh\\"}});
    ExpectRule("GetFilePart", [](PathStyle s, std::u16string_view p) { return GetFilePart(s, p); },
               {{kPosix, u"/a/b/c.mxf", u"c.mxf"},
                {kPosix, u"/a/b/", u"b"},
                {kPosix, u"c", u"c"},
                {kPosix, u"/", u""},
                {kPosix, u"//", u""},
                // On POSIX a backslash is an ordinary name character.
                {kPosix, u"/x/a\\b", u"a\\b"},
                {kWindows, u"C:\\a/b\\", u"b"},
                {kWindows, u"\\\\?\\C:\\clip", u"clip"}});
    ExpectRule("GetParent", [](PathStyle s, std::u16string_view p) { return GetParent(s, p); },
               {{kPosix, u"/x/a\\b", u"/x"},
                {kPosix, u"/a/b//", u"/a"},
                {kPosix, u"a//b", u"a"},
                {kPosix, u"//a", u"/"},
                {kPosix, u"/", u""},
                {kPosix, u"a", u""},
                {kWindows, u"C:\\a", u"C:\\"},
                {kWindows, u"C:/a/b", u"C:/a"},
                {kWindows, u"\\\\?\\C:\\a\\b\\", u"\\\\?\\C:\\a"},
                {kWindows, u"\\\\?\\UNC\\s\\sh\\a", u"\\\\?\\UNC\\s\\sh\\"},
                {kWindows, u"\\\\s\\sh\\a", u"\\\\s\\sh\\"}});
    ExpectRule("Join", [](PathStyle s, std::u16string_view p) { return Join(s, p, u"/b"); },
               {{kPosix, u"/a//", u"/a/b"},
                {kPosix, u"/", u"/b"},
                {kPosix, u"", u"/b"},
                {kWindows, u"E:\\", u"E:\\b"},
                {kWindows, u"C:/", u"C:/b"},
                {kWindows, u"C:\\a", u"C:\\a\\b"},
                {kWindows, u"\\\\?\\UNC\\s\\sh\\", u"\\\\?\\UNC\\s\\sh\\b"}});
    ExpectRule("GetExtensionLower",
               [](PathStyle s, std::u16string_view p) { return GetExtensionLower(s, p); },
               {{kPosix, u"/x/CLIP.MXF", u".mxf"},
                {kPosix, u"/x/a.b.TXT", u".txt"},
                {kPosix, u"/x/clip.MXF/", u".mxf"},
                {kPosix, u"/x/.profile", u""},
                {kPosix, u"/x/..profile", u".profile"},
                {kPosix, u"/x.d/noext", u""},
                {kPosix, u"/", u""},
                {kPosix, u"/x/A.\u00C9", u".\u00C9"},  // ASCII letters only
                {kPosix, u"/x/a.M\xDCFF", u".m\xDCFF"},
                {kPosix, u"/x/a.D\\noext", u".d\\noext"},
                {kWindows, u"C:\\x.d\\noext", u""}});
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
    const Case cases[] = {{kPosix, u"/a/b/", u"/a/bc/x", nullptr},
                          {kPosix, u"/a/b", u"/a/bc", nullptr},
                          {kPosix, u"/a/b/", u"/a/B/c", nullptr},  // exact
                          {kPosix, u"/a/b/c", u"/a/b", nullptr},
                          {kPosix, u"", u"/a", nullptr},
                          {kPosix, u"/a/b/", u"/a/b/c/d.mxf", u"c/d.mxf"},
                          {kPosix, u"/a/b", u"/a/b/c/", u"c/"},
                          {kPosix, u"/a/b/", u"/a/b", u""},
                          {kPosix, u"/", u"/x", u"x"},
                          {kPosix, u"/a", u"/a/../b", u"../b"},  // ".." is the caller's to reject
                          {kWindows, u"C:\\a", u"C:\\a\\b", u"b"},
                          {kWindows, u"C:\\a", u"C:\\ab", nullptr},
                          {kWindows, u"\\\\?\\UNC\\s\\sh\\", u"\\\\?\\UNC\\s\\sh\\x", u"x"}};
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
    const std::u16string_view roots[] = {u"C:\\",
                                         u"z:/",
                                         u"\\\\?\\C:\\",
                                         u"\\\\server\\share\\",
                                         u"//server/share/",
                                         u"\\\\?\\UNC\\server\\share\\",
                                         u"\\\\?\\unc\\server\\share\\",
                                         u"\\\\?\\Volume{12ab-34cd}\\"};
    const std::u16string_view others[] = {u"C:",
                                          u"C:\\a",
                                          u"1:\\",
                                          u"\\\\?\\C:",
                                          u"\\\\?\\C:\\a",
                                          u"\\\\server\\share",
                                          u"\\\\server\\share\\x",
                                          u"\\\\server\\",
                                          u"\\\\\\share\\",
                                          u"\\\\?\\UNC\\server\\",
                                          u"\\\\?\\UNC\\server\\share",
                                          u"\\\\?\\UNC\\server\\share\\x",
                                          u"\\\\?\\UNC\\",
                                          u"\\\\?\\Volume{12ab-34cd}",
                                          u"\\\\?\\",
                                          u"\\\\?\\x\\",
                                          u"\\",
                                          u"/",
                                          u""};
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

TEST(PathRules, MakeAbsoluteJoinsTheCurrentDirectoryAndCollapsesNothingElse) {
    using Tessel::Path::MakeAbsolute;
    EXPECT_EQ(MakeAbsolute(kPosix, u"a/b/", u"/work"), u"/work/a/b");
    EXPECT_EQ(MakeAbsolute(kPosix, u"./x/../y", u"/work/"), u"/work/./x/../y");
    EXPECT_EQ(MakeAbsolute(kPosix, u"a", u"/"), u"/a");
    EXPECT_EQ(MakeAbsolute(kPosix, u"/x//", u"/work"), u"/x");
    EXPECT_EQ(MakeAbsolute(kPosix, u"/", u"/work"), u"/");
    EXPECT_EQ(MakeAbsolute(kPosix, u"", u"/work"), u"");

    EXPECT_EQ(MakeAbsolute(kWindows, u"clip\\", u"C:\\work"), u"C:\\work\\clip");
    EXPECT_EQ(MakeAbsolute(kWindows, u"a\\..\\b", u"C:\\work"), u"C:\\work\\a\\..\\b");
    EXPECT_EQ(MakeAbsolute(kWindows, u"\\x", u"C:\\work"), u"C:\\x");
    EXPECT_EQ(MakeAbsolute(kWindows, u"\\x", u"\\\\?\\UNC\\s\\sh\\dir"), u"\\\\?\\UNC\\s\\sh\\x");
    EXPECT_EQ(MakeAbsolute(kWindows, u"c:x", u"C:\\work"), u"C:\\work\\x");
    EXPECT_EQ(MakeAbsolute(kWindows, u"D:x", u"C:\\work"), u"D:\\x");
    EXPECT_EQ(MakeAbsolute(kWindows, u"C:x", u"\\\\?\\C:\\work"), u"\\\\?\\C:\\work\\x");
    EXPECT_EQ(MakeAbsolute(kWindows, u"\\\\?\\C:\\x\\", u"D:\\"), u"\\\\?\\C:\\x");
    EXPECT_EQ(MakeAbsolute(kWindows, u"\\\\server\\share", u"D:\\"), u"\\\\server\\share");
    EXPECT_EQ(MakeAbsolute(kWindows, u"C:\\", u"D:\\"), u"C:\\");
}

TEST(PathStyle, LongPathFormsOfDriveAndSharePaths) {
    using Tessel::Path::ToLongPath;
    const std::pair<std::u16string, std::u16string> cases[] = {
        {u"C:\\Media", u"\\\\?\\C:\\Media"},
        {u"C:\\", u"\\\\?\\C:\\"},
        {u"C:/a/./b/../c", u"\\\\?\\C:\\a\\c"},
        {u"C:\\..\\..\\x", u"\\\\?\\C:\\x"},
        {u"C:\\a\\\\b\\", u"\\\\?\\C:\\a\\b\\"},
        {u"\\\\server\\share\\x", u"\\\\?\\UNC\\server\\share\\x"},
        {u"\\\\server\\share\\..\\..", u"\\\\?\\UNC\\server\\share\\"},
        {u"//server/share/x", u"\\\\?\\UNC\\server\\share\\x"},
        {u"\\\\server\\share", u"\\\\?\\UNC\\server\\share"},
        // Long-path and device forms are taken as they are, dots and all.
        {u"\\\\?\\C:\\a\\..", u"\\\\?\\C:\\a\\.."},
        {u"\\\\.\\PhysicalDrive0", u"\\\\.\\PhysicalDrive0"},
        {u"relative\\x", u"relative\\x"},
        {u"C:x", u"C:x"},
        {u"", u""}};
    for (const auto& [path, expected] : cases)
        EXPECT_EQ(ToLongPath(kWindows, path), expected) << Tessel::Utf16ToUtf8(path);
    EXPECT_EQ(ToLongPath(kPosix, u"/a/../b"), u"/a/../b");
    EXPECT_EQ(ToLongPath(kPosix, u"C:\\x"), u"C:\\x");
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
    const fs::path folder = dir.MakeDir("folder");
    fs::create_directory_symlink(folder, dir.path() / "link-to-folder");
    fs::create_symlink(dir.path() / "nowhere", dir.path() / "dangling");
    const fs::path fifo = dir.path() / "fifo";
    ASSERT_TRUE(Tessel::Test::MakeFifo(fifo));
    Tessel::Test::FifoReaderWatch watch(fifo);

    struct Case {
        fs::path path;
        bool file;
        bool directory;
    };
    const Case cases[] = {
        {file, true, false},
        {folder, false, true},
        {dir.path() / "link-to-folder", false, true},
        {dir.path() / "dangling", false, false},
        {fifo, false, false},
        {dir.path() / "missing", false, false},
        {file / "below", false, false},
        {fs::path(), false, false},
    };
    for (const Case& c : cases) {
        const std::string utf8 = c.path.native();
        const std::u16string wide = Tessel::Utf8ToUtf16(utf8);
        EXPECT_EQ(Tessel::Path::FileExists(wide), c.file) << utf8;
        EXPECT_EQ(Tessel::Path::FileExists(std::string_view(utf8)), c.file) << utf8;
        EXPECT_EQ(Tessel::Path::DirectoryExists(wide), c.directory) << utf8;
        EXPECT_EQ(Tessel::Path::DirectoryExists(std::string_view(utf8)), c.directory) << utf8;
        EXPECT_EQ(Tessel::Path::FileOrDirectoryExists(wide), c.file || c.directory) << utf8;
        EXPECT_EQ(Tessel::Path::FileOrDirectoryExists(std::string_view(utf8)),
                  c.file || c.directory)
            << utf8;
    }
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
    const Case cases[] = {
        {u"index.bdm", u"INDEX.BDM", 1},
        {u"bdmv", u"BDMV", 1},
        {u"\u00E9t\u00E9.TXT", u"\u00C9T\u00C9.txt", 1},
        {u"bad\xDCFF", u"BAD\xDCFF", 1},
        {u".hidden", u".Hidden", 1},
        {u"index.bdmv", std::nullopt, 1},
        {u"", std::nullopt, 0},
        {u"Clip.MXF", u"Clip.MXF", 0},
        {u"clip.mxf", u"clip.mxf", 0},
        // None exact: the first in NTFS order, where upper case precedes lower case.
        {u"cLIP.MXF", u"CLIP.mxf", 1}};
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
    EXPECT_EQ(FindExistingName(std::string_view(base8), "\xc3\xa9t\xc3\xa9.txt"), "\xc3\x89T\xc3\x89.txt");
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

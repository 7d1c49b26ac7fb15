// Path rules of both styles (tested on every platform) and native paths against real files.
#include <tessel/foundation/Path.h>
#include <tessel/foundation/PathStyle.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include <tessel/foundation/Unicode.h>
#include <tessel/platform/Counters.h>
#include <tessel/platform/FileSystem.h>

#include "support/FileKinds.h"
#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using Tessel::Path::PathStyle;
using Tessel::Test::TempDir;
constexpr PathStyle kPosix = PathStyle::Posix;
constexpr PathStyle kWindows = PathStyle::Windows;

// RULE in each style applied to each input of the pairs (input, expected, input, ...).
template <typename Rule>
void ExpectRule(const char* name, Rule rule, std::initializer_list<std::u16string_view> posix,
                std::initializer_list<std::u16string_view> windows) {
    for (const auto& [style, pairs] : {std::pair{kPosix, posix}, std::pair{kWindows, windows}}) {
        for (auto it = pairs.begin(); it != pairs.end() && it + 1 != pairs.end(); it += 2)
            EXPECT_EQ(rule(style, *it), it[1])
                << name << (style == kPosix ? " posix " : " win ") << Tessel::Utf16ToUtf8(*it);
    }
}
#define RULE(F) #F, [](PathStyle s, std::u16string_view p) { return Tessel::Path::F(s, p); }

TEST(PathRules, SeparatorsPartsParentsJoinsAndExtensions) {
    using namespace Tessel::Path;
    for (std::u16string_view notRoot : {u"", u"//", u"/a", u"a", u"\\", u"C:\\"})
        EXPECT_FALSE(IsRoot(kPosix, notRoot)) << Tessel::Utf16ToUtf8(notRoot);
    // clang-format off
    ExpectRule(RULE(AddTrailingSeparator), {u"/a", u"/a/", u"/", u"/", u"", u""},
               {u"C:\\a", u"C:\\a\\", u"C:/a/", u"C:/a/"});
    ExpectRule(RULE(StripTrailingSeparator), {u"/a///", u"/a", u"a/", u"a", u"///", u"/", u"", u""},
               {u"C:\\a/", u"C:\\a", u"C:\\\\", u"C:\\", u"\\\\?\\UNC\\s\\sh\\\\",
                u"\\\\?\\UNC\\s\\sh\\", u"\\\\s\\sh\\\\", u"\\\\s\\sh\\"});
    // On POSIX a backslash is an ordinary name character.
    ExpectRule(RULE(GetFilePart), {u"/a/b/c.mxf", u"c.mxf", u"/a/b/", u"b", u"c", u"c", u"/", u"",
                u"//", u"", u"/x/a\\b", u"a\\b"},
               {u"C:\\a/b\\", u"b", u"\\\\?\\C:\\clip", u"clip"});
    ExpectRule(RULE(GetParent), {u"/x/a\\b", u"/x", u"/a/b//", u"/a", u"a//b", u"a", u"//a", u"/",
                u"/", u"", u"a", u""},
               {u"C:\\a", u"C:\\", u"C:/a/b", u"C:/a", u"\\\\?\\C:\\a\\b\\", u"\\\\?\\C:\\a",
                u"\\\\?\\UNC\\s\\sh\\a", u"\\\\?\\UNC\\s\\sh\\", u"\\\\s\\sh\\a", u"\\\\s\\sh\\"});
    const auto join = [](PathStyle s, std::u16string_view p) { return Join(s, p, u"/b"); };
    ExpectRule("Join", join, {u"/a//", u"/a/b", u"/", u"/b", u"", u"/b"},
               {u"E:\\", u"E:\\b", u"C:/", u"C:/b", u"C:\\a", u"C:\\a\\b", u"\\\\?\\UNC\\s\\sh\\",
                u"\\\\?\\UNC\\s\\sh\\b"});
    // ASCII letters only are lower-cased; what separates differs by platform.
    ExpectRule(RULE(GetExtensionLower),
               {u"/x/CLIP.MXF", u".mxf", u"/x/a.b.TXT", u".txt", u"/x/clip.MXF/", u".mxf",
                u"/x/.profile", u"", u"/x/..profile", u".profile", u"/x.d/noext", u"", u"/", u"",
                u"/x/A.\u00C9", u".\u00C9", u"/x/a.M\xDCFF", u".m\xDCFF", u"/x/a.D\\noext",
                u".d\\noext"},
               {u"C:\\x.d\\noext", u""});
    // clang-format on
    // Walking up ends at the root within a few steps, never looping, whatever the path.
    for (const auto& [style, path] : {std::pair{kPosix, u"/a/b/c/"},
                                      {kPosix, u"a/b"},
                                      {kWindows, u"\\\\?\\UNC\\s\\sh\\a\\b"},
                                      {kWindows, u"\\"},
                                      {kWindows, u"\\\\s"},
                                      {kWindows, u"\\\\s\\sh"},
                                      {kWindows, u"C:"},
                                      {kWindows, u"\\\\?\\x"}}) {
        std::u16string up = path;
        for (int step = 0; step < 4 && !up.empty(); ++step)
            up = GetParent(style, up);
        EXPECT_EQ(up, u"") << Tessel::Utf16ToUtf8(path);
    }
    // The UTF-8 forms treat bytes that are not UTF-8 as name bytes like any other.
    EXPECT_EQ(StripTrailingSeparator(kPosix, std::string_view("/a\xff//")), "/a\xff");
    EXPECT_EQ(GetFilePart(kPosix, std::string_view("/\xfe/\xc3\xa9\xff")), "\xc3\xa9\xff");
    EXPECT_EQ(GetParent(kPosix, std::string_view("/\xfe/x")), "/\xfe");
    EXPECT_EQ(Join(kPosix, std::string_view("/\xfe/"), std::string_view("x")), "/\xfe/x");
    EXPECT_EQ(GetExtensionLower(kPosix, std::string_view("/x/a.\xff\xdfZ")), ".\xff\xdfz");
    EXPECT_EQ(Join(kWindows, std::string_view("E:\\"), std::string_view("CLIP")), "E:\\CLIP");
}

TEST(PathRules, ArePathsRelativeNeedsWholeComponents) {
    // clang-format off
    const struct { PathStyle style; std::u16string_view base, candidate; const char16_t* relative; } cases[] = {
        {kPosix, u"/a/b/", u"/a/bc/x", nullptr},  {kPosix, u"/a/b", u"/a/bc", nullptr},
        {kPosix, u"/a/b/", u"/a/B/c", nullptr},   {kPosix, u"/a/b/c", u"/a/b", nullptr},
        {kPosix, u"", u"/a", nullptr},            {kPosix, u"/a/b/", u"/a/b/c/d.mxf", u"c/d.mxf"},
        {kPosix, u"/a/b", u"/a/b/c/", u"c/"},     {kPosix, u"/a/b/", u"/a/b", u""},
        {kPosix, u"/", u"/x", u"x"},              {kPosix, u"/a", u"/a/../b", u"../b"},
        {kWindows, u"C:\\a", u"C:\\a\\b", u"b"},  {kWindows, u"C:\\a", u"C:\\ab", nullptr},
        {kWindows, u"\\\\?\\UNC\\s\\sh\\", u"\\\\?\\UNC\\s\\sh\\x", u"x"}};
    // clang-format on
    for (const auto& c : cases) {  // a null relative: not inside
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
    // A root is its own stripped form and has no leaf or parent.
    for (const std::u16string_view root : roots) {
        const std::string utf8 = Tessel::Utf16ToUtf8(root);
        EXPECT_TRUE(IsRoot(kWindows, root) && IsRoot(kWindows, std::string_view(utf8))) << utf8;
        EXPECT_EQ(StripTrailingSeparator(kWindows, root), root) << utf8;
        EXPECT_EQ(GetFilePart(kWindows, root) + GetParent(kWindows, root), u"") << utf8;
    }
    for (const std::u16string_view other : others)
        EXPECT_FALSE(IsRoot(kWindows, other) || IsRoot(kWindows, Tessel::Utf16ToUtf8(other)))
            << Tessel::Utf16ToUtf8(other);
}

TEST(PathRules, MakeAbsoluteJoinsTheCurrentDirectoryAndLongFormsResolveDots) {
    using namespace Tessel::Path;
    // Against "/work/" or "C:\work"; nothing is collapsed.
    const auto absolute = [](PathStyle s, std::u16string_view p) {
        return MakeAbsolute(s, p, s == kPosix ? u"/work/" : u"C:\\work");
    };
    // clang-format off
    ExpectRule("MakeAbsolute", absolute,
               {u"a/b/", u"/work/a/b", u"./x/../y", u"/work/./x/../y", u"/x//", u"/x", u"/", u"/",
                u"", u""},
               {u"a\\..\\b\\", u"C:\\work\\a\\..\\b", u"\\x", u"C:\\x", u"c:x", u"C:\\work\\x",
                u"D:x", u"D:\\x", u"\\\\?\\C:\\x\\", u"\\\\?\\C:\\x", u"\\\\server\\share",
                u"\\\\server\\share", u"C:\\", u"C:\\"});
    EXPECT_EQ(MakeAbsolute(kWindows, u"\\x", u"\\\\?\\UNC\\s\\sh\\dir"), u"\\\\?\\UNC\\s\\sh\\x");
    EXPECT_EQ(MakeAbsolute(kWindows, u"C:x", u"\\\\?\\C:\\work"), u"\\\\?\\C:\\work\\x");
    // Long-path and device forms are taken as they are, dots and all.
    ExpectRule(RULE(ToLongPath), {u"/a/../b", u"/a/../b", u"C:\\x", u"C:\\x"},
               {u"C:\\", u"\\\\?\\C:\\",                 u"C:/a/./b/../c", u"\\\\?\\C:\\a\\c",
                u"C:\\..\\..\\x", u"\\\\?\\C:\\x",        u"C:\\a\\\\b\\", u"\\\\?\\C:\\a\\b\\",
                u"//server/share/x", u"\\\\?\\UNC\\server\\share\\x",
                u"\\\\server\\share\\..\\..", u"\\\\?\\UNC\\server\\share\\",
                u"\\\\server\\share", u"\\\\?\\UNC\\server\\share",
                u"\\\\?\\C:\\a\\..", u"\\\\?\\C:\\a\\..", u"\\\\.\\PhysicalDrive0", u"\\\\.\\PhysicalDrive0",
                u"relative\\x", u"relative\\x",          u"C:x", u"C:x",  u"", u""});
    // clang-format on
}

#if !defined(_WIN32)

TEST(Path, NativeFormsRoundTripBytesAndMakeAbsoluteUsesTheCurrentDirectory) {
    using namespace Tessel::Path;
    const std::string native = "/t/bad\xff\xc3(.txt";
    const std::u16string wide = FromNative(native);
    EXPECT_EQ(wide, u"/t/bad\xDCFF\xDCC3(.txt");
    EXPECT_EQ(ToNative(wide), native);
    EXPECT_EQ(FromNativeUtf8(native), native);
    for (const auto& [path, leaf] :
         {std::pair<std::u16string_view, std::u16string_view>{wide, u"bad\uFFFD\uFFFD(.txt"},
          {u"/a/b/", u"b"},
          {u"/", u"/"},
          {u"/a/\U0001F600", u"\U0001F600"}})
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
    dir.MakeDir("BDMV");
    // ÉTÉ.txt, and names a case-sensitive disk can hold that differ only in case.
    for (const char* name : {"INDEX.BDM", "\xc3\x89T\xc3\x89.txt", "BAD\xff", ".Hidden", "clip.mxf",
                             "Clip.MXF", "CLIP.mxf"})
        dir.WriteFile(name);
    const std::u16string base = dir.u16();
    using Tessel::Path::FindExistingName;
    using Tessel::Platform::DirectoryReadCount;
    // Asked, found and directory reads. None exact: the first in NTFS order, where upper case
    // precedes lower case.
    // clang-format off
    const struct { std::u16string_view asked; std::optional<std::u16string> found; int reads; } cases[] = {
        {u"index.bdm", u"INDEX.BDM", 1}, {u"bdmv", u"BDMV", 1}, {u".hidden", u".Hidden", 1},
        {u"\u00E9t\u00E9.TXT", u"\u00C9T\u00C9.txt", 1},  {u"bad\xDCFF", u"BAD\xDCFF", 1},
        {u"index.bdmv", std::nullopt, 1}, {u"", std::nullopt, 0},
        {u"Clip.MXF", u"Clip.MXF", 0}, {u"clip.mxf", u"clip.mxf", 0}, {u"cLIP.MXF", u"CLIP.mxf", 1}};
    // clang-format on
    for (const auto& c : cases) {
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
    EXPECT_TRUE(IsRoot(u"\\\\?\\C:\\"));
    EXPECT_EQ(ToLongPath(u"C:\\x\\..\\y"), u"\\\\?\\C:\\y");
    EXPECT_EQ(GetFilePart(std::string_view("\\\\?\\C:\\a\\b.c")), "b.c");

    // The folder rule takes the system's UNC answer; Wine's PathIsUNCW also calls every
    // "\\?\" path UNC, which must not let "\\?\C:\Media\" through.
    // clang-format off
    const std::pair<const char*, bool> folders[] = {{"\\\\?\\C:\\Media\\", false}, {"\\\\?\\C:", false},
        {"\\\\?\\C:\\", true}, {"\\\\?\\C:\\Media", true}, {"C:\\Media", false},
        {"\\\\server\\share\\", true}, {"\\\\?\\UNC\\server\\share", true}, {"\\\\?\\Volume{1}\\x\\", false}};
    // clang-format on
    for (const auto& [path, valid] : folders)
        EXPECT_EQ(IsValidDirectoryPath(std::string_view(path)), valid) << path;
}

#endif  // _WIN32

}  // namespace

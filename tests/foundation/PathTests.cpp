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

TEST(PosixPathRules, SeparatorsRootsPartsAndParents) {
    using namespace Tessel::Path;
    EXPECT_TRUE(IsRoot(kPosix, u"/"));
    for (std::u16string_view notRoot : {u"", u"//", u"/a", u"a", u"\\", u"C:\\"}) {
        EXPECT_FALSE(IsRoot(kPosix, notRoot)) << Tessel::Utf16ToUtf8(notRoot);
    }

    EXPECT_EQ(AddTrailingSeparator(kPosix, u"/a"), u"/a/");
    EXPECT_EQ(AddTrailingSeparator(kPosix, u"/a/"), u"/a/");
    EXPECT_EQ(AddTrailingSeparator(kPosix, u"/"), u"/");
    EXPECT_EQ(AddTrailingSeparator(kPosix, u""), u"");
    EXPECT_EQ(StripTrailingSeparator(kPosix, u"/a///"), u"/a");
    EXPECT_EQ(StripTrailingSeparator(kPosix, u"a/"), u"a");
    EXPECT_EQ(StripTrailingSeparator(kPosix, u"/"), u"/");
    EXPECT_EQ(StripTrailingSeparator(kPosix, u"///"), u"/");
    EXPECT_EQ(StripTrailingSeparator(kPosix, u""), u"");

    EXPECT_EQ(GetFilePart(kPosix, u"/a/b/c.mxf"), u"c.mxf");
    EXPECT_EQ(GetFilePart(kPosix, u"/a/b/"), u"b");
    EXPECT_EQ(GetFilePart(kPosix, u"c"), u"c");
    EXPECT_EQ(GetFilePart(kPosix, u"/"), u"");
    EXPECT_EQ(GetFilePart(kPosix, u"//"), u"");
    // On POSIX a backslash is an ordinary name character.
    EXPECT_EQ(GetFilePart(kPosix, u"/x/a\\b"), u"a\\b");
    EXPECT_EQ(GetParent(kPosix, u"/x/a\\b"), u"/x");

    EXPECT_EQ(GetParent(kPosix, u"/a/b/c.mxf"), u"/a/b");
    EXPECT_EQ(GetParent(kPosix, u"/a/b//"), u"/a");
    EXPECT_EQ(GetParent(kPosix, u"a//b"), u"a");
    EXPECT_EQ(GetParent(kPosix, u"/a"), u"/");
    EXPECT_EQ(GetParent(kPosix, u"//a"), u"/");
    EXPECT_EQ(GetParent(kPosix, u"/"), u"");
    EXPECT_EQ(GetParent(kPosix, u"a"), u"");
    EXPECT_EQ(ParentChain(kPosix, u"/a/b/c/"),
              (std::vector<std::u16string>{u"/a/b", u"/a", u"/", u""}));
    EXPECT_EQ(ParentChain(kPosix, u"a/b"), (std::vector<std::u16string>{u"a", u""}));

    EXPECT_EQ(Join(kPosix, u"/a", u"b"), u"/a/b");
    EXPECT_EQ(Join(kPosix, u"/a//", u"/b"), u"/a/b");
    EXPECT_EQ(Join(kPosix, u"/", u"b"), u"/b");
    EXPECT_EQ(Join(kPosix, u"", u"b"), u"b");

    // The UTF-8 forms treat bytes that are not UTF-8 as name bytes like any other.
    EXPECT_EQ(StripTrailingSeparator(kPosix, std::string_view("/a\xff//")), "/a\xff");
    EXPECT_EQ(GetFilePart(kPosix, std::string_view("/\xfe/\xc3\xa9\xff")), "\xc3\xa9\xff");
    EXPECT_EQ(GetParent(kPosix, std::string_view("/\xfe/x")), "/\xfe");
    EXPECT_EQ(Join(kPosix, std::string_view("/\xfe/"), std::string_view("x")), "/\xfe/x");
    EXPECT_EQ(AddTrailingSeparator(kPosix, std::string_view("/\xfe")), "/\xfe/");
}

TEST(PathRules, ExtensionIsTheLeafsLastDotLowerCasedInAscii) {
    using Tessel::Path::GetExtensionLower;
    EXPECT_EQ(GetExtensionLower(kPosix, u"/x/CLIP.MXF"), u".mxf");
    EXPECT_EQ(GetExtensionLower(kPosix, u"/x/a.b.TXT"), u".txt");
    EXPECT_EQ(GetExtensionLower(kPosix, u"/x/clip.MXF/"), u".mxf");
    EXPECT_EQ(GetExtensionLower(kPosix, u"/x/.profile"), u"");
    EXPECT_EQ(GetExtensionLower(kPosix, u"/x/..profile"), u".profile");
    EXPECT_EQ(GetExtensionLower(kPosix, u"/x/noext"), u"");
    EXPECT_EQ(GetExtensionLower(kPosix, u"/x.d/noext"), u"");
    EXPECT_EQ(GetExtensionLower(kPosix, u"/"), u"");
    EXPECT_EQ(GetExtensionLower(kPosix, u"/x/A.\u00C9"), u".\u00C9");  // ASCII letters only
    EXPECT_EQ(GetExtensionLower(kPosix, u"/x/a.M\xDCFF"), u".m\xDCFF");
    // Bytes above 0x7F, valid or not, are never touched.
    EXPECT_EQ(GetExtensionLower(kPosix, std::string_view("/x/A.\xc3\x89X")), ".\xc3\x89x");
    EXPECT_EQ(GetExtensionLower(kPosix, std::string_view("/x/a.\xff\xdfZ")), ".\xff\xdfz");
    // What separates differs by platform.
    EXPECT_EQ(GetExtensionLower(kWindows, u"C:\\x.d\\noext"), u"");
    EXPECT_EQ(GetExtensionLower(kPosix, u"/x/a.D\\noext"), u".d\\noext");
    EXPECT_EQ(GetExtensionLower(kWindows, std::string_view("C:\\X.MXF")), ".mxf");
}

TEST(PathRules, ArePathsRelativeNeedsWholeComponents) {
    using Tessel::Path::ArePathsRelative;
    std::u16string relative = u"untouched";
    EXPECT_FALSE(ArePathsRelative(kPosix, u"/a/b/", u"/a/bc/x", &relative));
    EXPECT_FALSE(ArePathsRelative(kPosix, u"/a/b", u"/a/bc", &relative));
    EXPECT_FALSE(ArePathsRelative(kPosix, u"/a/b/", u"/a/B/c", &relative));  // exact
    EXPECT_FALSE(ArePathsRelative(kPosix, u"/a/b/c", u"/a/b", &relative));
    EXPECT_FALSE(ArePathsRelative(kPosix, u"", u"/a", &relative));
    EXPECT_EQ(relative, u"untouched");

    EXPECT_TRUE(ArePathsRelative(kPosix, u"/a/b/", u"/a/b/c/d.mxf", &relative));
    EXPECT_EQ(relative, u"c/d.mxf");
    EXPECT_TRUE(ArePathsRelative(kPosix, u"/a/b", u"/a/b/c/", &relative));
    EXPECT_EQ(relative, u"c/");
    EXPECT_TRUE(ArePathsRelative(kPosix, u"/a/b/", u"/a/b", &relative));
    EXPECT_EQ(relative, u"");
    EXPECT_TRUE(ArePathsRelative(kPosix, u"/", u"/x", &relative));
    EXPECT_EQ(relative, u"x");
    // ".." is passed through for the caller to reject.
    EXPECT_TRUE(ArePathsRelative(kPosix, u"/a", u"/a/../b", &relative));
    EXPECT_EQ(relative, u"../b");
    EXPECT_TRUE(ArePathsRelative(kPosix, u"/a", u"/a/b", nullptr));

    EXPECT_TRUE(ArePathsRelative(kWindows, u"C:\\a", u"C:\\a\\b", &relative));
    EXPECT_EQ(relative, u"b");
    EXPECT_FALSE(ArePathsRelative(kWindows, u"C:\\a", u"C:\\ab", &relative));
    EXPECT_TRUE(
        ArePathsRelative(kWindows, u"\\\\?\\UNC\\s\\sh\\", u"\\\\?\\UNC\\s\\sh\\x", &relative));
    EXPECT_EQ(relative, u"x");
}

TEST(WindowsPathRules, RootsOnlyWithTheirSeparator) {
    struct Case {
        std::u16string_view path;
        bool root;
    };
    const Case cases[] = {
        {u"C:\\", true},
        {u"z:/", true},
        {u"C:", false},
        {u"C:\\a", false},
        {u"1:\\", false},
        {u"\\\\?\\C:\\", true},
        {u"\\\\?\\C:", false},
        {u"\\\\?\\C:\\a", false},
        {u"\\\\server\\share\\", true},
        {u"//server/share/", true},
        {u"\\\\server\\share", false},
        {u"\\\\server\\share\\x", false},
        {u"\\\\server\\", false},
        {u"\\\\\\share\\", false},
        {u"\\\\?\\UNC\\server\\share\\", true},
        {u"\\\\?\\unc\\server\\share\\", true},
        {u"\\\\?\\UNC\\server\\", false},
        {u"\\\\?\\UNC\\server\\share", false},
        {u"\\\\?\\UNC\\server\\share\\x", false},
        {u"\\\\?\\UNC\\", false},
        {u"\\\\?\\Volume{12ab-34cd}\\", true},
        {u"\\\\?\\Volume{12ab-34cd}", false},
        {u"\\\\?\\", false},
        {u"\\\\?\\x\\", false},
        {u"\\", false},
        {u"/", false},
        {u"", false},
    };
    for (const Case& c : cases) {
        const std::string utf8 = Tessel::Utf16ToUtf8(c.path);
        EXPECT_EQ(Tessel::Path::IsRoot(kWindows, c.path), c.root) << utf8;
        EXPECT_EQ(Tessel::Path::IsRoot(kWindows, std::string_view(utf8)), c.root) << utf8;
        // A root is its own stripped form and has no leaf or parent.
        if (c.root) {
            EXPECT_EQ(Tessel::Path::StripTrailingSeparator(kWindows, c.path), c.path);
            EXPECT_EQ(Tessel::Path::GetFilePart(kWindows, c.path), u"") << utf8;
            EXPECT_EQ(Tessel::Path::GetParent(kWindows, c.path), u"") << utf8;
        }
    }
}

TEST(WindowsPathRules, StripParentsFilePartsAndJoins) {
    using namespace Tessel::Path;
    EXPECT_EQ(StripTrailingSeparator(kWindows, u"C:\\a\\\\"), u"C:\\a");
    EXPECT_EQ(StripTrailingSeparator(kWindows, u"C:\\a/"), u"C:\\a");
    EXPECT_EQ(StripTrailingSeparator(kWindows, u"C:\\\\"), u"C:\\");
    EXPECT_EQ(StripTrailingSeparator(kWindows, u"\\\\?\\UNC\\s\\sh\\\\"), u"\\\\?\\UNC\\s\\sh\\");
    EXPECT_EQ(StripTrailingSeparator(kWindows, u"\\\\s\\sh\\\\"), u"\\\\s\\sh\\");
    EXPECT_EQ(AddTrailingSeparator(kWindows, u"C:\\a"), u"C:\\a\\");
    EXPECT_EQ(AddTrailingSeparator(kWindows, u"C:/a/"), u"C:/a/");

    EXPECT_EQ(GetFilePart(kWindows, u"C:\\a\\b.MXF"), u"b.MXF");
    EXPECT_EQ(GetFilePart(kWindows, u"C:\\a/b\\"), u"b");
    EXPECT_EQ(GetFilePart(kWindows, u"\\\\?\\C:\\clip"), u"clip");
    EXPECT_EQ(GetParent(kWindows, u"C:\\a"), u"C:\\");
    EXPECT_EQ(GetParent(kWindows, u"C:/a/b"), u"C:/a");
    EXPECT_EQ(GetParent(kWindows, u"\\\\?\\C:\\a\\b\\"), u"\\\\?\\C:\\a");
    EXPECT_EQ(ParentChain(kWindows, u"\\\\?\\UNC\\s\\sh\\a\\b"),
              (std::vector<std::u16string>{u"\\\\?\\UNC\\s\\sh\\a", u"\\\\?\\UNC\\s\\sh\\", u""}));
    EXPECT_EQ(ParentChain(kWindows, u"\\\\s\\sh\\a"),
              (std::vector<std::u16string>{u"\\\\s\\sh\\", u""}));
    // Walking up never loops, whatever the path.
    for (std::u16string_view odd : {u"\\", u"\\\\", u"\\\\s", u"\\\\s\\sh", u"C:", u"\\\\?\\x"}) {
        EXPECT_LT(ParentChain(kWindows, std::u16string(odd)).size(), 5u)
            << Tessel::Utf16ToUtf8(odd);
    }

    // No doubled separator after a drive, a share or a component.
    EXPECT_EQ(Join(kWindows, u"E:\\", u"CONTENTS"), u"E:\\CONTENTS");
    EXPECT_EQ(Join(kWindows, u"C:/", u"x"), u"C:/x");
    EXPECT_EQ(Join(kWindows, u"C:\\a", u"\\b"), u"C:\\a\\b");
    EXPECT_EQ(Join(kWindows, u"\\\\?\\UNC\\s\\sh\\", u"a"), u"\\\\?\\UNC\\s\\sh\\a");
    EXPECT_EQ(Join(kWindows, std::string_view("E:\\"), std::string_view("CLIP")), "E:\\CLIP");
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

// Restores the working directory a test moves away from.
class WorkingDirectoryGuard {
public:
    WorkingDirectoryGuard() : mSaved(fs::current_path()) {}
    ~WorkingDirectoryGuard() { fs::current_path(mSaved); }

private:
    fs::path mSaved;
};

TEST(Path, NativeFunctionsFollowThePosixRules) {
    using namespace Tessel::Path;
    EXPECT_TRUE(IsSeparator(u'/'));
    EXPECT_FALSE(IsSeparator(u'\\'));
    EXPECT_TRUE(IsRoot(u"/"));
    EXPECT_FALSE(IsRoot(u"C:\\"));
    EXPECT_EQ(AddTrailingSeparator(std::string_view("/a")), "/a/");
    EXPECT_EQ(StripTrailingSeparator(std::u16string_view(u"/a//")), u"/a");
    EXPECT_EQ(GetFilePart(std::string_view("/a/b.c")), "b.c");
    EXPECT_EQ(GetParent(std::u16string_view(u"/a/b")), u"/a");
    EXPECT_EQ(Join(std::string_view("/a/"), std::string_view("b")), "/a/b");
    EXPECT_EQ(GetExtensionLower(std::string_view("/a/B.MXF")), ".mxf");

    std::u16string relative;
    EXPECT_FALSE(ArePathsRelative(u"/a/b/", u"/a/bc/", &relative));
    EXPECT_TRUE(ArePathsRelative(u"/a/b/", u"/a/b/c", &relative));
    EXPECT_EQ(relative, u"c");

    TempDir dir;
    const fs::path here = fs::canonical(dir.path());
    WorkingDirectoryGuard guard;
    fs::current_path(here);
    const std::u16string base = Tessel::Utf8ToUtf16(here.native());
    EXPECT_EQ(MakeAbsolute(u"x/y/"), base + u"/x/y");
    EXPECT_EQ(MakeAbsolute(u"."), base + u"/.");
    EXPECT_EQ(MakeAbsolute(u"/abs//"), u"/abs");
    EXPECT_EQ(MakeAbsolute(u""), u"");
}

TEST(Path, InvalidBytesRoundTripAndShowAsReplacementCharacters) {
    using namespace Tessel::Path;
    const std::string native = "/t/bad\xff\xc3(.txt";
    const std::u16string wide = FromNative(native);
    EXPECT_EQ(wide, u"/t/bad\xDCFF\xDCC3(.txt");
    EXPECT_EQ(ToNative(wide), native);
    EXPECT_EQ(ToNative(std::string_view(native)), native);
    EXPECT_EQ(FromNativeUtf8(native), native);
    EXPECT_EQ(LeafDisplayString(wide), u"bad\uFFFD\uFFFD(.txt");
    EXPECT_EQ(LeafDisplayString(u"/a/b/"), u"b");
    EXPECT_EQ(LeafDisplayString(u"/"), u"/");
    EXPECT_EQ(LeafDisplayString(u"/a/\U0001F600"), u"\U0001F600");
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

TEST(FindExistingName, AnswersTheNameAsItIsOnDisk) {
    TempDir dir;
    dir.WriteFile("INDEX.BDM");
    dir.MakeDir("BDMV");
    dir.WriteFile("\xc3\x89T\xc3\x89.txt");  // ÉTÉ.txt
    dir.WriteFile("BAD\xff");
    dir.WriteFile(".Hidden");
    const std::u16string base = dir.u16();
    const std::string base8 = dir.str();

    using Tessel::Path::FindExistingName;
    EXPECT_EQ(FindExistingName(base, u"index.bdm"), u"INDEX.BDM");
    EXPECT_EQ(FindExistingName(base, u"bdmv"), u"BDMV");
    EXPECT_EQ(FindExistingName(base, u"\u00E9t\u00E9.TXT"), u"\u00C9T\u00C9.txt");
    EXPECT_EQ(FindExistingName(base, u"bad\xDCFF"), u"BAD\xDCFF");
    EXPECT_EQ(FindExistingName(base, u".hidden"), u".Hidden");
    EXPECT_EQ(FindExistingName(base, u"index.bdmv"), std::nullopt);
    EXPECT_EQ(FindExistingName(base, u"index"), std::nullopt);
    EXPECT_EQ(FindExistingName(base, u""), std::nullopt);
    EXPECT_EQ(FindExistingName(base + u"/missing", u"index.bdm"), std::nullopt);

    // The path built from the answer names the file.
    const std::optional<std::u16string> found = FindExistingName(base, u"bad\xDCFF");
    ASSERT_TRUE(found);
    EXPECT_TRUE(Tessel::Path::FileExists(Tessel::Path::Join(base, *found)));

    EXPECT_EQ(FindExistingName(std::string_view(base8), "index.bdm"), "INDEX.BDM");
    EXPECT_EQ(FindExistingName(std::string_view(base8), "\xc3\xa9t\xc3\xa9.txt"),
              "\xc3\x89T\xc3\x89.txt");
    EXPECT_EQ(FindExistingName(std::string_view(base8), "bad\xff"), "BAD\xff");
    EXPECT_EQ(FindExistingName(std::string_view(base8), "nothing"), std::nullopt);
}

TEST(FindExistingName, TriesTheExactNameBeforeReadingTheDirectory) {
    TempDir dir;
    // A case-sensitive disk can hold names that differ only in case.
    dir.WriteFile("clip.mxf");
    dir.WriteFile("Clip.MXF");
    dir.WriteFile("CLIP.mxf");
    const std::u16string base = dir.u16();
    using Tessel::Path::FindExistingName;
    using Tessel::Platform::DirectoryReadCount;

    std::uint64_t before = DirectoryReadCount();
    EXPECT_EQ(FindExistingName(base, u"Clip.MXF"), u"Clip.MXF");
    EXPECT_EQ(FindExistingName(base, u"clip.mxf"), u"clip.mxf");
    EXPECT_EQ(FindExistingName(std::string_view(dir.str()), "CLIP.mxf"), "CLIP.mxf");
    EXPECT_EQ(DirectoryReadCount(), before);

    // None exact: the first in NTFS order, where upper case precedes lower case.
    before = DirectoryReadCount();
    EXPECT_EQ(FindExistingName(base, u"cLIP.MXF"), u"CLIP.mxf");
    EXPECT_EQ(DirectoryReadCount(), before + 1);
    EXPECT_EQ(FindExistingName(base, u"nothing"), std::nullopt);
    EXPECT_EQ(DirectoryReadCount(), before + 2);
}

TEST(HiddenFiles, FilterLooksAtTheLeafAndKeepsTheOrder) {
    std::vector<std::u16string> paths = {u"/a/.x", u"/a/b",   u"/.c/d",    u"/a/.y/",
                                         u"/a/e",  u"/a/...", u"/a/f.txt", u"/"};
    Tessel::Path::RemoveHiddenFiles(paths);
    EXPECT_EQ(paths, (std::vector<std::u16string>{u"/a/b", u"/.c/d", u"/a/e", u"/a/f.txt", u"/"}));
    EXPECT_TRUE(Tessel::Path::IsHiddenPath(u"/a/.\xDCFF"));
}

TEST(Path, FourThousandBytePathsWork) {
    TempDir dir;
    fs::path deep = dir.path();
    char letter = 'a';
    while (deep.native().size() < 3800)
        deep /= std::string(100, letter++);
    // Make the file's path at least 4,000 bytes, still below the system's 4,096 limit.
    deep /= std::string(4000 - deep.native().size() - 1 - 8, 'z');
    fs::create_directories(deep);
    {
        std::ofstream out(deep / "Clip.MXF");
        out << "x";
    }
    const std::u16string folder = Tessel::Utf8ToUtf16(deep.native());

    std::vector<std::u16string> files;
    std::vector<Tessel::Directory> directories;
    ASSERT_TRUE(
        Tessel::Directory(folder).GetContainedFileAndDirectoryPaths(files, directories, {}));
    ASSERT_EQ(files.size(), 1u);
    EXPECT_GE(files[0].size(), 4000u);
    EXPECT_EQ(files[0], Tessel::Path::Join(folder, u"Clip.MXF"));
    EXPECT_TRUE(Tessel::Path::FileExists(files[0]));
    EXPECT_EQ(Tessel::Path::FindExistingName(folder, u"CLIP.mxf"), u"Clip.MXF");
    EXPECT_EQ(Tessel::Path::GetExtensionLower(files[0]), u".mxf");
    EXPECT_EQ(Tessel::Path::MakeAbsolute(files[0] + u"/"), files[0]);

    std::u16string relative;
    ASSERT_TRUE(Tessel::Path::ArePathsRelative(dir.u16(), files[0], &relative));
    EXPECT_EQ(dir.u16() + u"/" + relative, files[0]);
    std::u16string up = files[0];
    int levels = 0;
    while (up != dir.u16() && !up.empty()) {
        up = Tessel::Path::GetParent(up);
        ++levels;
    }
    EXPECT_EQ(up, dir.u16());
    EXPECT_EQ(levels, static_cast<int>(std::distance(deep.begin(), deep.end()) -
                                       std::distance(dir.path().begin(), dir.path().end())) +
                          1);
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

    // The long-path form opens what the short form cannot.
    TempDir dir;
    std::u16string deep = dir.longU16();
    while (deep.size() < 400) {
        deep = Join(deep, std::u16string(50, u'd'));
        ASSERT_TRUE(CreateDirectoryW(reinterpret_cast<const wchar_t*>(deep.c_str()), nullptr));
    }
    EXPECT_TRUE(DirectoryExists(deep));
    EXPECT_TRUE(DirectoryExists(Tessel::Utf16ToUtf8(deep)));
    EXPECT_FALSE(FileExists(deep));
    EXPECT_FALSE(DirectoryExists(Join(deep, u"missing")));
    while (deep.size() > dir.longU16().size()) {
        EXPECT_TRUE(RemoveDirectoryW(reinterpret_cast<const wchar_t*>(deep.c_str())));
        deep = GetParent(deep);
    }
}

#endif  // _WIN32

}  // namespace

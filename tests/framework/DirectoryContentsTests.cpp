// The once-read directory snapshot shared by one ranking pass.
#include <gtest/gtest.h>

#include <tessel/foundation/Unicode.h>
#include <tessel/framework/DirectoryContents.h>
#include <tessel/platform/FileSystem.h>

#include "support/TempDir.h"

namespace Tessel {
namespace {

std::vector<std::string> Leaves(const std::vector<std::u16string>& paths) {
    std::vector<std::string> out;
    for (const auto& p : paths)
        out.push_back(Utf16ToUtf8(p.substr(p.find_last_of(u"/\\") + 1)));
    return out;
}

TEST(DirectoryContents, InvalidAndVirtualPathsNeverTouchTheDisk) {
    const auto before = Platform::DirectoryReadCount();
    DirectoryContents empty(u"");
    EXPECT_FALSE(empty.PathIsValid());
    EXPECT_FALSE(empty.IsDirectory());
    EXPECT_TRUE(empty.GetPathList({}).empty());

    DirectoryContents productions(u"frserver://productions");
    EXPECT_TRUE(productions.PathIsValid());
    EXPECT_FALSE(productions.IsDirectory());
    EXPECT_TRUE(productions.GetFileList({}).empty());
    EXPECT_EQ(Platform::DirectoryReadCount(), before);

    Tessel::Test::TempDir dir;
    const auto file = dir.WriteFile("clip.mxf", "x");
    DirectoryContents ofFile(Utf8ToUtf16(file.string()));
    EXPECT_TRUE(ofFile.PathIsValid());
    EXPECT_FALSE(ofFile.IsDirectory());
    EXPECT_TRUE(ofFile.GetDirectoryList({}).empty());
    EXPECT_EQ(Platform::DirectoryReadCount(), before);
}

TEST(DirectoryContents, ReadsOnceAndKeepsHiddenFoldersButNotHiddenFiles) {
    Tessel::Test::TempDir dir;
    dir.WriteFile("b.mxf");
    dir.WriteFile("A.xml");
    dir.WriteFile(".hidden");
    dir.MakeDir("CONTENTS");
    dir.MakeDir(".git");
    DirectoryContents contents(dir.u16());
    EXPECT_TRUE(contents.IsDirectory());
    const auto before = Platform::DirectoryReadCount();
    EXPECT_EQ(Leaves(contents.GetFileList({})), (std::vector<std::string>{"A.xml", "b.mxf"}));
    std::vector<std::string> dirs;
    for (const auto& d : contents.GetDirectoryList({}))
        dirs.push_back(Utf16ToUtf8(d.GetFullPath()));
    EXPECT_EQ(dirs.size(), 2u);  // ".git" stays: only files are filtered
    EXPECT_EQ(Leaves(contents.GetPathList({})),
              (std::vector<std::string>{"A.xml", "b.mxf", ".git", "CONTENTS"}));
    EXPECT_EQ(Platform::DirectoryReadCount(), before + 1);

    // A copy carries the lists and does not read again.
    DirectoryContents copy = contents;
    EXPECT_EQ(copy.GetFileList({}).size(), 2u);
    EXPECT_EQ(Platform::DirectoryReadCount(), before + 1);
}

TEST(DirectoryContents, TheFirstCallersAbortGovernsTheOnlyWalk) {
    Tessel::Test::TempDir dir;
    for (int i = 0; i < 20; ++i)
        dir.WriteFile("f" + std::to_string(100 + i));
    DirectoryContents contents(dir.u16());
    int asked = 0;
    const auto partial = contents.GetFileList([&] { return ++asked > 5; });
    EXPECT_LT(partial.size(), 20u);
    // Later callers see exactly what the aborted walk found, even without an abort.
    EXPECT_EQ(contents.GetFileList({}), partial);
    EXPECT_EQ(contents.GetPathList({}).size(), partial.size());
}

}  // namespace
}  // namespace Tessel

// The once-read directory snapshot shared by one ranking pass.
#include <gtest/gtest.h>

#include <filesystem>

#include <tessel/foundation/Unicode.h>
#include <tessel/framework/ContentRecord.h>
#include <tessel/framework/DirectoryContents.h>
#include <tessel/platform/Counters.h>
#include <tessel/platform/FileSystem.h>

#include "support/TempDir.h"

namespace Tessel {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> Leaves(const std::vector<std::u16string>& paths) {
    std::vector<std::string> out;
    for (const auto& p : paths)
        out.push_back(Utf16ToUtf8(p.substr(p.find_last_of(u"/\\") + 1)));
    return out;
}

TEST(DirectoryContents, InvalidVirtualAndListPathsNeverTouchTheDisk) {
    Tessel::Test::TempDir dir;
    const auto file = dir.WriteFile("clip.mxf", "x");
    // Folders named like the list paths in the current directory must not be taken for them.
    const fs::path saved = fs::current_path();
    fs::current_path(dir.path());
    std::vector<std::u16string> paths{u"", u"frserver://productions", Utf8ToUtf16(file.string())};
    for (const std::u16string* list :
         {&kVolumeListPath, &kNetworkVolumeListPath, &kFavoritesListPath, &kCloudSyncListPath}) {
#if !defined(_WIN32)
        fs::create_directory(dir.path() / Utf16ToUtf8(*list));
#endif
        paths.push_back(*list);
    }
    const auto before = Platform::DirectoryReadCount();
    for (const std::u16string& path : paths) {
        DirectoryContents contents(path);
        EXPECT_EQ(contents.PathIsValid(), !path.empty());
        EXPECT_FALSE(contents.IsDirectory()) << Utf16ToUtf8(path);
        EXPECT_TRUE(contents.GetPathList({}).empty());
        EXPECT_TRUE(contents.GetDirectoryList({}).empty());
    }
    EXPECT_EQ(Platform::DirectoryReadCount(), before);
    fs::current_path(saved);
}

TEST(DirectoryContents, ReadsOnceKeepsHiddenFoldersButNotHiddenFilesAndCopiesDoNotRead) {
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
    EXPECT_EQ(contents.GetDirectoryList({}).size(), 2u);  // ".git" stays: only files are filtered
    EXPECT_EQ(Leaves(contents.GetPathList({})),
              (std::vector<std::string>{"A.xml", "b.mxf", ".git", "CONTENTS"}));
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
    EXPECT_EQ(partial.size(), 5u);
    // Later callers see exactly what the aborted walk found, even without an abort.
    EXPECT_EQ(contents.GetFileList({}), partial);
    EXPECT_EQ(contents.GetPathList({}).size(), partial.size());
}

}  // namespace
}  // namespace Tessel

// Directory walks against real folders: order, kinds, encodings, aborts, limits, failures.
#include <tessel/foundation/Directory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include <tessel/foundation/Path.h>
#include <tessel/foundation/Unicode.h>
#include <tessel/platform/Counters.h>
#include <tessel/platform/FileSystem.h>

#include "support/DeepTree.h"
#include "support/FileKinds.h"
#include "support/TempDir.h"

#if !defined(_WIN32)
#include <unistd.h>
#endif

namespace {

namespace fs = std::filesystem;
using Tessel::Directory;
using Tessel::Test::TempDir;

struct Listing {
    Tessel::Status status;
    std::vector<std::u16string> files;  // leaf names
    std::vector<std::u16string> directories;
    std::vector<Directory> directoryObjects;
};

Listing List(const std::u16string& path, const Tessel::AbortPredicate& abort = {}, int limit = -1) {
    Listing listing;
    std::vector<std::u16string> files{u"stale"};  // replaced, not added to
    listing.status = Directory(path).GetContainedFileAndDirectoryPaths(
        files, listing.directoryObjects, abort, limit);
    for (const std::u16string& file : files) {
        EXPECT_EQ(Tessel::Path::GetParent(file), Tessel::Path::StripTrailingSeparator(path));
        listing.files.push_back(Tessel::Path::GetFilePart(file));
    }
    for (const Directory& directory : listing.directoryObjects)
        listing.directories.push_back(Tessel::Path::GetFilePart(directory.GetFullPath()));
    return listing;
}

TEST(DirectoryWalk, ReturnsNtfsOrderNotByteOrCaseFoldedOrder) {
    // Upper-casing puts "Z~" (5A) before "_x" (5F), which lower-casing would reverse, and
    // "é.txt" before "Éa.txt", which code-unit order would reverse. U+1F600 is D83D DE00 in
    // UTF-16 and so precedes U+FF01, the reverse of their UTF-8 byte order.
    // clang-format off
    const std::vector<std::u16string> names = {u"b", u"A", u"a", u"B", u"_x", u"Z~", u"\u00E9.txt",
        u"\u00C9a.txt", u"\U0001F600.txt", u"\uFF01.txt", u"~"};
    std::vector<std::u16string> expected = {u"A", u"a", u"B", u"b", u"Z~", u"_x", u"~",
        u"\u00E9.txt", u"\u00C9a.txt", u"\U0001F600.txt", u"\uFF01.txt"};
    // clang-format on
    std::vector<std::u16string> sorted = names;
    Tessel::SortNtfsOrder(sorted);
    EXPECT_EQ(sorted, expected);

    TempDir dir;
    for (const std::u16string& name : names) {
        std::ofstream(dir.path() / fs::path(name)) << "x";
        fs::create_directory(dir.path() / fs::path(u"d" + name));
    }
    if (std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()) !=
        2 * static_cast<std::ptrdiff_t>(names.size())) {
        // A file system that ignores case (Windows) kept the first of each pair, "b" and "A".
        std::erase_if(expected,
                      [](const std::u16string& name) { return name == u"a" || name == u"B"; });
    }
    const Listing listing = List(dir.u16());
    ASSERT_TRUE(listing.status.IsOk());
    EXPECT_EQ(listing.files, expected);
    for (std::u16string& name : expected)
        name = u"d" + name;
    EXPECT_EQ(listing.directories, expected);
    EXPECT_EQ(Directory(dir.u16()).GetSubDirectories(), listing.directoryObjects);
}

TEST(SortNtfsOrder, AgreesWithThePairwiseOrderOnALargeList) {
    // Code units chosen to sit on both sides of each other after upper-casing.
    const std::u16string_view alphabet =
        u"aAbZ_~.0\u00E9\u00C9\u00FF\u0178\uFF01\uFF41\uFF21\xDCFF\xDC80";
    std::mt19937 random(12345);
    std::vector<std::u16string> names(100000);
    for (std::u16string& name : names) {
        for (int j = 1 + static_cast<int>(random() % 6); j > 0; --j)
            name += random() % 8 ? alphabet.substr(random() % alphabet.size(), 1) : u"\U0001F600";
    }
    std::vector<std::u16string> sorted = names;
    Tessel::SortNtfsOrder(sorted);
    const std::vector<std::size_t> order = Tessel::NtfsOrderOf(names);
    ASSERT_EQ(order.size(), names.size());
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        ASSERT_EQ(names[order[i]], sorted[i]) << i;
        const int byKey = i ? Tessel::CompareNtfsOrder(sorted[i - 1], sorted[i]) : -1;
        // Names equal but for case come in a fixed order, whatever order they were read in.
        ASSERT_TRUE(byKey < 0 || (byKey == 0 && sorted[i - 1] <= sorted[i])) << i;
    }
    std::sort(names.begin(), names.end());
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, names);  // nothing lost or duplicated
}

TEST(DirectoryWalk, AbortAndLimitKeepWhatWasReadSortedInOneReadEach) {
    TempDir dir;
    for (int i = 0; i < 20; ++i)
        dir.WriteFile("f" + std::to_string(100 + i));
    dir.MakeDir("sub");
    // Questions answered "go on", the limit, and how many entries come back.
    // clang-format off
    for (const auto& [allowed, limit, read] : {std::tuple{5, -1, 5u}, {0, -1, 0u}, {100, 7, 7u},
             {100, 0, 0u}, {100, 1000, 21u}, {100, -1, 21u}, {3, 10, 3u}, {10, 2, 2u}}) {
        // clang-format on
        int calls = 0;
        const std::uint64_t before = Tessel::Platform::DirectoryReadCount();
        const Listing listing = List(
            dir.u16(), [&] { return ++calls > allowed; }, limit);
        EXPECT_EQ(Tessel::Platform::DirectoryReadCount(), before + 1);
        EXPECT_TRUE(listing.status.IsOk());
        EXPECT_EQ(listing.files.size() + listing.directories.size(), read)
            << allowed << " " << limit;
        EXPECT_TRUE(std::is_sorted(listing.files.begin(), listing.files.end()));
    }
}

TEST(DirectoryWalk, TreesDeeperThanThePathLimitAreWalkedToTheBottom) {
    TempDir dir;
    const Tessel::Test::DeepTree tree(dir.longStr());
    tree.Add("Clip.MXF");
    // Down from the top, one level at a time, as the media browser goes.
    Directory level(dir.longU16());
    for (int depth = 0; depth < Tessel::Test::DeepTree::kLevels; ++depth) {
        const Listing listing = List(level.GetFullPath());
        ASSERT_TRUE(listing.status.IsOk()) << depth << ": " << listing.status.Message();
        ASSERT_EQ(listing.directoryObjects.size(), 1u) << depth;
        level = listing.directoryObjects[0];
        EXPECT_TRUE(level.Exists()) << depth;
    }
    EXPECT_EQ(Tessel::Utf16ToUtf8(level.GetFullPath()), tree.Path());
    EXPECT_EQ(List(level.GetFullPath()).files, std::vector<std::u16string>{u"Clip.MXF"});
    const std::u16string clip = Tessel::Path::Join(level.GetFullPath(), u"Clip.MXF");
    EXPECT_GT(clip.size(), Tessel::Test::DeepTree::kLimit);
    EXPECT_TRUE(Tessel::Path::FileExists(clip));
    EXPECT_EQ(Tessel::Path::FindExistingName(level.GetFullPath(), u"Clip.MXF"), u"Clip.MXF");
}

TEST(DirectoryWalk, WhatCannotBeReadSaysWhyAndListsNothing) {
    TempDir dir;
    dir.WriteFile("file.txt");
    const std::u16string missing = Tessel::Path::Join(dir.u16(), u"missing");
    const std::u16string file = Tessel::Path::Join(dir.u16(), u"file.txt");
    for (const std::u16string& path : {missing, file, std::u16string()}) {
        const Listing listing = List(path);
        EXPECT_EQ(listing.status.Code(), Tessel::StatusCode::kNotFound);
        EXPECT_TRUE(listing.files.empty() && listing.directories.empty());
        EXPECT_TRUE(Directory(path).GetSubDirectories().empty());
        EXPECT_FALSE(Directory(path).Exists());
    }
    EXPECT_TRUE(Directory(dir.u16() + u"/").Exists());
    EXPECT_EQ(List(missing).status.Message(),
              "cannot read " + Tessel::Utf16ToUtf8(missing) + ": No such file or directory");
#if !defined(_WIN32)
    if (geteuid() == 0)
        return;  // root bypasses permission bits
    const fs::path denied = dir.MakeDir("denied");
    dir.WriteFile("denied/inside");
    fs::permissions(denied, fs::perms::none);
    const Listing listing = List(Tessel::Utf8ToUtf16(denied.native()));
    EXPECT_EQ(listing.status.Message(), "cannot read " + denied.native() + ": Permission denied");
    EXPECT_TRUE(listing.files.empty());
    EXPECT_TRUE(Directory(Tessel::Utf8ToUtf16(denied.native())).Exists());
#endif
}

#if !defined(_WIN32)

TEST(DirectoryWalk, OnlyFilesAndFoldersAreListedAndNothingIsOpened) {
    TempDir dir;
    for (const char* name : {"file.txt", ".hidden"})
        dir.WriteFile(name, "x");
    for (const char* name : {"folder", ".hidden-folder"})
        dir.MakeDir(name);
    fs::create_symlink("file.txt", dir.path() / "link-to-file");
    fs::create_directory_symlink("folder", dir.path() / "link-to-folder");
    fs::create_symlink("nowhere", dir.path() / "dangling");
    const fs::path fifo = dir.path() / "fifo";
    ASSERT_TRUE(Tessel::Test::MakeFifo(fifo));
    fs::create_symlink("fifo", dir.path() / "link-to-fifo");
    ASSERT_TRUE(Tessel::Test::MakeUnixSocket(dir.path() / "socket"));

    Tessel::Test::FifoReaderWatch watch(fifo);
    const Listing listing = List(dir.u16());
    EXPECT_FALSE(watch.Stop()) << "the FIFO was opened";
    // Hidden entries stay: the hidden-file filter is the caller's step.
    EXPECT_EQ(listing.files,
              (std::vector<std::u16string>{u".hidden", u"file.txt", u"link-to-file"}));
    EXPECT_EQ(listing.directories,
              (std::vector<std::u16string>{u".hidden-folder", u"folder", u"link-to-folder"}));
    // A walk through a link to a folder lists the folder under the link's path.
    dir.WriteFile("folder/inner");
    EXPECT_EQ(List(listing.directoryObjects.back().GetFullPath()).files,
              std::vector<std::u16string>{u"inner"});
}

TEST(DirectoryWalk, NamesThatAreNotUtf8ComeBackAsTheSameFile) {
    TempDir dir;
    dir.WriteFile("bad\xff.txt", "payload");
    dir.WriteFile("sub\xfe/inner\xc3", "deeper");
    const Listing listing = List(dir.u16());
    ASSERT_EQ(listing.files, std::vector<std::u16string>{u"bad\xDCFF.txt"});
    ASSERT_EQ(listing.directories, std::vector<std::u16string>{u"sub\xDCFE"});
    const std::u16string file = Tessel::Path::Join(dir.u16(), listing.files[0]);
    // The UTF-16 path goes back to the same bytes and opens the file.
    std::ifstream in(Tessel::Path::ToNative(file));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "payload");
    EXPECT_EQ(List(listing.directoryObjects[0].GetFullPath()).files,
              std::vector<std::u16string>{u"inner\xDCC3"});
}

#endif  // !_WIN32

}  // namespace

// Directory walks against real folders: NTFS order, kinds, encodings, aborts and limits.
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
#include <tessel/platform/FileSystem.h>

#include "support/FileKinds.h"
#include "support/TempDir.h"

#if !defined(_WIN32)
#include <fcntl.h>
#include <unistd.h>
#endif

namespace {

namespace fs = std::filesystem;
using Tessel::Directory;
using Tessel::Test::TempDir;

void Touch(const fs::path& path, const std::string& content = {}) {
    std::ofstream out(path, std::ios::binary);
    out << content;
}

std::vector<std::u16string> LeafNames(const std::vector<std::u16string>& paths) {
    std::vector<std::u16string> names;
    for (const std::u16string& path : paths)
        names.push_back(Tessel::Path::GetFilePart(path));
    return names;
}

std::vector<std::u16string> LeafNames(const std::vector<Directory>& directories) {
    std::vector<std::u16string> names;
    for (const Directory& directory : directories) {
        names.push_back(Tessel::Path::GetFilePart(directory.GetFullPath()));
    }
    return names;
}

struct Listing {
    bool ok = false;
    std::vector<std::u16string> files;
    std::vector<Directory> directories;
};

Listing List(const std::u16string& path, const Tessel::AbortPredicate& abort = {}, int limit = -1) {
    Listing listing;
    listing.ok = Directory(path).GetContainedFileAndDirectoryPaths(
        listing.files, listing.directories, abort, limit);
    return listing;
}

TEST(DirectoryWalk, ReturnsNtfsOrderNotByteOrCaseFoldedOrder) {
    // Upper-casing puts "Z~" (5A) before "_x" (5F), which lower-casing would reverse, and
    // "é.txt" before "Éa.txt", which code-unit order would reverse. U+1F600 is D83D DE00 in
    // UTF-16 and so precedes U+FF01, the reverse of their UTF-8 byte order.
    const std::u16string names[] = {u"b",
                                    u"A",
                                    u"a",
                                    u"B",
                                    u"_x",
                                    u"Z~",
                                    u"\u00E9.txt",
                                    u"\u00C9a.txt",
                                    u"\U0001F600.txt",
                                    u"\uFF01.txt",
                                    u"~"};
    std::vector<std::u16string> expected = {
        u"A",         u"a", u"B",          u"b",           u"Z~",
        u"_x",        u"~", u"\u00E9.txt", u"\u00C9a.txt", u"\U0001F600.txt",
        u"\uFF01.txt"};
    const std::vector<std::u16string> allExpected = expected;
    TempDir dir;
    for (const std::u16string& name : names) {
        Touch(dir.path() / fs::path(name));
        fs::create_directory(dir.path() / fs::path(u"d" + name));
    }
    if (std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()) !=
        2 * static_cast<std::ptrdiff_t>(std::size(names))) {
        // A file system that ignores case (Windows) kept the first of each pair, "b" and "A".
        std::erase_if(expected,
                      [](const std::u16string& name) { return name == u"a" || name == u"B"; });
    }

    const Listing listing = List(dir.u16());
    ASSERT_TRUE(listing.ok);
    EXPECT_EQ(LeafNames(listing.files), expected);
    std::vector<std::u16string> expectedDirectories;
    for (const std::u16string& name : expected)
        expectedDirectories.push_back(u"d" + name);
    EXPECT_EQ(LeafNames(listing.directories), expectedDirectories);
    for (const std::u16string& path : listing.files) {
        EXPECT_EQ(Tessel::Path::GetParent(path), dir.u16());
    }

    std::vector<Directory> subDirectories = Directory(dir.u16()).GetSubDirectories();
    EXPECT_EQ(subDirectories, listing.directories);

    std::vector<std::u16string> sorted(std::begin(names), std::end(names));
    Tessel::SortNtfsOrder(sorted);
    EXPECT_EQ(sorted, allExpected);
}

TEST(SortNtfsOrder, AgreesWithThePairwiseOrderOnALargeList) {
    // Code units chosen to sit on both sides of each other after upper-casing.
    const char16_t alphabet[] = {u'a',   u'A',   u'b',   u'Z',   u'_',   u'~',
                                 u'.',   u'0',   0x00E9, 0x00C9, 0x00FF, 0x0178,
                                 0xFF01, 0xFF41, 0xFF21, 0xDCFF, 0xDC80};
    std::mt19937 random(12345);
    std::vector<std::u16string> names;
    constexpr int kCount = 100000;
    names.reserve(kCount);
    for (int i = 0; i < kCount; ++i) {
        std::u16string name;
        const int length = 1 + static_cast<int>(random() % 6);
        for (int j = 0; j < length; ++j) {
            if (random() % 8 == 0) {
                name += u"\U0001F600";
            } else {
                name.push_back(alphabet[random() % std::size(alphabet)]);
            }
        }
        names.push_back(std::move(name));
    }
    std::vector<std::u16string> sorted = names;
    Tessel::SortNtfsOrder(sorted);

    for (std::size_t i = 1; i < sorted.size(); ++i) {
        const int order = Tessel::CompareNtfsOrder(sorted[i - 1], sorted[i]);
        ASSERT_LE(order, 0) << i;
        // Names equal but for case come in a fixed order, whatever order they were read in.
        if (order == 0) {
            ASSERT_LE(sorted[i - 1], sorted[i]) << i;
        }
    }
    std::sort(names.begin(), names.end());
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, names);  // nothing lost or duplicated
}

TEST(DirectoryWalk, AbortAndLimitKeepWhatWasReadSorted) {
    TempDir dir;
    constexpr int kFiles = 20;
    for (int i = 0; i < kFiles; ++i)
        dir.WriteFile("f" + std::to_string(100 + i));
    dir.MakeDir("sub");

    auto expectSortedSubset = [&](const Listing& listing) {
        std::vector<std::u16string> names = LeafNames(listing.files);
        EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
        for (const std::u16string& file : listing.files) {
            EXPECT_TRUE(Tessel::Path::FileExists(file)) << Tessel::Utf16ToUtf8(file);
        }
    };

    int calls = 0;
    Listing partial = List(dir.u16(), [&] { return ++calls > 5; });
    EXPECT_TRUE(partial.ok);
    EXPECT_EQ(partial.files.size() + partial.directories.size(), 5u);
    expectSortedSubset(partial);

    Listing none = List(dir.u16(), [] { return true; });
    EXPECT_TRUE(none.ok);
    EXPECT_TRUE(none.files.empty());
    EXPECT_TRUE(none.directories.empty());

    Listing limited = List(dir.u16(), {}, 7);
    EXPECT_TRUE(limited.ok);
    EXPECT_EQ(limited.files.size() + limited.directories.size(), 7u);
    expectSortedSubset(limited);

    EXPECT_EQ(List(dir.u16(), {}, 0).files.size(), 0u);
    EXPECT_EQ(List(dir.u16(), {}, 1000).files.size(), static_cast<std::size_t>(kFiles));
    EXPECT_EQ(List(dir.u16(), {}, -1).files.size(), static_cast<std::size_t>(kFiles));

    // With both, whichever comes first stops the read.
    calls = 0;
    Listing both = List(
        dir.u16(), [&] { return ++calls > 3; }, 10);
    EXPECT_EQ(both.files.size() + both.directories.size(), 3u);
    calls = 0;
    both = List(
        dir.u16(), [&] { return ++calls > 10; }, 2);
    EXPECT_EQ(both.files.size() + both.directories.size(), 2u);

    // The output lists are replaced, not added to.
    std::vector<std::u16string> files = {u"stale"};
    std::vector<Directory> directories = {Directory(u"/stale")};
    ASSERT_TRUE(Directory(dir.u16()).GetContainedFileAndDirectoryPaths(files, directories, {}));
    EXPECT_EQ(files.size(), static_cast<std::size_t>(kFiles));
    EXPECT_EQ(directories.size(), 1u);
}

TEST(DirectoryWalk, ReadsTheFolderOncePerWalk) {
    TempDir dir;
    dir.WriteFile("a");
    dir.MakeDir("b");
    using Tessel::Platform::DirectoryReadCount;
    const std::uint64_t before = DirectoryReadCount();
    ASSERT_TRUE(List(dir.u16()).ok);
    EXPECT_EQ(DirectoryReadCount(), before + 1);
    EXPECT_EQ(Directory(dir.u16()).GetSubDirectories().size(), 1u);
    EXPECT_EQ(DirectoryReadCount(), before + 2);
    EXPECT_TRUE(Directory(dir.u16()).Exists());
    EXPECT_FALSE(List(dir.u16() + u"/missing").ok);
    EXPECT_EQ(DirectoryReadCount(), before + 2);
}

#if !defined(_WIN32)

TEST(DirectoryWalk, OnlyFilesAndFoldersAreListedAndNothingIsOpened) {
    TempDir dir;
    dir.WriteFile("file.txt", "x");
    dir.WriteFile(".hidden", "x");
    dir.MakeDir("folder");
    dir.MakeDir(".hidden-folder");
    fs::create_symlink("file.txt", dir.path() / "link-to-file");
    fs::create_directory_symlink("folder", dir.path() / "link-to-folder");
    fs::create_symlink("nowhere", dir.path() / "dangling");
    fs::create_symlink("loop-b", dir.path() / "loop-a");
    fs::create_symlink("loop-a", dir.path() / "loop-b");
    const fs::path fifo = dir.path() / "fifo";
    ASSERT_TRUE(Tessel::Test::MakeFifo(fifo));
    fs::create_symlink("fifo", dir.path() / "link-to-fifo");
    ASSERT_TRUE(Tessel::Test::MakeUnixSocket(dir.path() / "socket"));

    Tessel::Test::FifoReaderWatch watch(fifo);
    const Listing listing = List(dir.u16());
    const std::vector<Directory> subDirectories = Directory(dir.u16()).GetSubDirectories();
    EXPECT_FALSE(watch.Stop()) << "the FIFO was opened";

    ASSERT_TRUE(listing.ok);
    // Hidden entries stay: the hidden-file filter is the caller's step.
    EXPECT_EQ(LeafNames(listing.files),
              (std::vector<std::u16string>{u".hidden", u"file.txt", u"link-to-file"}));
    EXPECT_EQ(LeafNames(listing.directories),
              (std::vector<std::u16string>{u".hidden-folder", u"folder", u"link-to-folder"}));
    EXPECT_EQ(subDirectories, listing.directories);

    // A walk through a link to a folder lists the folder under the link's path.
    std::vector<std::u16string> innerFiles;
    std::vector<Directory> innerDirectories;
    dir.WriteFile("folder/inner");
    ASSERT_TRUE(listing.directories.back().GetContainedFileAndDirectoryPaths(innerFiles,
                                                                             innerDirectories, {}));
    EXPECT_EQ(innerFiles, (std::vector<std::u16string>{dir.u16() + u"/link-to-folder/inner"}));
}

TEST(DirectoryWalk, NamesThatAreNotUtf8ComeBackAsTheSameFile) {
    TempDir dir;
    dir.WriteFile("bad\xff.txt", "payload");
    dir.WriteFile("sub\xfe/inner\xc3", "deeper");

    const Listing listing = List(dir.u16());
    ASSERT_TRUE(listing.ok);
    ASSERT_EQ(listing.files.size(), 1u);
    ASSERT_EQ(listing.directories.size(), 1u);
    EXPECT_EQ(Tessel::Path::GetFilePart(listing.files[0]), u"bad\xDCFF.txt");
    EXPECT_EQ(Tessel::Path::LeafDisplayString(listing.files[0]), u"bad\uFFFD.txt");

    // The UTF-16 path goes back to the same bytes and opens the file.
    const std::string native = Tessel::Path::ToNative(listing.files[0]);
    EXPECT_EQ(native, dir.str() + "/bad\xff.txt");
    std::ifstream in(native, std::ios::binary);
    std::string content;
    std::getline(in, content);
    EXPECT_EQ(content, "payload");
    EXPECT_TRUE(Tessel::Path::FileExists(Tessel::Utf16ToUtf8(listing.files[0])));

    const Listing inner = List(listing.directories[0].GetFullPath());
    ASSERT_TRUE(inner.ok);
    ASSERT_EQ(inner.files.size(), 1u);
    EXPECT_EQ(Tessel::Path::ToNative(inner.files[0]), dir.str() + "/sub\xfe/inner\xc3");
    EXPECT_TRUE(Tessel::Path::FileExists(inner.files[0]));
}

TEST(DirectoryWalk, MissingFilesAndEmptyPathsAreNotReadable) {
    TempDir dir;
    dir.WriteFile("file.txt");
    EXPECT_FALSE(List(dir.u16() + u"/missing").ok);
    EXPECT_FALSE(List(dir.u16() + u"/file.txt").ok);
    Listing empty;
    empty.ok = Directory().GetContainedFileAndDirectoryPaths(empty.files, empty.directories, {});
    EXPECT_FALSE(empty.ok);
    EXPECT_TRUE(Directory().GetSubDirectories().empty());
}

TEST(DirectoryWalk, DeniedFolderIsNotReadable) {
    if (geteuid() == 0)
        GTEST_SKIP() << "root bypasses permission bits";
    TempDir dir;
    const fs::path denied = dir.MakeDir("denied");
    dir.WriteFile("denied/inside");
    fs::permissions(denied, fs::perms::none);
    const Listing listing = List(Tessel::Utf8ToUtf16(denied.native()));
    EXPECT_FALSE(listing.ok);
    EXPECT_TRUE(listing.files.empty());
    EXPECT_TRUE(Directory(Tessel::Utf8ToUtf16(denied.native())).Exists());
}

TEST(DirectoryObject, PathsLoseTrailingSeparatorsAndParentsEndAtTheRoot) {
    EXPECT_EQ(Directory(u"/a/b//").GetFullPath(), u"/a/b");
    EXPECT_EQ(Directory(u"/a/b/").ToString(), u"/a/b");
    EXPECT_EQ(Directory(u"/").GetFullPath(), u"/");
    EXPECT_EQ(Directory(u"/a/b").GetParent(), Directory(u"/a"));
    EXPECT_EQ(Directory(u"/a").GetParent(), Directory(u"/"));
    EXPECT_EQ(Directory(u"/").GetParent(), Directory());
    EXPECT_EQ(Directory(u"a").GetParent(), Directory());
    EXPECT_EQ(Directory().GetParent(), Directory());
    EXPECT_FALSE(Directory().Exists());
    EXPECT_TRUE(Directory(u"/").Exists());

    TempDir dir;
    const fs::path file = dir.WriteFile("file");
    EXPECT_TRUE(Directory(dir.u16() + u"/").Exists());
    EXPECT_FALSE(Directory(Tessel::Utf8ToUtf16(file.native())).Exists());
}

#endif  // !_WIN32

}  // namespace

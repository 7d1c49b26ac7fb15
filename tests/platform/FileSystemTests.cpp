// The file-system backend against real files in temporary folders.
#include <tessel/platform/AtomicFile.h>
#include <tessel/platform/FileSystem.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "support/FileKinds.h"
#include "support/TempDir.h"

#if defined(_WIN32)
#include <windows.h>

#include <tessel/platform/UncPaths.h>
#else
#include <locale.h>
#include <unistd.h>
#endif

namespace {

namespace fs = std::filesystem;
using Tessel::Platform::DirectoryEntry;
using Tessel::Platform::EntryKind;
using Tessel::Platform::NativeString;
using Tessel::Platform::PathKind;
using Tessel::Test::TempDir;

std::vector<DirectoryEntry> ReadAll(const fs::path& directory) {
    std::vector<DirectoryEntry> entries;
    EXPECT_TRUE(Tessel::Platform::ReadDirectory(directory.native(), entries, {}));
    return entries;
}

const DirectoryEntry* FindEntry(const std::vector<DirectoryEntry>& entries,
                                const NativeString& name) {
    auto it = std::find_if(entries.begin(), entries.end(),
                           [&](const DirectoryEntry& entry) { return entry.name == name; });
    return it == entries.end() ? nullptr : &*it;
}

// An abort predicate that lets COUNT entries through and then stops.
struct StopAfter {
    int allowed;
    int calls = 0;
    bool operator()() { return ++calls > allowed; }
};

TEST(ReadDirectory, ListsOneLevelWithoutDotEntriesAndStopsOnAbort) {
    TempDir dir;
    for (int i = 0; i < 10; ++i)
        dir.WriteFile("file" + std::to_string(i));
    dir.MakeDir("sub/deeper");

    std::vector<DirectoryEntry> entries = ReadAll(dir.path());
    ASSERT_EQ(entries.size(), 11u);
    for (const DirectoryEntry& entry : entries) {
        EXPECT_NE(entry.name, fs::path(".").native());
        EXPECT_NE(entry.name, fs::path("..").native());
        EXPECT_FALSE(entry.isLink);
        EXPECT_EQ(entry.kind,
                  entry.name == fs::path("sub").native() ? EntryKind::Directory : EntryKind::File);
    }

    // The predicate is asked once per entry, before it is taken.
    int calls = 0;
    entries.clear();
    ASSERT_TRUE(Tessel::Platform::ReadDirectory(dir.path().native(), entries, [&] {
        ++calls;
        return false;
    }));
    EXPECT_EQ(calls, 11);

    StopAfter stopAfterFour{4};
    entries.clear();
    ASSERT_TRUE(
        Tessel::Platform::ReadDirectory(dir.path().native(), entries, std::ref(stopAfterFour)));
    EXPECT_EQ(entries.size(), 4u);

    StopAfter stopAtOnce{0};
    entries.clear();
    EXPECT_TRUE(
        Tessel::Platform::ReadDirectory(dir.path().native(), entries, std::ref(stopAtOnce)));
    EXPECT_TRUE(entries.empty());

    // Entries are appended, so a caller can gather several reads into one list.
    entries.assign(1, DirectoryEntry{});
    ASSERT_TRUE(Tessel::Platform::ReadDirectory((dir.path() / "sub").native(), entries, {}));
    EXPECT_EQ(entries.size(), 2u);
}

TEST(ReadDirectory, FailsOnNonDirectoriesAndCountsOneReadPerDirectoryOpenedAcrossThreads) {
    TempDir dir;
    const fs::path file = dir.WriteFile("a", "x");
    const std::uint64_t before = Tessel::Platform::DirectoryReadCount();
    std::vector<DirectoryEntry> entries;
    for (const NativeString& bad :
         {(dir.path() / "missing").native(), file.native(), NativeString()})
        EXPECT_FALSE(Tessel::Platform::ReadDirectory(bad, entries, {})) << bad;
    EXPECT_TRUE(entries.empty());
    EXPECT_EQ(Tessel::Platform::DirectoryReadCount(), before) << "failed opens are not reads";
    ASSERT_TRUE(Tessel::Platform::ReadDirectory(dir.path().native(), entries, {}));
    EXPECT_EQ(Tessel::Platform::DirectoryReadCount(), before + 1);

    constexpr int kThreads = 4;
    constexpr int kReadsPerThread = 50;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kReadsPerThread; ++i) {
                std::vector<DirectoryEntry> own;
                Tessel::Platform::ReadDirectory(dir.path().native(), own, {});
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(Tessel::Platform::DirectoryReadCount(), before + 1 + kThreads * kReadsPerThread);
}

#if !defined(_WIN32)

// One folder with every kind of entry that must be told apart without opening anything.
class SpecialEntries : public ::testing::Test {
protected:
    void SetUp() override {
        mDir.WriteFile("file.txt", "content");
        mDir.MakeDir("folder");
        mDir.WriteFile(".hidden", "h");
        fs::create_symlink("file.txt", Path("link-to-file"));
        fs::create_directory_symlink("folder", Path("link-to-folder"));
        fs::create_symlink("nowhere", Path("dangling"));
        fs::create_symlink("loop-b", Path("loop-a"));
        fs::create_symlink("loop-a", Path("loop-b"));
        fs::create_symlink("self", Path("self"));
        ASSERT_TRUE(Tessel::Test::MakeFifo(Path("fifo")));
        fs::create_symlink("fifo", Path("link-to-fifo"));
        ASSERT_TRUE(Tessel::Test::MakeUnixSocket(Path("socket")));
    }

    fs::path Path(const std::string& name) const { return mDir.path() / name; }

    TempDir mDir;
};

TEST_F(SpecialEntries, KindsComeFromTheDirectoryAndLinksAreFollowedWithoutOpening) {
    Tessel::Test::FifoReaderWatch watch(Path("fifo"));
    const std::vector<DirectoryEntry> entries = ReadAll(mDir.path());
    EXPECT_FALSE(watch.Stop()) << "the FIFO was opened";

    struct Expected {
        const char* name;
        EntryKind kind;
        bool isLink;
        bool hidden;
    };
    const Expected expected[] = {
        {"file.txt", EntryKind::File, false, false},
        {"folder", EntryKind::Directory, false, false},
        {".hidden", EntryKind::File, false, true},
        {"link-to-file", EntryKind::File, true, false},
        {"link-to-folder", EntryKind::Directory, true, false},
        {"dangling", EntryKind::Other, true, false},
        {"loop-a", EntryKind::Other, true, false},
        {"loop-b", EntryKind::Other, true, false},
        {"self", EntryKind::Other, true, false},
        {"fifo", EntryKind::Other, false, false},
        {"link-to-fifo", EntryKind::Other, true, false},
        {"socket", EntryKind::Other, false, false},
    };
    EXPECT_EQ(entries.size(), std::size(expected));
    for (const Expected& want : expected) {
        const DirectoryEntry* entry = FindEntry(entries, want.name);
        ASSERT_NE(entry, nullptr) << want.name;
        EXPECT_EQ(entry->kind, want.kind) << want.name;
        EXPECT_EQ(entry->isLink, want.isLink) << want.name;
        EXPECT_EQ(entry->hidden, want.hidden) << want.name;
    }
}

TEST_F(SpecialEntries, PathTestsFollowLinksButNeverOpen) {
    Tessel::Test::FifoReaderWatch watch(Path("fifo"));
    using Tessel::Platform::GetPathKind;
    EXPECT_EQ(GetPathKind(Path("file.txt")), PathKind::File);
    EXPECT_EQ(GetPathKind(Path("folder")), PathKind::Directory);
    EXPECT_EQ(GetPathKind(Path("link-to-file")), PathKind::File);
    EXPECT_EQ(GetPathKind(Path("link-to-folder")), PathKind::Directory);
    EXPECT_EQ(GetPathKind(Path("dangling")), PathKind::Missing);
    EXPECT_EQ(GetPathKind(Path("loop-a")), PathKind::Missing);
    EXPECT_EQ(GetPathKind(Path("fifo")), PathKind::Other);
    EXPECT_EQ(GetPathKind(Path("link-to-fifo")), PathKind::Other);
    EXPECT_EQ(GetPathKind(Path("socket")), PathKind::Other);
    EXPECT_EQ(GetPathKind(Path("missing")), PathKind::Missing);
    EXPECT_EQ(GetPathKind(Path("file.txt/below")), PathKind::Missing);
    EXPECT_EQ(GetPathKind(""), PathKind::Missing);

    // Existence does not follow links: a dangling or looping link is still an entry.
    using Tessel::Platform::PathEntryExists;
    EXPECT_TRUE(PathEntryExists(Path("dangling")));
    EXPECT_TRUE(PathEntryExists(Path("self")));
    EXPECT_TRUE(PathEntryExists(Path("fifo")));
    EXPECT_TRUE(PathEntryExists(Path("folder")));
    EXPECT_FALSE(PathEntryExists(Path("missing")));
    EXPECT_FALSE(PathEntryExists(""));

    EXPECT_TRUE(Tessel::Platform::HasReadAccess(Path("file.txt")));
    EXPECT_TRUE(Tessel::Platform::HasReadAccess(Path("fifo")));
    EXPECT_FALSE(Tessel::Platform::HasReadAccess(Path("dangling")));
    EXPECT_FALSE(Tessel::Platform::HasReadAccess(Path("missing")));

    // Reading a FIFO as a directory must fail at once rather than wait for a writer.
    std::vector<DirectoryEntry> entries;
    EXPECT_FALSE(Tessel::Platform::ReadDirectory(Path("fifo"), entries, {}));
    EXPECT_FALSE(Tessel::Platform::ReadDirectory(Path("link-to-fifo"), entries, {}));
    EXPECT_FALSE(Tessel::Platform::ReadDirectory(Path("socket"), entries, {}));
    EXPECT_FALSE(Tessel::Platform::ReadDirectory(Path("loop-a"), entries, {}));

    // A link to a folder reads as that folder.
    ASSERT_TRUE(Tessel::Platform::ReadDirectory(Path("link-to-folder"), entries, {}));
    EXPECT_TRUE(entries.empty());

    // Whole-file reads refuse FIFOs and sockets without opening them.
    using Tessel::Platform::ReadFileStatus;
    std::string content, error;
    for (const char* name : {"fifo", "link-to-fifo", "socket"}) {
        EXPECT_EQ(Tessel::Platform::ReadWholeFile(Path(name), content, error),
                  ReadFileStatus::Failed)
            << name;
    }
    EXPECT_EQ(Tessel::Platform::ReadWholeFile(Path("missing"), content, error),
              ReadFileStatus::Missing);

    EXPECT_FALSE(watch.Stop()) << "the FIFO was opened";
}

TEST(ReadDirectory, KeepsNamesThatAreNotUtf8AsTheirBytes) {
    TempDir dir;
    const std::string names[] = {"bad\xff.txt", "\xc3(", "caf\xc3\xa9", "\xed\xa0\x80"};
    for (const std::string& name : names)
        dir.WriteFile(name, name);
    const std::vector<DirectoryEntry> entries = ReadAll(dir.path());
    ASSERT_EQ(entries.size(), std::size(names));
    for (const std::string& name : names) {
        const DirectoryEntry* entry = FindEntry(entries, name);
        ASSERT_NE(entry, nullptr);
        EXPECT_EQ(entry->kind, EntryKind::File);
        EXPECT_EQ(Tessel::Platform::GetPathKind((dir.path() / entry->name).native()),
                  PathKind::File);
    }
}

bool RunningAsRoot() {
    return geteuid() == 0;
}

TEST(ReadDirectory, DeniedFolderFailsAndUnreadableFileHasNoReadAccess) {
    if (RunningAsRoot())
        GTEST_SKIP() << "root bypasses permission bits";
    TempDir dir;
    const fs::path denied = dir.MakeDir("denied");
    dir.WriteFile("denied/inside", "x");
    const fs::path unreadable = dir.WriteFile("unreadable", "x");
    fs::permissions(denied, fs::perms::none);
    fs::permissions(unreadable, fs::perms::none);

    std::vector<DirectoryEntry> entries;
    EXPECT_FALSE(Tessel::Platform::ReadDirectory(denied.native(), entries, {}));
    EXPECT_TRUE(entries.empty());
    EXPECT_FALSE(Tessel::Platform::HasReadAccess(denied.native()));
    EXPECT_FALSE(Tessel::Platform::HasReadAccess(unreadable.native()));
    // The folder is still there; only its contents are out of reach.
    EXPECT_EQ(Tessel::Platform::GetPathKind(denied.native()), PathKind::Directory);
    EXPECT_EQ(Tessel::Platform::GetPathKind((denied / "inside").native()), PathKind::Missing);
}

TEST(HiddenNames, LeadingDotOfTheLeafOnly) {
    using Tessel::Platform::IsHiddenEntry;
    using Tessel::Platform::IsHiddenName;
    EXPECT_TRUE(IsHiddenName(".profile"));
    EXPECT_TRUE(IsHiddenName(".."));
    EXPECT_FALSE(IsHiddenName("a.b"));
    EXPECT_FALSE(IsHiddenName(""));

    EXPECT_TRUE(IsHiddenEntry("/a/.x"));
    EXPECT_TRUE(IsHiddenEntry("/a/.x//"));
    EXPECT_TRUE(IsHiddenEntry(".x"));
    EXPECT_FALSE(IsHiddenEntry("/.a/b"));
    EXPECT_FALSE(IsHiddenEntry("/a/b."));
    EXPECT_FALSE(IsHiddenEntry("/"));
    EXPECT_FALSE(IsHiddenEntry("//"));
    EXPECT_FALSE(IsHiddenEntry(""));
}

bool HaveUtf8CaseMapping() {
    for (const char* name : {"C.UTF-8", "en_US.UTF-8"}) {
        if (locale_t locale = newlocale(LC_CTYPE_MASK, name, static_cast<locale_t>(0))) {
            freelocale(locale);
            return true;
        }
    }
    return false;
}

// Restores the working directory a test moves away from.
class WorkingDirectoryGuard {
public:
    WorkingDirectoryGuard() : mSaved(fs::current_path()) {}
    ~WorkingDirectoryGuard() { fs::current_path(mSaved); }

private:
    fs::path mSaved;
};

TEST(CurrentDirectory, FollowsTheProcessIntoPathsLongerThanAnyFirstGuess) {
    TempDir dir;
    fs::path deep = fs::canonical(dir.path());
    while (deep.native().size() < 3800)
        deep /= std::string(200, 'd');
    fs::create_directories(deep);

    WorkingDirectoryGuard guard;
    fs::current_path(deep);
    EXPECT_EQ(Tessel::Platform::CurrentDirectory(), deep.native());
    fs::current_path(dir.path());
    EXPECT_EQ(Tessel::Platform::CurrentDirectory(), fs::canonical(dir.path()).native());
}

#endif  // !_WIN32

#if defined(_WIN32)

// The long-path form of a test folder path, in which any length opens.
NativeString LongForm(const fs::path& path) {
    return L"\\\\?\\" + path.native();
}

TEST(ReadDirectory, HiddenAndSystemAttributesAndPathsBeyondMaxPath) {
    TempDir dir;
    dir.WriteFile("plain.txt", "x");
    const fs::path hidden = dir.WriteFile("hidden.txt");
    const fs::path system = dir.WriteFile("system.txt");
    const fs::path hiddenFolder = dir.MakeDir("hidden-folder");
    dir.MakeDir("folder");
    ASSERT_TRUE(SetFileAttributesW(hidden.c_str(), FILE_ATTRIBUTE_HIDDEN));
    ASSERT_TRUE(SetFileAttributesW(system.c_str(), FILE_ATTRIBUTE_SYSTEM));
    ASSERT_TRUE(SetFileAttributesW(hiddenFolder.c_str(), FILE_ATTRIBUTE_HIDDEN));

    const std::vector<DirectoryEntry> entries = ReadAll(dir.path());
    struct Expected {
        const wchar_t* name;
        EntryKind kind;
        bool hidden;
    };
    const Expected expected[] = {{L"plain.txt", EntryKind::File, false},
                                 {L"hidden.txt", EntryKind::File, true},
                                 {L"system.txt", EntryKind::File, true},
                                 {L"hidden-folder", EntryKind::Directory, true},
                                 {L"folder", EntryKind::Directory, false}};
    EXPECT_EQ(entries.size(), std::size(expected));
    for (const Expected& want : expected) {
        const DirectoryEntry* entry = FindEntry(entries, want.name);
        ASSERT_NE(entry, nullptr);
        EXPECT_EQ(entry->kind, want.kind);
        EXPECT_EQ(entry->hidden, want.hidden);
        EXPECT_FALSE(entry->isLink);
        EXPECT_EQ(Tessel::Platform::IsHiddenEntry((dir.path() / want.name).native()), want.hidden);
    }
    // Windows hides by attribute only.
    EXPECT_FALSE(Tessel::Platform::IsHiddenName(L".profile"));
    EXPECT_FALSE(Tessel::Platform::IsHiddenEntry(L""));

    // Past MAX_PATH only the long-path form opens; each level is made and removed by it.
    std::vector<NativeString> levels{LongForm(dir.path())};
    while (levels.back().size() < 400) {
        levels.push_back(levels.back() + L"\\" + std::wstring(60, L'd'));
        ASSERT_TRUE(CreateDirectoryW(levels.back().c_str(), nullptr));
    }
    const NativeString deep = levels.back();
    ASSERT_TRUE(CreateDirectoryW((deep + L"\\inner").c_str(), nullptr));
    using Tessel::Platform::GetPathKind;
    EXPECT_EQ(GetPathKind(deep), PathKind::Directory);
    EXPECT_EQ(GetPathKind(deep + L"\\missing"), PathKind::Missing);
    EXPECT_EQ(GetPathKind(LongForm(dir.path() / "plain.txt")), PathKind::File);
    EXPECT_TRUE(Tessel::Platform::PathEntryExists(deep));
    EXPECT_TRUE(Tessel::Platform::HasReadAccess(LongForm(dir.path() / "plain.txt")));
    EXPECT_FALSE(Tessel::Platform::HasReadAccess(LongForm(dir.path() / "missing")));
    std::vector<DirectoryEntry> inside;
    ASSERT_TRUE(Tessel::Platform::ReadDirectory(deep, inside, {}));
    ASSERT_EQ(inside.size(), 1u);
    EXPECT_EQ(inside[0].name, L"inner");
    EXPECT_EQ(inside[0].kind, EntryKind::Directory);

    EXPECT_TRUE(RemoveDirectoryW((deep + L"\\inner").c_str()));
    for (std::size_t i = levels.size() - 1; i > 0; --i)
        EXPECT_TRUE(RemoveDirectoryW(levels[i].c_str()));
}

TEST(UncPaths, LongPathFormsAreUncOnlyWithTheUncPrefix) {
    using Tessel::Platform::IsUncPath;
    for (const wchar_t* unc : {L"\\\\server\\share", L"\\\\server", L"\\\\?\\UNC\\server\\share",
                               L"\\\\?\\unc\\server\\share"})
        EXPECT_TRUE(IsUncPath(unc)) << unc;
    // Wine's PathIsUNCW calls the long-path forms UNC too; Windows Vista and later do not.
    for (const wchar_t* other : {L"\\\\?\\C:\\", L"\\\\?\\C:", L"\\\\?\\C:\\Media\\", L"\\\\?\\",
                                 L"\\\\?\\UNC", L"C:\\x", L"\\x", L"//server/share", L""})
        EXPECT_FALSE(IsUncPath(other)) << other;
}

#endif  // _WIN32

TEST(UpperCaseCodeUnit, SimpleMappingWithinOneBmpUnit) {
    using Tessel::Platform::UpperCaseCodeUnit;
    EXPECT_EQ(UpperCaseCodeUnit(u'a'), u'A');
    EXPECT_EQ(UpperCaseCodeUnit(u'z'), u'Z');
    EXPECT_EQ(UpperCaseCodeUnit(u'A'), u'A');
    for (char16_t unchanged : {u'_', u'~', u'0', u'@', u'[', u'{', u'\0', char16_t(0x7F)}) {
        EXPECT_EQ(UpperCaseCodeUnit(unchanged), unchanged);
    }
    // Surrogates, including those that carry undecodable file-name bytes, are never mapped.
    for (char16_t surrogate :
         {char16_t(0xD800), char16_t(0xD83D), char16_t(0xDBFF), char16_t(0xDC00), char16_t(0xDC80),
          char16_t(0xDCFF), char16_t(0xDFFF)}) {
        EXPECT_EQ(UpperCaseCodeUnit(surrogate), surrogate);
    }
#if !defined(_WIN32)
    if (!HaveUtf8CaseMapping())
        GTEST_SKIP() << "no UTF-8 locale: only ASCII is upper-cased";
#endif
    EXPECT_EQ(UpperCaseCodeUnit(u'\u00E9'), u'\u00C9');  // é
    EXPECT_EQ(UpperCaseCodeUnit(u'\u00FF'), u'\u0178');  // ÿ leaves Latin-1
    EXPECT_EQ(UpperCaseCodeUnit(u'\u03B1'), u'\u0391');  // Greek alpha
    EXPECT_EQ(UpperCaseCodeUnit(u'\u044F'), u'\u042F');  // Cyrillic ya
    EXPECT_EQ(UpperCaseCodeUnit(u'\uFF41'), u'\uFF21');  // fullwidth a
    EXPECT_EQ(UpperCaseCodeUnit(u'\u00DF'), u'\u00DF');  // ß has no one-unit upper case
    EXPECT_EQ(UpperCaseCodeUnit(u'\uFF01'), u'\uFF01');

    // Over the whole BMP: nothing becomes a surrogate, and mapping twice changes nothing.
    for (char32_t c = 0; c <= 0xFFFF; ++c) {
        const char16_t unit = static_cast<char16_t>(c);
        const char16_t upper = UpperCaseCodeUnit(unit);
        const bool isSurrogate = unit >= 0xD800 && unit <= 0xDFFF;
        const bool upperIsSurrogate = upper >= 0xD800 && upper <= 0xDFFF;
        ASSERT_EQ(isSurrogate, upperIsSurrogate) << std::hex << static_cast<unsigned>(c);
        ASSERT_EQ(UpperCaseCodeUnit(upper), upper) << std::hex << static_cast<unsigned>(c);
    }
}

}  // namespace

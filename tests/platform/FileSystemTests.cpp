// The file-system backend against real files in temporary folders.
#include <tessel/platform/AtomicFile.h>
#include <tessel/platform/FileDetails.h>
#include <tessel/platform/FileSystem.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
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
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

namespace fs = std::filesystem;
namespace P = Tessel::Platform;
using P::DirectoryEntry;
using P::EntryKind;
using P::NativeString;
using P::PathKind;
using Tessel::StatusCode;
using Tessel::Test::TempDir;

std::vector<DirectoryEntry> ReadAll(const NativeString& directory) {
    std::vector<DirectoryEntry> entries;
    EXPECT_TRUE(P::ReadDirectory(directory, entries, {}).IsOk());
    return entries;
}

TEST(ReadDirectory, OneLevelWithoutDotEntriesAbortsKeepWhatWasReadAndEntriesAreAppended) {
    TempDir dir;
    for (int i = 0; i < 10; ++i)
        dir.WriteFile("file" + std::to_string(i));
    dir.MakeDir("sub/deeper");
    const std::vector<DirectoryEntry> entries = ReadAll(dir.path().native());
    ASSERT_EQ(entries.size(), 11u);
    for (const DirectoryEntry& entry : entries) {
        EXPECT_FALSE(entry.isLink || entry.device || entry.hidden);
        EXPECT_EQ(entry.kind,
                  entry.name == fs::path("sub").native() ? EntryKind::Directory : EntryKind::File);
    }
    // The predicate is asked once per entry, before it is taken; an abort is no failure.
    for (const int allowed : {0, 4, 100}) {
        int calls = 0;
        std::vector<DirectoryEntry> read(1);
        ASSERT_TRUE(
            P::ReadDirectory(dir.path().native(), read, [&] { return ++calls > allowed; }).IsOk());
        EXPECT_EQ(read.size(), 1u + std::min(allowed, 11)) << allowed;
        EXPECT_EQ(calls, std::min(allowed + 1, 11)) << allowed;
    }
}

TEST(ReadDirectory, FailuresSayWhyAppendNothingAndOnlyOpenedReadsCountAcrossThreads) {
    TempDir dir;
    const fs::path file = dir.WriteFile("a", "x");
    const std::uint64_t before = P::DirectoryReadCount();
    for (const NativeString& bad :
         {(dir.path() / "missing").native(), file.native(), NativeString()}) {
        std::vector<DirectoryEntry> entries(1);
        const Tessel::Status status = P::ReadDirectory(bad, entries, {});
        EXPECT_EQ(status.Code(), StatusCode::kNotFound) << fs::path(bad).string();
        EXPECT_EQ(status.Message().rfind("cannot read ", 0), 0u) << status.Message();
        EXPECT_EQ(entries.size(), 1u);
        std::vector<P::DetailedEntry> detailed(1);
        EXPECT_EQ(P::ReadDirectoryWithDetails(bad, P::kAllDetails, detailed, {}), status);
        EXPECT_EQ(detailed.size(), 1u);
    }
    EXPECT_EQ(P::DirectoryReadCount(), before);

    constexpr int kThreads = 4;
    constexpr int kReadsPerThread = 50;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kReadsPerThread; ++i) {
                std::vector<DirectoryEntry> own;
                P::ReadDirectory(dir.path().native(), own, {}).Ignore();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(P::DirectoryReadCount(), before + kThreads * kReadsPerThread);
}

#if !defined(_WIN32)

const DirectoryEntry* FindEntry(const std::vector<DirectoryEntry>& entries,
                                const NativeString& name) {
    auto it = std::find_if(entries.begin(), entries.end(),
                           [&](const DirectoryEntry& entry) { return entry.name == name; });
    return it == entries.end() ? nullptr : &*it;
}

// One folder with every kind of entry that must be told apart without opening anything.
TEST(ReadDirectory, KindsComeFromTheDirectoryLinksAreFollowedAndNothingIsOpened) {
    TempDir dir;
    const auto at = [&](const char* name) { return dir.path() / name; };
    dir.WriteFile("file.txt", "content");
    dir.MakeDir("folder");
    dir.WriteFile(".hidden", "h");
    fs::create_symlink("file.txt", at("link-to-file"));
    fs::create_directory_symlink("folder", at("link-to-folder"));
    fs::create_symlink("nowhere", at("dangling"));
    fs::create_symlink("loop-b", at("loop-a"));
    fs::create_symlink("loop-a", at("loop-b"));
    ASSERT_TRUE(Tessel::Test::MakeFifo(at("fifo")));
    fs::create_symlink("fifo", at("link-to-fifo"));
    ASSERT_TRUE(Tessel::Test::MakeUnixSocket(at("socket")));
    Tessel::Test::FifoReaderWatch watch(at("fifo"));

    struct Expected {
        const char* name;
        EntryKind kind;
        bool isLink, hidden, device;
        PathKind pathKind;
        bool readsAsDirectory;
    };
    const Expected expected[] = {
        {"file.txt", EntryKind::File, false, false, false, PathKind::File, false},
        {"folder", EntryKind::Directory, false, false, false, PathKind::Directory, true},
        {".hidden", EntryKind::File, false, true, false, PathKind::File, false},
        {"link-to-file", EntryKind::File, true, false, false, PathKind::File, false},
        {"link-to-folder", EntryKind::Directory, true, false, false, PathKind::Directory, true},
        {"dangling", EntryKind::Other, true, false, false, PathKind::Missing, false},
        {"loop-a", EntryKind::Other, true, false, false, PathKind::Missing, false},
        {"loop-b", EntryKind::Other, true, false, false, PathKind::Missing, false},
        {"fifo", EntryKind::Other, false, false, true, PathKind::Other, false},
        {"link-to-fifo", EntryKind::Other, true, false, false, PathKind::Other, false},
        {"socket", EntryKind::Other, false, false, true, PathKind::Other, false},
    };
    const std::vector<DirectoryEntry> entries = ReadAll(dir.path().native());
    EXPECT_EQ(entries.size(), std::size(expected));
    for (const Expected& want : expected) {
        const DirectoryEntry* entry = FindEntry(entries, want.name);
        ASSERT_NE(entry, nullptr) << want.name;
        EXPECT_EQ(entry->kind, want.kind) << want.name;
        EXPECT_EQ(entry->isLink, want.isLink) << want.name;
        EXPECT_EQ(entry->hidden, want.hidden) << want.name;
        EXPECT_EQ(entry->device, want.device) << want.name;
        // Path tests follow links; existence does not (a dangling link is still an entry).
        EXPECT_EQ(P::GetPathKind(at(want.name)), want.pathKind) << want.name;
        EXPECT_TRUE(P::PathEntryExists(at(want.name))) << want.name;
        // Reading a FIFO or socket as a directory fails at once rather than wait for a writer.
        std::vector<DirectoryEntry> inside;
        EXPECT_EQ(P::ReadDirectory(at(want.name), inside, {}).IsOk(), want.readsAsDirectory)
            << want.name;
    }
    for (const NativeString& missing :
         {at("missing").native(), at("file.txt/below").native(), NativeString()}) {
        EXPECT_EQ(P::GetPathKind(missing), PathKind::Missing) << missing;
        EXPECT_FALSE(P::PathEntryExists(missing)) << missing;
        EXPECT_FALSE(P::HasReadAccess(missing)) << missing;
    }
    EXPECT_TRUE(P::HasReadAccess(at("fifo")));
    // Whole-file reads refuse FIFOs and sockets without opening them.
    std::string content, error;
    for (const char* name : {"fifo", "link-to-fifo", "socket"})
        EXPECT_EQ(P::ReadWholeFile(at(name), content, error), P::ReadFileStatus::Failed) << name;
    EXPECT_FALSE(watch.Stop()) << "the FIFO was opened";
}

TEST(ReadDirectory, DeniedFolderSaysSoAndUnreadableFileHasNoReadAccess) {
    if (geteuid() == 0)
        GTEST_SKIP() << "root bypasses permission bits";
    TempDir dir;
    const fs::path denied = dir.MakeDir("denied");
    dir.WriteFile("denied/inside", "x");
    const fs::path unreadable = dir.WriteFile("unreadable", "x");
    fs::permissions(denied, fs::perms::none);
    fs::permissions(unreadable, fs::perms::none);

    std::vector<DirectoryEntry> entries;
    const Tessel::Status status = P::ReadDirectory(denied.native(), entries, {});
    EXPECT_EQ(status.Code(), StatusCode::kPermissionDenied);
    EXPECT_EQ(status.Message(), "cannot read " + denied.native() + ": Permission denied");
    EXPECT_TRUE(entries.empty());
    EXPECT_FALSE(P::HasReadAccess(denied.native()));
    EXPECT_FALSE(P::HasReadAccess(unreadable.native()));
    // The folder is still there; only its contents are out of reach.
    EXPECT_EQ(P::GetPathKind(denied.native()), PathKind::Directory);
    EXPECT_EQ(P::GetPathKind((denied / "inside").native()), PathKind::Missing);
}

// A directory whose read fails part-way: the network folder of a process that is reaped
// after the first batch of entries was read (the kernel then answers EINVAL).
TEST(ReadDirectory, AnErrorPartWayFailsTheWholeRead) {
    std::vector<DirectoryEntry> probe;
    if (!P::ReadDirectory("/proc/self/net", probe, {}).IsOk())
        GTEST_SKIP() << "no /proc/PID/net here";
    for (const bool detailed : {false, true}) {
        int pipeFds[2];
        ASSERT_EQ(pipe(pipeFds), 0);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            char byte;
            while (read(pipeFds[0], &byte, 1) < 0) {
            }
            _exit(0);
        }
        close(pipeFds[0]);
        const NativeString folder = "/proc/" + std::to_string(child) + "/net";
        bool reaped = false;
        const auto reapOnce = [&] {
            if (!reaped) {
                kill(child, SIGKILL);
                waitpid(child, nullptr, 0);
                reaped = true;
            }
            return false;
        };
        std::vector<DirectoryEntry> entries(1);
        std::vector<P::DetailedEntry> details(1);
        const Tessel::Status status =
            detailed ? P::ReadDirectoryWithDetails(folder, P::kNoDetails, details, reapOnce)
                     : P::ReadDirectory(folder, entries, reapOnce);
        close(pipeFds[1]);
        ASSERT_TRUE(reaped);
        EXPECT_FALSE(status.IsOk()) << detailed;
        EXPECT_EQ(status.Message(), "cannot read " + folder + ": Invalid argument");
        EXPECT_EQ(entries.size() + details.size(), 2u) << "nothing of the partial read is kept";
    }
}

TEST(HiddenNames, LeadingDotOfTheLeafOnly) {
    for (const char* hidden : {".profile", "..", "/a/.x", "/a/.x//", ".x"})
        EXPECT_TRUE(P::IsHiddenEntry(hidden)) << hidden;
    for (const char* shown : {"/.a/b", "/a/b.", "/", "//", ""})
        EXPECT_FALSE(P::IsHiddenEntry(shown)) << shown;
    EXPECT_TRUE(P::IsHiddenName(".profile"));
    EXPECT_FALSE(P::IsHiddenName("a.b"));
    EXPECT_FALSE(P::IsHiddenName(""));
}

TEST(CurrentDirectory, FollowsTheProcessIntoPathsLongerThanAnyFirstGuess) {
    TempDir dir;
    fs::path deep = fs::canonical(dir.path());
    while (deep.native().size() < 3800)
        deep /= std::string(200, 'd');
    fs::create_directories(deep);
    const fs::path saved = fs::current_path();
    fs::current_path(deep);
    EXPECT_EQ(P::CurrentDirectory(), deep.native());
    fs::current_path(saved);
}

#else  // _WIN32

TEST(ReadDirectory, HiddenAndSystemAttributesHideEntries) {
    TempDir dir;
    dir.WriteFile("plain.txt", "x");
    dir.MakeDir("folder");
    struct Marked {
        const char* name;
        DWORD attribute;
        bool folder;
    };
    for (const Marked& marked : {Marked{"hidden.txt", FILE_ATTRIBUTE_HIDDEN, false},
                                 Marked{"system.txt", FILE_ATTRIBUTE_SYSTEM, false},
                                 Marked{"hidden-folder", FILE_ATTRIBUTE_HIDDEN, true}}) {
        const fs::path path = marked.folder ? dir.MakeDir(marked.name) : dir.WriteFile(marked.name);
        ASSERT_TRUE(SetFileAttributesW(path.c_str(), marked.attribute));
    }
    const std::vector<DirectoryEntry> entries = ReadAll(dir.path().native());
    EXPECT_EQ(entries.size(), 5u);
    for (const DirectoryEntry& entry : entries) {
        const bool hidden = entry.name != L"plain.txt" && entry.name != L"folder";
        EXPECT_EQ(entry.hidden, hidden) << fs::path(entry.name).string();
        EXPECT_EQ(P::IsHiddenEntry((dir.path() / entry.name).native()), hidden);
        EXPECT_EQ(entry.kind, entry.name.find(L"folder") != std::wstring::npos
                                  ? EntryKind::Directory
                                  : EntryKind::File);
    }
    // Windows hides by attribute only.
    EXPECT_FALSE(P::IsHiddenName(L".profile"));
    EXPECT_FALSE(P::IsHiddenEntry(L""));
}

TEST(UncPaths, LongPathFormsAreUncOnlyWithTheUncPrefix) {
    for (const wchar_t* unc : {L"\\\\server\\share", L"\\\\server", L"\\\\?\\UNC\\server\\share",
                               L"\\\\?\\unc\\server\\share"})
        EXPECT_TRUE(P::IsUncPath(unc)) << fs::path(unc).string();
    // Wine's PathIsUNCW calls the long-path forms UNC too; Windows Vista and later do not.
    for (const wchar_t* other : {L"\\\\?\\C:\\", L"\\\\?\\C:", L"\\\\?\\C:\\Media\\", L"\\\\?\\",
                                 L"\\\\?\\UNC", L"C:\\x", L"\\x", L"//server/share", L""})
        EXPECT_FALSE(P::IsUncPath(other)) << fs::path(other).string();
}

#endif  // _WIN32

TEST(UpperCaseCodeUnit, SimpleMappingWithinOneBmpUnit) {
    using P::UpperCaseCodeUnit;
    EXPECT_EQ(UpperCaseCodeUnit(u'a'), u'A');
    EXPECT_EQ(UpperCaseCodeUnit(u'_'), u'_');
#if !defined(_WIN32)
    const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
    if (utf8 == static_cast<locale_t>(0))
        GTEST_SKIP() << "no UTF-8 locale: only ASCII is upper-cased";
    freelocale(utf8);
#endif
    const std::pair<char16_t, char16_t> beyond[] = {
        {u'\u00E9', u'\u00C9'}, {u'\u00FF', u'\u0178'},
        {u'\u03B1', u'\u0391'}, {u'\u044F', u'\u042F'},
        {u'\uFF41', u'\uFF21'}, {u'\u00DF', u'\u00DF'},  // ß has no one-unit upper case
    };
    for (const auto& [unit, upper] : beyond)
        EXPECT_EQ(UpperCaseCodeUnit(unit), upper) << std::hex << unsigned(unit);
    // Over the whole BMP: nothing becomes or stops being a surrogate, and mapping twice
    // changes nothing.
    for (char32_t c = 0; c <= 0xFFFF; ++c) {
        const char16_t unit = static_cast<char16_t>(c);
        const char16_t upper = UpperCaseCodeUnit(unit);
        ASSERT_EQ(unit >= 0xD800 && unit <= 0xDFFF, upper >= 0xD800 && upper <= 0xDFFF)
            << std::hex << unsigned(c);
        ASSERT_EQ(UpperCaseCodeUnit(upper), upper) << std::hex << unsigned(c);
    }
}

}  // namespace

// The file-system backend against real files in temporary folders: directory reads with and
// without details (a listing that asks for names only must not stat; the details asked for
// describe the entry itself), path tests, and local time text.
#include <tessel/platform/AtomicFile.h>
#include <tessel/platform/FileDetails.h>
#include <tessel/platform/FileSystem.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/FileKinds.h"
#include "support/TempDir.h"

#if defined(_WIN32)
#include <windows.h>

#include <tessel/platform/Counters.h>
#include <tessel/platform/UncPaths.h>
#else
#include <fcntl.h>
#include <locale.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#endif

namespace {

namespace fs = std::filesystem;
namespace P = Tessel::Platform;
using P::DetailedEntry;
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

std::vector<DetailedEntry> ReadWith(const fs::path& directory, P::EntryDetails details) {
    std::vector<DetailedEntry> entries;
    EXPECT_TRUE(P::ReadDirectoryWithDetails(directory.native(), details, entries, {}).IsOk());
    return entries;
}

template <typename Entry>
const Entry& Find(const std::vector<Entry>& entries, const NativeString& name) {
    auto it = std::find_if(entries.begin(), entries.end(),
                           [&](const Entry& entry) { return entry.name == name; });
    if (it == entries.end()) {
        ADD_FAILURE() << "no entry " << fs::path(name).string();
        static const Entry kNone{};
        return kNone;
    }
    return *it;
}

TEST(ReadDirectory, OneLevelWithoutDotEntriesAbortsKeepWhatWasReadAndEntriesAreAppended) {
    TempDir dir;
    for (int i = 0; i < 10; ++i)
        dir.WriteFile("file" + std::to_string(i));
    dir.MakeDir("sub/deeper");
    ASSERT_EQ(ReadAll(dir.path().native()).size(), 11u);
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

    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 50; ++i)
                ReadAll(dir.path().native());
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(P::DirectoryReadCount(), before + 4 * 50);
}

#if !defined(_WIN32)

constexpr std::int64_t kMicroseconds = 1000000;

// Sets the access and write times (microseconds, >= 0) of PATH itself, not a link's target.
void SetTimes(const fs::path& path, std::int64_t access, std::int64_t write) {
    const timespec times[2] = {{access / kMicroseconds, access % kMicroseconds * 1000},
                               {write / kMicroseconds, write % kMicroseconds * 1000}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

// One folder with every kind of entry that must be told apart without opening anything.
TEST(ReadDirectory, KindsAndDetailsDescribeTheEntryItselfLinksAreFollowedAndNothingIsOpened) {
    TempDir dir;
    const auto at = [&](const char* name) { return dir.path() / name; };
    dir.WriteFile("plain.bin", std::string(5000, 'x'));
    dir.MakeDir("folder");
    dir.WriteFile(".hidden", "h");
    dir.WriteFile("bad\xff.mov", "12345");  // not UTF-8: kept as its bytes
    fs::permissions(dir.WriteFile("locked.txt", "r"),
                    fs::perms::owner_read | fs::perms::group_read);
    fs::resize_file(dir.WriteFile("sparse.raw"), 64 << 20);  // no blocks behind it
    fs::create_symlink("plain.bin", at("link"));
    fs::create_directory_symlink("folder", at("link-to-folder"));
    fs::create_symlink("nowhere", at("dangling"));
    fs::create_symlink("loop-b", at("loop-a"));
    fs::create_symlink("loop-a", at("loop-b"));
    ASSERT_TRUE(Tessel::Test::MakeFifo(at("fifo")));
    fs::create_symlink("fifo", at("link-to-fifo"));
    ASSERT_TRUE(Tessel::Test::MakeUnixSocket(at("socket")));
    // 2001-02-03 04:05:06.789012 UTC and a day later; the link must not report its target's.
    const std::int64_t accessTime = 981173106789012;
    const std::int64_t writeTime = accessTime + 86400 * kMicroseconds;
    SetTimes(at("plain.bin"), accessTime, writeTime);
    SetTimes(at("link"), accessTime - kMicroseconds, writeTime - kMicroseconds);
    const std::int64_t createdNoEarlierThan =
        (static_cast<std::int64_t>(time(nullptr)) - 600) * kMicroseconds;
    Tessel::Test::FifoReaderWatch watch(at("fifo"));

    // Links are the entries with the reparse-point attribute, devices those with the device one.
    const std::uint32_t kLink = P::kFileAttributeReparsePoint;
    struct Expected {
        const char* name;
        EntryKind kind;
        PathKind pathKind;
        std::uint32_t attributes;
    };
    const Expected expected[] = {
        {"plain.bin", EntryKind::File, PathKind::File, P::kFileAttributeNormal},
        {"bad\xff.mov", EntryKind::File, PathKind::File, P::kFileAttributeNormal},
        {"folder", EntryKind::Directory, PathKind::Directory, P::kFileAttributeDirectory},
        {".hidden", EntryKind::File, PathKind::File, P::kFileAttributeHidden},
        {"locked.txt", EntryKind::File, PathKind::File, P::kFileAttributeReadOnly},
        {"sparse.raw", EntryKind::File, PathKind::File, P::kFileAttributeSparseFile},
        {"link", EntryKind::File, PathKind::File, kLink},
        {"link-to-folder", EntryKind::Directory, PathKind::Directory,
         kLink | P::kFileAttributeDirectory},
        {"dangling", EntryKind::Other, PathKind::Missing, kLink},
        {"loop-a", EntryKind::Other, PathKind::Missing, kLink},
        {"loop-b", EntryKind::Other, PathKind::Missing, kLink},
        {"fifo", EntryKind::Other, PathKind::Other, P::kFileAttributeDevice},
        {"link-to-fifo", EntryKind::Other, PathKind::Other, kLink},
        {"socket", EntryKind::Other, PathKind::Other, P::kFileAttributeDevice},
    };
    const std::vector<DirectoryEntry> entries = ReadAll(dir.path().native());
    const std::vector<DetailedEntry> detailed = ReadWith(dir.path(), P::kAllDetails);
    EXPECT_EQ(entries.size(), std::size(expected));
    EXPECT_EQ(detailed.size(), std::size(expected));
    for (const Expected& want : expected) {
        const bool isLink = (want.attributes & kLink) != 0;
        const bool device = want.attributes == P::kFileAttributeDevice;
        const bool hidden = want.name[0] == '.';
        const DirectoryEntry& entry = Find(entries, want.name);
        EXPECT_TRUE(entry.kind == want.kind && entry.isLink == isLink && entry.hidden == hidden &&
                    entry.device == device)
            << want.name;
        const DetailedEntry& details = Find(detailed, want.name);
        EXPECT_TRUE(details.detailsKnown && details.device == device) << want.name;
        EXPECT_EQ(details.attributes, want.attributes) << want.name;
        // Path tests follow links; existence does not (a dangling link is still an entry).
        EXPECT_EQ(P::GetPathKind(at(want.name)), want.pathKind) << want.name;
        EXPECT_TRUE(P::PathEntryExists(at(want.name))) << want.name;
        // Reading a FIFO or socket as a directory fails at once rather than wait for a writer.
        std::vector<DirectoryEntry> inside;
        EXPECT_EQ(P::ReadDirectory(at(want.name), inside, {}).IsOk(),
                  want.pathKind == PathKind::Directory)
            << want.name;
    }
    for (const NativeString& missing :
         {at("missing").native(), at("plain.bin/below").native(), NativeString()}) {
        EXPECT_EQ(P::GetPathKind(missing), PathKind::Missing) << missing;
        EXPECT_FALSE(P::PathEntryExists(missing) || P::HasReadAccess(missing)) << missing;
    }
    EXPECT_TRUE(P::HasReadAccess(at("fifo")));
    // Whole-file reads refuse FIFOs and sockets without opening them.
    std::string content, error;
    for (const char* name : {"fifo", "link-to-fifo", "socket"})
        EXPECT_EQ(P::ReadWholeFile(at(name), content, error), P::ReadFileStatus::Failed) << name;
    EXPECT_FALSE(watch.Stop()) << "the FIFO was opened";

    const DetailedEntry& plain = Find(detailed, "plain.bin");
    EXPECT_EQ(plain.size, 5000u);
    EXPECT_EQ(plain.lastAccessTime, accessTime);
    EXPECT_EQ(plain.lastWriteTime, writeTime);
    if (plain.creationTime) {
        EXPECT_GE(*plain.creationTime, createdNoEarlierThan) << "creation is when it was made";
    }
    EXPECT_EQ(Find(detailed, "bad\xff.mov").size, 5u);
    EXPECT_EQ(Find(detailed, "link").size, std::string("plain.bin").size()) << "its own size";
    EXPECT_EQ(Find(detailed, "link").lastWriteTime, writeTime - kMicroseconds);
    EXPECT_EQ(Find(detailed, "sparse.raw").size, std::uint64_t{64} << 20);

    // Details not asked for stay zero; names and the hidden mark alone stat only links, to
    // follow them.
    const DetailedEntry sized = Find(ReadWith(dir.path(), P::kDetailSize), "plain.bin");
    EXPECT_EQ(sized.size, 5000u);
    EXPECT_TRUE(sized.attributes == 0 && sized.lastWriteTime == 0 && !sized.creationTime);
    for (P::EntryDetails details : {P::kNoDetails, P::kDetailHidden}) {
        const std::uint64_t before = P::EntryStatCount();
        for (const DetailedEntry& entry : ReadWith(dir.path(), details))
            EXPECT_FALSE(entry.detailsKnown) << entry.name;
        EXPECT_EQ(P::EntryStatCount() - before, 6u) << details;
    }
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
    EXPECT_FALSE(P::HasReadAccess(denied.native()) || P::HasReadAccess(unreadable.native()));
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

TEST(FileDetails, FolderRemovedWhileBeingReadEndsCleanly) {
    TempDir dir;
    const fs::path doomed = dir.MakeDir("doomed");
    for (int i = 0; i < 2000; ++i)
        dir.WriteFile("doomed/file" + std::to_string(i), "x");
    std::vector<DetailedEntry> entries;
    bool removed = false;
    const Tessel::Status read =
        P::ReadDirectoryWithDetails(doomed.native(), P::kAllDetails, entries, [&] {
            if (!removed)
                fs::remove_all(doomed);
            removed = true;
            return false;
        });
    // A removed folder reads as having come to its end: what was already buffered is
    // listed, with nothing known of the vanished entries. (Listings test for the folder
    // afterwards.)
    EXPECT_TRUE(read.IsOk() && removed) << read.Message();
    for (const DetailedEntry& entry : entries)
        EXPECT_FALSE(entry.detailsKnown || entry.size != 0) << entry.name;
}

// Sets TZ (unset for nullptr) and rereads it.
void SetZone(const char* zone) {
    zone ? setenv("TZ", zone, 1) : unsetenv("TZ");
    tzset();
}

TEST(FormatLocalTime, MillisecondsInTheCurrentZoneAndEmptyWhenOutOfRange) {
    const char* old = std::getenv("TZ");
    const std::optional<std::string> saved = old ? std::optional<std::string>(old) : std::nullopt;
    SetZone("UTC");
    const std::int64_t lastSecond = 253402300799;  // 9999-12-31 23:59:59
    const std::pair<std::int64_t, const char*> cases[] = {
        {0, "1970-01-01 00:00:00.000"},
        {1999, "1970-01-01 00:00:00.001"},
        {981173106789012, "2001-02-03 04:05:06.789"},
        // Before 1970 the millisecond part still counts forwards.
        {-1, "1969-12-31 23:59:59.999"},
        {-1500000, "1969-12-31 23:59:58.500"},
        {lastSecond * kMicroseconds + 999999, "9999-12-31 23:59:59.999"},
        {(lastSecond + 1) * kMicroseconds, ""},
        {-62135596800 * kMicroseconds, "0001-01-01 00:00:00.000"},
        {-62135596801 * kMicroseconds, ""},
        {INT64_MAX, ""},
        {INT64_MIN, ""},
    };
    for (const auto& [time, text] : cases)
        EXPECT_EQ(P::FormatLocalTime(time), text) << time;
    SetZone("EST5");  // five hours behind, no summer time
    EXPECT_EQ(P::FormatLocalTime(0), "1969-12-31 19:00:00.000");
    SetZone(saved ? saved->c_str() : nullptr);
}

TEST(HiddenNames, LeadingDotOfTheLeafOnly) {
    const std::pair<const char*, bool> paths[] = {
        {".profile", true}, {"..", true}, {"/a/.x", true}, {"/a/.x//", true}, {"/.a/b", false},
        {"/a/b.", false},   {"/", false}, {"//", false},   {"", false}};
    for (const auto& [path, hidden] : paths)
        EXPECT_EQ(P::IsHiddenEntry(path), hidden) << path;
    EXPECT_TRUE(P::IsHiddenName(".profile") && !P::IsHiddenName("a.b") && !P::IsHiddenName(""));
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

// 100 ns ticks since 1970 as a FILETIME (which counts from 1601).
FILETIME FileTimeOfTicks(std::int64_t ticksSince1970) {
    const auto ticks = static_cast<std::uint64_t>(ticksSince1970 + 116444736000000000);
    return {static_cast<DWORD>(ticks & 0xFFFFFFFFu), static_cast<DWORD>(ticks >> 32)};
}

// The column values of these details are the folder provider's tests; here, what only the
// find record's own encoding can get wrong: 64-bit sizes, times around 1970, the 8.3 alias,
// and the hidden and system attributes that hide entries.
TEST(FileDetails, EveryDetailComesFromTheFindRecordAndAttributesHideEntries) {
    TempDir dir;
    const fs::path plain = dir.WriteFile("plain.bin", std::string(5000, 'x'));
    for (const auto& [name, attribute] : {std::pair{"hidden.txt", FILE_ATTRIBUTE_HIDDEN},
                                          std::pair{"system.txt", FILE_ATTRIBUTE_SYSTEM}})
        ASSERT_TRUE(SetFileAttributesW(dir.WriteFile(name).c_str(), attribute));
    ASSERT_TRUE(SetFileAttributesW(dir.MakeDir("hidden-folder").c_str(), FILE_ATTRIBUTE_HIDDEN));
    dir.WriteFile("a rather long name.text", "l");
    // A size beyond 32 bits comes from both halves of the record (no data is written).
    const std::uint64_t bigSize = (std::uint64_t{5} << 30) + 123;
    fs::resize_file(dir.WriteFile("big.raw"), bigSize);
    // 2001-02-03 04:05:06.7890123 UTC and 1969-12-31 23:59:58.7654321 UTC: microseconds are
    // rounded towards the past.
    const HANDLE file = CreateFileW(plain.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    const FILETIME access = FileTimeOfTicks(9811731067890123);
    const FILETIME write = FileTimeOfTicks(-12345679);
    EXPECT_TRUE(SetFileTime(file, nullptr, &access, &write));
    CloseHandle(file);

    const std::uint64_t statsBefore = P::EntryStatCount();
    const std::vector<DetailedEntry> entries = ReadWith(dir.path(), P::kAllDetails);
    EXPECT_EQ(P::EntryStatCount(), statsBefore) << "no entry is examined on its own";
    ASSERT_EQ(entries.size(), 6u);
    const DetailedEntry& read = Find(entries, L"plain.bin");
    EXPECT_TRUE(read.detailsKnown && read.creationTime.has_value());
    EXPECT_EQ(read.lastAccessTime, 981173106789012);
    EXPECT_EQ(read.lastWriteTime, -1234568);
    EXPECT_EQ(Find(entries, L"big.raw").size, bigSize);
    // A name that does not fit 8.3 has a short alias ("A_RA~UZ3.TEX" under Wine, "ARATHE~1.TEX"
    // on NTFS); a name that fits has none.
    const std::wstring& alias = Find(entries, L"a rather long name.text").shortName;
    EXPECT_TRUE(alias.size() <= 12 && alias.find(L'~') != std::wstring::npos);
    EXPECT_EQ(Find(entries, L"big.raw").shortName, L"");
    // Details not asked for stay zero; the hidden mark comes with every read. Windows hides
    // by attribute only.
    const auto hidden = [](const std::wstring& name) {
        return name == L"hidden.txt" || name == L"system.txt" || name == L"hidden-folder";
    };
    for (const DetailedEntry& entry : ReadWith(dir.path(), P::kDetailSize)) {
        EXPECT_TRUE(entry.attributes == 0 && entry.lastWriteTime == 0 && entry.shortName.empty());
        EXPECT_EQ(entry.hidden, hidden(entry.name)) << fs::path(entry.name).string();
    }
    for (const DirectoryEntry& entry : ReadAll(dir.path().native())) {
        EXPECT_EQ(entry.hidden, hidden(entry.name)) << fs::path(entry.name).string();
        EXPECT_EQ(P::IsHiddenEntry((dir.path() / entry.name).native()), hidden(entry.name));
        EXPECT_EQ(entry.kind == EntryKind::Directory, entry.name == L"hidden-folder");
    }
    EXPECT_FALSE(P::IsHiddenName(L".profile") || P::IsHiddenEntry(L""));
}

TEST(FileDetails, AListingAsksBeforeEachFindNextAndKeepsWhatItRead) {
    TempDir dir;
    for (int i = 0; i < 10; ++i)
        dir.WriteFile("file" + std::to_string(i));
    // Asked after ".", ".." and each entry; stopped at the fifth question, ".", ".." and
    // three entries were read; the first record is read before any question: "." in a
    // folder, an entry in a root.
    const std::pair<int, std::size_t> stops[] = {{100, 10}, {4, 3}, {0, 0}};
    for (const auto& [allowed, expected] : stops) {
        int calls = 0;
        std::vector<DetailedEntry> entries;
        ASSERT_TRUE(P::ReadDirectoryWithDetails(dir.path().native(), P::kAllDetails, entries, [&] {
                        return ++calls > allowed;
                    }).IsOk());
        EXPECT_EQ(entries.size(), expected) << allowed;
        EXPECT_EQ(calls, std::min(allowed + 1, 12)) << allowed;
    }
    std::vector<DetailedEntry> root;
    ASSERT_TRUE(P::ReadDirectoryWithDetails(L"\\\\?\\C:\\", P::kNoDetails, root, [] {
                    return true;
                }).IsOk());
    EXPECT_EQ(root.size(), 1u);
}

TEST(FormatLocalTime, SecondsAndMillisecondsInAnyZoneAndEmptyOutsideFileTimes) {
    constexpr std::int64_t kMicroseconds = 1000000;
    // The zone is the machine's, but a whole number of minutes from UTC.
    const std::string text = P::FormatLocalTime(981173106789012);
    ASSERT_EQ(text.size(), 23u) << text;
    const std::pair<std::int64_t, const char*> cases[] = {
        {981173106789012, ":06.789"}, {1999, ":00.001"}, {-1, ":59.999"}, {-1500000, ":58.500"}};
    for (const auto& [time, tail] : cases)
        EXPECT_EQ(P::FormatLocalTime(time).substr(16), tail) << time;
    // File times begin with 1601; years past 9999 have no four-digit form.
    for (const std::int64_t outside : {-11644473600 * kMicroseconds - 1,
                                       253402300800 * kMicroseconds + 200LL * 86400 * kMicroseconds,
                                       std::int64_t{INT64_MAX}, std::int64_t{INT64_MIN}})
        EXPECT_EQ(P::FormatLocalTime(outside), "") << outside;
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
    EXPECT_EQ(UpperCaseCodeUnit(u'a') + UpperCaseCodeUnit(u'_'), u'A' + u'_');
#if !defined(_WIN32)
    const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
    if (utf8 == static_cast<locale_t>(0))
        GTEST_SKIP() << "no UTF-8 locale: only ASCII is upper-cased";
    freelocale(utf8);
#endif
    // ß has no one-unit upper case.
    const std::pair<char16_t, char16_t> beyond[] = {{u'\u00E9', u'\u00C9'}, {u'\u00FF', u'\u0178'},
                                                    {u'\u03B1', u'\u0391'}, {u'\u044F', u'\u042F'},
                                                    {u'\uFF41', u'\uFF21'}, {u'\u00DF', u'\u00DF'}};
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

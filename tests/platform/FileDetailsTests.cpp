// Directory reads with details against real files: a listing that asks for names only
// must not stat, and the details that are asked for must describe the entry itself.
#include <tessel/platform/FileDetails.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "support/FileKinds.h"
#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using Tessel::Platform::DetailedEntry;
using Tessel::Platform::EntryKind;
using Tessel::Test::TempDir;
namespace P = Tessel::Platform;

std::vector<DetailedEntry> ReadWith(const fs::path& directory, P::EntryDetails details) {
    std::vector<DetailedEntry> entries;
    EXPECT_TRUE(P::ReadDirectoryWithDetails(directory.native(), details, entries, {}).IsOk());
    return entries;
}

const DetailedEntry& Find(const std::vector<DetailedEntry>& entries, const P::NativeString& name) {
    auto it = std::find_if(entries.begin(), entries.end(),
                           [&](const DetailedEntry& entry) { return entry.name == name; });
    if (it == entries.end()) {
        ADD_FAILURE() << "no entry " << fs::path(name).string();
        static const DetailedEntry kNone;
        return kNone;
    }
    return *it;
}

}  // namespace

#if !defined(_WIN32)

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr std::int64_t kMicroseconds = 1000000;

// Sets the access and write times (microseconds, >= 0) of PATH itself, not a link's target.
void SetTimes(const fs::path& path, std::int64_t access, std::int64_t write) {
    const timespec times[2] = {{access / kMicroseconds, access % kMicroseconds * 1000},
                               {write / kMicroseconds, write % kMicroseconds * 1000}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

TEST(FileDetails, NameOnlyReadsNeverStat) {
    TempDir dir;
    constexpr int kFiles = 300;
    for (int i = 0; i < kFiles; ++i)
        dir.WriteFile("clip" + std::to_string(i) + ".mxf");
    dir.MakeDir("folder");
    for (P::EntryDetails details : {P::kNoDetails, P::kDetailHidden, P::kDetailSize}) {
        const std::uint64_t before = P::EntryStatCount();
        const std::vector<DetailedEntry> entries = ReadWith(dir.path(), details);
        const bool stats = details == P::kDetailSize;
        EXPECT_EQ(entries.size(), kFiles + 1u);
        EXPECT_EQ(P::EntryStatCount(), before + (stats ? kFiles + 1 : 0)) << details;
        for (const DetailedEntry& entry : entries) {
            ASSERT_EQ(entry.detailsKnown, stats);
            ASSERT_EQ(entry.kind, entry.name == "folder" ? EntryKind::Directory : EntryKind::File);
        }
    }
}

TEST(FileDetails, SizesAttributesAndTimesDescribeTheEntryItselfAndNothingIsOpened) {
    TempDir dir;
    dir.WriteFile("plain.bin", std::string(5000, 'x'));
    dir.WriteFile(".hidden", "h");
    dir.WriteFile("bad\xff.mov", "12345");  // not UTF-8: kept as its bytes
    const fs::path readOnly = dir.WriteFile("locked.txt", "r");
    fs::permissions(readOnly, fs::perms::owner_read | fs::perms::group_read);
    dir.MakeDir("folder");
    fs::create_symlink("plain.bin", dir.path() / "link");
    fs::create_directory_symlink("folder", dir.path() / "link-to-folder");
    fs::resize_file(dir.WriteFile("sparse.raw"), 64 << 20);  // no blocks behind it
    ASSERT_TRUE(Tessel::Test::MakeFifo(dir.path() / "fifo"));
    ASSERT_TRUE(Tessel::Test::MakeUnixSocket(dir.path() / "socket"));
    fs::create_symlink("fifo", dir.path() / "link-to-fifo");
    fs::create_symlink("nowhere", dir.path() / "dangling");

    // 2001-02-03 04:05:06.789012 UTC and a day later; the link must not report its target's.
    const std::int64_t accessTime = 981173106789012;
    const std::int64_t writeTime = accessTime + 86400 * kMicroseconds;
    SetTimes(dir.path() / "plain.bin", accessTime, writeTime);
    SetTimes(dir.path() / "link", accessTime - kMicroseconds, writeTime - kMicroseconds);
    const std::int64_t createdNoEarlierThan =
        (static_cast<std::int64_t>(time(nullptr)) - 600) * kMicroseconds;

    Tessel::Test::FifoReaderWatch watch(dir.path() / "fifo");
    const std::vector<DetailedEntry> entries = ReadWith(dir.path(), P::kAllDetails);
    EXPECT_FALSE(watch.Stop()) << "the FIFO was opened";
    ASSERT_EQ(entries.size(), 12u);
    const std::uint32_t kLink = P::kFileAttributeReparsePoint;
    const std::pair<const char*, std::uint32_t> attributes[] = {
        {"plain.bin", P::kFileAttributeNormal},
        {"link", kLink},
        {"link-to-folder", kLink | P::kFileAttributeDirectory},
        {"folder", P::kFileAttributeDirectory},
        {"locked.txt", P::kFileAttributeReadOnly},
        {".hidden", P::kFileAttributeHidden},
        {"sparse.raw", P::kFileAttributeSparseFile},
        {"fifo", P::kFileAttributeDevice},
        {"socket", P::kFileAttributeDevice},
        {"link-to-fifo", kLink},
        {"dangling", kLink},
    };
    for (const auto& [name, expected] : attributes) {
        const DetailedEntry& entry = Find(entries, name);
        EXPECT_TRUE(entry.detailsKnown) << name;
        EXPECT_EQ(entry.attributes, expected) << name;
        EXPECT_EQ(entry.device, expected == P::kFileAttributeDevice) << name;
    }

    const DetailedEntry& plain = Find(entries, "plain.bin");
    EXPECT_EQ(plain.size, 5000u);
    EXPECT_EQ(plain.lastAccessTime, accessTime);
    EXPECT_EQ(plain.lastWriteTime, writeTime);
    if (plain.creationTime) {
        EXPECT_GE(*plain.creationTime, createdNoEarlierThan) << "creation is when it was made";
    }
    EXPECT_EQ(Find(entries, "bad\xff.mov").size, 5u);
    EXPECT_EQ(Find(entries, "link").size, std::string("plain.bin").size()) << "a link's own size";
    EXPECT_EQ(Find(entries, "link").lastWriteTime, writeTime - kMicroseconds);
    EXPECT_EQ(Find(entries, "sparse.raw").size, std::uint64_t{64} << 20);

    // Details not asked for stay zero.
    const DetailedEntry sized = Find(ReadWith(dir.path(), P::kDetailSize), "plain.bin");
    EXPECT_EQ(sized.size, 5000u);
    EXPECT_TRUE(sized.attributes == 0 && sized.lastWriteTime == 0 && !sized.creationTime);
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

// Sets TZ for one test and puts the old value back.
class TimeZoneGuard {
public:
    explicit TimeZoneGuard(const char* zone) {
        if (const char* old = std::getenv("TZ"))
            mOld = old;
        Set(zone);
    }
    ~TimeZoneGuard() { Set(mOld ? mOld->c_str() : nullptr); }
    void Set(const char* zone) {
        zone ? setenv("TZ", zone, 1) : unsetenv("TZ");
        tzset();
    }

private:
    std::optional<std::string> mOld;
};

TEST(FormatLocalTime, MillisecondsInTheCurrentZoneAndEmptyWhenOutOfRange) {
    TimeZoneGuard zone("UTC");
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
    zone.Set("EST5");  // five hours behind, no summer time
    EXPECT_EQ(P::FormatLocalTime(0), "1969-12-31 19:00:00.000");
}

}  // namespace

#endif  // !_WIN32

#if defined(_WIN32)

#include <windows.h>

namespace {

// 100 ns ticks since 1970 as a FILETIME (which counts from 1601).
FILETIME FileTimeOfTicks(std::int64_t ticksSince1970) {
    const auto ticks = static_cast<std::uint64_t>(ticksSince1970 + 116444736000000000);
    return {static_cast<DWORD>(ticks & 0xFFFFFFFFu), static_cast<DWORD>(ticks >> 32)};
}

// The column values of these details are the folder provider's tests; here, what only the
// find record's own encoding can get wrong: 64-bit sizes, times around 1970, the 8.3 alias.
TEST(FileDetails, EveryDetailComesFromTheFindRecord) {
    TempDir dir;
    const fs::path plain = dir.WriteFile("plain.bin", std::string(5000, 'x'));
    ASSERT_TRUE(SetFileAttributesW(dir.WriteFile("hidden.txt").c_str(), FILE_ATTRIBUTE_HIDDEN));
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
    ASSERT_EQ(entries.size(), 4u);
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
    // Details not asked for stay zero; the hidden mark comes with every read.
    for (const DetailedEntry& entry : ReadWith(dir.path(), P::kDetailSize)) {
        EXPECT_TRUE(entry.attributes == 0 && entry.lastWriteTime == 0 && entry.shortName.empty());
        EXPECT_EQ(entry.hidden, entry.name == L"hidden.txt");
    }
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

}  // namespace

#endif  // _WIN32

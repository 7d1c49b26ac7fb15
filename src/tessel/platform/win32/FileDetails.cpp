// Win32 entry details. The find record of the directory walk carries every detail (attributes,
// size, the three times, the short name), so no entry is ever examined on its own.
#include <tessel/platform/Counters.h>
#include <tessel/platform/FileDetails.h>

#include <cstdio>
#include <limits>

#include "FindFiles.h"

namespace Tessel::Platform {

namespace {

constexpr EntryDetails kRecordDetails = kDetailAttributes | kDetailSize | kDetailTimes;
// File times count 100 ns ticks from 1601-01-01 UTC; this many lie before 1970-01-01.
constexpr std::int64_t kTicksBefore1970 = 116444736000000000;
constexpr std::int64_t kTicksPerMicrosecond = 10;

std::int64_t MicrosecondsOf(const FILETIME& time) {
    const std::uint64_t ticks =
        (static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
    // Beyond the signed range no system call accepts the time either; keep it far away.
    constexpr std::int64_t kMostTicks = std::numeric_limits<std::int64_t>::max();
    const std::int64_t signedTicks = ticks > static_cast<std::uint64_t>(kMostTicks)
                                         ? kMostTicks
                                         : static_cast<std::int64_t>(ticks);
    const std::int64_t sinceEpoch = signedTicks - kTicksBefore1970;
    // Floor division, so that times before 1970 round towards the past as on POSIX.
    std::int64_t microseconds = sinceEpoch / kTicksPerMicrosecond;
    if (sinceEpoch % kTicksPerMicrosecond < 0)
        --microseconds;
    return microseconds;
}

bool IsZero(const FILETIME& time) {
    return time.dwHighDateTime == 0 && time.dwLowDateTime == 0;
}

}  // namespace

Status ReadDirectoryWithDetails(const NativeString& directory, EntryDetails details,
                                std::vector<DetailedEntry>& out,
                                const std::function<bool()>& abort) {
    const std::size_t before = out.size();
    // A listing asks before each FindNextFileW, so its first record is always read.
    Status read = Win32::FindFiles(
        directory, abort, Win32::AbortCheck::BeforeEachFindNext, [&](const WIN32_FIND_DATAW& data) {
            DetailedEntry& added = out.emplace_back();
            added.name = data.cFileName;
            added.kind = Win32::KindOfAttributes(data.dwFileAttributes);
            added.isLink = (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
            added.hidden = (data.dwFileAttributes & Win32::kHiddenAttributes) != 0;
            added.device = (data.dwFileAttributes & FILE_ATTRIBUTE_DEVICE) != 0;
            added.detailsKnown = (details & kRecordDetails) != 0;
            if (details & kDetailAttributes)
                added.attributes = data.dwFileAttributes;
            if (details & kDetailSize) {
                added.size =
                    (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
            }
            if (details & kDetailTimes) {
                // A zero creation time is one the file system did not record (some network
                // file systems report none).
                if (!IsZero(data.ftCreationTime))
                    added.creationTime = MicrosecondsOf(data.ftCreationTime);
                added.lastAccessTime = MicrosecondsOf(data.ftLastAccessTime);
                added.lastWriteTime = MicrosecondsOf(data.ftLastWriteTime);
            }
            if (details & kDetailShortName)
                added.shortName = data.cAlternateFileName;
        });
    if (!read.IsOk())
        out.resize(before);
    return read;
}

// Every detail comes with the find record: no entry is ever examined on its own.
std::uint64_t EntryStatCount() {
    return 0;
}

std::string FormatLocalTime(std::int64_t microsecondsSinceEpoch) {
    // File times start in 1601 and FileTimeToSystemTime takes only non-negative signed values.
    constexpr std::int64_t kEarliest = -kTicksBefore1970 / kTicksPerMicrosecond;
    constexpr std::int64_t kLatest =
        (std::numeric_limits<std::int64_t>::max() - kTicksBefore1970) / kTicksPerMicrosecond;
    if (microsecondsSinceEpoch < kEarliest || microsecondsSinceEpoch > kLatest)
        return {};
    const std::uint64_t ticks = static_cast<std::uint64_t>(
        microsecondsSinceEpoch * kTicksPerMicrosecond + kTicksBefore1970);
    FILETIME fileTime;
    fileTime.dwLowDateTime = static_cast<DWORD>(ticks & 0xFFFFFFFFu);
    fileTime.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    SYSTEMTIME utc;
    SYSTEMTIME local;
    if (!FileTimeToSystemTime(&fileTime, &utc) ||
        !SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local))
        return {};
    if (local.wYear < 1 || local.wYear > 9999)
        return {};
    char text[64];
    std::snprintf(text, sizeof(text), "%04u-%02u-%02u %02u:%02u:%02u.%03u",
                  static_cast<unsigned>(local.wYear), static_cast<unsigned>(local.wMonth),
                  static_cast<unsigned>(local.wDay), static_cast<unsigned>(local.wHour),
                  static_cast<unsigned>(local.wMinute), static_cast<unsigned>(local.wSecond),
                  static_cast<unsigned>(local.wMilliseconds));
    return text;
}

}  // namespace Tessel::Platform

// A point in time, as item records carry it ("CreationDate", modification dates).
// Stored as microseconds since 1970-01-01T00:00:00Z; local time is a display concern.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <tessel/platform/Export.h>

namespace Tessel {

struct TESSEL_API DateTime {
    std::int64_t microsecondsSinceEpoch = 0;

    static DateTime FromUnixSeconds(std::int64_t seconds, std::int64_t nanoseconds = 0);
    static DateTime Now();

    // "2026-11-21T08:30:05.123456Z" (fraction omitted when zero).
    std::string ToIso8601() const;
    // Accepts what ToIso8601 writes, with or without a fraction, with "Z" or "+hh:mm".
    static std::optional<DateTime> FromIso8601(std::string_view text);

    friend bool operator==(const DateTime& a, const DateTime& b) {
        return a.microsecondsSinceEpoch == b.microsecondsSinceEpoch;
    }
    friend bool operator!=(const DateTime& a, const DateTime& b) { return !(a == b); }
    friend bool operator<(const DateTime& a, const DateTime& b) {
        return a.microsecondsSinceEpoch < b.microsecondsSinceEpoch;
    }
};

}  // namespace Tessel

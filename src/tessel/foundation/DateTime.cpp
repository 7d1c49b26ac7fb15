#include <tessel/foundation/DateTime.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <limits>

namespace Tessel {

namespace {

// Days since 1970-01-01 of a proleptic Gregorian date, and back (H. Hinnant's algorithms).
std::int64_t DaysFromCivil(std::int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

void CivilFromDays(std::int64_t z, std::int64_t& y, unsigned& m, unsigned& d) {
    z += 719468;
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    y = static_cast<std::int64_t>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    y += m <= 2;
}

std::int64_t FloorDiv(std::int64_t a, std::int64_t b) {
    std::int64_t q = a / b;
    if ((a % b != 0) && ((a < 0) != (b < 0)))
        --q;
    return q;
}

bool ReadNumber(std::string_view text, std::size_t& pos, std::size_t digits, std::int64_t& out) {
    if (pos + digits > text.size())
        return false;
    out = 0;
    for (std::size_t i = 0; i < digits; ++i) {
        const char c = text[pos + i];
        if (c < '0' || c > '9')
            return false;
        out = out * 10 + (c - '0');
    }
    pos += digits;
    return true;
}

bool Expect(std::string_view text, std::size_t& pos, char c) {
    if (pos >= text.size() || text[pos] != c)
        return false;
    ++pos;
    return true;
}

}  // namespace

DateTime DateTime::FromUnixSeconds(std::int64_t seconds, std::int64_t nanoseconds) {
    // Clamped, so out-of-range times saturate instead of overflowing.
    constexpr std::int64_t kLimit = std::numeric_limits<std::int64_t>::max() / 1000000 - 1;
    seconds = std::clamp(seconds, -kLimit, kLimit);
    return DateTime{seconds * 1000000 + nanoseconds / 1000};
}

DateTime DateTime::Now() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return DateTime{std::chrono::duration_cast<std::chrono::microseconds>(now).count()};
}

std::string DateTime::ToIso8601() const {
    // The remainder is taken directly: seconds * 1000000 can overflow near the type's limits.
    std::int64_t micros = microsecondsSinceEpoch % 1000000;
    if (micros < 0)
        micros += 1000000;
    const std::int64_t seconds = FloorDiv(microsecondsSinceEpoch, 1000000);
    const std::int64_t days = FloorDiv(seconds, 86400);
    const std::int64_t secondOfDay = seconds - days * 86400;
    std::int64_t y;
    unsigned m, d;
    CivilFromDays(days, y, m, d);
    char buffer[64];
    if (micros != 0) {
        std::snprintf(buffer, sizeof buffer, "%04lld-%02u-%02uT%02d:%02d:%02d.%06lldZ",
                      static_cast<long long>(y), m, d, static_cast<int>(secondOfDay / 3600),
                      static_cast<int>(secondOfDay / 60 % 60), static_cast<int>(secondOfDay % 60),
                      static_cast<long long>(micros));
    } else {
        std::snprintf(buffer, sizeof buffer, "%04lld-%02u-%02uT%02d:%02d:%02dZ",
                      static_cast<long long>(y), m, d, static_cast<int>(secondOfDay / 3600),
                      static_cast<int>(secondOfDay / 60 % 60), static_cast<int>(secondOfDay % 60));
    }
    return buffer;
}

std::optional<DateTime> DateTime::FromIso8601(std::string_view text) {
    std::size_t pos = 0;
    std::int64_t y, mo, d, h, mi, s;
    if (!ReadNumber(text, pos, 4, y) || !Expect(text, pos, '-') || !ReadNumber(text, pos, 2, mo) ||
        !Expect(text, pos, '-') || !ReadNumber(text, pos, 2, d) || !Expect(text, pos, 'T') ||
        !ReadNumber(text, pos, 2, h) || !Expect(text, pos, ':') || !ReadNumber(text, pos, 2, mi) ||
        !Expect(text, pos, ':') || !ReadNumber(text, pos, 2, s)) {
        return std::nullopt;
    }
    if (mo < 1 || mo > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || s > 60)
        return std::nullopt;
    std::int64_t micros = 0;
    if (pos < text.size() && text[pos] == '.') {
        ++pos;
        std::size_t digits = 0;
        while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
            if (digits < 6)
                micros = micros * 10 + (text[pos] - '0');
            ++digits;
            ++pos;
        }
        if (digits == 0)
            return std::nullopt;
        for (std::size_t i = digits; i < 6; ++i)
            micros *= 10;
    }
    std::int64_t offsetSeconds = 0;
    if (pos < text.size() && text[pos] == 'Z') {
        ++pos;
    } else if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) {
        const int sign = text[pos] == '-' ? -1 : 1;
        ++pos;
        std::int64_t oh, om;
        if (!ReadNumber(text, pos, 2, oh) || !Expect(text, pos, ':') ||
            !ReadNumber(text, pos, 2, om))
            return std::nullopt;
        offsetSeconds = sign * (oh * 3600 + om * 60);
    } else {
        return std::nullopt;
    }
    if (pos != text.size())
        return std::nullopt;
    const std::int64_t days = DaysFromCivil(y, static_cast<unsigned>(mo), static_cast<unsigned>(d));
    const std::int64_t seconds = days * 86400 + h * 3600 + mi * 60 + s - offsetSeconds;
    return DateTime{seconds * 1000000 + micros};
}

}  // namespace Tessel

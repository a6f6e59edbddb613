#include "zone.hpp"

#include <time.h>

#include <array>
#include <atomic>
#include <cstddef>

namespace zxlog {
namespace {

constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kWeek = 7 * kDay;
constexpr int kWeeksKnown = 15 * 53;

// A change of the offset from UTC.
struct Change {
    std::int64_t since;   // second of the epoch
    std::int32_t offset;  // seconds east of UTC
};

// The offset at the time when the library was loaded, and its changes in the following years.
struct Changes {
    std::array<Change, 80> rows;
    std::size_t count;
};
Changes g_changes;

std::int32_t offset_at(std::int64_t sec) {
    tm local{};
    return localtime_r(&sec, &local) != nullptr ? static_cast<std::int32_t>(local.tm_gmtoff) : 0;
}

// The first second in (low, high] that has the offset of `high`.
std::int64_t change_between(std::int64_t low, std::int64_t high) {
    const std::int32_t after = offset_at(high);
    while (high - low > 1) {
        const std::int64_t middle = low + (high - low) / 2;
        (offset_at(middle) == after ? high : low) = middle;
    }
    return high;
}

// This runs before main(). Later a signal handler or a forked child might wait for ever for the C
// library's lock of the time zone. No known offset lasted less than a week.
[[gnu::constructor]] void learn_zone() {
    std::int64_t week = time(nullptr) - kDay;
    tzset();
    g_changes.rows[0] = {INT64_MIN, offset_at(week)};
    g_changes.count = 1;
    for (int i = 0; i < kWeeksKnown && g_changes.count < g_changes.rows.size(); ++i) {
        const std::int64_t next = week + kWeek;
        if (const std::int32_t offset = offset_at(next);
            offset != g_changes.rows[g_changes.count - 1].offset) {
            g_changes.rows[g_changes.count++] = {change_between(week, next), offset};
        }
        week = next;
    }
}

std::int32_t known_offset(std::int64_t sec) {
    std::size_t i = 0;
    while (i + 1 < g_changes.count && g_changes.rows[i + 1].since <= sec) {
        ++i;
    }
    return g_changes.rows[i].offset;
}

struct Date {
    std::uint16_t year;
    std::uint8_t month, day;
};

// The date of a day since 1970 in the proleptic Gregorian calendar. It counts in eras of 400 years
// that begin on 1 March.
Date date_of(std::int64_t days_since_1970) {
    const std::int64_t days = days_since_1970 + 719468;
    const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const std::int64_t day_of_era = days - era * 146097;
    const std::int64_t year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const std::int64_t day_of_year =
        day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const std::int64_t shifted_month = (5 * day_of_year + 2) / 153;
    const std::int64_t month = shifted_month < 10 ? shifted_month + 3 : shifted_month - 9;
    return {static_cast<std::uint16_t>(year_of_era + era * 400 + (month <= 2 ? 1 : 0)),
            static_cast<std::uint8_t>(month),
            static_cast<std::uint8_t>(day_of_year - (153 * shifted_month + 2) / 5 + 1)};
}

}  // namespace

CivilTime civil_time(std::int64_t epoch_sec) {
    const std::int64_t sec = epoch_sec + known_offset(epoch_sec);
    const std::int64_t day = sec / kDay - (sec % kDay < 0 ? 1 : 0);
    const auto rest = static_cast<std::int32_t>(sec - day * kDay);
    const Date date = date_of(day);
    return {date.year, date.month, date.day, rest / 3600, rest / 60 % 60, rest % 60};
}

}  // namespace zxlog

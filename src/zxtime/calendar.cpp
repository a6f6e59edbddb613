// The date-time record and the broken-down time of the C library.
#include "zxtime/calendar.hpp"

#include <cstddef>

static_assert(sizeof(rstime) == 28 && offsetof(rstime, sec) == 0 && offsetof(rstime, min) == 4);
static_assert(offsetof(rstime, hour) == 8 && offsetof(rstime, day) == 12);
static_assert(offsetof(rstime, month) == 16 && offsetof(rstime, year) == 20);
static_assert(offsetof(rstime, wday) == 24 && sizeof(time_t) == 8);

rstime zx::calendar::now() {
    const std::time_t sec = std::time(nullptr);
    std::tm local{};
    localtime_r(&sec, &local);
    return {.sec = local.tm_sec,
            .min = local.tm_min,
            .hour = local.tm_hour,
            .day = local.tm_mday,
            .month = local.tm_mon + 1,
            .year = local.tm_year + 1900,
            .wday = local.tm_wday};
}

std::uint32_t zx::calendar::seconds_of_day(const rstime& t) {
    return static_cast<std::uint32_t>(t.hour) * 3600 + static_cast<std::uint32_t>(t.min) * 60 +
           static_cast<std::uint32_t>(t.sec);
}

std::time_t zx::calendar::seconds_since_epoch(const rstime& t) {
    std::tm local{};
    local.tm_sec = t.sec;
    local.tm_min = t.min;
    local.tm_hour = t.hour;
    local.tm_mday = t.day;
    local.tm_isdst = -1;
    if (__builtin_sub_overflow(t.month, 1, &local.tm_mon) ||
        __builtin_sub_overflow(t.year, 1900, &local.tm_year)) {
        return -1;
    }
    return std::mktime(&local);
}

extern "C" void zxtime_api_rstimeGetCur(rstime* t) {
    if (t != nullptr) {
        *t = zx::calendar::now();
    }
}

extern "C" uint32_t zxtime_api_rstimeGetSec(const rstime* t) {
    return t != nullptr ? zx::calendar::seconds_of_day(*t) : 0;
}

extern "C" time_t zxtime_api_rstimeMktime(const rstime* t) {
    return t != nullptr ? zx::calendar::seconds_since_epoch(*t) : 0;
}

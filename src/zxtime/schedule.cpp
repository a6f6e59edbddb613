// Telling whether something is due.
#include "zxtime.h"

#include <ctime>
#include <tuple>

#include "zxlog.h"
#include "zxtime/calendar.hpp"

namespace {

using zx::calendar::seconds_of_day;

constexpr uint32_t kDaySec = 86400;
constexpr std::time_t kHalfHourSec = 1800;

std::tuple<int32_t, int32_t, int32_t> date_of(const rstime& t) {
    return {t.year, t.month, t.day};
}

// Stores the time of a hit for the caller. Returns 1 for a hit.
int32_t fire(bool due, std::time_t now, std::time_t* last) {
    if (due) {
        *last = now;
    }
    return due ? 1 : 0;
}

// The result is signed: when the clock was set back, it is negative and nothing is due.
std::time_t elapsed(std::time_t last, std::time_t now) {
    return static_cast<std::time_t>(static_cast<uint64_t>(now) - static_cast<uint64_t>(last));
}

std::tm local_time(std::time_t sec) {
    std::tm local{};
    localtime_r(&sec, &local);
    return local;
}

}  // namespace

extern "C" int32_t zxtime_api_isVaildDate(const rstime* t, const char* from, const char* to) {
    if (t == nullptr || from == nullptr || to == nullptr) {
        return 0;
    }
    rstime first{};
    rstime last{};
    zxtime_innerapi_parseDate(from, &first);
    zxtime_innerapi_parseDate(to, &last);
    return date_of(first) <= date_of(*t) && date_of(*t) <= date_of(last) ? 1 : 0;
}

extern "C" int32_t zxtime_api_isVaildTime(const rstime* t, const char* from, const char* to) {
    if (t == nullptr || from == nullptr || to == nullptr) {
        return 0;
    }
    rstime first{};
    rstime last{};
    zxtime_innerapi_parseTime(from, &first);
    zxtime_innerapi_parseTime(to, &last);
    const uint32_t sec = seconds_of_day(*t);
    return seconds_of_day(first) <= sec && sec <= seconds_of_day(last) ? 1 : 0;
}

extern "C" int32_t zxtime_api_isVaildWDay(const rstime* t, uint32_t mask) {
    if (t == nullptr) {
        return 0;
    }
    return static_cast<int32_t>(mask >> (static_cast<uint32_t>(t->wday) & 31U) & 1U);
}

extern "C" int32_t zxtime_api_isNewLoop(const char* start, uint32_t durationSec, int8_t* state,
                                        int8_t* lastState) {
    if (start == nullptr || state == nullptr || lastState == nullptr) {
        return 0;
    }
    rstime begin{};
    zxtime_api_parsetimestr3(start, &begin);
    const uint32_t begin_sec = seconds_of_day(begin);
    const uint32_t end_sec = begin_sec + durationSec;
    uint32_t now_sec = seconds_of_day(zx::calendar::now());
    if (kDaySec < end_sec) {
        now_sec += kDaySec;
    }
    *state = begin_sec <= now_sec && now_sec <= end_sec ? 1 : 0;
    if (*state == *lastState) {
        return 0;
    }
    *lastState = *state;
    return *state;
}

extern "C" int32_t zxtime_api_isNewDay(time_t* last) {
    if (last == nullptr) {
        return 0;
    }
    const std::time_t now = std::time(nullptr);
    if (*last != 0) {
        return fire(elapsed(*last, now) >= std::time_t{kDaySec}, now, last);
    }
    const std::tm local = local_time(now);
    return fire(local.tm_hour == 0 && local.tm_min == 0, now, last);
}

extern "C" int32_t zxtime_api_isWholeClock(time_t* last) {
    if (last == nullptr) {
        return 0;
    }
    const std::time_t now = std::time(nullptr);
    if (*last != 0) {
        return fire(elapsed(*last, now) >= kHalfHourSec, now, last);
    }
    const std::tm local = local_time(now);
    return fire(local.tm_min == 0 || local.tm_min == 30, now, last);
}

extern "C" int32_t zxtime_api_isPass(const rstime* t) {
    if (t == nullptr) {
        return 0;
    }
    return std::time(nullptr) >= zxtime_api_rstimeMktime(t) ? 1 : 0;
}

extern "C" int32_t zxtime_api_moreThan(const rstime* a, const rstime* b) {
    if (a == nullptr || b == nullptr) {
        return 0;
    }
    return zxtime_api_rstimeMktime(a) > zxtime_api_rstimeMktime(b) ? 1 : 0;
}

extern "C" int32_t zxtime_api_timeout(const rstime* a, const rstime* b, uint64_t limitSec) {
    if (a == nullptr || b == nullptr) {
        return 0;
    }
    const auto passed = static_cast<uint64_t>(zxtime_api_rstimeMktime(b)) -
                        static_cast<uint64_t>(zxtime_api_rstimeMktime(a));
    return limitSec < passed ? 1 : 0;
}

extern "C" int32_t zxtime_api_timeout2(uint64_t a, uint64_t b, uint64_t limit) {
    return a > b + limit || b > a + limit ? 1 : 0;
}

extern "C" int32_t zxtime_api_counterAsyncUs(uint64_t* last, uint64_t intervalUs) {
    if (last == nullptr) {
        return 0;
    }
    const uint64_t now = zxtime_api_us();
    if (*last <= now && now <= *last + intervalUs) {
        return 0;
    }
    *last = now;
    return 1;
}

extern "C" int32_t zxtime_api_counterAsyncSec(uint64_t* last, uint32_t intervalSec) {
    if (last == nullptr) {
        return 0;
    }
    return static_cast<int8_t>(zxlog_api_timerAsyncSec(last, intervalSec));
}

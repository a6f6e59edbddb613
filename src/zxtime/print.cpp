// Printing dates, times and durations.
#include "zxtime.h"

#include <cinttypes>
#include <cstring>
#include <ctime>

#include "internal/args.hpp"
#include "internal/fixed_text.hpp"
#include "internal/log.hpp"
#include "shared/trusted_format.hpp"
#include "shared/units.hpp"
#include "zxlog.h"
#include "zxtime/calendar.hpp"

namespace {

constexpr char kTag[] = "TIME";

// The static buffer of a function that prints the current time.
using StaticText = char[ZXTIME_STATIC_SIZE];

// Prints some fields of the current time into the function's static buffer.
template <typename... Fields>
char* print_now(StaticText& text, const char* fmt, Fields... fields) {
    if (fmt == nullptr) {
        return nullptr;
    }
    const rstime now = zx::calendar::now();
    std::memset(text, 0, std::strlen(text));
    zx::print_trusted(text, sizeof text, fmt, now.*fields...);
    return &text[0];
}

// The first step of all functions that print an instant. False when there is nothing to print.
template <typename Instant>
bool prepare(const Instant* instant, const char* fmt, char* out) {
    if (instant == nullptr || fmt == nullptr || out == nullptr) {
        return false;
    }
    std::memset(out, 0, zx::kClearedSize);
    return true;
}

void print_date_time(std::time_t sec, const char* fmt, char* out) {
    std::tm t{};
    if (localtime_r(&sec, &t) != nullptr) {
        zx::print_trusted(out, zx::kUnsized, fmt, t.tm_year + 1900, t.tm_mon + 1, t.tm_mday,
                          t.tm_hour, t.tm_min, t.tm_sec);
    }
}

void print_time(std::time_t sec, const char* fmt, char* out) {
    std::tm t{};
    if (localtime_r(&sec, &t) != nullptr) {
        zx::print_trusted(out, zx::kUnsized, fmt, t.tm_hour, t.tm_min, t.tm_sec);
    }
}

std::time_t whole_seconds(std::uint64_t us) {
    return static_cast<std::time_t>(us / zx::kUsPerSec);
}

}  // namespace

extern "C" void zxtime_api_rstimePrint(const rstime* t) {
    if (t == nullptr) {
        return;
    }
    ZX_LOG(debug, "%04d-%02d-%02d %02d:%02d:%02d", t->year, t->month, t->day, t->hour, t->min,
           t->sec);
}

extern "C" char* zxtime_api_rtstime2DTime(const char* fmt, const rstime* t, char* out) {
    if (!ZX_ARE_GIVEN({out, "outstr"})) {
        return nullptr;
    }
    if (fmt == nullptr || t == nullptr) {
        return nullptr;
    }
    zx::print_trusted(out, zx::kUnsized, fmt, t->year, t->month, t->day, t->hour, t->min, t->sec);
    return out;
}

extern "C" const char* zxtime_api_curDTime(const char* fmt) {
    return zxlog_api_curDTime(fmt);
}

extern "C" char* zxtime_api_curDate(const char* fmt) {
    static StaticText text;
    return print_now(text, fmt, &rstime::year, &rstime::month, &rstime::day);
}

extern "C" char* zxtime_api_curYM(const char* fmt) {
    static StaticText text;
    return print_now(text, fmt, &rstime::year, &rstime::month);
}

extern "C" char* zxtime_api_curTime(const char* fmt) {
    static StaticText text;
    return print_now(text, fmt, &rstime::hour, &rstime::min, &rstime::sec);
}

extern "C" void zxtime_api_us2DTime(const uint64_t* us, const char* fmt, char* out) {
    if (prepare(us, fmt, out)) {
        print_date_time(whole_seconds(*us), fmt, out);
    }
}

extern "C" void zxtime_api_sec2DTime(const time_t* sec, const char* fmt, char* out) {
    if (prepare(sec, fmt, out)) {
        print_date_time(*sec, fmt, out);
    }
}

extern "C" void zxtime_api_us2str(const uint64_t* us, const char* fmt, char* out) {
    if (prepare(us, fmt, out)) {
        print_time(whole_seconds(*us), fmt, out);
    }
}

extern "C" void zxtime_api_sec2str(const time_t* sec, const char* fmt, char* out) {
    if (prepare(sec, fmt, out)) {
        print_time(*sec, fmt, out);
    }
}

extern "C" char* zxtime_api_ms2str2(uint64_t ms, char* out) {
    if (out == nullptr) {
        return nullptr;
    }
    std::memset(out, 0, zx::kClearedSize);
    if (ms == UINT64_MAX) {
        return std::strcpy(out, "unvalid");
    }
    const uint64_t days = ms / 86400000;
    int used = 0;
    if (days != 0) {
        used = zx::print_trusted(out, ZXTIME_DURATION_SIZE, "%" PRIu64 "_", days);
    }
    zx::print_trusted(out + used, ZXTIME_DURATION_SIZE - static_cast<std::size_t>(used),
                      "%d:%d:%d.%d", static_cast<int>(ms / 3600000 % 24),
                      static_cast<int>(ms / 60000 % 60), static_cast<int>(ms / 1000 % 60),
                      static_cast<int>(ms % 1000));
    return out;
}

extern "C" char* zxtime_api_us2str2(uint64_t us, char* out) {
    return out == nullptr ? nullptr : zxlog_api_us2time(us, out, ".%d", "%d(s).%d.%d");
}

extern "C" char* zxtime_api_sec2str2(uint64_t sec, char* out) {
    return out == nullptr ? nullptr : zxlog_api_sec2Time(sec, out);
}

// Lines, number texts and the clocks with their texts.
#include <time.h>

#include <cstdio>
#include <cstring>

#include "line_buffer.hpp"
#include "sink.hpp"
#include "write_once.hpp"
#include "zone.hpp"
#include "zxlog.h"

namespace {

constexpr std::uint64_t kMicro = 1000000;

// Several, so that a handler that interrupts a thread does not overwrite the text that the thread
// is about to print. Initial-exec: reaching them allocates nothing.
constexpr unsigned kTimeTexts = 16;
[[gnu::tls_model("initial-exec")]] thread_local char t_time_texts[kTimeTexts][ZXLOG_SCRATCH_SIZE];
[[gnu::tls_model("initial-exec")]] thread_local unsigned t_next_time_text;

constexpr char kTimeShape[] = "[yyyy-mm-dd hh:mm:ss.mmm]";
static_assert(sizeof kTimeShape <= ZXLOG_SCRATCH_SIZE);

timespec wall_clock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

void put_pair(char* at, int value) {
    at[0] = static_cast<char>('0' + value / 10);
    at[1] = static_cast<char>('0' + value % 10);
}

// Formats of the caller: trusted, so the compiler cannot and need not check them.
void print_trusted(char* out, std::size_t size, const char* fmt, ...) {
    std::va_list args;
    va_start(args, fmt);
    std::vsnprintf(out, size, fmt, args);
    va_end(args);
}

}  // namespace

extern "C" {

const char* zxlog_innerapi_logTime(void) {
    const zxlog::ErrnoKept errno_kept;
    zxlog::take_descriptor();
    const timespec now = wall_clock();
    const zxlog::CivilTime t = zxlog::civil_time(now.tv_sec);

    char* const text = t_time_texts[t_next_time_text++ % kTimeTexts];
    std::memcpy(text, kTimeShape, sizeof kTimeShape);
    put_pair(text + 1, t.year / 100);
    put_pair(text + 3, t.year % 100);
    put_pair(text + 6, t.month);
    put_pair(text + 9, t.day);
    put_pair(text + 12, t.hour);
    put_pair(text + 15, t.minute);
    put_pair(text + 18, t.second);
    const int millis = static_cast<int>(now.tv_nsec / 1000000);
    put_pair(text + 21, millis / 10);
    text[23] = static_cast<char>('0' + millis % 10);
    return text;
}

void zxlog_innerapi_file(const char* fmt, ...) {
    if (fmt == nullptr || zxlog_api_getLoglevel() == 0) {
        return;
    }
    const zxlog::ErrnoKept errno_kept;
    zxlog::LineBuffer line;
    std::va_list args;
    va_start(args, fmt);
    line.format(fmt, args);
    va_end(args);
    zxlog::write_line(line.data(), line.size());
}

char* zxlog_innerapi_num2str(char* scratch, std::uint64_t num) {
    if (scratch == nullptr) {
        return nullptr;
    }
    std::snprintf(scratch, ZXLOG_SCRATCH_SIZE, "%llu", static_cast<unsigned long long>(num));
    return scratch;
}

char* zxlog_innerapi_bitByte64(char* scratch, std::uint64_t whole, std::uint64_t fraction,
                               const char* unit) {
    if (scratch == nullptr) {
        return nullptr;
    }
    const auto whole_part = static_cast<unsigned long long>(whole);
    const char* const unit_text = unit != nullptr ? unit : "";
    if (fraction == 0) {
        std::snprintf(scratch, ZXLOG_SCRATCH_SIZE, "%llu%s", whole_part, unit_text);
    } else {
        const auto hundredths = static_cast<unsigned>(fraction % 1024 * 100 / 1024);
        std::snprintf(scratch, ZXLOG_SCRATCH_SIZE, "%llu.%02u%s", whole_part, hundredths,
                      unit_text);
    }
    return scratch;
}

char* zxlog_innerapi_bitByte32(char* scratch, std::uint32_t whole, std::uint32_t fraction,
                               const char* unit) {
    return zxlog_innerapi_bitByte64(scratch, whole, fraction, unit);
}

std::uint64_t zxlog_api_us(void) {
    const timespec now = wall_clock();
    return static_cast<std::uint64_t>(now.tv_sec) * kMicro +
           static_cast<std::uint64_t>(now.tv_nsec) / 1000;
}

const char* zxlog_api_curDTime(const char* fmt) {
    thread_local char text[128];
    text[0] = '\0';
    if (fmt != nullptr) {
        const time_t now = wall_clock().tv_sec;
        tm t{};
        tzset();  // localtime_r need not ask whether TZ has changed
        localtime_r(&now, &t);
        print_trusted(text, sizeof text, fmt, t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour,
                      t.tm_min, t.tm_sec);
    }
    return text;
}

char* zxlog_api_us2time(std::uint64_t us, char* out, const char* fmtBelowSecond,
                        const char* fmtSeconds) {
    if (out == nullptr) {
        return nullptr;
    }
    const auto micros = static_cast<int>(us % 1000);
    const auto millis = static_cast<int>(us / 1000 % 1000);
    if (us < kMicro) {
        print_trusted(out, SIZE_MAX / 2, fmtBelowSecond, static_cast<int>(us));
    } else {
        print_trusted(out, SIZE_MAX / 2, fmtSeconds, static_cast<int>(us / kMicro), millis, micros);
    }
    return out;
}

char* zxlog_api_sec2Time(std::uint64_t sec, char* out) {
    if (out == nullptr) {
        return nullptr;
    }
    const auto days = static_cast<unsigned long long>(sec / 86400);
    int used = 0;
    if (days != 0) {
        used = std::snprintf(out, ZXLOG_SCRATCH_SIZE, "%llu_", days);
    }
    std::snprintf(out + used, ZXLOG_SCRATCH_SIZE - static_cast<std::size_t>(used), "%02u:%02u:%02u",
                  static_cast<unsigned>(sec / 3600 % 24), static_cast<unsigned>(sec / 60 % 60),
                  static_cast<unsigned>(sec % 60));
    return out;
}

std::int32_t zxlog_api_timerAsyncSec(std::uint64_t* last, std::uint32_t intervalSec) {
    const auto now = static_cast<std::uint64_t>(wall_clock().tv_sec);
    if (last == nullptr || (*last <= now && now <= *last + intervalSec)) {
        return 0;
    }
    *last = now;
    return 1;
}

}  // extern "C"

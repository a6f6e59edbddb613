// The clock, and times as texts.
#include <time.h>

#include <cstdint>
#include <cstdio>

#include "shared/trusted_format.hpp"
#include "shared/units.hpp"
#include "wall_clock.hpp"
#include "zxlog.h"

extern "C" {

std::uint64_t zxlog_api_us(void) {
    const timespec now = zxlog::wall_clock();
    return static_cast<std::uint64_t>(now.tv_sec) * zx::kUsPerSec +
           static_cast<std::uint64_t>(now.tv_nsec) / 1000;
}

const char* zxlog_api_curDTime(const char* fmt) {
    thread_local char text[128];
    text[0] = '\0';
    if (fmt != nullptr) {
        const time_t now = zxlog::wall_clock().tv_sec;
        tm t{};
        tzset();  // localtime_r() may miss a change of TZ
        localtime_r(&now, &t);
        zx::print_trusted(text, sizeof text, fmt, t.tm_year + 1900, t.tm_mon + 1, t.tm_mday,
                          t.tm_hour, t.tm_min, t.tm_sec);
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
    if (us < zx::kUsPerSec) {
        zx::print_trusted(out, zx::kUnsized, fmtBelowSecond, static_cast<int>(us));
    } else {
        zx::print_trusted(out, zx::kUnsized, fmtSeconds, static_cast<int>(us / zx::kUsPerSec),
                          millis, micros);
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
    const auto now = static_cast<std::uint64_t>(zxlog::wall_clock().tv_sec);
    if (last == nullptr || (*last <= now && now <= *last + intervalSec)) {
        return 0;
    }
    *last = now;
    return 1;
}

}  // extern "C"

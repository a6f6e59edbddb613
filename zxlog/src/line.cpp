// Lines of the log, and the time at their start.
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstring>

#include "shared/line_buffer.hpp"
#include "shared/write_once.hpp"
#include "sink.hpp"
#include "wall_clock.hpp"
#include "zone.hpp"
#include "zxlog.h"

namespace {

// There are several: a signal handler must not overwrite the text that the interrupted thread is
// about to print. With the model initial-exec, using them allocates nothing.
constexpr unsigned kTimeTexts = 16;
[[gnu::tls_model("initial-exec")]] thread_local char t_time_texts[kTimeTexts][ZXLOG_SCRATCH_SIZE];
[[gnu::tls_model("initial-exec")]] thread_local unsigned t_next_time_text;

std::atomic<zxdiag_log_tap_cb> g_tap{nullptr};

constexpr char kTimeShape[] = "[yyyy-mm-dd hh:mm:ss.mmm]";
static_assert(sizeof kTimeShape <= ZXLOG_SCRATCH_SIZE);

void put_pair(char* at, int value) {
    at[0] = static_cast<char>('0' + value / 10);
    at[1] = static_cast<char>('0' + value % 10);
}

}  // namespace

extern "C" {

const char* zxlog_innerapi_logTime(void) {
    const zx::ErrnoKept errno_kept;
    zxlog::take_descriptor();
    const timespec now = zxlog::wall_clock();
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
    const zx::ErrnoKept errno_kept;
    zx::LineBuffer line;
    std::va_list args;
    va_start(args, fmt);
    line.format(fmt, args);
    va_end(args);
    if (const auto tap = g_tap.load(std::memory_order_acquire); tap != nullptr) [[unlikely]] {
        tap(line.data(), static_cast<std::uint32_t>(line.size()));
    }
    zxlog::write_line(line.data(), line.size());
}

void zxdiag_log_setTap(zxdiag_log_tap_cb tap) {
    g_tap.store(tap, std::memory_order_release);
}

}  // extern "C"

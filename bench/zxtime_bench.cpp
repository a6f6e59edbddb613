// Clocks, and dates as texts, compared with the C library, GLib and libavutil.
#include "zxtime.h"

#include <glib.h>

#include <cstring>
#include <ctime>

#include "support.hpp"

extern "C" {
#include <libavutil/time.h>
}

namespace {

constexpr std::time_t kInstant = 1714552200;
constexpr char kText[] = "2024-05-01 08:30:00";

char g_text[64];
std::int64_t g_number;
rstime g_record;
std::tm g_tm;

void clock_library() {
    g_number = static_cast<std::int64_t>(zxtime_api_us());
}
void clock_libavutil() {
    g_number = av_gettime();
}
void clock_glib() {
    g_number = g_get_real_time();
}

void record_library() {
    zxtime_api_rstimeGetCur(&g_record);
}
void record_libc() {
    const std::time_t now = std::time(nullptr);
    localtime_r(&now, &g_tm);
}

void print_library() {
    zxtime_api_sec2DTime(&kInstant, "%04d-%02d-%02d %02d:%02d:%02d", g_text);
}
void print_libc() {
    std::tm t{};
    localtime_r(&kInstant, &t);
    std::strftime(g_text, sizeof g_text, "%Y-%m-%d %H:%M:%S", &t);
}
void print_glib() {
    GDateTime* const t = g_date_time_new_from_unix_local(kInstant);
    g_free(g_date_time_format(t, "%Y-%m-%d %H:%M:%S"));
    g_date_time_unref(t);
}

void parse_library() {
    zxtime_api_parsetimestr2(kText, &g_record);
}
void parse_libc() {
    strptime(kText, "%Y-%m-%d %H:%M:%S", &g_tm);
}
void parse_glib() {
    static GTimeZone* const zone = g_time_zone_new_local();
    g_date_time_unref(g_date_time_new_from_iso8601(kText, zone));
}

void make_library() {
    g_number = zxtime_api_rstimeMktime(&g_record);
}
void make_libc() {
    std::tm t = g_tm;
    t.tm_isdst = -1;
    g_number = std::mktime(&t);
}

void print_seconds_library() {
    zxtime_api_ms2str2(90061001, g_text);
}
void print_seconds_libc() {
    std::snprintf(g_text, sizeof g_text, "%d_%d:%d:%d.%d", 1, 1, 1, 1, 1);
}

void calls(benchmark::State& state, void (*call)()) {
    parse_library();
    parse_libc();
    for ([[maybe_unused]] auto _ : state) {
        call();
        benchmark::ClobberMemory();
    }
}
BENCHMARK_CAPTURE(calls, a, clock_library)->Name("us/library");
BENCHMARK_CAPTURE(calls, b, clock_libavutil)->Name("us/libavutil");
BENCHMARK_CAPTURE(calls, c, clock_glib)->Name("us/glib");
BENCHMARK_CAPTURE(calls, d, record_library)->Name("rstimeGetCur/library");
BENCHMARK_CAPTURE(calls, e, record_libc)->Name("rstimeGetCur/localtime_r");
BENCHMARK_CAPTURE(calls, f, print_library)->Name("sec2DTime/library");
BENCHMARK_CAPTURE(calls, g, print_libc)->Name("sec2DTime/strftime");
BENCHMARK_CAPTURE(calls, h, print_glib)->Name("sec2DTime/glib");
BENCHMARK_CAPTURE(calls, i, parse_library)->Name("parsetimestr2/library");
BENCHMARK_CAPTURE(calls, j, parse_libc)->Name("parsetimestr2/strptime");
BENCHMARK_CAPTURE(calls, k, parse_glib)->Name("parsetimestr2/glib");
BENCHMARK_CAPTURE(calls, l, make_library)->Name("rstimeMktime/library");
BENCHMARK_CAPTURE(calls, m, make_libc)->Name("rstimeMktime/mktime");
BENCHMARK_CAPTURE(calls, n, print_seconds_library)->Name("ms2str2/library");
BENCHMARK_CAPTURE(calls, o, print_seconds_libc)->Name("ms2str2/snprintf");

}  // namespace

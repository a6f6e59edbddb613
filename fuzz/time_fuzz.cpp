// Reads any text as dates and times, prints any instant and duration, and asks at any time what is
// due. Compares that with the fixed positions of the layouts and with plain arithmetic.
#include <sys/time.h>

#include <array>
#include <cinttypes>
#include <ctime>
#include <tuple>

#include "said.hpp"
#include "support.hpp"
#include "zxtime.h"

namespace {

using zx::fuzz::GuardedMemory;
using zx::fuzz::Input;
using zx::fuzz::require;

constexpr char kFormat[] = "%04d-%02d-%02d %02d:%02d:%02d";
constexpr std::int64_t kDaySec = 86400;
constexpr std::int64_t kWestOfGreenwichSec = 12600;

std::time_t g_now = 0;       // the library's clock
std::uint64_t g_now_us = 0;  // the logging library's clock
std::int32_t g_timer_result = 0;
int g_clock_result = 0;
std::string g_machine;  // what the library tried to do to this machine

// The positions of year, month, day, hour, minute and second; -1: not in this layout.
struct Layout {
    void (*parse)(const char*, rstime*);
    std::array<int, 6> at;
};
constexpr Layout kLayouts[] = {
    {zxtime_innerapi_parseDate, {0, 5, 8, -1, -1, -1}},
    {zxtime_innerapi_parseTime, {-1, -1, -1, 0, 3, 6}},
    {zxtime_innerapi_parseDateTime, {0, 4, 6, 8, 10, 12}},
    {zxtime_api_parsetimestr2, {0, 5, 8, 11, 14, 17}},
    {zxtime_api_parsetimestr3, {0, 4, 6, 9, 12, 15}},
};
constexpr std::array<int, 6> kRangeBegin{1, 5, 7, 9, 11, 13};
constexpr std::array<int, 6> kRangeEnd{16, 20, 22, 24, 26, 28};

rstime parsed(const std::string& text, const std::array<int, 6>& at, rstime t) {
    const std::array<std::int32_t*, 6> fields{&t.year, &t.month, &t.day, &t.hour, &t.min, &t.sec};
    for (std::size_t i = 0; i < at.size(); ++i) {
        if (at[i] >= 0) {
            const std::size_t begin = std::min(static_cast<std::size_t>(at[i]), text.size());
            *fields[i] = std::atoi(text.substr(begin, i == 0 ? 4 : 2).c_str());
        }
    }
    return t;
}

bool same(const rstime& a, const rstime& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

template <typename... Args>
std::string printed(const char* fmt, Args... args) {
    char text[160];
    int (*const print)(char*, std::size_t, const char*, ...) = std::snprintf;
    return {text, static_cast<std::size_t>(print(text, sizeof text, fmt, args...))};
}

std::string plain(const rstime& t) {
    return printed(kFormat, t.year, t.month, t.day, t.hour, t.min, t.sec);
}

std::string compact(const rstime& t) {
    return printed("%04d%02d%02d%02d%02d%02d", t.year, t.month, t.day, t.hour, t.min, t.sec);
}

void check_parsers(const std::string& text, const char* placed, const rstime& old) {
    static GuardedMemory records(sizeof(rstime));
    static GuardedMemory range(ZXTIME_RANGE_SIZE);
    zx::fuzz::Lines lines{"TIME", zxlog_api_getLoglevel()};
    zx::fuzz::take_said();
    for (const Layout& layout : kLayouts) {
        auto& t = records.record<rstime>(0);
        t = old;
        layout.parse(placed, &t);
        require(same(t, parsed(text, layout.at, old)), "the fields of a layout");
        if (layout.parse == zxtime_innerapi_parseDateTime) {
            zxtime_api_rstimePrint(&t);
            lines.say(5, "%s", plain(t).c_str());
            lines.say(5, "%s", plain(t).c_str());
        }
    }
    rstime begin = old;
    rstime end = old;
    char* const out = range.old_text(ZXTIME_RANGE_SIZE);
    zxtime_api_parsetimestr1(placed, &begin, &end, out);
    require(same(begin, parsed(text, kRangeBegin, old)) && same(end, parsed(text, kRangeEnd, old)),
            "the fields of a range");
    require(out == zx::fuzz::cut(compact(begin) + "-" + compact(end), ZXTIME_RANGE_SIZE),
            "the text of a range");
    lines.say(5, "\n\t\t\t\t\t%s   \n\t\t\t\t\t%s", plain(begin).c_str(), plain(end).c_str());

    rstime wanted = parsed(text, kLayouts[2].at, {});
    g_machine.clear();
    require(zxtime_api_setDTime(placed) == (g_clock_result == 0 ? 1 : 0), "the clock is set");
    require(g_machine == std::to_string(zxtime_api_rstimeMktime(&wanted)) + ".0" +
                             (g_clock_result == 0 ? " hwclock --systohc" : ""),
            "what it is set to");
    lines.say(5, "%s", plain(wanted).c_str());
    if (g_clock_result != 0) {
        lines.say(1, "set system datatime to  %s   error", placed);
    }
    require(zx::fuzz::take_said() == lines.said, "the lines");
}

// The Gregorian calendar, with years that begin in March. The type is wide enough for any record.
__extension__ using Wide = __int128;
Wide seconds_of(const rstime& t) {
    const std::int64_t months = std::int64_t{t.month} - 3;
    const std::int64_t carried = months / 12 - (months % 12 < 0 ? 1 : 0);
    const std::int64_t year = t.year + carried;
    const std::int64_t leaps = [](std::int64_t y) {
        const auto down = [y](std::int64_t by) { return y / by - (y % by < 0 ? 1 : 0); };
        return down(4) - down(100) + down(400);
    }(year);
    const std::int64_t days = 365 * year + leaps + (153 * (months - 12 * carried) + 2) / 5 - 719469;
    return Wide{kDaySec} * (days + t.day) + Wide{3600} * t.hour + Wide{60} * t.min + t.sec +
           kWestOfGreenwichSec;
}

// A year of the C library has 32 bits, which limits the result.
std::int64_t expected_mktime(const rstime& t) {
    constexpr std::int64_t kFarthest = 1LL << 57U;
    const Wide sec = seconds_of(t);
    std::tm out{};
    const bool is_far = sec > kFarthest || sec < -kFarthest;
    const auto local = static_cast<std::time_t>(is_far ? 0 : sec) - kWestOfGreenwichSec;
    return is_far || gmtime_r(&local, &out) == nullptr ? -1 : static_cast<std::int64_t>(sec);
}

std::uint32_t second_of_day(const rstime& t) {
    return static_cast<std::uint32_t>(t.hour) * 3600U + static_cast<std::uint32_t>(t.min) * 60U +
           static_cast<std::uint32_t>(t.sec);
}

// Checks ranges from the date or time at the start of the text to the one after it.
void check_ranges(const rstime& t, const std::string& text, const char* placed) {
    const auto date = [](const rstime& at) { return std::tuple(at.year, at.month, at.day); };
    const auto field = [&text](std::size_t skipped, const Layout& layout) {
        return parsed(text.substr(skipped), layout.at, {});
    };
    std::size_t next = std::min<std::size_t>(11, text.size());
    require(
        zxtime_api_isVaildDate(&t, placed, placed + next) ==
            (date(field(0, kLayouts[0])) <= date(t) && date(t) <= date(field(next, kLayouts[0]))),
        "a range of days");
    next = std::min<std::size_t>(9, text.size());
    const std::uint32_t sec = second_of_day(t);
    require(zxtime_api_rstimeGetSec(&t) == sec, "the second of a day");
    require(zxtime_api_isVaildTime(&t, placed, placed + next) ==
                (second_of_day(field(0, kLayouts[1])) <= sec &&
                 sec <= second_of_day(field(next, kLayouts[1]))),
            "a range of times");
}

void check_records(const rstime& a, const rstime& b, std::uint64_t limit, const std::string& text,
                   const char* placed) {
    constexpr std::int32_t kLeast = INT32_MIN;
    const std::int64_t of_a = expected_mktime(a);
    const std::int64_t of_b = expected_mktime(b);
    const bool fits = a.month != kLeast && a.year >= kLeast + 1900;
    require(zxtime_api_rstimeMktime(&a) == (fits ? of_a : -1), "the seconds of a record");
    require(zxtime_api_isPass(&a) == (g_now >= (fits ? of_a : -1) ? 1 : 0), "an instant gone by");
    if (fits && b.month != kLeast && b.year >= kLeast + 1900) {
        require(zxtime_api_moreThan(&a, &b) == (of_a > of_b ? 1 : 0), "the order of records");
        const auto passed = static_cast<std::uint64_t>(of_b) - static_cast<std::uint64_t>(of_a);
        require(zxtime_api_timeout(&a, &b, limit) == (passed > limit ? 1 : 0), "the time between");
    }
    check_ranges(a, text, placed);
    require(zxtime_api_isVaildWDay(&a, static_cast<std::uint32_t>(limit)) ==
                static_cast<std::int32_t>(limit >> (a.wday & 31) & 1U),
            "a set of weekdays");
}

void check_printers(GuardedMemory& out, std::int64_t sec) {
    const std::time_t local = sec - (sec > INT64_MIN + kDaySec ? kWestOfGreenwichSec : 0);
    std::tm t{};
    const bool has_year = gmtime_r(&local, &t) != nullptr;
    const std::string expected = has_year ? printed(kFormat, t.tm_year + 1900, t.tm_mon + 1,
                                                    t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec)
                                          : "";
    char* const text = out.old_text(std::max<std::size_t>(8, expected.size() + 1));
    zxtime_api_sec2DTime(&sec, kFormat, text);
    require(text == expected, "the text of an instant");
    if (expected.size() == 19) {  // a year of four digits
        rstime again{};
        zxtime_api_parsetimestr2(text, &again);
        require(zxtime_api_rstimeMktime(&again) == sec, "the instant of its text");
    }
    for (const bool is_us : {false, true}) {
        if (is_us ? sec < 0 || sec > INT64_MAX / 2000000 : !has_year) {
            continue;
        }
        const auto us = static_cast<std::uint64_t>(sec) * 1000000 + 999999;
        char* const raw = reinterpret_cast<char*>(out.fill(24, 'x'));
        is_us ? zxtime_api_us2str(&us, "%d.%d.%d", raw) : zxtime_api_sec2str(&sec, "%d.%d.%d", raw);
        std::string clock = printed("%d.%d.%d", t.tm_hour, t.tm_min, t.tm_sec) + '\0';
        clock.resize(std::max<std::size_t>(clock.size(), 8));  // 8 bytes are always cleared
        clock.resize(24, 'x');
        require(std::string(raw, 24) == clock, "the time of an instant");
        if (is_us) {
            char* const again = out.old_text(std::max<std::size_t>(8, expected.size() + 1));
            zxtime_api_us2DTime(&us, kFormat, again);
            require(again == expected, "the text of microseconds");
        }
    }
}

// Makes a format with at most six conversions of numbers, and other characters.
std::string some_format(Input& input) {
    constexpr const char* kPieces[] = {"%04d", "%02d", "%d",  "%09d", "%i", "%x",
                                       "%5d",  "%-4d", "%+d", "%.3d", "-",  "%%"};
    std::string fmt;
    for (int i = 0; i < 6; ++i) {
        fmt += kPieces[input.take_below(std::size(kPieces))];
    }
    return fmt;
}

void check_format(GuardedMemory& out, const std::string& fmt, const rstime& t) {
    const std::string expected = printed(fmt.c_str(), t.year, t.month, t.day, t.hour, t.min, t.sec);
    char* const text = out.old_text(expected.size() + 1);
    require(zxtime_api_rtstime2DTime(fmt.c_str(), &t, text) == text && text == expected,
            "a record in any format");
}

// Calls the three functions that print the current time. Each has 64 bytes of its own.
void check_static(std::size_t length, const rstime& now) {
    const std::string fmt = std::string(length, 'x') + "%04d|%d|%d";
    const std::string short_fmt = std::string(length, 'x') + "%04d|%d";
    const char* const texts[] = {zxtime_api_curDate(fmt.c_str()),
                                 zxtime_api_curYM(short_fmt.c_str()),
                                 zxtime_api_curTime(fmt.c_str())};
    const std::string expected[] = {printed(fmt.c_str(), now.year, now.month, now.day),
                                    printed(short_fmt.c_str(), now.year, now.month),
                                    printed(fmt.c_str(), now.hour, now.min, now.sec)};
    for (std::size_t i = 0; i < std::size(texts); ++i) {
        std::string whole = zx::fuzz::cut(expected[i], ZXTIME_STATIC_SIZE);
        whole.resize(ZXTIME_STATIC_SIZE);
        require(std::string(texts[i], whole.size()) == whole, "the current time in any format");
    }
}

void check_clocks(std::size_t length) {
    const std::time_t local = g_now - kWestOfGreenwichSec;
    std::tm t{};
    gmtime_r(&local, &t);
    const rstime expected{t.tm_sec,     t.tm_min,         t.tm_hour, t.tm_mday,
                          t.tm_mon + 1, t.tm_year + 1900, t.tm_wday};
    rstime now{};
    zxtime_api_rstimeGetCur(&now);
    require(same(now, expected), "the record of now");
    const auto sec = static_cast<std::uint64_t>(g_now);
    require(zxtime_api_us() == g_now_us && zxtime_api_ms() == g_now_us / 1000 &&
                zxtime_api_sec() == sec && zxtime_api_minute() == sec / 60 &&
                zxtime_api_hour() == sec / 3600 &&
                zxtime_api_mouth() == static_cast<std::uint64_t>(now.month),
            "the clocks");
    timespec up{};
    clock_gettime(CLOCK_MONOTONIC, &up);
    const auto up_sec = static_cast<std::uint64_t>(up.tv_sec);
    require(zxtime_api_upTimeUs() / 1000000 - up_sec <= 60 &&
                zxtime_api_upTimeMs() / 1000 - up_sec <= 60 &&
                zxtime_api_upTimeSec() - up_sec <= 60,
            "the time since the start");
    check_static(length, now);
}

// Checks what is due once a day and every half hour. The first time is at the full day or half
// hour.
void check_due(std::time_t last) {
    const std::int64_t of_day = ((g_now - kWestOfGreenwichSec) % kDaySec + kDaySec) % kDaySec;
    const auto fires = [last](std::int32_t (*is_due)(std::time_t*), bool expected) {
        std::time_t kept = last;
        require(is_due(&kept) == (expected ? 1 : 0) && kept == (expected ? g_now : last),
                "what is due");
    };
    fires(zxtime_api_isNewDay, last != 0 ? g_now - last >= kDaySec : of_day < 60);
    fires(zxtime_api_isWholeClock, last != 0 ? g_now - last >= 1800 : of_day % 1800 < 60);
}

// Checks a daily window that may end after midnight. Then its part before midnight does not count.
void check_window(const std::string& text, const char* placed, std::uint32_t duration,
                  std::int8_t before) {
    rstime now{};
    zxtime_api_rstimeGetCur(&now);
    const std::uint32_t begin = second_of_day(parsed(text, kLayouts[4].at, {}));
    const std::uint32_t end = begin + duration;
    const std::uint32_t sec = second_of_day(now) + (end > kDaySec ? 86400U : 0U);
    const std::int8_t is_inside = begin <= sec && sec <= end ? 1 : 0;
    std::int8_t state = -1, last = before;
    require(zxtime_api_isNewLoop(placed, duration, &state, &last) ==
                    (is_inside != before ? is_inside : 0) &&
                state == is_inside && last == is_inside,
            "the begin of a window");
}

void check_counters(std::uint64_t last, std::uint64_t interval) {
    std::uint64_t kept = last;
    const bool is_over = last > g_now_us || g_now_us > last + interval;  // the sum may overflow
    require(zxtime_api_counterAsyncUs(&kept, interval) == (is_over ? 1 : 0) &&
                kept == (is_over ? g_now_us : last),
            "an interval");
    require(zxtime_api_counterAsyncSec(&kept, 1) == static_cast<std::int8_t>(g_timer_result),
            "an answer of one byte");
    const std::uint64_t a = last / 2, b = interval / 2, c = g_now_us / 2;
    require(zxtime_api_timeout2(a, b, c) == (std::max(a, b) - std::min(a, b) > c ? 1 : 0),
            "the distance of two times");
}

void check_durations(GuardedMemory& out, std::uint64_t n) {
    const std::string days = n >= 86400000 ? printed("%" PRIu64 "_", n / 86400000) : "";
    const std::string clock =
        printed("%d:%d:%d.%d", static_cast<int>(n / 3600000 % 24), static_cast<int>(n / 60000 % 60),
                static_cast<int>(n / 1000 % 60), static_cast<int>(n % 1000));
    require(zxtime_api_ms2str2(n, out.old_text(ZXTIME_DURATION_SIZE)) ==
                (n == UINT64_MAX ? "unvalid" : days + clock),
            "milliseconds");
    require(
        zxtime_api_us2str2(n, out.old_text(ZXTIME_DURATION_SIZE)) ==
            (n < 1000000 ? printed(".%d", static_cast<int>(n))
                         : printed("%d(s).%d.%d", static_cast<int>(n / 1000000),
                                   static_cast<int>(n / 1000 % 1000), static_cast<int>(n % 1000))),
        "microseconds");
    require(zxtime_api_sec2str2(n, out.old_text(ZXTIME_DURATION_SIZE)) ==
                (n >= 86400 ? printed("%" PRIu64 "_", n / 86400) : "") +
                    printed("%02d:%02d:%02d", static_cast<int>(n / 3600 % 24),
                            static_cast<int>(n / 60 % 60), static_cast<int>(n % 60)),
            "seconds");
}

// Checks a zone with summer time, and a record whose day is carried into the next month.
void check_summer_time() {
    constexpr std::time_t kSummer = 1714545000;
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    g_now = kSummer;
    rstime now;
    zxtime_api_rstimeGetCur(&now);
    require(plain(now) == "2024-05-01 08:30:00" && now.wday == 3, "summer time");
    const rstime winter{0, 30, 8, 32, 12, 2023, 99};
    require(
        zxtime_api_rstimeMktime(&now) == kSummer && zxtime_api_rstimeMktime(&winter) == 1704094200,
        "the seconds in summer and in winter");
    for (const std::string text :
         {"2023-12-31 2025-01-01", "2024-05-02 2025-01-01", "2023-01-01 2024-04-30",
          "08:30:00 08:30:00", "08:30:01 23:59:59", "00:00:00 08:29:59", "22:00:00 09:00:00"}) {
        check_ranges(now, text, text.c_str());
    }
    setenv("TZ", "ZXT+3:30", 1);
    tzset();
}

}  // namespace

// These take the place of functions of the C library and the logging library.
extern "C" {

[[gnu::visibility("default")]] std::time_t time(std::time_t*) noexcept {
    return g_now;
}

[[gnu::visibility("default")]] int settimeofday(const timeval* tv,
                                                const struct timezone*) noexcept {
    g_machine += std::to_string(tv->tv_sec) + "." + std::to_string(tv->tv_usec);
    return g_clock_result;
}

[[gnu::visibility("default")]] int system(const char* command) {
    g_machine.append(" ").append(command);
    return -1;
}

std::uint64_t zxlog_api_us(void) {
    return g_now_us;
}

std::int32_t zxlog_api_timerAsyncSec(std::uint64_t*, std::uint32_t) {
    return g_timer_result;
}

}  // extern "C"

// Runs every minute of two days, with windows that seeds would miss.
void zx_fuzz_sweep() {
    for (g_now = 1714545000; g_now < 1714545000 + 2 * kDaySec; g_now += g_now % 60 == 0 ? 59 : 1) {
        for (const std::time_t passed : {1799, 1800, 86399, 86400, -9000, -90000}) {
            check_due(g_now - passed);
        }
        check_due(0);
        for (const std::string start :
             {"20240501 08:00:00", "20240501 08:30:00", "20240501 23:00:00"}) {
            for (const std::uint32_t duration : {0U, 1799U, 1800U, 3600U, 7200U, 86400U}) {
                check_window(start, start.c_str(), duration, 0);
                check_window(start, start.c_str(), duration, 1);
            }
        }
    }
    g_timer_result = 255;
    check_counters(0, UINT64_MAX);
    check_summer_time();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int zone = setenv("TZ", "ZXT+3:30", 1);
    static GuardedMemory texts(4096);
    static GuardedMemory out(4096);
    require(zone == 0, "a zone without summer time");

    // The input: a number, by how much to shift it, two records, the log level and a text.
    Input input({data, std::min<std::size_t>(size, 2048)});
    const auto number = input.take<std::uint64_t>();
    const std::size_t shift = input.take_below(64);
    const auto a = input.take<rstime>();
    const auto b = input.take<rstime>();
    zxlog_api_setLoglevel(input.take<std::uint8_t>() % 6);
    Input pieces(input.rest());
    const std::string text = input.take_text(size);
    const char* const placed = texts.text(text);
    g_now = static_cast<std::int32_t>(number >> shift);
    g_now_us = number << shift / 2;
    g_timer_result = static_cast<std::int32_t>(number);
    g_clock_result = a.day % 2;

    check_parsers(text, placed, a);
    check_records(a, b, number >> shift, text, placed);
    check_records(parsed(text, kLayouts[3].at, a), a, number >> shift, text, placed);
    check_printers(out, static_cast<std::int64_t>(number) >> shift);
    check_durations(out, number >> shift);
    check_format(out, some_format(pieces), a);
    check_clocks(shift);
    check_due(a.sec);
    check_window(text, placed, static_cast<std::uint32_t>(number), static_cast<std::int8_t>(a.min));
    check_counters(g_now_us - number % 1024, number >> shift);
    check_counters(number >> shift, UINT64_MAX);
    return 0;
}

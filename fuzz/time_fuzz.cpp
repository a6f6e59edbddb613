// Reads any text as dates and times, and prints any instant and duration, against the fixed places
// of the layouts and plain arithmetic.
#include <array>
#include <cinttypes>
#include <ctime>
#include <tuple>

#include "support.hpp"
#include "zxtime.h"

namespace {

using zx::fuzz::GuardedMemory;
using zx::fuzz::Input;
using zx::fuzz::require;

constexpr char kFormat[] = "%04d-%02d-%02d %02d:%02d:%02d";
constexpr std::int64_t kDaySec = 86400;
constexpr std::int64_t kWestOfGreenwichSec = 12600;

// Where year, month, day, hour, minute and second stand; -1: not in this layout.
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

std::string compact(const rstime& t) {
    return printed("%04d%02d%02d%02d%02d%02d", t.year, t.month, t.day, t.hour, t.min, t.sec);
}

void check_parsers(const std::string& text, const char* placed, const rstime& old) {
    static GuardedMemory records(sizeof(rstime));
    static GuardedMemory range(ZXTIME_RANGE_SIZE);
    for (const Layout& layout : kLayouts) {
        auto& t = records.record<rstime>(0);
        t = old;
        layout.parse(placed, &t);
        require(same(t, parsed(text, layout.at, old)), "the fields of a layout");
    }
    rstime begin = old;
    rstime end = old;
    char* const out = range.old_text(ZXTIME_RANGE_SIZE);
    zxtime_api_parsetimestr1(placed, &begin, &end, out);
    require(same(begin, parsed(text, kRangeBegin, old)) && same(end, parsed(text, kRangeEnd, old)),
            "the fields of a range");
    require(out == zx::fuzz::cut(compact(begin) + "-" + compact(end), ZXTIME_RANGE_SIZE),
            "the text of a range");
}

// The Gregorian calendar, in which March begins the year. Wide enough for any record.
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

// The C library's clock has a year of 32 bits, and so has the result.
std::int64_t expected_mktime(const rstime& t) {
    constexpr std::int64_t kFarthest = 1LL << 57U;
    const Wide sec = seconds_of(t);
    std::tm out{};
    const bool is_far = sec > kFarthest || sec < -kFarthest;
    const auto local = static_cast<std::time_t>(is_far ? 0 : sec) - kWestOfGreenwichSec;
    return is_far || gmtime_r(&local, &out) == nullptr ? -1 : static_cast<std::int64_t>(sec);
}

void check_records(const rstime& a, const rstime& b, std::uint64_t limit, const std::string& text,
                   const char* placed) {
    constexpr std::int32_t kLeast = INT32_MIN;
    const std::int64_t of_a = expected_mktime(a);
    const std::int64_t of_b = expected_mktime(b);
    const bool fits = a.month != kLeast && a.year >= kLeast + 1900;
    require(zxtime_api_rstimeMktime(&a) == (fits ? of_a : -1), "the seconds of a record");
    if (fits && b.month != kLeast && b.year >= kLeast + 1900) {
        require(zxtime_api_moreThan(&a, &b) == (of_a > of_b ? 1 : 0), "the order of records");
        const auto passed = static_cast<std::uint64_t>(of_b) - static_cast<std::uint64_t>(of_a);
        require(zxtime_api_timeout(&a, &b, limit) == (passed > limit ? 1 : 0), "the time between");
    }
    const auto date = [](const rstime& t) { return std::tuple(t.year, t.month, t.day); };
    require(zxtime_api_isVaildDate(&a, placed, placed) ==
                (date(parsed(text, kLayouts[0].at, a)) == date(a) ? 1 : 0),
            "a range of one day");
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
}

// A format of conversions, for six numbers at most, and other characters.
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

// In 64 bytes, whatever the format asks for.
void check_static(std::size_t length) {
    const std::string fmt = std::string(length, 'x') + "%04d|%d";
    rstime before{};
    rstime after{};
    zxtime_api_rstimeGetCur(&before);
    const std::string text = zxtime_api_curYM(fmt.c_str());
    zxtime_api_rstimeGetCur(&after);
    require(before.month != after.month ||
                text == zx::fuzz::cut(printed(fmt.c_str(), after.year, after.month),
                                      ZXTIME_STATIC_SIZE),
            "the month in any format");
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int zone = setenv("TZ", "ZXT+3:30", 1);
    static GuardedMemory texts(4096);
    static GuardedMemory out(4096);
    require(zone == 0, "a zone without summer time");

    // A number, by how much to shorten it, two records, the log level and a text.
    Input input({data, std::min<std::size_t>(size, 2048)});
    const auto number = input.take<std::uint64_t>();
    const std::size_t shift = input.take_below(64);
    const auto a = input.take<rstime>();
    const auto b = input.take<rstime>();
    zx::fuzz::log_to_nowhere(input.take<std::uint8_t>());
    Input pieces(input.rest());
    const std::string text = input.take_text(size);
    const char* const placed = texts.text(text);

    check_parsers(text, placed, a);
    check_records(a, b, number >> shift, text, placed);
    check_records(parsed(text, kLayouts[3].at, a), a, number >> shift, text, placed);
    check_printers(out, static_cast<std::int64_t>(number) >> shift);
    check_durations(out, number >> shift);
    check_format(out, some_format(pieces), a);
    check_static(shift);
    return 0;
}

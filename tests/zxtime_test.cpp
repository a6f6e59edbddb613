#include "zxtime.h"

#include <gmock/gmock.h>
#include <sys/time.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "log_capture.hpp"
#include "zxlog.h"

namespace {

using testing::ElementsAre;

std::time_t g_now = 0;
uint64_t g_now_us = 0;
int32_t g_timer_result = 0;
int g_clock_result = 0;
std::vector<std::string> g_machine;  // what would have been done to this machine

}  // namespace

// The library's clock reads this program's time, and the machine's clock stays as it is.
extern "C" {

[[gnu::visibility("default")]] std::time_t time(std::time_t*) noexcept {
    return g_now;
}

[[gnu::visibility("default")]] int settimeofday(const timeval* tv,
                                                const struct timezone*) noexcept {
    g_machine.push_back(std::to_string(tv->tv_sec) + "." + std::to_string(tv->tv_usec));
    return g_clock_result;
}

[[gnu::visibility("default")]] int system(const char* command) {
    g_machine.emplace_back(command);
    return -1;
}

uint64_t zxlog_api_us(void) {
    return g_now_us;
}

int32_t zxlog_api_timerAsyncSec(uint64_t*, uint32_t) {
    return g_timer_result;
}

}  // extern "C"

namespace {

constexpr std::time_t kSummer = 1714545000;  // 2024-05-01 08:30:00 in the fixture's zone

class TimeTest : public testing::Test {
protected:
    TimeTest() {
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
        g_now = kSummer;
    }

    // "08:30", the local time of day on the fixture's day.
    static void set_clock(const std::string& time) {
        g_now = kSummer + 3600 * (std::stoi(time) - 8) + 60 * (std::stoi(time.substr(3)) - 30);
    }

    zx::test::LogCapture log;
};

TEST_F(TimeTest, CountsFromItsThreeClocks) {
    g_now_us = 1714545000123456;
    EXPECT_EQ(zxtime_api_ms(), 1714545000123U);
    EXPECT_EQ(zxtime_api_hour(), 476262U);
    g_now = 1717192800;  // the first second of June in the fixture's zone
    EXPECT_EQ(zxtime_api_mouth(), 6U);

    timespec up{};
    clock_gettime(CLOCK_MONOTONIC, &up);
    const auto sec = static_cast<double>(up.tv_sec);
    EXPECT_NEAR(static_cast<double>(zxtime_api_upTimeUs()), sec * 1e6, 5e6);
    EXPECT_NEAR(static_cast<double>(zxtime_api_upTimeSec()), sec, 5);
}

TEST_F(TimeTest, ConvertsRecordsAsTheZoneWants) {
    rstime now;
    zxtime_api_rstimeGetCur(&now);
    zxtime_api_rstimePrint(&now);
    EXPECT_THAT(log.take(), ElementsAre("[DEBUG][TIME]2024-05-01 08:30:00"));
    EXPECT_EQ(now.wday, 3);
    EXPECT_EQ(zxtime_api_rstimeMktime(&now), kSummer);
    const rstime winter{0, 30, 8, 32, 12, 2023, 99};
    EXPECT_EQ(zxtime_api_rstimeMktime(&winter), 1704094200);  // carried over to January

    EXPECT_EQ(zxtime_api_isPass(&now), 1);
    ++now.sec;
    EXPECT_EQ(zxtime_api_isPass(&now), 0);
    EXPECT_EQ(zxtime_api_rstimeGetSec(&now), 30601U);
}

TEST_F(TimeTest, PrintsTheCurrentTimeIntoBuffersOfTheirOwn) {
    char* const date = zxtime_api_curDate("%d/%d/%d and what was here before");
    EXPECT_STREQ(zxtime_api_curYM("%04d%02d"), "202405");
    EXPECT_STREQ(zxtime_api_curTime("%02d:%02d:%02d"), "08:30:00");
    EXPECT_STREQ(date, "2024/5/1 and what was here before");
    zxtime_api_curDate("%d");
    EXPECT_EQ(std::string(date, 64), "2024" + std::string(60, '\0'));
    EXPECT_EQ(zxtime_api_curDate(std::string(100, 'x').c_str()), std::string(63, 'x'));
}

TEST_F(TimeTest, PrintsInstants) {
    const uint64_t us = 1714545000999999;
    char out[32];
    zxtime_api_us2DTime(&us, "%04d-%02d-%02d %02d:%02d:%02d", out);
    EXPECT_STREQ(out, "2024-05-01 08:30:00");
    zxtime_api_us2str(&us, "%d.%d.%d", out);
    EXPECT_STREQ(out, "8.30.0");
    std::strcpy(out, "0123456789");
    zxtime_api_sec2str(&kSummer, "%d", out);
    EXPECT_EQ(std::string(out, 8), std::string("8\0\0\0\0\0\0\0", 8)) << "8 bytes are cleared";
    EXPECT_STREQ(out + 8, "89");
}

TEST_F(TimeTest, SetsTheClockOrSaysWhyNot) {
    EXPECT_EQ(zxtime_api_setDTime("20240501083000"), 1);
    g_clock_result = -1;
    EXPECT_EQ(zxtime_api_setDTime("20240501083000"), 0);
    EXPECT_THAT(g_machine, ElementsAre("1714545000.0", "hwclock --systohc", "1714545000.0"));
    rstime begin, end;
    zxtime_api_parsetimestr1("[20240501083000-20240502093001]", &begin, &end, nullptr);
    EXPECT_THAT(log.take(),
                ElementsAre("[DEBUG][TIME]2024-05-01 08:30:00", "[DEBUG][TIME]2024-05-01 08:30:00",
                            "[ERROR][TIME]set system datatime to  20240501083000   error",
                            "[DEBUG][TIME]\n\t\t\t\t\t2024-05-01 08:30:00   "
                            "\n\t\t\t\t\t2024-05-02 09:30:01"));
}

TEST_F(TimeTest, FindsRecordsInRanges) {
    rstime t;
    zxtime_api_rstimeGetCur(&t);
    const struct {
        int32_t (*test)(const rstime*, const char*, const char*);
        const char *from, *to;
        int32_t expected;
    } cases[] = {
        {zxtime_api_isVaildDate, "2023-12-31", "2025-01-01", 1},
        {zxtime_api_isVaildDate, "2024-05-02", "2025-01-01", 0},
        {zxtime_api_isVaildDate, "2023-01-01", "2024-04-30", 0},
        {zxtime_api_isVaildTime, "08:30:00", "08:30:00", 1},
        {zxtime_api_isVaildTime, "08:30:01", "23:59:59", 0},
        {zxtime_api_isVaildTime, "22:00:00", "09:00:00", 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.test(&t, c.from, c.to), c.expected) << c.from << " " << c.to;
    }
}

TEST_F(TimeTest, ReportsTheBeginOfADailyWindow) {
    const struct {
        const char* start;
        uint32_t duration;
        const char* now;
        int8_t last;
        int32_t expected;
        int8_t state;
    } cases[] = {
        {"20240501 08:00:00", 1800, "08:30", 0, 1, 1},  // the last second of the window
        {"20240501 08:30:00", 0, "08:30", 1, 0, 1},     // still inside
        {"20240501 08:00:00", 1799, "08:30", 1, 0, 0},  // just left
        {"20240501 23:00:00", 3600, "23:30", 0, 1, 1},  // ends at midnight
        {"20240501 23:00:00", 7200, "00:30", 0, 1, 1},  // and behind it
        {"20240501 23:00:00", 7200, "23:30", 0, 0, 0},  // which its evening is not
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.start << " at " << c.now);
        set_clock(c.now);
        int8_t state = -1, last = c.last;
        EXPECT_EQ(zxtime_api_isNewLoop(c.start, c.duration, &state, &last), c.expected);
        EXPECT_EQ(state, c.state);
        EXPECT_EQ(last, c.state);
    }
}

TEST_F(TimeTest, FiresOnDaysHalfHoursAndIntervals) {
    const struct {
        int32_t (*test)(std::time_t*);
        const char* now;
        std::time_t passed;  // since the last hit; 0: there was none
        int32_t expected;
    } cases[] = {
        {zxtime_api_isNewDay, "00:00", 0, 1},        {zxtime_api_isNewDay, "00:01", 0, 0},
        {zxtime_api_isNewDay, "01:00", 0, 0},        {zxtime_api_isNewDay, "08:15", 86400, 1},
        {zxtime_api_isNewDay, "00:00", 86399, 0},    {zxtime_api_isNewDay, "00:00", -90000, 0},
        {zxtime_api_isWholeClock, "08:15", 0, 0},    {zxtime_api_isWholeClock, "08:30", 0, 1},
        {zxtime_api_isWholeClock, "08:00", 0, 1},    {zxtime_api_isWholeClock, "08:15", 1800, 1},
        {zxtime_api_isWholeClock, "08:30", 1799, 0}, {zxtime_api_isWholeClock, "08:30", -9000, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.now << " after " << c.passed);
        set_clock(c.now);
        const std::time_t before = c.passed == 0 ? 0 : g_now - c.passed;
        std::time_t last = before;
        EXPECT_EQ(c.test(&last), c.expected);
        EXPECT_EQ(last, c.expected == 1 ? g_now : before);
    }
    g_now_us = 1000;
    uint64_t last = 1;
    EXPECT_EQ(zxtime_api_counterAsyncUs(&last, UINT64_MAX), 1) << "the sum overflows";
    EXPECT_EQ(last, 1000U);
    EXPECT_EQ(zxtime_api_counterAsyncUs(&last, 0), 0);
    g_timer_result = 255;
    EXPECT_EQ(zxtime_api_counterAsyncSec(&last, 1), -1) << "narrowed";
    EXPECT_EQ(zxtime_api_timeout2(15, 5, 10), 0);
    EXPECT_EQ(zxtime_api_timeout2(16, 5, 10), 1);
    EXPECT_EQ(zxtime_api_timeout2(5, 16, 10), 1);
}

}  // namespace

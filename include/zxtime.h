/**
 * @file zxtime.h
 * Clocks, the date-time record with its parsers and printers, and small tests for schedules.
 *
 * Every record and buffer belongs to the caller. "Local" means the time zone of the process. Log
 * tag: TIME.
 *
 * A `fmt` is a printf format for ints ("%04d-%02d-%02d"). It must be the caller's own text, never
 * text from outside: nothing checks it against the arguments.
 *
 * Unless a function says otherwise, a NULL argument is ignored without a log line: nothing is
 * changed, and the result is 0 or NULL.
 *
 * Threads: safe; for different records and outputs.
 * Signal handlers: unsafe.
 * Cancellation: none.
 */
#ifndef ZXTIME_H
#define ZXTIME_H

#include <stdint.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define ZXTIME_STATIC_SIZE   64 /**< bytes in the buffer of zxtime_api_curDate() and the like */
#define ZXTIME_DURATION_SIZE 32 /**< most bytes that a duration needs */
#define ZXTIME_RANGE_SIZE    30 /**< most bytes that zxtime_api_parsetimestr1() writes */

/** A date and time of day. */
typedef struct rstime {
    int32_t sec;   /**< 0 to 60 */
    int32_t min;   /**< 0 to 59 */
    int32_t hour;  /**< 0 to 23 */
    int32_t day;   /**< of the month, 1 to 31 */
    int32_t month; /**< 1 to 12 */
    int32_t year;  /**< in full: 2024 */
    int32_t wday;  /**< of the week, 0 is Sunday; only zxtime_api_rstimeGetCur() sets it */
} rstime;

/* -------------------------------------------------------------- clocks -- */
/*
 * Signal handlers: safe.
 */

/**
 * Reads the wall clock with zxlog_api_us().
 * @return microseconds since the epoch.
 */
uint64_t zxtime_api_us(void);

/**
 * Reads the wall clock: zxtime_api_us() / 1000.
 * @return milliseconds since the epoch.
 */
uint64_t zxtime_api_ms(void);

/**
 * Reads the wall clock with time().
 * @return seconds since the epoch.
 */
uint64_t zxtime_api_sec(void);

/**
 * Reads the wall clock: zxtime_api_sec() / 60.
 * @return minutes since the epoch.
 */
uint64_t zxtime_api_minute(void);

/**
 * Reads the wall clock: zxtime_api_sec() / 3600.
 * @return hours since the epoch.
 */
uint64_t zxtime_api_hour(void);

/**
 * Tells the current local month.
 * @return 1 to 12.
 * Signal handlers: unsafe.
 */
uint64_t zxtime_api_mouth(void);

/**
 * Reads the clock that nobody can set (CLOCK_MONOTONIC).
 * @return microseconds.
 */
uint64_t zxtime_api_upTimeUs(void);

/**
 * Reads the clock that nobody can set.
 * @return milliseconds.
 */
uint64_t zxtime_api_upTimeMs(void);

/**
 * Reads the clock that nobody can set.
 * @return seconds.
 */
uint64_t zxtime_api_upTimeSec(void);

/**
 * Sets the system's clock and then the hardware's ("hwclock --systohc", whose result is ignored).
 *
 * The digits are not checked: zxtime_innerapi_parseDateTime() decides what they mean.
 *
 * @param strDateTime  local time, "YYYYMMDDhhmmss".
 * @return 1 when the system's clock is set; 0 for NULL or when the system refuses, as it does for
 *         unprivileged callers.
 *
 * Signal handlers: unsafe.
 * Cancellation: safe; the hardware's clock may be left as it was.
 * Logs: error when it returns 0; the debug line of zxtime_innerapi_parseDateTime().
 */
int32_t zxtime_api_setDTime(const char* strDateTime);

/* ------------------------------------------------------------- records -- */

/**
 * Sets all seven fields to the current local time.
 * @param t  the record.
 */
void zxtime_api_rstimeGetCur(rstime* t);

/**
 * Computes the seconds since midnight from hour, min and sec.
 * @param t  the record.
 * @return the seconds.
 * Signal handlers: safe.
 */
uint32_t zxtime_api_rstimeGetSec(const rstime* t);

/**
 * Converts local time to seconds since the epoch, as mktime() does: fields beyond their range carry
 * over, and the time zone decides about daylight saving.
 *
 * @param t  the record; `wday` is not used.
 * @return the seconds; -1 for a year that cannot be represented; 0 for NULL.
 */
time_t zxtime_api_rstimeMktime(const rstime* t);

/**
 * Logs a record as "2024-05-01 08:30:00".
 * @param t  the record.
 * Signal handlers: safe.
 * Logs: debug.
 */
void zxtime_api_rstimePrint(const rstime* t);

/* ------------------------------------------------------------ printers -- */

/**
 * Prints a record.
 * @param fmt  receives year, month, day, hour, min, sec.
 * @param t    the record.
 * @param out  large enough for the text that `fmt` gives.
 * @return `out`; NULL when an argument is NULL.
 * Logs: error for a NULL `out`.
 */
char* zxtime_api_rtstime2DTime(const char* fmt, const rstime* t, char* out);

/**
 * Prints the current local date and time, with zxlog_api_curDTime().
 * @param fmt  receives year, month, day, hour, min, sec.
 * @return a text that belongs to the calling thread, whose next call overwrites it; empty for a
 *         NULL `fmt`.
 */
const char* zxtime_api_curDTime(const char* fmt);

/**
 * Prints the current local date.
 * @param fmt  receives year, month, day.
 * @return a static buffer of #ZXTIME_STATIC_SIZE bytes, overwritten by the next call; a longer text
 *         is cut.
 * Threads: unsafe; all threads share the buffer.
 */
char* zxtime_api_curDate(const char* fmt);

/**
 * Prints the current local year and month.
 * @param fmt  receives year, month.
 * @return as zxtime_api_curDate(), in a buffer of its own.
 * Threads: unsafe; all threads share the buffer.
 */
char* zxtime_api_curYM(const char* fmt);

/**
 * Prints the current local time of day.
 * @param fmt  receives hour, min, sec.
 * @return as zxtime_api_curDate(), in a buffer of its own.
 * Threads: unsafe; all threads share the buffer.
 */
char* zxtime_api_curTime(const char* fmt);

/**
 * Prints a point in time as local date and time.
 * @param us   microseconds since the epoch.
 * @param fmt  receives year, month, day, hour, min, sec.
 * @param out  at least 8 bytes, which are zeroed first, and large enough for the text that `fmt`
 *             gives.
 */
void zxtime_api_us2DTime(const uint64_t* us, const char* fmt, char* out);

/**
 * Does the same as zxtime_api_us2DTime() for seconds since the epoch. If the year does not fit an
 * int, the text is empty.
 *
 * @param sec  seconds since the epoch.
 * @param fmt  receives year, month, day, hour, min, sec.
 * @param out  as for zxtime_api_us2DTime().
 */
void zxtime_api_sec2DTime(const time_t* sec, const char* fmt, char* out);

/**
 * Prints a point in time as local time of day.
 * @param us   microseconds since the epoch.
 * @param fmt  receives hour, min, sec.
 * @param out  as for zxtime_api_us2DTime().
 */
void zxtime_api_us2str(const uint64_t* us, const char* fmt, char* out);

/**
 * Does the same as zxtime_api_us2str() for seconds since the epoch. If the year does not fit an
 * int, the text is empty.
 *
 * @param sec  seconds since the epoch.
 * @param fmt  receives hour, min, sec.
 * @param out  as for zxtime_api_us2DTime().
 */
void zxtime_api_sec2str(const time_t* sec, const char* fmt, char* out);

/**
 * Prints a duration: 90061001 gives "1_1:1:1.1", 61000 gives "0:1:1.0". The parts are days (if
 * there are any), hours, minutes, seconds and milliseconds, none of them padded. UINT64_MAX gives
 * "unvalid".
 *
 * @param ms   milliseconds.
 * @param out  at least #ZXTIME_DURATION_SIZE bytes; the first 8 are zeroed before the text is
 *             written.
 * @return `out`.
 *
 * Signal handlers: safe.
 */
char* zxtime_api_ms2str2(uint64_t ms, char* out);

/**
 * Prints a duration with zxlog_api_us2time(): ".250" below one second (microseconds), otherwise
 * "3(s).20.1" (seconds, milliseconds, microseconds).
 *
 * @param us   microseconds.
 * @param out  at least #ZXTIME_DURATION_SIZE bytes.
 * @return `out`.
 *
 * Signal handlers: safe.
 */
char* zxtime_api_us2str2(uint64_t us, char* out);

/**
 * Prints a duration with zxlog_api_sec2Time(): "1_01:01:01", without the days when there are none.
 * @param sec  seconds.
 * @param out  at least #ZXTIME_DURATION_SIZE bytes.
 * @return `out`.
 * Signal handlers: safe.
 */
char* zxtime_api_sec2str2(uint64_t sec, char* out);

/* ------------------------------------------------------------- parsers -- */
/*
 * Parsers read fixed positions: they ignore the separators and check nothing. A field is the number
 * that atoi() reads from its characters: " 5" is 5 and "x1" is 0. Fields beyond the end of a short
 * text are 0. Fields of the record that a parser does not name, such as `wday`, stay as they were.
 */

/**
 * Parses "2024-05-01" into year, month, day.
 * @param s  the text.
 * @param t  the record.
 */
void zxtime_innerapi_parseDate(const char* s, rstime* t);

/**
 * Parses "08:30:00" into hour, min, sec.
 * @param s  the text.
 * @param t  the record.
 */
void zxtime_innerapi_parseTime(const char* s, rstime* t);

/**
 * Parses "20240501083000" into year, month, day, hour, min, sec.
 * @param s  the text.
 * @param t  the record.
 * Logs: debug, the record.
 */
void zxtime_innerapi_parseDateTime(const char* s, rstime* t);

/**
 * Parses a range such as "[20240501083000-20240502093000]": one character, 14 digits, one
 * character, 14 digits.
 *
 * @param s           the text.
 * @param begin, end  the records.
 * @param out         receives the range as "20240501083000-20240502093000"; at least
 *                    #ZXTIME_RANGE_SIZE bytes. NULL: not wanted.
 *
 * Logs: debug, both records on lines of their own.
 */
void zxtime_api_parsetimestr1(const char* s, rstime* begin, rstime* end, char* out);

/**
 * Parses "2024-05-01 08:30:00" into year, month, day, hour, min, sec.
 * @param s  the text.
 * @param t  the record.
 */
void zxtime_api_parsetimestr2(const char* s, rstime* t);

/**
 * Parses "20240501 08:30:00" into year, month, day, hour, min, sec.
 * @param s  the text.
 * @param t  the record.
 */
void zxtime_api_parsetimestr3(const char* s, rstime* t);

/* ------------------------------------------------- checks of schedules -- */

/**
 * Tells whether a date is in a range of dates, including both ends.
 * @param t         year, month and day are used.
 * @param from, to  texts, read as by zxtime_innerapi_parseDate().
 * @return 1 or 0.
 */
int32_t zxtime_api_isVaildDate(const rstime* t, const char* from, const char* to);

/**
 * Tells whether a time of day is in a range, including both ends. A range over midnight, whose
 * `from` is later than `to`, never matches.
 *
 * @param t         hour, min and sec are used.
 * @param from, to  texts, read as by zxtime_innerapi_parseTime().
 * @return 1 or 0.
 */
int32_t zxtime_api_isVaildTime(const rstime* t, const char* from, const char* to);

/**
 * Tells whether a set of weekdays contains the record's weekday.
 * @param t     the five lowest bits of `wday` are used.
 * @param mask  bit 0 is Sunday.
 * @return 1 or 0.
 * Signal handlers: safe.
 */
int32_t zxtime_api_isVaildWDay(const rstime* t, uint32_t mask);

/**
 * Tells whether a daily window of local time has begun, once for each window.
 *
 * The window includes both ends. If it runs past midnight, the call always adds a whole day to the
 * current time of day. It therefore finds the part after midnight, but not the part before it.
 *
 * @param start        a text, read as by zxtime_api_parsetimestr3(); the date is not used.
 * @param durationSec  length in seconds.
 * @param state        set to 1 inside the window and to 0 outside.
 * @param lastState    the state after the last change; start with 0.
 * @return 1 in the first call inside a window, otherwise 0. Only `lastState` shows that the window
 *         was left.
 */
int32_t zxtime_api_isNewLoop(const char* start, uint32_t durationSec, int8_t* state,
                             int8_t* lastState);

/**
 * Tells whether a day has begun. A result of 1 is a hit: the first one is in the minute after local
 * midnight, each later one when 86400 seconds have passed since the one before.
 *
 * @param last  the last hit, kept by the caller; start with 0.
 * @return 1 with the current time stored in `*last`; otherwise 0.
 */
int32_t zxtime_api_isNewDay(time_t* last);

/**
 * Tells whether a half hour has begun. A result of 1 is a hit: the first one is in local minute 0
 * or 30, each later one when 1800 seconds have passed since the one before.
 *
 * @param last  the last hit, kept by the caller; start with 0.
 * @return 1 with the current time stored in `*last`; otherwise 0.
 */
int32_t zxtime_api_isWholeClock(time_t* last);

/**
 * Tells whether the record's local time is now or in the past.
 * @param t  the record.
 * @return 1 or 0.
 */
int32_t zxtime_api_isPass(const rstime* t);

/**
 * Tells whether a local time is later than another one.
 * @param a, b  the records.
 * @return 1 when `a` is later than `b`, otherwise 0.
 */
int32_t zxtime_api_moreThan(const rstime* a, const rstime* b);

/**
 * Tells whether more than `limitSec` seconds lie between two records.
 *
 * The difference is unsigned: if `b` is before `a` the result is 1.
 *
 * @param a, b      the records; `a` is the earlier one.
 * @param limitSec  seconds.
 * @return 1 or 0.
 */
int32_t zxtime_api_timeout(const rstime* a, const rstime* b, uint64_t limitSec);

/**
 * Tells whether two counts of any unit are more than `limit` apart, in either direction. The sums
 * wrap at 2^64.
 *
 * @param a      a count.
 * @param b      another count.
 * @param limit  in the same unit.
 * @return 1 or 0.
 *
 * Signal handlers: safe.
 */
int32_t zxtime_api_timeout2(uint64_t a, uint64_t b, uint64_t limit);

/**
 * Tells whether an interval has passed on the wall clock. A result of 1 is a hit. If the clock was
 * set back, that is a hit, too.
 * @param last        microseconds of the last hit, kept by the caller; 0: the first call is a hit.
 * @param intervalUs  microseconds; the sum with `*last` wraps at 2^64.
 * @return 0 while `*last` <= now <= `*last` + `intervalUs`; otherwise 1, and `*last` becomes now.
 * Signal handlers: safe.
 */
int32_t zxtime_api_counterAsyncUs(uint64_t* last, uint64_t intervalUs);

/**
 * Does the same as zxtime_api_counterAsyncUs() in seconds. It calls zxlog_api_timerAsyncSec() and
 * narrows the result to a signed byte.
 *
 * @param last         seconds of the last hit, kept by the caller; 0: the first call is a hit.
 * @param intervalSec  seconds.
 * @return as zxtime_api_counterAsyncUs().
 *
 * Signal handlers: safe.
 */
int32_t zxtime_api_counterAsyncSec(uint64_t* last, uint32_t intervalSec);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

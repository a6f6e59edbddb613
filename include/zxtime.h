/**
 * @file zxtime.h
 * Clocks, the date-time record with its parsers and printers, and small tests
 * for schedules.
 *
 * Every record and buffer belongs to the caller. "Local" is the time zone of the
 * process. Log tag: TIME.
 *
 * A `fmt` is a printf format for ints ("%04d-%02d-%02d"). It is the caller's own
 * text, never one from outside: nothing checks it against its arguments.
 *
 * A NULL argument is ignored without a log line, unless said otherwise: nothing
 * is touched, and the result is 0 or NULL.
 *
 * Threads: safe, but for zxtime_api_curDate(), zxtime_api_curYM() and
 * zxtime_api_curTime(), which return buffers that all threads share. Signal
 * handlers: they may read the clocks, but for zxtime_api_mouth().
 */
#ifndef ZXTIME_H
#define ZXTIME_H

#include <stdint.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define ZXTIME_STATIC_SIZE   64 /**< bytes in the buffer of each printer of the current time */
#define ZXTIME_DURATION_SIZE 32 /**< bytes that a duration needs at most */
#define ZXTIME_RANGE_SIZE    30 /**< bytes that zxtime_api_parsetimestr1() writes at most */

/** A date and time of day. */
typedef struct rstime {
    int32_t sec;   /**< 0 to 60 */
    int32_t min;   /**< 0 to 59 */
    int32_t hour;  /**< 0 to 23 */
    int32_t day;   /**< of the month, 1 to 31 */
    int32_t month; /**< 1 to 12 */
    int32_t year;  /**< in full: 2024 */
    int32_t wday;  /**< of the week, 0 is Sunday; only zxtime_api_rstimeGetCur() fills it */
} rstime;

/* -------------------------------------------------------------- clocks -- */

/** @return wall-clock microseconds since the epoch, as the logging library counts them. */
uint64_t zxtime_api_us(void);

/** @return wall-clock milliseconds since the epoch: zxtime_api_us() / 1000. */
uint64_t zxtime_api_ms(void);

/** @return wall-clock seconds since the epoch: time(NULL). */
uint64_t zxtime_api_sec(void);

/** @return minutes since the epoch. */
uint64_t zxtime_api_minute(void);

/** @return hours since the epoch. */
uint64_t zxtime_api_hour(void);

/** @return the current local month, 1 to 12. */
uint64_t zxtime_api_mouth(void);

/** @return microseconds on the clock that nobody sets (CLOCK_MONOTONIC). */
uint64_t zxtime_api_upTimeUs(void);

/** @return milliseconds on the clock that nobody sets. */
uint64_t zxtime_api_upTimeMs(void);

/** @return seconds on the clock that nobody sets. */
uint64_t zxtime_api_upTimeSec(void);

/**
 * Sets the system's clock, and then the hardware's ("hwclock --systohc", whose outcome does not
 * matter).
 *
 * The digits are not validated: they mean what zxtime_innerapi_parseDateTime() makes of them.
 *
 * @param strDateTime  local time, "YYYYMMDDhhmmss".
 * @return 1 when the system's clock is set; 0 for NULL or when the system refuses, which it does
 *         to unprivileged callers.
 *
 * Threads: it starts a shell; not in a process that ignores its children's ends.
 * Logs: errors for both failures; the debug line of zxtime_innerapi_parseDateTime().
 */
int32_t zxtime_api_setDTime(const char* strDateTime);

/* ------------------------------------------------------------- records -- */

/** Fills all seven fields with the current local time. @param t  the record. */
void zxtime_api_rstimeGetCur(rstime* t);

/** @return seconds since midnight, from hour, min and sec. @param t  read only. */
uint32_t zxtime_api_rstimeGetSec(const rstime* t);

/**
 * Converts local time to seconds since the epoch, as mktime() does it: fields beyond their range
 * are carried over, and the time zone decides about daylight saving.
 *
 * @param t  read only; `wday` does not matter.
 * @return the seconds; -1 for a year that cannot be represented; 0 for NULL.
 */
time_t zxtime_api_rstimeMktime(const rstime* t);

/** Logs the record at level 5 as "2024-05-01 08:30:00". @param t  read only. */
void zxtime_api_rstimePrint(const rstime* t);

/* ------------------------------------------------------------ printers -- */

/**
 * Prints a record.
 *
 * @param fmt  gets year, month, day, hour, min, sec.
 * @param t    read only.
 * @param out  large enough for what `fmt` makes of it.
 * @return `out`; NULL when an argument is missing.
 *
 * Logs: error for a NULL `out`.
 */
char* zxtime_api_rtstime2DTime(const char* fmt, const rstime* t, char* out);

/**
 * Prints the current local date and time, as zxlog_api_curDTime() does it.
 * @param fmt  gets year, month, day, hour, min, sec.
 * @return a text of the calling thread, overwritten by its next call; empty for a NULL `fmt`.
 */
const char* zxtime_api_curDTime(const char* fmt);

/**
 * Prints the current local date.
 * @param fmt  gets year, month, day.
 * @return a static buffer of #ZXTIME_STATIC_SIZE bytes, overwritten by the next call; a longer
 *         text is cut.
 * Threads: not safe, the buffer is shared.
 */
char* zxtime_api_curDate(const char* fmt);

/**
 * As zxtime_api_curDate(), in a buffer of its own.
 * @param fmt  gets year, month.
 * @return as zxtime_api_curDate().
 */
char* zxtime_api_curYM(const char* fmt);

/**
 * As zxtime_api_curDate(), in a buffer of its own.
 * @param fmt  gets hour, min, sec.
 * @return as zxtime_api_curDate().
 */
char* zxtime_api_curTime(const char* fmt);

/**
 * Prints an instant as local date and time.
 *
 * @param us   microseconds since the epoch.
 * @param fmt  gets year, month, day, hour, min, sec.
 * @param out  at least 8 bytes, which are zeroed first, and large enough for what `fmt` makes of
 *             it.
 */
void zxtime_api_us2DTime(const uint64_t* us, const char* fmt, char* out);

/**
 * As zxtime_api_us2DTime() for seconds since the epoch. Seconds whose year does not fit an int
 * give an empty text.
 * @param sec  seconds since the epoch.
 * @param fmt  gets year, month, day, hour, min, sec.
 * @param out  at least 8 bytes, as for zxtime_api_us2DTime().
 */
void zxtime_api_sec2DTime(const time_t* sec, const char* fmt, char* out);

/**
 * As zxtime_api_us2DTime().
 * @param us   microseconds since the epoch.
 * @param fmt  gets hour, min, sec.
 * @param out  at least 8 bytes, as for zxtime_api_us2DTime().
 */
void zxtime_api_us2str(const uint64_t* us, const char* fmt, char* out);

/**
 * As zxtime_api_sec2DTime().
 * @param sec  seconds since the epoch.
 * @param fmt  gets hour, min, sec.
 * @param out  at least 8 bytes, as for zxtime_api_us2DTime().
 */
void zxtime_api_sec2str(const time_t* sec, const char* fmt, char* out);

/**
 * Prints a duration: 90061001 gives "1_1:1:1.1", 61000 gives "0:1:1.0" (days when there are any,
 * hours, minutes, seconds, milliseconds, none of them padded). UINT64_MAX gives "unvalid".
 *
 * @param ms   milliseconds.
 * @param out  at least #ZXTIME_DURATION_SIZE bytes; the first 8 are zeroed before.
 * @return `out`.
 */
char* zxtime_api_ms2str2(uint64_t ms, char* out);

/**
 * Prints a duration: ".250" below one second (microseconds), "3(s).20.1" otherwise (seconds,
 * milliseconds, microseconds), as zxlog_api_us2time() does it.
 *
 * @param us   microseconds.
 * @param out  at least #ZXTIME_DURATION_SIZE bytes.
 * @return `out`.
 */
char* zxtime_api_us2str2(uint64_t us, char* out);

/**
 * Prints a duration: "1_01:01:01", without the days when there are none, as zxlog_api_sec2Time()
 * does it.
 *
 * @param sec  seconds.
 * @param out  at least #ZXTIME_DURATION_SIZE bytes.
 * @return `out`.
 */
char* zxtime_api_sec2str2(uint64_t sec, char* out);

/* ------------------------------------------------------------- parsers -- */
/*
 * Parsers read fixed places: they never look at the separators, and nothing is
 * checked. A field is what atoi() makes of its characters, so that " 5" is 5 and
 * "x1" is 0; what lies behind the end of a short text is 0. Fields that a parser
 * does not name, `wday` above all, stay as they were.
 */

/** Parses "2024-05-01" into year, month, day. @param s  the text. @param t  the record. */
void zxtime_innerapi_parseDate(const char* s, rstime* t);

/** Parses "08:30:00" into hour, min, sec. @param s  the text. @param t  the record. */
void zxtime_innerapi_parseTime(const char* s, rstime* t);

/**
 * Parses "20240501083000".
 * @param s  the text. @param t  the record.
 * Logs: debug, the record.
 */
void zxtime_innerapi_parseDateTime(const char* s, rstime* t);

/**
 * Parses a range such as "[20240501083000-20240502093000]": one character, 14 digits, one
 * character, 14 digits.
 *
 * @param s           the text.
 * @param begin, end  the records.
 * @param out         gets the range as "20240501083000-20240502093000"; at least
 *                    #ZXTIME_RANGE_SIZE bytes. NULL: not wanted.
 *
 * Logs: debug, both records on lines of their own.
 */
void zxtime_api_parsetimestr1(const char* s, rstime* begin, rstime* end, char* out);

/** Parses "2024-05-01 08:30:00". @param s  the text. @param t  the record. */
void zxtime_api_parsetimestr2(const char* s, rstime* t);

/** Parses "20240501 08:30:00". @param s  the text. @param t  the record. */
void zxtime_api_parsetimestr3(const char* s, rstime* t);

/* ------------------------------------------------------ schedule tests -- */

/**
 * Tells whether a date lies in a range of dates, both ends included.
 * @param t         year, month and day are read.
 * @param from, to  as zxtime_innerapi_parseDate() reads them.
 * @return 1 or 0.
 */
int32_t zxtime_api_isVaildDate(const rstime* t, const char* from, const char* to);

/**
 * Tells whether a time of day lies in a range, both ends included. A range over midnight, with
 * `from` behind `to`, never matches.
 *
 * @param t         hour, min and sec are read.
 * @param from, to  as zxtime_innerapi_parseTime() reads them.
 * @return 1 or 0.
 */
int32_t zxtime_api_isVaildTime(const rstime* t, const char* from, const char* to);

/**
 * Tells whether a set of weekdays holds the record's.
 * @param t     `wday` is read, its five lowest bits.
 * @param mask  bit 0 is Sunday.
 * @return 1 or 0.
 */
int32_t zxtime_api_isVaildWDay(const rstime* t, uint32_t mask);

/**
 * Tells once, when a daily window of local time begins.
 *
 * The window holds both its ends. When it runs past midnight, a whole day is added to the time of
 * day at any hour: the part behind midnight is found, the part before it is not.
 *
 * @param start        as zxtime_api_parsetimestr3() reads it; the date does not matter.
 * @param durationSec  length in seconds.
 * @param state        set to 1 inside the window and 0 outside.
 * @param lastState    the state of the last change; start with 0.
 * @return 1 with the first call inside a window, otherwise 0: leaving the window is seen in
 *         `lastState` alone.
 */
int32_t zxtime_api_isNewLoop(const char* start, uint32_t durationSec, int8_t* state,
                             int8_t* lastState);

/**
 * Tells that a day has begun: the first time in the minute after local midnight, then whenever
 * 86400 seconds have passed since the last hit.
 *
 * @param last  the last hit, kept by the caller; start with 0.
 * @return 1 and now in `*last`, or 0.
 */
int32_t zxtime_api_isNewDay(time_t* last);

/**
 * As zxtime_api_isNewDay() for half hours: local minute 0 or 30, then every 1800 seconds.
 * @param last  the last hit, kept by the caller; start with 0.
 * @return 1 and now in `*last`, or 0.
 */
int32_t zxtime_api_isWholeClock(time_t* last);

/** @return 1 when the record's local time is now or past, otherwise 0. @param t  read only. */
int32_t zxtime_api_isPass(const rstime* t);

/** @return 1 when `a` lies behind `b`, otherwise 0. @param a, b  read only. */
int32_t zxtime_api_moreThan(const rstime* a, const rstime* b);

/**
 * Tells whether more than `limitSec` seconds lie between two records.
 *
 * The difference is unsigned: when `b` lies before `a` the result is 1.
 *
 * @param a, b      read only; `a` is the earlier one.
 * @param limitSec  seconds.
 * @return 1 or 0.
 */
int32_t zxtime_api_timeout(const rstime* a, const rstime* b, uint64_t limitSec);

/**
 * Tells whether two counts, of any unit, are more than `limit` apart in either direction. The sums
 * wrap at 2^64.
 * @param a      a count.
 * @param b      another.
 * @param limit  of the same unit.
 * @return 1 or 0.
 */
int32_t zxtime_api_timeout2(uint64_t a, uint64_t b, uint64_t limit);

/**
 * Tells whether an interval has passed on the wall clock. A clock that was set back fires too.
 *
 * @param last        microseconds of the last hit, kept by the caller; 0 fires at once.
 * @param intervalUs  microseconds; the sum with `*last` wraps at 2^64.
 * @return 0 while `*last` <= now <= `*last` + `intervalUs`; otherwise 1, and now is stored.
 */
int32_t zxtime_api_counterAsyncUs(uint64_t* last, uint64_t intervalUs);

/**
 * As zxtime_api_counterAsyncUs() in seconds, counted by zxlog_api_timerAsyncSec(), whose result is
 * narrowed to a signed byte.
 * @param last         seconds of the last hit, kept by the caller; 0 fires at once.
 * @param intervalSec  seconds.
 * @return as zxtime_api_counterAsyncUs().
 */
int32_t zxtime_api_counterAsyncSec(uint64_t* last, uint32_t intervalSec);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

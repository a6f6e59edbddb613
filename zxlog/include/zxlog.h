/**
 * @file zxlog.h
 * The logging library: where lines go, which lines are wanted, and helper functions for numbers,
 * times and intervals.
 *
 * A line is formatted on the caller's stack and handed to the kernel with one write() on an
 * O_APPEND descriptor. So lines of several threads and processes never mix, and a crash loses
 * nothing that was logged. From the check whether the line is wanted (zxlog_api_getLoglevel(),
 * zxlog_api_strCasestrNum()) to that write, nothing takes a lock or allocates heap memory, and
 * `errno` is kept. Logging is also safe after fork().
 *
 * Lines carry local time, in the zone that the process started with (TZ, otherwise /etc/localtime).
 * The library learns the zone's changes for summer time when it is loaded.
 *
 * The level starts at 3. Until zxlog_api_setFile() is called, lines go to standard error. The
 * library copies the descriptor of standard error at the first zxlog_innerapi_logTime() or
 * zxlog_innerapi_file(). A file that the program opens later as descriptor 2 never gets lines.
 *
 * The library counts each line that cannot be written for any reason (a full disk, RLIMIT_FSIZE, a
 * pipe that nobody reads). It logs the count as soon as writing works again. Such a write never
 * raises SIGPIPE or SIGXFSZ in the program.
 *
 * Threads: safe.
 * Signal handlers: safe.
 * Cancellation: none; no log line is a cancellation point.
 */
#ifndef ZXLOG_H
#define ZXLOG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#if defined(__GNUC__)
/** Lets the compiler check the printf format `fmt` against the arguments from number `args` on. */
#define ZXLOG_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define ZXLOG_PRINTF(fmt, args)
#endif

#define ZXLOG_FILTER_SIZE  1024 /**< bytes in ::strfilterTags, including the NUL */
#define ZXLOG_SCRATCH_SIZE 32   /**< most bytes that a number text needs */

/** Non-zero: every line names the function and the source line that wrote it. Starts at 0. */
extern int8_t flag_printLineFunc;

/** Non-zero: every line is also written to standard output, in colour. Starts at 0. */
extern int8_t flag_stdPrint;

/** Short names of the levels 0 to 5: "OFF", "ERROR", "WARN", "NOTICE", "INFO", "DEBUG". */
extern const char* strLoglevel_simple[6];

/**
 * Tags whose messages are suppressed, in any order and with any separator, such as
 * "THREAD,FIFO_STRU". Starts empty. A tag is suppressed when it occurs anywhere in this text, so
 * "ZXMD5" in the list also silences the tag "ZXMD". Do not change it while other threads log.
 */
extern char strfilterTags[ZXLOG_FILTER_SIZE];

/** Is given a line: `size` bytes with its line end, and no NUL. */
typedef void (*zxdiag_log_tap_cb)(const char* line, uint32_t size);

/* ------------------------------------------------------------ settings -- */

/**
 * Sends the lines to a file. Lines are always appended. A missing file is created with mode 0644.
 *
 * The library keeps its own descriptor for the file. Its number is high and stays the same for as
 * long as the log goes to a file; it is close-on-exec. When a line is written, but at most once a
 * second, the library checks whether the path still names this file. When the file was moved away
 * (logrotate) or deleted, it opens the path again. If the program closes the descriptor, the
 * library opens the path again, and no line is lost. But if the program then opens another file
 * that gets the same descriptor number, lines may go to that file for up to a second.
 *
 * The path may be a pipe. A pipe that is full, or that nobody reads any more, loses lines but never
 * blocks or ends the process.
 *
 * @param path  the file, relative to the current directory at the time of the call. NULL: the
 *              present standard error; a later change of descriptor 2 has no effect.
 * @return 0; -1 with `errno` set and the log unchanged, when the file cannot be opened or the path
 *         is longer than 4095 bytes.
 *
 * Signal handlers: unsafe.
 */
int32_t zxlog_api_setFile(const char* path);

/**
 * Sets the level.
 * @param level  0: nothing is logged; 1: errors; 2: also warnings; 3: also notices; 4: also
 *               information; 5 and above: also debug lines.
 */
void zxlog_api_setLoglevel(uint32_t level);

/**
 * Replaces ::strfilterTags.
 * @param tags  the list, cut to 1023 bytes; NULL empties it.
 * Threads: unsafe; call it before other threads log.
 * Signal handlers: unsafe.
 */
void zxlog_api_setFilterTags(const char* tags);

/**
 * Sets ::flag_printLineFunc.
 * @param on  0: off.
 */
void zxlog_api_setPrintLineFunc(int8_t on);

/**
 * Sets ::flag_stdPrint.
 * @param on  0: off.
 */
void zxlog_api_setStdPrint(int8_t on);

/* ---------------------------------------------------------------- gate -- */

/**
 * Tells the current level.
 * @return the level; 0: logging is off.
 */
uint32_t zxlog_api_getLoglevel(void);

/**
 * Counts how often a text occurs in another, from left to right and without overlap.
 * @param text       the text to search; NULL or empty gives 0.
 * @param part       the text to look for; NULL or empty gives 0.
 * @param max        counting stops at this number; 0 or less: no limit.
 * @param matchCase  1: bytes must be equal; 0: ASCII letters match in either case.
 * @return the number of occurrences.
 */
int32_t zxlog_api_strCasestrNum(const char* text, const char* part, int32_t max, int32_t matchCase);

/* --------------------------------------------------------------- lines -- */

/**
 * Formats the local time as the first field of a line, "[2024-05-01 08:30:00.250]". If no file is
 * set, the first call copies the descriptor of standard error for the log, even at level 0.
 *
 * @return a text of the calling thread; the thread's 16th call after this one overwrites it.
 */
const char* zxlog_innerapi_logTime(void);

/**
 * Writes one line. The format contains the line end.
 *
 * Control characters in the arguments are written as escapes such as "\x1b", so that a text from
 * outside can neither forge a line nor control a terminal. Control characters are: everything below
 * 0x20 except the tab, 0x7f, U+0080 to U+009f in UTF-8 ("\xc2\x9b"), and bytes 0x80 to 0x9f outside
 * UTF-8. Control characters in the format itself stay, so the line end belongs there.
 *
 * Lines are not cut. A line that does not fit the stack buffer is formatted in memory pages of its
 * own. If there is no memory, the line is cut to 2 KiB, and each control character in it becomes a
 * question mark. If the C library cannot format the line, the format itself is written. At level 0
 * nothing is written.
 *
 * @param fmt  a printf format; the caller's own text, never text from outside.
 *
 * Signal handlers: safe; for conversions of integers, texts and pointers.
 */
void zxlog_innerapi_file(const char* fmt, ...) ZXLOG_PRINTF(1, 2);

/**
 * Writes a buffer in hexadecimal: one line that names it, then one line for every 16 bytes. At
 * level 0 nothing is written.
 *
 * @param label  name of the buffer; NULL counts as an empty text.
 * @param buf    `len` bytes; NULL: only the first line is written.
 * @param len    bytes.
 * @param func   name of the calling function.
 * @param line   source line of the call.
 */
void zxlog_innerapi_bufHex(const char* label, const void* buf, uint32_t len, const char* func,
                           int32_t line);

/* --------------------------------------------------------------- texts -- */

/**
 * Writes a number in decimal.
 * @param scratch  at least 32 bytes; NULL: nothing is done.
 * @param num      the number.
 * @return `scratch`.
 */
char* zxlog_innerapi_num2str(char* scratch, uint64_t num);

/**
 * Writes an amount with its unit: whole 1, fraction 512 and "KB" give "1.50KB".
 * @param scratch   at least 32 bytes; a unit that does not fit is cut. NULL: nothing is done.
 * @param whole     the whole part.
 * @param fraction  1024ths, shown as two decimals, rounded down; 0 shows no point: "1KB".
 * @param unit      NULL counts as an empty text.
 * @return `scratch`.
 */
char* zxlog_innerapi_bitByte64(char* scratch, uint64_t whole, uint64_t fraction, const char* unit);

/**
 * Does the same as zxlog_innerapi_bitByte64() for 32-bit values.
 * @param scratch   at least 32 bytes; a unit that does not fit is cut. NULL: nothing is done.
 * @param whole     the whole part.
 * @param fraction  1024ths, as for zxlog_innerapi_bitByte64().
 * @param unit      NULL counts as an empty text.
 * @return `scratch`.
 */
char* zxlog_innerapi_bitByte32(char* scratch, uint32_t whole, uint32_t fraction, const char* unit);

/* -------------------------------------------------------------- clocks -- */

/**
 * Reads the wall clock.
 * @return microseconds since the epoch.
 */
uint64_t zxlog_api_us(void);

/**
 * Formats the current local time with the caller's format. A change of TZ takes effect at once.
 * @param fmt  a trusted format: integer conversions for year, month (1 to 12), day, hour, minute
 *             and second, in this order.
 * @return a 128-byte text that belongs to the calling thread, whose next call overwrites it; an
 *         empty text for a NULL `fmt`.
 * Signal handlers: unsafe.
 */
const char* zxlog_api_curDTime(const char* fmt);

/**
 * Writes a duration given in microseconds.
 * @param us              the duration.
 * @param out             large enough for the caller's formats; NULL: nothing is done.
 * @param fmtBelowSecond  a trusted format, not NULL, for durations below one second. Its argument:
 *                        the microseconds (int).
 * @param fmtSeconds      a trusted format, not NULL, for longer durations. Its arguments: seconds,
 *                        milliseconds and microseconds (ints).
 * @return `out`.
 */
char* zxlog_api_us2time(uint64_t us, char* out, const char* fmtBelowSecond, const char* fmtSeconds);

/**
 * Writes a duration given in seconds as "D_HH:MM:SS", without "D_" when there are no days.
 * @param sec  the duration.
 * @param out  at least 32 bytes; NULL: nothing is done.
 * @return `out`.
 */
char* zxlog_api_sec2Time(uint64_t sec, char* out);

/**
 * Tells whether an interval has passed, on the wall clock in seconds. A result of 1 is a hit.
 * @param last         time of the last hit in seconds, kept by the caller; 0: the first call is a
 *                     hit. NULL: there is never a hit.
 * @param intervalSec  seconds.
 * @return 0 while `*last` <= now <= `*last` + `intervalSec`; otherwise 1, and `*last` becomes now.
 * Threads: safe; for different `last`.
 */
int32_t zxlog_api_timerAsyncSec(uint64_t* last, uint32_t intervalSec);

/* ----------------------------------------------------------- diagnosis -- */

/**
 * Gives each line also to a function, just before it is written.
 * @param tap  called by each thread that logs, maybe in a signal handler: it must be as safe as
 *             logging is, and is called again if it logs itself. NULL: no function. A thread that
 *             is just writing a line may still call the function before.
 */
void zxdiag_log_setTap(zxdiag_log_tap_cb tap);

/**
 * Sets the level, and remembers what the program has set. zxlog_api_getLoglevel() gives this level
 * until zxdiag_log_restoreLevel(), or until the program sets one itself. A second call changes the
 * level again.
 * @param level  as for zxlog_api_setLoglevel().
 */
void zxdiag_log_overrideLevel(uint32_t level);

/**
 * Goes back to the level that the program has set.
 * @return 1; 0 when zxdiag_log_overrideLevel() was not called, or when the program has set a level
 *         since.
 */
int32_t zxdiag_log_restoreLevel(void);

/**
 * Suppresses other tags than ::strfilterTags names, which stays as it is:
 * zxlog_api_strCasestrNum() searches these tags in its place. This lasts until
 * zxdiag_log_restoreTags() or zxlog_api_setFilterTags(). Other threads may log at the same time; a
 * line may then see a part of the old and a part of the new tags.
 * @param tags  the list, cut to 1023 bytes; NULL counts as an empty text.
 */
void zxdiag_log_overrideTags(const char* tags);

/**
 * Suppresses the tags of ::strfilterTags again.
 * @return 1; 0 when zxdiag_log_overrideTags() was not called, or when the program has called
 *         zxlog_api_setFilterTags() since.
 */
int32_t zxdiag_log_restoreTags(void);

/**
 * Tells which tags are suppressed.
 * @param tags  gets the text of zxdiag_log_overrideTags() or of ::strfilterTags; at least 1024
 *              bytes. NULL: nothing is done.
 * @return `tags`.
 */
char* zxdiag_log_tags(char* tags);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

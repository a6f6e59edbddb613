/**
 * @file zxlog.h
 * The logging library: where lines go, which of them are wanted, and the few
 * texts and clocks that go with them.
 *
 * A line is formatted on the caller's stack and handed to the kernel with one
 * write() on an O_APPEND descriptor, so lines of several threads and of several
 * processes never mix and nothing that was logged is lost in a crash. From the
 * gate (zxlog_api_getLoglevel(), zxlog_api_strCasestrNum()) to that write there
 * is no lock and no heap allocation, and `errno` is kept: these operations may
 * be called from signal handlers and after fork().
 *
 * The times of lines are local, in the zone that the process was started with
 * (TZ, otherwise /etc/localtime); its changes for summer time are known from the
 * start.
 *
 * Before any configuration the level is 3 and lines go to standard error, as it
 * is at the first zxlog_innerapi_logTime() or zxlog_innerapi_file(). The library
 * keeps a copy of the descriptor: what is opened later as descriptor 2 never
 * gets lines.
 *
 * A line that cannot be written for any reason (a full disk, RLIMIT_FSIZE, a
 * pipe that nobody reads) is counted. The count is reported in the log as soon
 * as writing works again. No such write raises SIGPIPE or SIGXFSZ in the program.
 *
 * Threads: the settings may be changed while other threads log, but for
 * ::strfilterTags, which is set before the threads start. Everything else is
 * safe on any thread unless stated.
 */
#ifndef ZXLOG_H
#define ZXLOG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#if defined(__GNUC__)
/** Has compilers check a printf format, argument `fmt`, against the arguments from `args` on. */
#define ZXLOG_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define ZXLOG_PRINTF(fmt, args)
#endif

#define ZXLOG_FILTER_SIZE  1024 /**< bytes in ::strfilterTags, the NUL included */
#define ZXLOG_SCRATCH_SIZE 32   /**< bytes that the number texts need at most */

/** Non-zero: every line carries the function and the source line that wrote it. Starts at 0. */
extern int8_t flag_printLineFunc;

/** Non-zero: every line is also echoed in colour to standard output. Starts at 0. */
extern int8_t flag_stdPrint;

/** Short names of the levels 0 to 5: "OFF", "ERROR", "WARN", "NOTICE", "INFO", "DEBUG". */
extern const char* strLoglevel_simple[6];

/**
 * Tags whose messages are suppressed, in any order and with any separator, such
 * as "THREAD,FIFO_STRU". Starts empty. A tag is looked for as a part of the
 * text, so "ZXMD5" in the list also silences the tag "ZXMD".
 */
extern char strfilterTags[ZXLOG_FILTER_SIZE];

/* ------------------------------------------------------------ settings -- */

/**
 * Sends the lines to a file, which is created (mode 0644) when it is missing
 * and always appended to.
 *
 * The library keeps a descriptor of its own for it: a high number, close-on-exec,
 * the same number for as long as the log goes to a file. Once a second at most,
 * and then with the next line, it looks whether the path still names the file;
 * when the file was moved away (logrotate) or deleted, it opens the path again.
 * Closing the descriptor loses nothing either, unless another file takes its
 * number at once: that file may get the lines of up to a second.
 *
 * A pipe takes lines too: one that is full or that nobody reads any more loses
 * them, but neither stops nor ends the process.
 *
 * @param path  the file; relative to the directory that is current now. NULL: standard error
 *              as it is now.
 * @return 0; -1 when the file cannot be opened or the path is longer than 4095 bytes, with
 *         `errno` set and the log left as it was.
 *
 * Threads: safe beside threads that log. Signal handlers: no.
 */
int32_t zxlog_api_setFile(const char* path);

/**
 * Sets the level.
 * @param level  0 off, 1 errors, 2 and warnings, 3 and notices, 4 and information, 5 (and above)
 *               and debug lines.
 * Threads and signal handlers: safe.
 */
void zxlog_api_setLoglevel(uint32_t level);

/**
 * Replaces ::strfilterTags.
 * @param tags  the list, cut to 1023 bytes; NULL empties it.
 * Threads: call it before other threads log. Signal handlers: no.
 */
void zxlog_api_setFilterTags(const char* tags);

/**
 * Sets ::flag_printLineFunc.
 * @param on  0: off.
 * Threads and signal handlers: safe.
 */
void zxlog_api_setPrintLineFunc(int8_t on);

/**
 * Sets ::flag_stdPrint.
 * @param on  0: off.
 * Threads and signal handlers: safe.
 */
void zxlog_api_setStdPrint(int8_t on);

/* ---------------------------------------------------------------- gate -- */

/** @return the current level; 0 means that logging is off. Signal handlers: safe. */
uint32_t zxlog_api_getLoglevel(void);

/**
 * Counts the occurrences of a text in another, from left to right and without
 * overlap.
 *
 * @param text       searched; NULL or empty gives 0.
 * @param part       looked for; NULL or empty gives 0.
 * @param max        stops counting there; 0 or less: no limit.
 * @param matchCase  1: bytes must be the same; 0: ASCII letters match in either case.
 * @return the number of occurrences.
 *
 * Signal handlers: safe.
 */
int32_t zxlog_api_strCasestrNum(const char* text, const char* part, int32_t max, int32_t matchCase);

/* --------------------------------------------------------------- lines -- */

/**
 * The local time with its brackets, "[2024-05-01 08:30:00.250]", ready to be
 * the first field of a line. Without a file, the log takes its copy of standard
 * error now, at any level.
 *
 * @return a text of the calling thread; it stands for the thread's next 15 calls.
 *
 * Signal handlers: safe.
 */
const char* zxlog_innerapi_logTime(void);

/**
 * Writes one line, which brings its own line end.
 *
 * Control characters that come with arguments are written as "\x1b", so that the
 * texts of strangers can neither forge lines nor play with a terminal: all below
 * 0x20 but the tab, 0x7f, U+0080 to U+009f in UTF-8 ("\xc2\x9b"), and bytes 0x80 to
 * 0x9f outside UTF-8. What the format itself holds stays, so the line end belongs
 * there.
 *
 * Nothing is cut: a line that does not fit the stack is formatted in pages of its
 * own (when there are none, it ends after 2 KiB, with a question mark for each
 * doubtful byte), and one that the C library refuses to format is shown as its
 * format. Nothing is written at level 0.
 *
 * @param fmt  a printf format, the caller's own text and never one from outside.
 *
 * Signal handlers: safe, with conversions for integers, texts and pointers.
 */
void zxlog_innerapi_file(const char* fmt, ...) ZXLOG_PRINTF(1, 2);

/**
 * Writes a buffer in hexadecimal: one line that names it, then one for every 16 bytes.
 * Nothing is written at level 0.
 *
 * @param label  names the buffer; NULL stands for an empty text.
 * @param buf    `len` bytes; NULL writes the first line only.
 * @param len    bytes.
 * @param func   function that asks,
 * @param line   its source line.
 *
 * Signal handlers: safe.
 */
void zxlog_innerapi_bufHex(const char* label, const void* buf, uint32_t len, const char* func,
                           int32_t line);

/* --------------------------------------------------------------- texts -- */

/**
 * Writes a number in decimal.
 * @param scratch  at least 32 bytes; NULL: nothing is done.
 * @param num      the number.
 * @return `scratch`.
 * Signal handlers: safe.
 */
char* zxlog_innerapi_num2str(char* scratch, uint64_t num);

/**
 * Writes an amount with its unit: whole 1, fraction 512 and "KB" give "1.50KB".
 *
 * @param scratch   at least 32 bytes; a unit that does not fit is cut. NULL: nothing is done.
 * @param whole     the whole part.
 * @param fraction  1024ths, shown as two decimals, cut; 0 shows no point: "1KB".
 * @param unit      NULL stands for an empty text.
 * @return `scratch`.
 */
char* zxlog_innerapi_bitByte64(char* scratch, uint64_t whole, uint64_t fraction, const char* unit);

/**
 * As zxlog_innerapi_bitByte64() for 32-bit values.
 * @param scratch   at least 32 bytes; a unit that does not fit is cut. NULL: nothing is done.
 * @param whole     the whole part.
 * @param fraction  1024ths, as for zxlog_innerapi_bitByte64().
 * @param unit      NULL stands for an empty text.
 * @return `scratch`.
 */
char* zxlog_innerapi_bitByte32(char* scratch, uint32_t whole, uint32_t fraction, const char* unit);

/* -------------------------------------------------------------- clocks -- */

/** @return wall-clock microseconds since the epoch. Signal handlers: safe. */
uint64_t zxlog_api_us(void);

/**
 * The current local time through a format of the caller. It follows a change of TZ.
 *
 * @param fmt  trusted; integer conversions for year, month (1 to 12), day, hour, minute and
 *             second, in this order.
 * @return a 128-byte text of the calling thread, overwritten by its next call; an empty text for
 *         a NULL `fmt`.
 *
 * Signal handlers: no.
 */
const char* zxlog_api_curDTime(const char* fmt);

/**
 * Writes a duration in microseconds.
 *
 * @param us             the duration.
 * @param out            large enough for the caller's formats; NULL: nothing is done.
 * @param fmtBelowSecond trusted, not NULL; used below one second, for the microseconds (int).
 * @param fmtSeconds     trusted, not NULL; used otherwise, for seconds, milliseconds and
 *                       microseconds (ints).
 * @return `out`.
 */
char* zxlog_api_us2time(uint64_t us, char* out, const char* fmtBelowSecond, const char* fmtSeconds);

/**
 * Writes a duration in seconds as "D_HH:MM:SS", without "D_" when the days are 0.
 * @param sec  the duration.
 * @param out  at least 32 bytes; NULL: nothing is done.
 * @return `out`.
 */
char* zxlog_api_sec2Time(uint64_t sec, char* out);

/**
 * Tells whether an interval has passed, on the wall clock in seconds.
 *
 * @param last         the second of the last hit, kept by the caller; 0 fires at once. NULL
 *                     never fires.
 * @param intervalSec  seconds.
 * @return 0 while `*last` <= now <= `*last` + `intervalSec`; otherwise 1, and now is stored.
 */
int32_t zxlog_api_timerAsyncSec(uint64_t* last, uint32_t intervalSec);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

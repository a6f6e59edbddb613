/**
 * @file zxsignal.h
 * What signals do to a server, and power control.
 *
 * Nothing is allocated. Log tag: SIGNAL.
 *
 * Threads: safe, unless said otherwise. Signal handlers: only where a function says so.
 */
#ifndef ZXSIGNAL_H
#define ZXSIGNAL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define ZXSIGNAL_COUNT 128 /**< entries of ::zxsignal_desstring */

/** What handles a signal, or SIG_DFL or SIG_IGN. */
typedef void (*zxsignal_handler_cb)(int number);

/** What the signals 0 to 31 are, by number; NULL behind them. */
extern const char* zxsignal_desstring[ZXSIGNAL_COUNT];

/**
 * Gives a server its usual way with signals: a broken pipe and terminal signals are ignored, most
 * others are logged and the process goes on. Interrupt and termination are among those that are
 * logged: a program that is to end by them installs its own handlers afterwards.
 *
 * Ignored: 1 hang-up, 13 broken pipe (which is blocked, too), 21 and 22 background terminal use, 28
 * window size. Default: 9 kill, 11 segmentation violation, 17 child. Logged through
 * zxsignal_innerapi_handler(): 2 to 8, 10, 12, 14 to 16, 18, 20, 23 to 27, 29 to 31; 19 cannot be
 * caught. The handler returns, so a real illegal instruction, bus error or division by zero comes
 * again for ever. Children inherit what is blocked and ignored.
 *
 * @return what signal 31 did before; SIG_ERR when that failed.
 *
 * Threads: call it once on the main thread before others start.
 * Logs: error when the broken pipe cannot be blocked.
 */
zxsignal_handler_cb zxsignal_api_catch(void);

/**
 * Logs a signal by its number and name; a number without a name is "Unknow".
 * Signal handlers: it is one.
 * Logs: notice.
 *
 * @param number  of the signal.
 */
void zxsignal_innerapi_handler(int number);

/**
 * Installs a handler that blocks no other signal and does not restart system calls.
 * @param number   of the signal.
 * @param handler  NULL: the signal is ignored.
 * Threads and signal handlers: safe; for the whole process.
 * Logs: error when the system refuses.
 */
void zxsignal_innerapi_set(int number, zxsignal_handler_cb handler);

/**
 * Blocks a signal for the calling thread, and for the threads and processes that it starts later.
 * Logs: error when the system refuses; the text speaks of SIGPIPE whatever the number.
 * @param number  of the signal; one that does not exist is refused, in two lines.
 */
void zxsignal_innerapi_sigMask(int number);

/**
 * Flushes the file systems and restarts the machine at once: no process is asked to end.
 * @return only when the system refuses: -1 with `errno`.
 */
int32_t zx_api_reboot(void);

/**
 * Flushes the file systems and runs "reboot -f".
 * @return what system() returned.
 */
int32_t zx_api_forceReboot(void);

/**
 * Flushes the file systems and powers the machine off at once.
 * @return only when the system refuses: -1 with `errno`.
 */
int32_t zx_api_poweroff(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

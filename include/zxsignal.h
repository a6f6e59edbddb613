/**
 * @file zxsignal.h
 * Signal handling for servers, and power control.
 *
 * Nothing is allocated. Log tag: SIGNAL.
 *
 * Threads: safe.
 * Signal handlers: unsafe.
 * Cancellation: none.
 */
#ifndef ZXSIGNAL_H
#define ZXSIGNAL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define ZXSIGNAL_COUNT 128 /**< entries of ::zxsignal_desstring */

/** A function that handles a signal, or SIG_DFL or SIG_IGN. */
typedef void (*zxsignal_handler_cb)(int number);

/** Descriptions of the signals 0 to 31, by number; NULL from 32 on. */
extern const char* zxsignal_desstring[ZXSIGNAL_COUNT];

/**
 * Sets up a server's usual signal handling: a broken pipe and terminal signals are ignored; most
 * others are logged, and the process continues. Interrupt and termination are also only logged: a
 * program that should end on them installs its own handlers afterwards.
 *
 * Ignored: 1 hang-up, 13 broken pipe (also blocked), 21 and 22 background terminal use, 28 window
 * size. Default: 9 kill, 11 segmentation violation, 17 child. Logged through
 * zxsignal_innerapi_handler(): 2 to 8, 10, 12, 14 to 16, 18, 20, 23 to 27, 29 to 31. Signal 19
 * cannot be caught. Because the handler returns, a real illegal instruction, bus error or division
 * by zero is raised again and again. Child processes inherit blocked and ignored signals.
 *
 * @return the previous handler of signal 31; SIG_ERR when setting it failed.
 *
 * Threads: unsafe; call it once on the main thread before others start.
 * Logs: error when the broken pipe cannot be blocked.
 */
zxsignal_handler_cb zxsignal_api_catch(void);

/**
 * Logs a signal by its number and name; a number without a name is logged as "Unknow". This is the
 * handler that zxsignal_api_catch() installs.
 *
 * @param number  the signal.
 *
 * Signal handlers: safe.
 * Logs: notice.
 */
void zxsignal_innerapi_handler(int number);

/**
 * Installs a handler. While it runs, no other signal is blocked; system calls that it interrupts
 * are not restarted.
 * @param number   the signal.
 * @param handler  NULL: the signal is ignored.
 * Threads: safe; it applies to the whole process.
 * Signal handlers: safe.
 * Logs: error when the system refuses.
 */
void zxsignal_innerapi_set(int number, zxsignal_handler_cb handler);

/**
 * Blocks a signal for the calling thread, and for the threads and processes that it starts later.
 * @param number  the signal; a number that is not a signal is refused with two error lines.
 * Signal handlers: safe.
 * Logs: error when the system refuses; the text says SIGPIPE for every number.
 */
void zxsignal_innerapi_sigMask(int number);

/**
 * Flushes the file systems and restarts the machine at once. No process is asked to end.
 * @return only when the system refuses: -1 with `errno` set.
 */
int32_t zx_api_reboot(void);

/**
 * Flushes the file systems and runs "reboot -f".
 * @return the result of system().
 * Cancellation: safe.
 */
int32_t zx_api_forceReboot(void);

/**
 * Flushes the file systems and powers the machine off at once.
 * @return only when the system refuses: -1 with `errno` set.
 */
int32_t zx_api_poweroff(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

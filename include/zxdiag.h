/**
 * @file zxdiag.h
 * A look into the running program: its locks and who waits for them, its tracked buffers, its
 * FIFOs, its threads and its log, as JSON.
 *
 * The diagnosis is off until one of these functions is called, or until the program makes its first
 * lock, thread or FIFO while the environment variable `ZX_DIAG` names a directory. The program then
 * also serves a socket in that directory, "PROGRAM.PROCESS.sock". The tool zxctl asks it.
 *
 * A question is a line: a word and any number of KEY=VALUE, such as "locks" or "log level=4". The
 * question "help" lists all of them. An answer is a JSON object on one line. It has a member
 * "error" if the question is wrong.
 *
 * With `ZX_DIAG_LEAKS=1` in the environment, the log says at the end of the program which tracked
 * buffers it still holds.
 *
 * The child of a fork has the diagnosis off. With `ZX_DIAG` it starts its own as its parent did.
 *
 * Threads: safe.
 * Signal handlers: unsafe.
 * Cancellation: none.
 */
#ifndef ZXDIAG_H
#define ZXDIAG_H

#include <stdint.h>

#include "zxlog.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * Starts counting what the program does, without a socket, and a thread that tells the time while
 * it counts. A second call changes nothing.
 * @return 0. Logs: warning when the thread cannot be made: then all holds of locks take 0 µs.
 */
int32_t zxdiag_api_start(void);

/**
 * Starts counting, and a thread that answers questions on a Unix socket.
 *
 * The socket has the mode 0600. At most eight clients are served at a time.
 *
 * The socket is removed by zxdiag_api_stop() and by exit().
 *
 * @param path  where to put the socket, at most 107 bytes. Nobody but the user and root may be able
 *              to write to its directory. A socket that another process has left there is replaced.
 * @return 0; -1 when `path` is NULL or too long, when the program serves already, or when the
 * socket or the thread cannot be made. Logs: error for each -1, notice when it serves.
 */
int32_t zxdiag_api_serve(const char* path);

/**
 * Ends the thread, removes the socket and stops counting. What was counted is kept, and counting
 * goes on when it is started again.
 */
void zxdiag_api_stop(void);

/**
 * Answers a question in the calling thread.
 * @param question  the question; one that gives several answers over time, such as "tail", is
 *                  answered with an error.
 * @return the answer, NUL-terminated, on one line without a line end. The caller frees it with
 *         zxdiag_api_free(). NULL when `question` is NULL or there is no memory.
 * Logs: error for NULL.
 */
char* zxdiag_api_ask(const char* question);

/**
 * Frees an answer.
 * @param answer  points to the answer, or to NULL; becomes NULL.
 * Logs: error for NULL.
 */
void zxdiag_api_free(char** answer);

/**
 * Non-zero while the last lines of the log are kept in memory. Only the library changes it. A
 * program with a logging function of its own asks it when the level or the tags suppress a line,
 * and then gives the line to zxdiag_log_keep().
 */
extern int8_t zxdiag_log_isOn;

/**
 * Keeps a line in memory, for the questions "log" and "tail" and for the case of a crash, and does
 * not write it. The lines that zxlog_innerapi_file() writes are kept without this call. When
 * nothing is kept, nothing is done.
 * @param fmt  as for zxlog_innerapi_file().
 * Signal handlers: safe; for conversions of integers, texts and pointers.
 */
void zxdiag_log_keep(const char* fmt, ...) ZXLOG_PRINTF(1, 2);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

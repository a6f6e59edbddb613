/**
 * @file zxthread.h
 * Worker threads with a name and a handshake word.
 *
 * A thread record belongs to its caller, who embeds it or declares it statically;
 * a record of zero bytes is one that was not created. The controlling thread and
 * its worker exchange commands through the record's state word:
 *
 *     controller                                   worker
 *     zxthread_api_create()
 *     zxthread_api_waitStateTimeout(t, 2, 3, ...)  zxthread_api_waitCmdStarting(t, ...)
 *     state = 4 under the lock                     look, under the lock, while state is 3
 *     ...                                          while (zxthread_api_isStop(t) == 0) work();
 *     zxthread_api_waitStateTimeout(t, 0, 5, ...)
 *     zxthread_api_destroy()
 *
 * Signal handlers: no. Log tag: THREAD.
 */
#ifndef ZXTHREAD_H
#define ZXTHREAD_H

#include <pthread.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define ZXTHREAD_NAME_SIZE 128 /**< bytes in a thread's name field */

/* Values of the state word. */
#define ZXTHREAD_STATE_NONE     0 /**< set by create before the thread starts */
#define ZXTHREAD_STATE_CREATED  1 /**< set by create when the thread was started */
#define ZXTHREAD_STATE_START    2 /**< set by the controller: start */
#define ZXTHREAD_STATE_STARTING 3 /**< answer of zxthread_api_waitCmdStarting() */
#define ZXTHREAD_STATE_RUN      4 /**< set by the controller: keep running */
#define ZXTHREAD_STATE_STOPPED  5 /**< answer of zxthread_api_isStop() to all but "run" */

/** A worker thread. */
typedef struct zxthread_ctt {
    pthread_t handle;              /**< the thread, while `created` is 1 */
    pthread_mutex_t mutex;         /**< guards `state`; lent through zxthread_api_lock() */
    uint8_t created;               /**< 1 between create and destroy */
    uint8_t misuse_logged;         /**< 1: use before create was logged once */
    char name[ZXTHREAD_NAME_SIZE]; /**< no NUL inside when the name was cut: bound every read */
    uint32_t state;                /**< the handshake word */
} zxthread_ctt;

/** What a worker runs. */
typedef void* (*zxthread_func_cb)(void* argument);

/**
 * Clears ::zxlocklist_ctt.
 *
 * Call it once at process start, before any lock exists: locks that are already
 * registered go on working but are listed no more.
 *
 * Threads: not safe.
 */
void zxthread_api_envInit(void);

/**
 * Names the calling thread for the operating system, which keeps 15 characters.
 *
 * @param name  the name.
 * @return 0, or -1 when `name` is NULL or the system refuses.
 *
 * Threads: safe.
 * Logs: error for a NULL name, warning when the system refuses.
 */
int32_t zxthread_api_setName(const char* name);

/**
 * Starts a worker thread.
 *
 * When the worker runs, its record is complete: it may use every operation on
 * it from its first line, and finds state 1 or what the controller set since.
 *
 * @param thread    a record that is not created; stays the caller's and must outlive the thread.
 * @param name      copied into the record, cut to 128 bytes. It does not name the thread for the
 *                  operating system: zxthread_api_setName() does.
 * @param func      what the thread runs; its result is dropped.
 * @param argument  handed to `func`.
 * @return 0; -1 when `thread`, `name` or `func` is NULL or the system refuses; -2 when the record
 *         is already created.
 *
 * Threads: safe for different records.
 * Logs: error for every failure, warning for a name that was cut.
 */
int32_t zxthread_api_create(zxthread_ctt* thread, const char* name, zxthread_func_cb func,
                            void* argument);

/**
 * Cancels a worker, waits for its end and zeroes the record.
 *
 * The mutex is destroyed first and the thread is cancelled wherever it is: stop
 * the worker before (any state but 4, then wait for 5), so that it is neither
 * inside the mutex nor holds anybody's lock. A worker that never reaches a
 * cancellation point makes the call wait for ever.
 *
 * @param thread  the record; not to be used by anybody else any more.
 * @return 0; -1 when `thread` is NULL; -2 when it is not created.
 *
 * Threads: not for the worker itself; safe for different records.
 * Logs: error for the arguments that fail and for a failed join.
 */
int32_t zxthread_api_destroy(zxthread_ctt* thread);

/**
 * Takes the record's mutex. It is not recursive.
 *
 * @param thread  a created record.
 * @return 0; -1 when `thread` is NULL or not created: then nothing is held.
 *
 * Threads: safe. Signal handlers: no.
 * Logs: error for a NULL record; for one that is not created, once.
 */
int32_t zxthread_api_lock(zxthread_ctt* thread);

/**
 * Gives the record's mutex back.
 *
 * @param thread  a created record whose mutex the calling thread holds; this is not checked.
 * @return as zxthread_api_lock().
 *
 * Threads: safe. Signal handlers: no.
 * Logs: as zxthread_api_lock().
 */
int32_t zxthread_api_unlock(zxthread_ctt* thread);

/**
 * Stores a state and waits until the other side answers with another.
 *
 * The state is looked at after each of `timeoutMs / stepMs` sleeps at most; a
 * step of 0 counts as no steps at all. When `setValue` is `awaited` it returns
 * at once.
 *
 * @param thread     a created record; its mutex is not held by the caller.
 * @param setValue   stored first.
 * @param awaited    value to wait for.
 * @param timeoutMs  milliseconds.
 * @param stepMs     milliseconds.
 * @return 1 when the state became `awaited`; 0 on time-out or when the record is not created; -1
 *         when `thread` is NULL.
 *
 * Threads: safe. Sleeping is a cancellation point; the mutex is not held then.
 * Logs: error for a time-out and for a NULL record; for one that is not created, once.
 */
int32_t zxthread_api_waitStateTimeout(zxthread_ctt* thread, uint32_t setValue, uint32_t awaited,
                                      uint32_t timeoutMs, uint32_t stepMs);

/**
 * Waits for the start command (state 2) and answers it with 3.
 *
 * The state is looked at first and then after each of `timeoutMs / stepMs` sleeps.
 *
 * @param thread     a created record; its mutex is not held by the caller.
 * @param timeoutMs  milliseconds.
 * @param stepMs     milliseconds; 0 counts as no steps.
 * @return as zxthread_api_waitStateTimeout().
 *
 * Threads: safe. Sleeping is a cancellation point; the mutex is not held then.
 * Logs: as zxthread_api_waitStateTimeout().
 */
int32_t zxthread_api_waitCmdStarting(zxthread_ctt* thread, uint32_t timeoutMs, uint32_t stepMs);

/**
 * Tells a worker whether to stop, and the controller that it does.
 *
 * @param thread  a created record; its mutex is not held by the caller.
 * @return 0 while the state is 4; otherwise 1, and the state is 5 then. 1 also, with nothing
 *         stored, when `thread` is NULL or not created.
 *
 * Threads: safe.
 * Logs: information when it answers a stop; error for a NULL record; for one that is not created,
 * once.
 */
int32_t zxthread_api_isStop(zxthread_ctt* thread);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

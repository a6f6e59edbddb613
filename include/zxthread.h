/**
 * @file zxthread.h
 * Named worker threads that start and stop by a handshake.
 *
 * A thread record belongs to its caller, who embeds it or declares it statically. A record that is
 * all zeros counts as not created. The controlling thread and its worker exchange commands through
 * the record's state word:
 *
 *     controller                                   worker
 *     zxthread_api_create()
 *     zxthread_api_waitStateTimeout(t, 2, 3, ...)  zxthread_api_waitCmdStarting(t, ...)
 *     state = 4 under the lock                     under the lock, poll until state is not 3
 *     ...                                          while (zxthread_api_isStop(t) == 0) work();
 *     zxthread_api_waitStateTimeout(t, 0, 5, ...)
 *     zxthread_api_destroy()
 *
 * Log tag: THREAD.
 *
 * Threads: safe.
 * Signal handlers: unsafe.
 * Cancellation: none.
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
#define ZXTHREAD_STATE_NONE     0 /**< set by create, before the thread starts */
#define ZXTHREAD_STATE_CREATED  1 /**< set by create, after the thread was started */
#define ZXTHREAD_STATE_START    2 /**< set by the controller: start */
#define ZXTHREAD_STATE_STARTING 3 /**< answer of zxthread_api_waitCmdStarting() */
#define ZXTHREAD_STATE_RUN      4 /**< set by the controller: keep running */
#define ZXTHREAD_STATE_STOPPED  5 /**< answer of zxthread_api_isStop() to every state except 4 */

/** A worker thread. */
typedef struct zxthread_ctt {
    pthread_t handle;              /**< the thread, while `created` is 1 */
    pthread_mutex_t mutex;         /**< guards `state`; taken by zxthread_api_lock() */
    uint8_t created;               /**< 1 between create and destroy */
    uint8_t misuse_logged;         /**< 1: a use before create was logged */
    char name[ZXTHREAD_NAME_SIZE]; /**< has no NUL when the name was cut: bound every read */
    uint32_t state;                /**< the handshake word */
} zxthread_ctt;

/** The function that a worker runs. */
typedef void* (*zxthread_func_cb)(void* argument);

/**
 * Clears ::zxlocklist_ctt. Call it once at process start, before any lock exists: locks that are
 * already registered continue to work but are no longer listed.
 *
 * Threads: unsafe.
 */
void zxthread_api_envInit(void);

/**
 * Names the calling thread for the operating system, which keeps 15 characters.
 * @param name  the name.
 * @return 0; -1 when `name` is NULL or the system refuses.
 * Logs: error for a NULL name, warning when the system refuses.
 */
int32_t zxthread_api_setName(const char* name);

/**
 * Starts a worker thread.
 *
 * The record is complete before the worker can use it: the worker may call every operation on it
 * from its first line on. It finds state 1, or a state that the controller has set since.
 *
 * @param thread    a record that is not created; stays the caller's and must outlive the thread.
 * @param name      copied into the record, cut to 128 bytes. The operating system does not get this
 *                  name: use zxthread_api_setName() for that.
 * @param func      the function that the thread runs; its result is dropped.
 * @param argument  passed to `func`.
 * @return 0; -1 when `thread`, `name` or `func` is NULL or the system refuses; -2 when the record
 *         is already created.
 *
 * Threads: safe; for different records.
 * Logs: error for every failure, warning for a name that was cut.
 */
int32_t zxthread_api_create(zxthread_ctt* thread, const char* name, zxthread_func_cb func,
                            void* argument);

/**
 * Cancels a worker, waits for its end and zeroes the record.
 *
 * The mutex is destroyed first, and the thread is cancelled wherever it is. So stop the worker
 * first: set any state except 4, then wait for 5. It then holds neither the mutex nor any other
 * lock. If a worker never reaches a cancellation point, the call never returns.
 *
 * @param thread  the record; nobody else may use it any more.
 * @return 0; -1 when `thread` is NULL; -2 when it is not created.
 *
 * Threads: safe; for different records. The worker itself must not call it.
 * Cancellation: unsafe; the worker is cancelled but not joined, and the record must only be passed
 * to this function again.
 * Logs: error for a refused argument and for a failed join.
 */
int32_t zxthread_api_destroy(zxthread_ctt* thread);

/**
 * Takes the record's mutex. It is not recursive.
 * @param thread  a created record.
 * @return 0; -1 with nothing held when `thread` is NULL or not created.
 * Logs: error for a NULL record, and once for a record that is not created.
 */
int32_t zxthread_api_lock(zxthread_ctt* thread);

/**
 * Releases the record's mutex.
 * @param thread  a created record whose mutex the calling thread holds; this is not checked.
 * @return as zxthread_api_lock().
 * Logs: as zxthread_api_lock().
 */
int32_t zxthread_api_unlock(zxthread_ctt* thread);

/**
 * Stores a state and waits until the other side answers with another one.
 *
 * The state is checked after each of at most `timeoutMs / stepMs` sleeps; with a `stepMs` of 0
 * there are none. When `setValue` equals `awaited` the function returns at once.
 *
 * @param thread     a created record; the caller does not hold its mutex.
 * @param setValue   the state to store first.
 * @param awaited    the state to wait for.
 * @param timeoutMs  milliseconds.
 * @param stepMs     milliseconds.
 * @return 1 when the state became `awaited`; 0 on timeout or when the record is not created; -1
 *         when `thread` is NULL.
 *
 * Cancellation: safe; only while it sleeps, when the mutex is not held.
 * Logs: error for a timeout, for a NULL record, and once for a record that is not created.
 */
int32_t zxthread_api_waitStateTimeout(zxthread_ctt* thread, uint32_t setValue, uint32_t awaited,
                                      uint32_t timeoutMs, uint32_t stepMs);

/**
 * Waits for the start command (state 2) and answers it with 3.
 *
 * The state is checked at once and then after each of `timeoutMs / stepMs` sleeps.
 *
 * @param thread     a created record; the caller does not hold its mutex.
 * @param timeoutMs  milliseconds.
 * @param stepMs     milliseconds; 0: no sleeps.
 * @return as zxthread_api_waitStateTimeout().
 *
 * Cancellation: safe; only while it sleeps, when the mutex is not held.
 * Logs: as zxthread_api_waitStateTimeout().
 */
int32_t zxthread_api_waitCmdStarting(zxthread_ctt* thread, uint32_t timeoutMs, uint32_t stepMs);

/**
 * Tells a worker whether to stop, and tells the controller that the worker stops.
 * @param thread  a created record; the caller does not hold its mutex.
 * @return 0 while the state is 4; otherwise 1, after setting the state to 5. If `thread` is NULL or
 *         not created: 1, with nothing stored.
 * Logs: information when it answers a stop; error for a NULL record, and once for a record that is
 * not created.
 */
int32_t zxthread_api_isStop(zxthread_ctt* thread);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

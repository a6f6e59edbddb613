/**
 * @file zxlock.h
 * Named locks that remember who holds them, a table that lists them all, and two polling waits on a
 * word that a lock guards.
 *
 * A lock record belongs to its caller, who embeds it or declares it statically; this module never
 * allocates one. A record that is all zeros is valid and counts as not initialised. Log tag:
 * THREAD.
 *
 * Threads: safe.
 * Signal handlers: unsafe.
 * Cancellation: none.
 */
#ifndef ZXLOCK_H
#define ZXLOCK_H

#include <pthread.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define ZXLOCK_NAME_SIZE   128  /**< bytes in a lock's name field */
#define ZXLOCK_HOLDER_SIZE 133  /**< bytes in a lock's holder field */
#define ZXLOCK_LIST_SIZE   5120 /**< entries of ::zxlocklist_ctt */

/** A named lock. Only read its fields; the holder may change while you do. */
typedef struct zxlock_ctt {
    char name[ZXLOCK_NAME_SIZE];     /**< has no NUL when the name was cut: bound every read */
    pthread_mutex_t mutex;           /**< the lock itself; not recursive */
    uint8_t initialised;             /**< 1 between init and deinit */
    uint8_t report_misuse;           /**< 1: use of the uninitialised record is logged */
    uint8_t locked;                  /**< 1 while held by zxlock_api_obtain() */
    char holder[ZXLOCK_HOLDER_SIZE]; /**< "function,line" of the holder, or "nolock" */
} zxlock_ctt;

/** An entry of ::zxlocklist_ctt. */
typedef struct zxlocklist_entry_ctt {
    zxlock_ctt* lock; /**< the registered lock */
    uint8_t used;     /**< 1 when the entry is occupied */
} zxlocklist_entry_ctt;

/**
 * The live locks of the process, in no particular order, with gaps. No lock protects a reader: read
 * the table only while no thread calls zxlock_api_init() or zxlock_api_deinit().
 */
extern zxlocklist_entry_ctt zxlocklist_ctt[ZXLOCK_LIST_SIZE];

/**
 * Makes a lock usable and enters it in ::zxlocklist_ctt.
 *
 * A second call on a live record changes nothing, not even the name. When the table is full, the
 * lock works but is not listed, and nothing is logged.
 *
 * @param lock  record to initialise; stays the caller's.
 * @param name  copied into the record, cut to 128 bytes; NULL counts as "unknown".
 * @return 0; -1 when `lock` is NULL or the mutex cannot be created.
 *
 * Threads: safe; for different records. Call it before the record is shared.
 * Logs: error for a NULL record or a failed mutex, warning for a name that was cut.
 */
int32_t zxlock_api_init(zxlock_ctt* lock, const char* name);

/**
 * Removes a lock from the table, destroys its mutex and zeroes the record.
 * @param lock  a record that nobody holds or waits for. A record that is not initialised is left
 *              alone.
 * @return 0; -1 when `lock` is NULL.
 * Threads: safe; for different records. Nobody else may use the record any more.
 * Logs: error for a NULL record.
 */
int32_t zxlock_api_deinit(zxlock_ctt* lock);

/**
 * Waits until the lock is free and takes it. The lock is not recursive.
 * @param lock  the lock.
 * @param func  name of the calling function, recorded as holder together with the line; cut if
 *              "function,line" exceeds 132 characters. NULL counts as "(null)".
 * @param line  source line of the call.
 * @return 0; -1 with nothing held when `lock` is NULL or not initialised.
 * Logs: error for a NULL record, and for an uninitialised one whose `report_misuse` is 1.
 */
int32_t zxlock_api_obtain(zxlock_ctt* lock, const char* func, int line);

/**
 * Releases a lock; its holder becomes "nolock".
 * @param lock  a lock that the calling thread holds. This is not checked: releasing a lock that is
 *              not held is undefined.
 * @param func  name of the calling function, used only when misuse is logged.
 * @param line  source line of the call, used likewise.
 * @return 0; -1 as for zxlock_api_obtain().
 * Logs: as zxlock_api_obtain().
 */
int32_t zxlock_api_release(zxlock_ctt* lock, const char* func, int line);

/**
 * Stores a value in a word and waits until another thread changes it to the awaited value.
 *
 * The word is checked every `stepMs` milliseconds, at most `timeoutMs / stepMs` times; with a
 * `stepMs` of 0, never. The function sleeps once more than it checks: it detects the timeout only
 * after the final sleep. When `setValue` equals `awaited` it returns at once.
 *
 * @param lock       guards the word; the caller does not hold it.
 * @param state      the word, read and written only with the lock held.
 * @param setValue   the value to store first.
 * @param awaited    the value to wait for.
 * @param timeoutMs  milliseconds.
 * @param stepMs     milliseconds.
 * @return 1 when the word became `awaited`; 0 on timeout; -1 when `lock` or `state` is NULL or the
 *         lock is not initialised.
 *
 * Cancellation: safe; only while it sleeps, when the lock is not held.
 * Logs: error for a timeout and for a NULL argument; for an uninitialised lock as
 * zxlock_api_obtain().
 */
int32_t zxlock_api_waitStateTimeout(zxlock_ctt* lock, uint32_t* state, uint32_t setValue,
                                    uint32_t awaited, uint32_t timeoutMs, uint32_t stepMs);

/**
 * Waits until a command word is 2 ("start") and answers it with 3.
 *
 * The word is checked at once and then after each of `timeoutMs / stepMs` sleeps. The function
 * takes the mutex without changing the `holder` and `locked` fields.
 *
 * @param lock       guards the word; the caller does not hold it.
 * @param cmd        the word, read and written only with the lock held.
 * @param timeoutMs  milliseconds.
 * @param stepMs     milliseconds; 0: no sleeps.
 * @return 1 when the command came; 0 on timeout; -1 when `lock` or `cmd` is NULL or the lock is not
 *         initialised.
 *
 * Cancellation: safe; only while it sleeps, when the lock is not held.
 * Logs: error for a timeout and for a NULL argument; for an uninitialised lock as
 * zxlock_api_obtain().
 */
int32_t zxlock_api_waitCmdStarting(zxlock_ctt* lock, uint32_t* cmd, uint32_t timeoutMs,
                                   uint32_t stepMs);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

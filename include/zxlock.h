/**
 * @file zxlock.h
 * Named locks that remember who holds them, the table that lists them all, and
 * two polling waits on a word that such a lock guards.
 *
 * A lock record belongs to its caller, who embeds it or declares it statically;
 * this module never allocates one. A record of zero bytes is a valid record
 * that is not initialised. Signal handlers: no. Log tag: THREAD.
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

/** A named lock. Fields are for reading; who holds it may change meanwhile. */
typedef struct zxlock_ctt {
    char name[ZXLOCK_NAME_SIZE];     /**< no NUL inside when the name was cut: bound every read */
    pthread_mutex_t mutex;           /**< the lock itself; not recursive */
    uint8_t initialised;             /**< 1 between init and deinit */
    uint8_t report_misuse;           /**< 1: using the record uninitialised is logged */
    uint8_t locked;                  /**< 1 while held through zxlock_api_obtain() */
    char holder[ZXLOCK_HOLDER_SIZE]; /**< "function,line" of the holder, or "nolock" */
} zxlock_ctt;

/** An entry of ::zxlocklist_ctt. */
typedef struct zxlocklist_entry_ctt {
    zxlock_ctt* lock; /**< the registered lock */
    uint8_t used;     /**< 1 when the entry is occupied */
} zxlocklist_entry_ctt;

/**
 * The locks that are alive in the process, in no particular order, with holes.
 * Nothing guards a reader: look at it while no lock is initialised or torn down.
 */
extern zxlocklist_entry_ctt zxlocklist_ctt[ZXLOCK_LIST_SIZE];

/**
 * Makes a lock usable and enters it into ::zxlocklist_ctt.
 *
 * Calling it again on a live record changes nothing, not even the name. When
 * the table is full the lock works but is not listed, and nothing is logged.
 *
 * @param lock  record to initialise; stays the caller's.
 * @param name  copied into the record, cut to 128 bytes; NULL stands for "unknown".
 * @return 0, or -1 when `lock` is NULL or the mutex cannot be created.
 *
 * Threads: safe for different records; call it before the record is shared.
 * Logs: error for a NULL record or a failed mutex, warning for a name that was cut.
 */
int32_t zxlock_api_init(zxlock_ctt* lock, const char* name);

/**
 * Takes a lock out of the table, destroys its mutex and zeroes the record.
 *
 * @param lock  a record that nobody holds or waits for. One that is not initialised is left alone.
 * @return 0, or -1 when `lock` is NULL.
 *
 * Threads: safe for different records; nobody else may use this one any more.
 * Logs: error for a NULL record.
 */
int32_t zxlock_api_deinit(zxlock_ctt* lock);

/**
 * Waits until the lock is free and takes it. It is not recursive.
 *
 * @param lock  the lock.
 * @param func  name of the calling function, recorded as holder together with the line; it is cut
 *              where the two do not fit 132 characters. NULL stands for "(null)".
 * @param line  the caller's source line.
 * @return 0, or -1 when `lock` is NULL or not initialised: then nothing is held.
 *
 * Threads: safe. Signal handlers: no. It is no cancellation point.
 * Logs: error for a NULL record, and for an uninitialised one whose `report_misuse` is 1.
 */
int32_t zxlock_api_obtain(zxlock_ctt* lock, const char* func, int line);

/**
 * Gives a lock back; the holder becomes "nolock".
 *
 * @param lock  a lock that the calling thread holds; this is not checked, and releasing a lock
 *              that is not held is undefined.
 * @param func  name of the calling function, for the misuse message only.
 * @param line  the caller's source line, likewise.
 * @return 0, or -1 as for zxlock_api_obtain().
 *
 * Threads: safe. Signal handlers: no.
 * Logs: as zxlock_api_obtain().
 */
int32_t zxlock_api_release(zxlock_ctt* lock, const char* func, int line);

/**
 * Stores a value into a word and waits until somebody else makes it another.
 *
 * The word is looked at every `stepMs` milliseconds, `timeoutMs / stepMs` times
 * at most; a step of 0 counts as no steps at all. There is one sleep more than
 * there are looks: the time-out is noticed behind the last one. When `setValue`
 * is `awaited` it returns at once.
 *
 * @param lock       guards the word; not held by the caller.
 * @param state      the word, touched only while the lock is held.
 * @param setValue   stored first.
 * @param awaited    value to wait for.
 * @param timeoutMs  milliseconds.
 * @param stepMs     milliseconds.
 * @return 1 when the word became `awaited`; 0 on time-out; -1 when `lock` or `state` is NULL or
 *         the lock is not initialised.
 *
 * Threads: safe. Sleeping is a cancellation point; the lock is not held then.
 * Logs: error for a timeout and for a NULL argument; for an uninitialised lock as
 * zxlock_api_obtain().
 */
int32_t zxlock_api_waitStateTimeout(zxlock_ctt* lock, uint32_t* state, uint32_t setValue,
                                    uint32_t awaited, uint32_t timeoutMs, uint32_t stepMs);

/**
 * Waits until a command word is 2 ("start") and answers it with 3.
 *
 * The word is looked at first and then after each of `timeoutMs / stepMs` sleeps.
 * The mutex is taken without a note in the `holder` and `locked` fields.
 *
 * @param lock       guards the word; not held by the caller.
 * @param cmd        the word, touched only while the lock is held.
 * @param timeoutMs  milliseconds.
 * @param stepMs     milliseconds; 0 counts as no steps.
 * @return 1 when the command came; 0 on time-out; -1 when `lock` or `cmd` is NULL or the lock is
 *         not initialised.
 *
 * Threads: safe. Sleeping is a cancellation point; the lock is not held then.
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

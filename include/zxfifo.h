/**
 * @file zxfifo.h
 * Block FIFOs: named byte rings with a lock of their own, which pass a byte
 * stream or a stream of length-prefixed messages from one thread to another.
 *
 * A FIFO is made by zxfifo_api_blockInit() and belongs to its caller, who holds
 * a pointer to it. It never refuses data for lack of space and never waits for
 * data: storing more than is free overwrites what was not read yet, taking more
 * than is held gives stale bytes and puts the counts out of step. Ask
 * zxfifo_api_blockSizeLeft() before storing and zxfifo_api_blockSizeUsed()
 * before taking; with one thread on each side the answers stay good.
 *
 * Threads: everything is safe on any thread but init, deinit and the
 * zxfifo_innerapi_ operations, which take no lock: their caller holds the FIFO's.
 * Signal handlers: no. Log tag: FIFO_STRU.
 */
#ifndef ZXFIFO_H
#define ZXFIFO_H

#include <stdint.h>

#include "zxlock.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* --------------------------------------------------------- block FIFOs -- */

#define ZXFIFO_NAME_SIZE   128 /**< bytes in a FIFO's name field */
#define ZXFIFO_PREFIX_SIZE 4   /**< bytes that a message needs beside its payload */

typedef struct zxfifoblock_ctt {
    char name[ZXFIFO_NAME_SIZE]; /**< no NUL inside when the name was cut: bound every read */
    uint32_t size;               /**< capacity in bytes */
    uint8_t* start;              /**< first byte of the ring */
    uint8_t* end;                /**< one past the last byte */
    zxlock_ctt lock;             /**< guards the ring and all fields below */
    uint8_t* write_pos;          /**< where the next byte is stored */
    uint8_t* read_pos;           /**< where the next byte is taken */
    uint32_t total_in;           /**< bytes stored since the last reset, modulo 2^32 */
    uint32_t total_out;          /**< bytes taken since the last reset, modulo 2^32 */
    uint32_t used;               /**< bytes held behind the last transfer or reset */
    uint32_t free;               /**< bytes free behind the last transfer or reset */
    uint32_t reset_count;        /**< zxfifo_api_blockReset() calls since init */
} zxfifoblock_ctt;

/** Status view that zxfifo_api_blockReset2() fills. */
typedef struct zxfifoblockstat_ctt {
    uint32_t free;         /**< bytes free */
    uint32_t reserved;     /**< the caller's; not touched */
    uint32_t used;         /**< bytes held */
    uint32_t reset_count;  /**< resets counted */
    zxfifoblock_ctt* fifo; /**< the FIFO; set by the caller */
} zxfifoblockstat_ctt;

/**
 * Moves bytes between the caller's world and the ring, such as recv() or send().
 *
 * It is called with the FIFO's lock held and must not use the FIFO. A thread
 * may be cancelled in it: the lock is given back, and what the call moved does
 * not count.
 *
 * @param context   the source or destination argument of the transfer, as it was given.
 * @param position  where in the ring to write or read.
 * @param length    bytes at most, 1 or more.
 * @return the bytes moved; 0 (or less) ends the transfer as a failure, more than `length` counts as
 *         `length`.
 */
typedef int32_t (*zxfifo_transfer_cb)(void* context, uint8_t* position, int32_t length);

/**
 * Makes a FIFO.
 *
 * @param capacity  bytes; 0 makes a FIFO that stores nothing and warns with every transfer.
 * @param name      copied, cut to 128 bytes; also names the allocations and the lock.
 * @return the FIFO, for zxfifo_api_blockDeinit(); NULL when `name` is NULL or memory is short.
 *
 * Logs: error for a NULL `name` and short memory, warning for a name that was cut.
 */
zxfifoblock_ctt* zxfifo_api_blockInit(uint32_t capacity, const char* name);

/**
 * Frees a FIFO.
 *
 * The caller's pointer is left as it is, deliberately: clear it, it must not be
 * used again.
 *
 * @param pfifo  where the pointer is. NULL, or a NULL in it: nothing is done.
 *
 * Threads: nobody else may use the FIFO any more.
 */
void zxfifo_api_blockDeinit(zxfifoblock_ctt** pfifo);

/**
 * Stores bytes, or lets a function store them.
 *
 * @param fifo      the FIFO; the free space is not checked.
 * @param source    `length` bytes; with `transfer`, what that function gets as context.
 * @param length    bytes; 0 or less stores nothing.
 * @param transfer  NULL: bytes are copied from `source`. Otherwise called for each unbroken piece
 *                  of the ring until `length` bytes were moved or it fails.
 * @return bytes stored; -1 when `fifo` or `source` is NULL.
 *
 * Logs: error for a NULL argument, warning when fewer than `length` bytes were stored.
 */
int32_t zxfifo_api_blockIn(zxfifoblock_ctt* fifo, const void* source, int32_t length,
                           zxfifo_transfer_cb transfer);

/**
 * Takes bytes, or lets a function take them.
 *
 * @param fifo      the FIFO; the bytes held are not checked.
 * @param dest      room for `length` bytes; with `transfer`, what that function gets as context.
 * @param length    bytes; 0 or less takes nothing.
 * @param transfer  NULL: bytes are copied to `dest`. Otherwise as for zxfifo_api_blockIn().
 * @return bytes taken; -1 when `fifo` or `dest` is NULL.
 *
 * Logs: error for a NULL argument, warning when fewer than `length` bytes were taken.
 */
int32_t zxfifo_api_blockOut(zxfifoblock_ctt* fifo, void* dest, int32_t length,
                            zxfifo_transfer_cb transfer);

/**
 * Stores a message: its length as four bytes, most significant first, then the payload.
 *
 * @param fifo     the FIFO; it needs `length` + #ZXFIFO_PREFIX_SIZE bytes free, unchecked.
 * @param payload  `length` bytes.
 * @param length   bytes of payload, 0 or more.
 * @return payload bytes stored; -1 when `fifo` or `payload` is NULL or `length` is negative.
 *
 * Logs: error for the arguments that give -1.
 */
int32_t zxfifo_api_blockLenIn(zxfifoblock_ctt* fifo, const void* payload, int32_t length);

/**
 * Takes a message that zxfifo_api_blockLenIn() stored.
 *
 * When the payload is larger than `size`, its length is consumed and the
 * payload stays: the FIFO is out of step then. Call zxfifo_api_blockReset()
 * before reading messages again. An empty FIFO is not recognised.
 *
 * @param fifo  the FIFO, holding a message.
 * @param dest  gets the payload.
 * @param size  bytes that `dest` holds.
 * @param func  name of the calling function, for the message; NULL stands for "(null)".
 * @param line  the caller's source line.
 * @return payload bytes taken; -1 when `fifo` or `dest` is NULL or the payload is larger than
 *         `size`.
 *
 * Logs: error for a NULL argument; for a payload that is too large, with a dump of its length.
 */
int32_t zxfifo_api_blockLenOut1(zxfifoblock_ctt* fifo, void* dest, uint32_t size, const char* func,
                                int line);

/** @return the bytes held; -1 when `fifo` is NULL, which is logged as an error. */
int32_t zxfifo_api_blockSizeUsed(zxfifoblock_ctt* fifo);

/** @return the bytes free; -1 when `fifo` is NULL, which is logged as an error. */
int32_t zxfifo_api_blockSizeLeft(zxfifoblock_ctt* fifo);

/** @return the resets counted; -1 when `fifo` is NULL, which is logged as an error. */
int32_t zxfifo_api_blockResetNum(zxfifoblock_ctt* fifo);

/**
 * Forgets the content and counts a reset.
 * @return the new reset count; -1 when `fifo` is NULL, which is logged as an error.
 */
int32_t zxfifo_api_blockReset(zxfifoblock_ctt* fifo);

/**
 * Forgets the content, sets the reset count to 0 and fills a status view.
 * @param stat  the view, with its `fifo` set; `reserved` is not touched.
 * @return 0; -1 when `stat` or its `fifo` is NULL, which is logged as an error.
 */
int32_t zxfifo_api_blockReset2(zxfifoblockstat_ctt* stat);

/* Operations for the library's own modules: the caller holds the FIFO's lock. A NULL FIFO is
 * logged as an error. */

/**
 * Counts `n` bytes behind the write position as stored.
 * @param n  no more than up to the end of the ring. @return 0; -1 when `fifo` is NULL.
 */
int32_t zxfifo_innerapi_blockDrainIn(zxfifoblock_ctt* fifo, uint32_t n);

/**
 * Counts `n` bytes behind the read position as taken.
 * @param n  no more than the capacity. @return 0; -1 when `fifo` is NULL.
 */
int32_t zxfifo_innerapi_blockDrainOut(zxfifoblock_ctt* fifo, uint32_t n);

/** @return the capacity in bytes; -1 when `fifo` is NULL. */
int32_t zxfifo_innerapi_blockSpaceTotal(const zxfifoblock_ctt* fifo);

/** @return the bytes held, as the totals say; -1 when `fifo` is NULL. */
int32_t zxfifo_innerapi_blockSpaceUsed(const zxfifoblock_ctt* fifo);

/** @return the bytes free, as the totals say; -1 when `fifo` is NULL. */
int32_t zxfifo_innerapi_blockSpaceFree(const zxfifoblock_ctt* fifo);

/** As zxfifo_api_blockIn(), without the lock; `source` is not checked. */
int32_t zxfifo_innerapi_blockIOin(zxfifoblock_ctt* fifo, const void* source, int32_t length,
                                  zxfifo_transfer_cb transfer);

/** As zxfifo_api_blockOut(), without the lock; `dest` is not checked. */
int32_t zxfifo_innerapi_blockIOout(zxfifoblock_ctt* fifo, void* dest, int32_t length,
                                   zxfifo_transfer_cb transfer);

/**
 * Sets both positions to the start and both totals to 0. The snapshots (`used`, `free`) and the
 * reset count stay.
 * @return 1; 0 when `fifo` is NULL.
 */
int32_t zxfifo_innerapi_blockReset(zxfifoblock_ctt* fifo);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

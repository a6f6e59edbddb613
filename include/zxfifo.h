/**
 * @file zxfifo.h
 * Ways to pass data on: block FIFOs, list pools, shared lists.
 *
 * Block FIFOs are named byte rings with a lock of their own, which pass a byte
 * stream or a stream of length-prefixed messages from one thread to another.
 * List pools are plain queues of buffers without a lock. Shared lists keep
 * buffers for a time, with one thread that adds and others that read.
 *
 * A block FIFO is made by zxfifo_api_blockInit() and belongs to its caller, who holds
 * a pointer to it. It never refuses data for lack of space and never waits for
 * data: storing more than is free overwrites what was not read yet, taking more
 * than is held gives stale bytes and puts the counts out of step. Ask
 * zxfifo_api_blockSizeLeft() before storing and zxfifo_api_blockSizeUsed()
 * before taking; with one thread on each side the answers stay good.
 *
 * Threads: block FIFOs are safe on any thread but for init, deinit and the
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

/** A block FIFO. Made by zxfifo_api_blockInit(); every field is the module's. */
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

/**
 * @param fifo  the FIFO.
 * @return the bytes held behind the last transfer or reset, without what was only counted since; -1
 *         when `fifo` is NULL, which is logged as an error.
 */
int32_t zxfifo_api_blockSizeUsed(zxfifoblock_ctt* fifo);

/**
 * @param fifo  the FIFO.
 * @return the bytes free, likewise; -1 when `fifo` is NULL, which is logged as an error.
 */
int32_t zxfifo_api_blockSizeLeft(zxfifoblock_ctt* fifo);

/**
 * @param fifo  the FIFO.
 * @return the resets counted; -1 when `fifo` is NULL, which is logged as an error.
 */
int32_t zxfifo_api_blockResetNum(zxfifoblock_ctt* fifo);

/**
 * Forgets the content and counts a reset.
 * @param fifo  the FIFO.
 * @return the new reset count; -1 when `fifo` is NULL, which is logged as an error.
 */
int32_t zxfifo_api_blockReset(zxfifoblock_ctt* fifo);

/**
 * Forgets the content, sets the reset count to 0 and fills a status view.
 * @param stat  the view, with its `fifo` set; `reserved` is not touched.
 * @return 0; -1 when `stat` or its `fifo` is NULL, which is logged as an error.
 */
int32_t zxfifo_api_blockReset2(zxfifoblockstat_ctt* stat);

/* ------------------------------------- block FIFOs whose lock is held -- */

/*
 * Operations for the library's own modules: the caller holds the FIFO's lock. A NULL FIFO is
 * logged as an error.
 */

/**
 * Counts `n` bytes behind the write position as stored.
 * @param fifo  the FIFO.
 * @param n     no more than up to the end of the ring.
 * @return 0; -1 when `fifo` is NULL.
 */
int32_t zxfifo_innerapi_blockDrainIn(zxfifoblock_ctt* fifo, uint32_t n);

/**
 * Counts `n` bytes behind the read position as taken.
 * @param fifo  the FIFO.
 * @param n     no more than the capacity.
 * @return 0; -1 when `fifo` is NULL.
 */
int32_t zxfifo_innerapi_blockDrainOut(zxfifoblock_ctt* fifo, uint32_t n);

/**
 * @param fifo  the FIFO.
 * @return the capacity in bytes; -1 when `fifo` is NULL.
 */
int32_t zxfifo_innerapi_blockSpaceTotal(const zxfifoblock_ctt* fifo);

/**
 * @param fifo  the FIFO.
 * @return the bytes held, as the totals say; -1 when `fifo` is NULL.
 */
int32_t zxfifo_innerapi_blockSpaceUsed(const zxfifoblock_ctt* fifo);

/**
 * @param fifo  the FIFO.
 * @return the bytes free, as the totals say; -1 when `fifo` is NULL.
 */
int32_t zxfifo_innerapi_blockSpaceFree(const zxfifoblock_ctt* fifo);

/**
 * As zxfifo_api_blockIn(), without the lock; `source` is not checked.
 * @copydetails zxfifo_api_blockIn
 */
int32_t zxfifo_innerapi_blockIOin(zxfifoblock_ctt* fifo, const void* source, int32_t length,
                                  zxfifo_transfer_cb transfer);

/**
 * As zxfifo_api_blockOut(), without the lock; `dest` is not checked.
 * @copydetails zxfifo_api_blockOut
 */
int32_t zxfifo_innerapi_blockIOout(zxfifoblock_ctt* fifo, void* dest, int32_t length,
                                   zxfifo_transfer_cb transfer);

/**
 * Sets both positions to the start and both totals to 0. The snapshots (`used`, `free`) and the
 * reset count stay.
 * @param fifo  the FIFO.
 * @return 1; 0 when `fifo` is NULL.
 */
int32_t zxfifo_innerapi_blockReset(zxfifoblock_ctt* fifo);

/* ----------------------------------------------------------- list pools -- */

/*
 * A queue is a pointer to its first node, NULL when it is empty; operations take the address of
 * that pointer. There is no lock: a queue belongs to one thread, or its users guard it. Adding and
 * taking walk the queue, the length is read at once. A node may be in one queue once.
 */

/** A buffer that may stand in a queue. */
typedef struct zxfifolist_ctt {
    uint32_t count;              /**< nodes of the queue, the same in each of them */
    uint32_t size;               /**< bytes of the buffer */
    uint8_t* data;               /**< the buffer, zeroed at first */
    uint64_t reserved;           /**< the caller's */
    struct zxfifolist_ctt* next; /**< towards the tail, NULL at the tail */
} zxfifolist_ctt;

/**
 * Makes a node with its buffer.
 * @param size  bytes of the buffer.
 * @param name  names the two allocations, "NAME_zxfifoblock" and "NAME_buf".
 * @return the node, for zxfifo_api_listDemalloc(); NULL when memory is short or `name` is NULL.
 * Logs: error in these cases.
 */
zxfifolist_ctt* zxfifo_api_listMalloc(uint32_t size, const char* name);

/**
 * Frees a node with its buffer. It must not be in a queue.
 * @param ppzxfifolist_ctt  where the pointer is; it is not cleared.
 * Logs: error when there is none.
 */
void zxfifo_api_listDemalloc(zxfifolist_ctt** ppzxfifolist_ctt);

/**
 * Adds a node behind the last one. The queue owns it then.
 * @param head  the queue; NULL: only the node's `next` is cleared.
 * @param node  NULL: nothing is done.
 */
void zxfifo_api_listIn(zxfifolist_ctt** head, zxfifolist_ctt* node);

/**
 * Takes the first node, which the caller owns then. Its `count` and `next` stay as they were.
 * @param head  the queue.
 * @return the node; NULL when there is none.
 */
zxfifolist_ctt* zxfifo_api_listOut(zxfifolist_ctt** head);

/**
 * @param head  the queue.
 * @return the number of nodes, at once; 0 for NULL.
 */
uint32_t zxfifo_api_listTotalNum(zxfifolist_ctt* const* head);

/**
 * Takes and frees every node.
 * @param head  the queue, empty then.
 */
void zxfifo_api_listReset(zxfifolist_ctt** head);

/* --------------------------------------------------------- shared lists -- */

/*
 * One thread adds nodes, others read along by time without the list's lock. A node is dropped when
 * it is older than the list's keep time, which is looked at once a second while nodes are added.
 * Finding a node is safe whatever is dropped meanwhile, but the node that was found may be dropped
 * while its reader still uses it: choose a keep time that is longer than readers are behind, with a
 * second to spare, and neither reset nor drop by hand while they read.
 *
 * Who drops nodes sleeps until the readers that may be at them have left. Whoever holds the list's
 * lock may change nodes and take them out: unlink a node, mend `tail` and `count`, and leave the
 * node's `next` and its memory alone until the keep time has passed.
 *
 * The child of a fork may go on with a list that no other thread was changing.
 */

/** A buffer with the time at which it was added. */
typedef struct IdList_ctt {
    uint32_t reserved;       /**< 0 */
    uint32_t size;           /**< bytes of the buffer */
    uint8_t* data;           /**< the buffer, zeroed at first */
    uint64_t time;           /**< microseconds of zxtime_api_us() when it was added */
    struct IdList_ctt* next; /**< the next newer one, NULL at the tail */
} IdList_ctt;

/** A shared list. Belongs to its caller; zero bytes before zxfifo_api_shareListInit(). */
typedef struct zxsharelist_ctt {
    uint32_t count;        /**< nodes */
    uint32_t keep_seconds; /**< set by the caller: below 2148 (more overflows, and nodes are kept
                              for ever or for a moment); 0: nothing is kept */
    IdList_ctt* head;      /**< the oldest node, NULL when there is none */
    IdList_ctt* tail;      /**< the newest node */
    uint64_t drop_timer;   /**< microseconds of the last look for old nodes */
    uint64_t newest;       /**< `time` of the node that was added last */
    zxlock_ctt lock;       /**< held by the thread that adds, drops or resets */
} zxsharelist_ctt;

/**
 * Empties a list without freeing anything: for a record that holds no nodes.
 * @param list  the list.
 */
void zxfifo_innerapi_shareListVarInit(zxsharelist_ctt* list);

/**
 * Empties a list as above and creates its lock, "zxfifo_lock_NAME". `keep_seconds` and the two
 * times stay as they are.
 * @param list  zero bytes, with `keep_seconds` set.
 * @param name  of the list, in the name of its lock.
 * @return 0; -1 when the lock cannot be created or an argument is missing.
 * Logs: as zxlock_api_init().
 */
int32_t zxfifo_api_shareListInit(zxsharelist_ctt* list, const char* name);

/**
 * Frees every node and destroys the lock. No other thread uses the list any more.
 * @param list  the list.
 * @return 0; -1 when `list` is NULL.
 */
int32_t zxfifo_api_shareListDeinit(zxsharelist_ctt* list);

/**
 * Makes a node with its buffer, as zxfifo_api_listMalloc() does.
 * @param size  bytes of the buffer.
 * @param name  names the two allocations.
 * @return the node, for zxfifo_api_shareListIn() or zxfifo_api_shareListDemalloc(); NULL when
 *         memory is short or `name` is NULL.
 */
IdList_ctt* zxfifo_api_shareListMalloc(uint32_t size, const char* name);

/**
 * Frees a node with its buffer, as zxfifo_api_listDemalloc() does.
 * @param ppIdList_ctt  where the pointer is; it is not cleared.
 */
void zxfifo_api_shareListDemalloc(IdList_ctt** ppIdList_ctt);

/**
 * Adds a node with the current time. The list owns it then, and drops old nodes once a second: with
 * a keep time of 0 this one, too.
 * @param list  the list.
 * @param node  NULL: nothing is done.
 * Threads: one at a time, which the list's lock sees to; beside readers.
 */
void zxfifo_api_shareListIn(zxsharelist_ctt* list, IdList_ctt* node);

/**
 * Drops the nodes at the head that are as old as the keep time, or older. A clock that was set back
 * makes nodes look old.
 * Threads: takes no lock: no other thread adds, or the caller holds the list's lock.
 *
 * @param list  the list.
 */
void zxfifo_api_shareListDropTimeout(zxsharelist_ctt* list);

/**
 * Finds the first node that is not older than a time. To go on, ask for its `time` + 1. That passes
 * over the others of the same microsecond: to see all nodes of one that adds so fast, follow `next`
 * (which that thread may just be storing: load it with acquire order).
 *
 * Each call walks the list from its head: 2 to 4 ns a node that is in the processor's cache, tens
 * of them otherwise. With many nodes, keep the one that was found and follow `next`.
 *
 * @param list     the list.
 * @param sinceUs  microseconds, as zxtime_api_us() gives them; 0: the oldest.
 * @return the node; the newest one when all are older, so look at its `time`; NULL when there is
 *         none.
 *
 * Threads: any, beside the one that adds and drops, and without waiting for it. It is no
 * cancellation point.
 */
IdList_ctt* zxfifo_api_shareListRead(zxsharelist_ctt* list, uint64_t sinceUs);

/**
 * @param list  the list.
 * @return the number of nodes, at once; 0 for NULL. Threads: any.
 */
uint32_t zxfifo_api_shareListTotalNum(const zxsharelist_ctt* list);

/**
 * Frees every node. Threads: safe beside one that adds, not beside readers.
 * @param list  the list.
 */
void zxfifo_api_shareListReset(zxsharelist_ctt* list);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

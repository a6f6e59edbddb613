/**
 * @file zxfifo.h
 * Ways to pass data on: block FIFOs, list pools, shared lists.
 *
 * Block FIFOs are named byte rings with their own lock. They pass a stream of bytes or of
 * length-prefixed messages from one thread to another. List pools are simple queues of buffers
 * without a lock. Shared lists keep buffers for a time: one thread adds, others read.
 *
 * zxfifo_api_blockInit() makes a block FIFO, which belongs to its caller. A block FIFO never
 * refuses data for lack of space and never waits for data: if more is stored than is free, data
 * that was not read yet is overwritten; if more is taken than is held, the caller gets old bytes
 * and the counts are wrong. Call zxfifo_api_blockSizeLeft() before storing and
 * zxfifo_api_blockSizeUsed() before taking. With one thread on each side the answers stay valid.
 * Log tag: FIFO_STRU.
 *
 * Threads: safe.
 * Signal handlers: unsafe.
 * Cancellation: none.
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
#define ZXFIFO_PREFIX_SIZE 4   /**< bytes that a message needs besides its payload */

/** A block FIFO, made by zxfifo_api_blockInit(). Only the module uses its fields. */
typedef struct zxfifoblock_ctt {
    char name[ZXFIFO_NAME_SIZE]; /**< has no NUL when the name was cut: bound every read */
    uint32_t size;               /**< capacity in bytes */
    uint8_t* start;              /**< first byte of the ring */
    uint8_t* end;                /**< one past the last byte */
    zxlock_ctt lock;             /**< guards the ring and all fields below */
    uint8_t* write_pos;          /**< where the next byte is stored */
    uint8_t* read_pos;           /**< where the next byte is taken */
    uint32_t total_in;           /**< bytes stored since the last reset, modulo 2^32 */
    uint32_t total_out;          /**< bytes taken since the last reset, modulo 2^32 */
    uint32_t used;               /**< bytes held after the last transfer or reset */
    uint32_t free;               /**< bytes free after the last transfer or reset */
    uint32_t reset_count;        /**< zxfifo_api_blockReset() calls since init */
} zxfifoblock_ctt;

/** The status that zxfifo_api_blockReset2() reports. */
typedef struct zxfifoblockstat_ctt {
    uint32_t free;         /**< bytes free */
    uint32_t reserved;     /**< belongs to the caller; not written */
    uint32_t used;         /**< bytes held */
    uint32_t reset_count;  /**< resets counted */
    zxfifoblock_ctt* fifo; /**< the FIFO; set by the caller */
} zxfifoblockstat_ctt;

/**
 * Moves bytes between a source or destination of the caller and the ring, as recv() and send() do.
 *
 * It is called with the FIFO's lock held and must not use the FIFO. The thread may be cancelled
 * inside it: bytes that the cancelled call moved do not count.
 *
 * @param context   the source or destination argument of the transfer.
 * @param position  place in the ring to write to or read from.
 * @param length    the most bytes to move; 1 or more.
 * @return the bytes moved; 0 or less ends the transfer as a failure; more than `length` counts as
 *         `length`.
 */
typedef int32_t (*zxfifo_transfer_cb)(void* context, uint8_t* position, int32_t length);

/**
 * Makes a FIFO.
 * @param capacity  bytes; 0 makes a FIFO that stores nothing and logs a warning in every transfer.
 * @param name      copied, cut to 128 bytes; also names the allocations and the lock.
 * @return the FIFO, to be freed by zxfifo_api_blockDeinit(); NULL when `name` is NULL or memory is
 *         short.
 * Logs: error for a NULL `name` and short memory, warning for a name that was cut.
 */
zxfifoblock_ctt* zxfifo_api_blockInit(uint32_t capacity, const char* name);

/**
 * Frees a FIFO. It does not change the caller's pointer, which must not be used again: clear it.
 * @param pfifo  the address of the pointer. If it or the pointer is NULL, nothing is done.
 * Threads: unsafe; nobody else may use the FIFO any more.
 */
void zxfifo_api_blockDeinit(zxfifoblock_ctt** pfifo);

/**
 * Stores bytes, or lets a function store them.
 * @param fifo      the FIFO; the free space is not checked.
 * @param source    `length` bytes; with `transfer`, the context of that function.
 * @param length    bytes; 0 or less stores nothing.
 * @param transfer  NULL: bytes are copied from `source`. Otherwise it is called for each contiguous
 *                  piece of the ring, until `length` bytes were moved or it fails.
 * @return bytes stored; -1 when `fifo` or `source` is NULL.
 * Cancellation: safe; only in `transfer`. The lock is released, and bytes of earlier pieces stay
 * stored.
 * Logs: error for a NULL argument, warning when fewer than `length` bytes were stored.
 */
int32_t zxfifo_api_blockIn(zxfifoblock_ctt* fifo, const void* source, int32_t length,
                           zxfifo_transfer_cb transfer);

/**
 * Takes bytes, or lets a function take them.
 * @param fifo      the FIFO; the bytes held are not checked.
 * @param dest      room for `length` bytes; with `transfer`, the context of that function.
 * @param length    bytes; 0 or less takes nothing.
 * @param transfer  NULL: bytes are copied to `dest`. Otherwise as for zxfifo_api_blockIn().
 * @return bytes taken; -1 when `fifo` or `dest` is NULL.
 * Cancellation: safe; only in `transfer`. The lock is released, and bytes of earlier pieces stay
 * taken.
 * Logs: error for a NULL argument, warning when fewer than `length` bytes were taken.
 */
int32_t zxfifo_api_blockOut(zxfifoblock_ctt* fifo, void* dest, int32_t length,
                            zxfifo_transfer_cb transfer);

/**
 * Stores a message: its length as four bytes, most significant first, then the payload.
 * @param fifo     the FIFO; needs `length` + #ZXFIFO_PREFIX_SIZE free bytes, which is not checked.
 * @param payload  `length` bytes.
 * @param length   bytes of payload, 0 or more.
 * @return payload bytes stored; -1 when `fifo` or `payload` is NULL or `length` is negative.
 * Logs: error when it returns -1.
 */
int32_t zxfifo_api_blockLenIn(zxfifoblock_ctt* fifo, const void* payload, int32_t length);

/**
 * Takes a message that zxfifo_api_blockLenIn() stored.
 *
 * If the payload is larger than `size`, only its length is taken and the payload stays, so the next
 * read would misinterpret it: call zxfifo_api_blockReset() before reading messages again. An empty
 * FIFO is not detected.
 *
 * @param fifo  the FIFO, holding a message.
 * @param dest  receives the payload.
 * @param size  bytes in `dest`.
 * @param func  name of the calling function, for the message; NULL counts as "(null)".
 * @param line  source line of the call.
 * @return payload bytes taken; -1 when `fifo` or `dest` is NULL or the payload is larger than
 *         `size`.
 *
 * Logs: error for a NULL argument, and, with a dump of its length, for a payload that is too large.
 */
int32_t zxfifo_api_blockLenOut1(zxfifoblock_ctt* fifo, void* dest, uint32_t size, const char* func,
                                int line);

/**
 * Tells how many bytes are held.
 * @param fifo  the FIFO.
 * @return bytes held after the last transfer or reset. Bytes that zxfifo_innerapi_blockDrainIn()
 *         or zxfifo_innerapi_blockDrainOut() counted since are not included. -1 when `fifo` is
 *         NULL.
 * Logs: error for a NULL `fifo`.
 */
int32_t zxfifo_api_blockSizeUsed(zxfifoblock_ctt* fifo);

/**
 * Tells how many bytes are free.
 * @param fifo  the FIFO.
 * @return bytes free after the last transfer or reset, as for zxfifo_api_blockSizeUsed(); -1 when
 *         `fifo` is NULL.
 * Logs: error for a NULL `fifo`.
 */
int32_t zxfifo_api_blockSizeLeft(zxfifoblock_ctt* fifo);

/**
 * Tells how often the FIFO was reset.
 * @param fifo  the FIFO.
 * @return the reset count; -1 when `fifo` is NULL.
 * Logs: error for a NULL `fifo`.
 */
int32_t zxfifo_api_blockResetNum(zxfifoblock_ctt* fifo);

/**
 * Drops the content and counts a reset.
 * @param fifo  the FIFO.
 * @return the new reset count; -1 when `fifo` is NULL.
 * Logs: error for a NULL `fifo`.
 */
int32_t zxfifo_api_blockReset(zxfifoblock_ctt* fifo);

/**
 * Drops the content, sets the reset count to 0 and reports the status.
 * @param stat  receives the status. The caller sets its `fifo`; its `reserved` is not written.
 * @return 0; -1 when `stat` or its `fifo` is NULL.
 * Logs: error when it returns -1.
 */
int32_t zxfifo_api_blockReset2(zxfifoblockstat_ctt* stat);

/* ------------------------------------- block FIFOs whose lock is held -- */

/*
 * Operations for the library's own modules, without the lock.
 *
 * Threads: unsafe; the caller holds the FIFO's lock.
 */

/**
 * Counts `n` bytes after the write position as stored.
 * @param fifo  the FIFO.
 * @param n     at most the bytes up to the end of the ring.
 * @return 0; -1 when `fifo` is NULL.
 * Logs: error for a NULL `fifo`.
 */
int32_t zxfifo_innerapi_blockDrainIn(zxfifoblock_ctt* fifo, uint32_t n);

/**
 * Counts `n` bytes after the read position as taken.
 * @param fifo  the FIFO.
 * @param n     at most the capacity.
 * @return 0; -1 when `fifo` is NULL.
 * Logs: error for a NULL `fifo`.
 */
int32_t zxfifo_innerapi_blockDrainOut(zxfifoblock_ctt* fifo, uint32_t n);

/**
 * Tells the capacity.
 * @param fifo  the FIFO.
 * @return bytes; -1 when `fifo` is NULL.
 * Logs: error for a NULL `fifo`.
 */
int32_t zxfifo_innerapi_blockSpaceTotal(const zxfifoblock_ctt* fifo);

/**
 * Computes the bytes held from the totals.
 * @param fifo  the FIFO.
 * @return bytes; -1 when `fifo` is NULL.
 * Logs: error for a NULL `fifo`.
 */
int32_t zxfifo_innerapi_blockSpaceUsed(const zxfifoblock_ctt* fifo);

/**
 * Computes the bytes free from the totals.
 * @param fifo  the FIFO.
 * @return bytes; -1 when `fifo` is NULL.
 * Logs: error for a NULL `fifo`.
 */
int32_t zxfifo_innerapi_blockSpaceFree(const zxfifoblock_ctt* fifo);

/**
 * Does the same as zxfifo_api_blockIn() without taking the lock; `source` is not checked.
 * @param fifo      the FIFO; the free space is not checked.
 * @param source    `length` bytes; with `transfer`, the context of that function.
 * @param length    bytes; 0 or less stores nothing.
 * @param transfer  as for zxfifo_api_blockIn().
 * @return bytes stored; -1 when `fifo` is NULL.
 * Cancellation: unsafe; the lock stays held, and `used` and `free` are not updated.
 * Logs: error for a NULL `fifo`, warning when fewer than `length` bytes were stored.
 */
int32_t zxfifo_innerapi_blockIOin(zxfifoblock_ctt* fifo, const void* source, int32_t length,
                                  zxfifo_transfer_cb transfer);

/**
 * Does the same as zxfifo_api_blockOut() without taking the lock; `dest` is not checked.
 * @param fifo      the FIFO; the bytes held are not checked.
 * @param dest      room for `length` bytes; with `transfer`, the context of that function.
 * @param length    bytes; 0 or less takes nothing.
 * @param transfer  as for zxfifo_api_blockOut().
 * @return bytes taken; -1 when `fifo` is NULL.
 * Cancellation: unsafe; the lock stays held, and `used` and `free` are not updated.
 * Logs: error for a NULL `fifo`, warning when fewer than `length` bytes were taken.
 */
int32_t zxfifo_innerapi_blockIOout(zxfifoblock_ctt* fifo, void* dest, int32_t length,
                                   zxfifo_transfer_cb transfer);

/**
 * Sets both positions to the start and both totals to 0. It does not change `used`, `free` and the
 * reset count.
 *
 * @param fifo  the FIFO.
 * @return 1; 0 when `fifo` is NULL.
 *
 * Logs: error for a NULL `fifo`.
 */
int32_t zxfifo_innerapi_blockReset(zxfifoblock_ctt* fifo);

/* ----------------------------------------------------------- list pools -- */

/*
 * A queue is a pointer to its first node, NULL when it is empty; operations take the address of
 * that pointer. There is no lock. The time to add or take a node grows with the length of the
 * queue; the length itself is available at once. A node may be in only one queue, and only once.
 *
 * Threads: unsafe; a queue belongs to one thread, or its users guard it.
 */

/** A buffer that can be put into a queue. */
typedef struct zxfifolist_ctt {
    uint32_t count;              /**< nodes in the queue, the same in each of them */
    uint32_t size;               /**< bytes of the buffer */
    uint8_t* data;               /**< the buffer, zeroed when it is made */
    uint64_t reserved;           /**< free for the caller's use */
    struct zxfifolist_ctt* next; /**< towards the tail, NULL at the tail */
} zxfifolist_ctt;

/**
 * Makes a node with its buffer.
 * @param size  bytes of the buffer.
 * @param name  names the two allocations, "NAME_zxfifoblock" and "NAME_buf".
 * @return the node, to be freed by zxfifo_api_listDemalloc(); NULL when memory is short or `name`
 *         is NULL.
 * Threads: safe.
 * Logs: error when it returns NULL.
 */
zxfifolist_ctt* zxfifo_api_listMalloc(uint32_t size, const char* name);

/**
 * Frees a node with its buffer. The node must not be in a queue.
 * @param ppzxfifolist_ctt  the address of the pointer, which is not cleared.
 * Threads: safe; for different nodes.
 * Logs: error when it or the pointer is NULL.
 */
void zxfifo_api_listDemalloc(zxfifolist_ctt** ppzxfifolist_ctt);

/**
 * Adds a node after the last one. From then on the queue owns it.
 * @param head  the queue; NULL: only the node's `next` is cleared.
 * @param node  NULL: nothing is done.
 */
void zxfifo_api_listIn(zxfifolist_ctt** head, zxfifolist_ctt* node);

/**
 * Takes the first node. From then on the caller owns it. Its `count` and `next` stay as they were.
 * @param head  the queue.
 * @return the node; NULL when there is none.
 */
zxfifolist_ctt* zxfifo_api_listOut(zxfifolist_ctt** head);

/**
 * Tells the length of a queue.
 * @param head  the queue.
 * @return the number of nodes; 0 for NULL.
 */
uint32_t zxfifo_api_listTotalNum(zxfifolist_ctt* const* head);

/**
 * Takes and frees every node.
 * @param head  the queue, empty afterwards.
 */
void zxfifo_api_listReset(zxfifolist_ctt** head);

/* --------------------------------------------------------- shared lists -- */

/*
 * One thread adds nodes; others read them by time, without the list's lock. A node is dropped when
 * it is older than the list's keep time. This is checked once a second while nodes are added.
 * Finding a node is safe while others are dropped. But a node that was found may be dropped while
 * its reader still uses it. So choose a keep time that is longer than readers need, with a second
 * to spare, and do not reset the list or drop nodes by hand while they read.
 *
 * A thread that drops nodes sleeps until the readers that may use them have left. A thread that
 * holds the list's lock may change nodes and remove them: unlink the node, correct `tail` and
 * `count`, and leave the node's `next` and its memory alone until the keep time has passed.
 *
 * The child of a fork may continue to use a list that no other thread was changing.
 */

/** A buffer with the time at which it was added. */
typedef struct IdList_ctt {
    uint32_t reserved;       /**< 0 */
    uint32_t size;           /**< bytes of the buffer */
    uint8_t* data;           /**< the buffer, zeroed when it is made */
    uint64_t time;           /**< microseconds of zxtime_api_us() when it was added */
    struct IdList_ctt* next; /**< the next newer one, NULL at the tail */
} IdList_ctt;

/**
 * A shared list. It belongs to its caller and must be all zeros before zxfifo_api_shareListInit().
 */
typedef struct zxsharelist_ctt {
    uint32_t count;        /**< nodes */
    uint32_t keep_seconds; /**< set by the caller, below 2148: larger values overflow, and nodes
                              are kept for ever or for a moment; 0: nothing is kept */
    IdList_ctt* head;      /**< the oldest node, NULL when there is none */
    IdList_ctt* tail;      /**< the newest node */
    uint64_t drop_timer;   /**< microseconds of the last check for old nodes */
    uint64_t newest;       /**< `time` of the node that was added last */
    zxlock_ctt lock;       /**< held by a thread that adds, drops or resets */
} zxsharelist_ctt;

/**
 * Empties a list without freeing anything, for a record that holds no nodes.
 * @param list  the list.
 * Threads: unsafe; no other thread uses the list.
 * Logs: error for a NULL `list`.
 */
void zxfifo_innerapi_shareListVarInit(zxsharelist_ctt* list);

/**
 * Empties a list with zxfifo_innerapi_shareListVarInit() and creates its lock, "zxfifo_lock_NAME".
 * `keep_seconds` and the two times stay as they are.
 *
 * @param list  all zeros, except that `keep_seconds` is set.
 * @param name  name of the list, used in the name of its lock.
 * @return 0; -1 when the lock cannot be created or an argument is NULL.
 *
 * Threads: safe; for different lists.
 * Logs: error for a NULL argument; as zxlock_api_init().
 */
int32_t zxfifo_api_shareListInit(zxsharelist_ctt* list, const char* name);

/**
 * Frees every node and destroys the lock.
 * @param list  the list.
 * @return 0; -1 when `list` is NULL.
 * Threads: unsafe; no other thread may use the list any more.
 * Logs: error for a NULL `list`.
 */
int32_t zxfifo_api_shareListDeinit(zxsharelist_ctt* list);

/**
 * Makes a node with its buffer, as zxfifo_api_listMalloc() does.
 * @param size  bytes of the buffer.
 * @param name  names the two allocations.
 * @return the node, for zxfifo_api_shareListIn() or zxfifo_api_shareListDemalloc(); NULL when
 *         memory is short or `name` is NULL.
 * Logs: error when it returns NULL.
 */
IdList_ctt* zxfifo_api_shareListMalloc(uint32_t size, const char* name);

/**
 * Frees a node with its buffer, as zxfifo_api_listDemalloc() does.
 * @param ppIdList_ctt  the address of the pointer, which is not cleared.
 * Threads: safe; for different nodes.
 * Logs: error when it or the pointer is NULL.
 */
void zxfifo_api_shareListDemalloc(IdList_ctt** ppIdList_ctt);

/**
 * Adds a node with the current time. From then on the list owns it. Once a second the call drops
 * old nodes; with a keep time of 0 it drops the new node, too.
 *
 * @param list  the list.
 * @param node  NULL: nothing is done.
 *
 * Threads: safe; also while others read. The list's lock lets one thread add at a time.
 * Logs: error for a NULL `list`, unless `node` is NULL.
 */
void zxfifo_api_shareListIn(zxsharelist_ctt* list, IdList_ctt* node);

/**
 * Drops the nodes at the head whose age has reached the keep time. If the clock was set back, nodes
 * whose time is now in the future count as older than the keep time.
 *
 * @param list  the list.
 *
 * Threads: unsafe; it takes no lock. Call it while no other thread adds, or with the list's lock
 * held.
 * Logs: error for a NULL `list`.
 */
void zxfifo_api_shareListDropTimeout(zxsharelist_ctt* list);

/**
 * Finds the first node that is not older than a time. To continue, pass its `time` + 1. That skips
 * the other nodes of the same microsecond. To see every node of a thread that adds so fast, follow
 * `next` instead. Load `next` with acquire order, because that thread may be storing it at this
 * moment.
 *
 * Each call walks the list from its head: 2 to 4 ns for a node in the processor's cache, tens of ns
 * otherwise. With many nodes, keep the node that was found and follow `next`.
 *
 * @param list     the list.
 * @param sinceUs  microseconds, as from zxtime_api_us(); 0: the oldest node.
 * @return the node; the newest one when all are older, so check its `time`; NULL when there is
 *         none.
 *
 * Threads: safe; also while a thread adds and drops. It never waits for that thread.
 * Logs: error for a NULL `list`.
 */
IdList_ctt* zxfifo_api_shareListRead(zxsharelist_ctt* list, uint64_t sinceUs);

/**
 * Tells the length of a list.
 * @param list  the list.
 * @return the number of nodes; 0 for NULL.
 */
uint32_t zxfifo_api_shareListTotalNum(const zxsharelist_ctt* list);

/**
 * Frees every node.
 * @param list  the list.
 * Threads: unsafe; another thread may add meanwhile, but none may read.
 * Logs: error for a NULL `list`.
 */
void zxfifo_api_shareListReset(zxsharelist_ctt* list);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

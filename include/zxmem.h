/**
 * @file zxmem.h
 * Heap buffers that can be listed while they are in use.
 *
 * The library takes all its buffers from here. With tracking off (the default) the functions call
 * the system allocator directly. With tracking on, one list has a node for every buffer, in the
 * order of allocation, with its size, name, time and source position. The time to find and remove a
 * node does not depend on the number of live buffers. Log tag: MEMRY_MAP.
 *
 * Threads: safe.
 * Signal handlers: unsafe.
 * Cancellation: none.
 */
#ifndef ZXMEM_H
#define ZXMEM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define ZXMEM_NAME_SIZE 128 /**< bytes in a node's name field */
#define ZXMEM_TIME_SIZE 16  /**< bytes in a node's time field */

/** Describes one live buffer. Nodes belong to the allocator. */
typedef struct memnode_ctt {
    void* buffer;               /**< the tracked buffer */
    uint32_t size;              /**< requested size in bytes */
    char name[ZXMEM_NAME_SIZE]; /**< has no NUL when the name was cut: bound every read */
    char time[ZXMEM_TIME_SIZE]; /**< local time of the allocation, "08:30:00" */
    uint32_t line;              /**< source line of the request */
    const char* file;           /**< source file of the request; the caller's text, not copied */
    struct memnode_ctt* next;   /**< next younger node, NULL at the end */
} memnode_ctt;

/**
 * Switches tracking on. While tracking is on, further calls do nothing, whatever `enable` is. After
 * zxmem_api_deinit(), a call takes effect again.
 * @param enable  1: on. Any other value: off; a later call can still switch it on.
 * Threads: unsafe; call it before other threads allocate.
 * Logs: as zxlock_api_init().
 */
void zxmem_api_init(uint8_t enable);

/**
 * Tears down the lock of the list. Does nothing when there is none.
 *
 * The nodes stay and are listed again after the next zxmem_api_init(1). Until then tracking counts
 * as on but not initialised: every allocation and every free logs a warning and is not tracked. So
 * a buffer that is freed in between stays in the list.
 *
 * Threads: unsafe; call it when no other thread allocates.
 */
void zxmem_api_deinit(void);

/**
 * Allocates a zeroed buffer.
 * @param size  bytes. 0 gives the result of calloc(1, 0).
 * @param name  what the buffer is for; copied, cut to 128 bytes. NULL counts as an empty name.
 * @param file  source file of the request. The pointer is kept for as long as the buffer lives:
 *              pass a literal.
 * @param line  source line of the request.
 * @return the buffer, to be freed by zxmem_api_free(); NULL when `file` is NULL or memory is short.
 * Logs: error for a NULL `file` and for short memory, even if only the node was not allocated (the
 * buffer is then untracked); warning for a name that was cut, and when tracking is on but not
 * initialised.
 */
void* zxmem_api_malloc(uint32_t size, const char* name, const char* file, uint32_t line);

/**
 * Does the same as zxmem_api_malloc().
 * @copydetails zxmem_api_malloc
 */
void* zxmem_api_calloc(uint32_t size, const char* name, const char* file, uint32_t line);

/**
 * Frees a buffer, tracked or not, and sets the caller's pointer to NULL.
 * @param pbuf  the address of the pointer; if the pointer is NULL, nothing is freed.
 * Logs: error for a NULL `pbuf` and, with tracking on, for a NULL pointer in it; warning when
 * tracking is on but not initialised.
 */
void zxmem_api_free(void** pbuf);

/**
 * Appends a node for a buffer to the list. A buffer that is added twice has two nodes.
 * @param buf   the buffer.
 * @param size  its size in bytes.
 * @param name  as for zxmem_api_malloc().
 * @param file  as for zxmem_api_malloc().
 * @param line  as for zxmem_api_malloc().
 * Threads: unsafe; while other threads run, only the allocator, which holds the list's lock, may
 * call it.
 * Logs: error for a NULL `buf` or `file` and for short memory, warning for a name that was cut.
 */
void zxmem_innerapi_nodeAdd(void* buf, uint32_t size, const char* name, const char* file,
                            uint32_t line);

/**
 * Removes the oldest node of a buffer from the list. Does not touch the buffer.
 * @param buf  the buffer; without a node nothing is done.
 * Threads: unsafe; while other threads run, only the allocator, which holds the list's lock, may
 * call it.
 * Logs: error for a NULL `buf`.
 */
void zxmem_innerapi_nodeRm(void* buf);

/**
 * Writes all live buffers to the log, oldest first, and the sum of their sizes.
 *
 * Each buffer's line has an index, which goes up by 1 for each buffer. While lines are also printed
 * on standard output (::flag_stdPrint), it goes up by 2.
 *
 * Threads: safe; allocations wait during the call.
 * Logs: information; warning when tracking is off, error when it is not initialised.
 */
void zxmem_api_showBlock(void);

/**
 * Appends all live buffers, oldest first, and the sum of their sizes to a text, as an HTML table.
 * Buffers of 512,000 bytes and more are marked "high", of 10,240 bytes and more "middle", others
 * "nor".
 *
 * Names and source files are not escaped: do not use text from outside as the name of a buffer.
 *
 * @param html  the text. Its room must be at least 1,024 bytes, plus 580 bytes and the length of
 *              the source file's name for each live buffer. Leave room for more buffers, because
 *              other threads may add some before the call.
 * @param text  shown instead of the table when tracking is off. The text with the HTML tags around
 *              it is cut to 1,023 bytes. It may be NULL when tracking is on.
 *
 * Threads: safe; allocations wait during the call.
 * Logs: error when a required argument is NULL (nothing is appended) and when tracking is not
 * initialised.
 */
void zxmem_api_info(char* html, const char* text);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

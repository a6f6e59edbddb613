/**
 * @file zxmem.h
 * Heap buffers that can be listed while they live.
 *
 * The library takes all its buffers here. With tracking off (the default) the
 * functions stand directly on the system allocator; with tracking on, every
 * buffer has a node with its size, name, time and source position in one list,
 * in the order of allocation. Finding and removing a node takes the same time
 * whatever the number of live buffers. Signal handlers: no. Log tag: MEMRY_MAP.
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

/** What is known of one live buffer. Nodes belong to the allocator. */
typedef struct memnode_ctt {
    void* buffer;               /**< the tracked buffer */
    uint32_t size;              /**< requested size in bytes */
    char name[ZXMEM_NAME_SIZE]; /**< no NUL inside when the name was cut: bound every read */
    char time[ZXMEM_TIME_SIZE]; /**< local time of the allocation, "08:30:00" */
    uint32_t line;              /**< source line of the request */
    const char* file;           /**< source file of the request; the caller's text, not copied */
    struct memnode_ctt* next;   /**< next younger node, NULL at the end */
} memnode_ctt;

/**
 * Switches tracking on, once; does nothing when it is on and not torn down.
 *
 * @param enable  1: on. 0 (or anything else): off, and a later call may still switch it on.
 *
 * Threads: not safe; call it before other threads allocate.
 */
void zxmem_api_init(uint8_t enable);

/**
 * Tears down the lock of the list; nothing to do when there is none.
 *
 * The nodes are kept and are listed again after the next zxmem_api_init(1).
 * Until then tracking counts as on but not initialised: every allocation and
 * every free warns and is not tracked, so buffers that are freed meanwhile stay
 * in the list.
 *
 * Threads: not safe; call it when no other thread allocates.
 */
void zxmem_api_deinit(void);

/**
 * Allocates a zeroed buffer.
 *
 * @param size  bytes. 0 gives what calloc(1, 0) gives.
 * @param name  what the buffer is for; copied, cut to 128 bytes. NULL stands for an empty name.
 * @param file  source file of the request. The pointer is kept as long as the buffer lives: pass a
 *              literal.
 * @param line  source line of the request.
 * @return the buffer, for zxmem_api_free(); NULL when `file` is NULL or memory is short.
 *
 * Threads: safe. Signal handlers: no. It is no cancellation point.
 * Logs: error for a NULL `file` and for short memory (also when only the node could not be had: the
 * buffer is untracked then), warning for a name that was cut and when tracking is on but not
 * initialised.
 */
void* zxmem_api_malloc(uint32_t size, const char* name, const char* file, uint32_t line);

/**
 * The same as zxmem_api_malloc().
 * @copydetails zxmem_api_malloc
 */
void* zxmem_api_calloc(uint32_t size, const char* name, const char* file, uint32_t line);

/**
 * Frees a buffer and clears the caller's pointer. A buffer that was not tracked is freed too.
 *
 * @param pbuf  where the pointer is; a NULL in it is left alone.
 *
 * Threads: safe. Signal handlers: no. It is no cancellation point.
 * Logs: error for a NULL `pbuf` and, with tracking on, for a NULL in it; warning when tracking is
 * on but not initialised.
 */
void zxmem_api_free(void** pbuf);

/**
 * Appends a node for a buffer to the list.
 *
 * Adding a buffer twice makes two nodes.
 *
 * @param buf   the buffer.
 * @param size  its size in bytes.
 * @param name  as for zxmem_api_malloc(); @param file likewise; @param line likewise.
 *
 * Threads: not safe; the allocator's lock guards the list.
 * Logs: error for a NULL `buf` or `file` and for short memory, warning for a name that was cut.
 */
void zxmem_innerapi_nodeAdd(void* buf, uint32_t size, const char* name, const char* file,
                            uint32_t line);

/**
 * Removes the oldest node of a buffer from the list. The buffer itself is not touched.
 *
 * @param buf  the buffer; without a node nothing is done.
 *
 * Threads: not safe; the allocator's lock guards the list.
 * Logs: error for a NULL `buf`.
 */
void zxmem_innerapi_nodeRm(void* buf);

/**
 * Writes all live buffers and the sum of their sizes to the log, oldest first.
 *
 * The index of a line counts printed lines: with the echo on it goes up twice a
 * buffer, once for the file and once for the echo.
 *
 * Threads: safe; allocations wait meanwhile.
 * Logs: information; warning when tracking is off, error when it is not initialised.
 */
void zxmem_api_showBlock(void);

/**
 * Appends all live buffers as an HTML table, oldest first, with the sum of their sizes, to a text.
 * A buffer of 10,240 bytes and more is "middle", one of 512,000 and more "high", others are "nor".
 *
 * Names and source files are not escaped: do not put texts of strangers into the names of buffers.
 *
 * @param html  the text, with room for 1,024 bytes, and for each live buffer 580 bytes and the
 *              length of its source file's name; buffers may come up meanwhile.
 * @param text  shown instead of the table when tracking is off, in 1,023 bytes at most with what
 *              stands around it; not needed when it is on.
 *
 * Threads: safe; allocations wait meanwhile.
 * Logs: error when an argument is missing (nothing is appended) and when tracking is not
 * initialised.
 */
void zxmem_api_info(char* html, const char* text);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

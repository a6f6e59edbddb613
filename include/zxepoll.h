/**
 * @file zxepoll.h
 * Waiting for descriptors with epoll: one descriptor with a timeout, or a set of descriptors with
 * callbacks.
 *
 * The module keeps no state: an instance is a descriptor that belongs to its caller. Every
 * registration stores the watched descriptor as `data.fd`. A caller that registers descriptors in
 * another way must do the same. Log tag: EPOLL.
 *
 * Threads: safe; for different instances.
 * Signal handlers: unsafe.
 * Cancellation: safe; a cancelled call closes the instance that it opened and removes the
 * descriptor that it registered.
 */
#ifndef ZXEPOLL_H
#define ZXEPOLL_H

#include <stdint.h>
#include <sys/epoll.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define ZXEPOLL_WAIT_READ  0 /**< wait until readable; any mode except 1 means this */
#define ZXEPOLL_WAIT_WRITE 1 /**< wait until writable */

#define ZXEPOLL_TIMEOUT (-1) /**< the timeout passed */
#define ZXEPOLL_FAILED  (-2) /**< the descriptor was not registered or not removed */
#define ZXEPOLL_HANGUP  (-3) /**< the peer hung up, or the descriptor is in error */

/** Returns the caller's descriptor at an index; 0 or less: there is none. */
typedef int32_t (*zxepoll_getfd_cb)(void* context, uint32_t index);

/** Called for a descriptor that is ready; its result is ignored. */
typedef int32_t (*zxepoll_io_cb)(void* context, int32_t fd);

/* ------------------------------------------------------------ instance -- */

/**
 * Opens an instance, close-on-exec.
 * @param size    has no effect, but must be above 0.
 * @param caller  not used.
 * @param line    not used.
 * @return the instance; -1 with `errno` set (EINVAL for a size of 0 or less).
 * Signal handlers: safe.
 * Cancellation: none.
 */
int zxepoll_innerapi_open(int size, const char* caller, int line);

/**
 * Registers a descriptor.
 * @param epfd  the instance.
 * @param fd    the descriptor, which stays the caller's.
 * @param mask  the events to watch for (EPOLLIN, EPOLLOUT, ...).
 * @return 0; -1 with `errno` set on failure.
 * Cancellation: none.
 * Logs: error on failure.
 */
int32_t zxepoll_add(int epfd, int fd, uint32_t mask);

/**
 * Changes the events of a registered descriptor.
 * @copydetails zxepoll_add
 */
int32_t zxepoll_mod(int epfd, int fd, uint32_t mask);

/**
 * Removes a descriptor.
 * @param epfd  the instance.
 * @param fd    the descriptor, which stays open.
 * @param mask  ignored by the kernel.
 * @return 0; 1 with nothing done when `epfd` is -1, as after zxepoll_close(); -1 with `errno` set
 *         on failure.
 * Cancellation: none.
 * Logs: error on failure.
 */
int32_t zxepoll_del(int epfd, int fd, uint32_t mask);

/**
 * Waits for events, at most 500 ms.
 * @param epfd  the instance.
 * @param ev    receives up to `max` events.
 * @param max   events, above 0.
 * @return the number of events; 0 when there was none; -1 with `errno` set on failure (EINTR when a
 *         signal handler ran).
 * Signal handlers: safe.
 */
int32_t zxepoll_wait(int epfd, struct epoll_event* ev, int max);

/**
 * Waits for events with the caller's timeout.
 * @param epfd  the instance.
 * @param ev    receives up to `max` events.
 * @param max   events, above 0.
 * @param ms    milliseconds; -1: no limit.
 * @return as zxepoll_wait().
 * Signal handlers: safe.
 */
int32_t zxepoll_wait_timeout(int epfd, struct epoll_event* ev, int max, int ms);

/**
 * Closes an instance.
 * @param epfd  the caller's variable, which is -1 afterwards. NULL is refused.
 * @return 0; -1 for a NULL `epfd`.
 * Cancellation: none.
 * Logs: error for a NULL `epfd`.
 */
int32_t zxepoll_close(int* epfd);

/* ------------------------------------------------------ one descriptor -- */

/**
 * Waits for a descriptor that is already registered.
 *
 * It waits in passes of one second and checks the time only after a pass. So an idle descriptor
 * delays the caller by at least a second, however short the timeout is. The timeout in microseconds
 * is computed in 32 bits: from 4294968 ms on it wraps. An instance that fails counts as idle. A
 * signal handler that runs ends a pass, not the wait. A step of the wall clock can end the wait
 * early or late.
 *
 * @param epfd  the instance.
 * @param fd    the descriptor.
 * @param mode  1: until writable; any other value: until readable.
 * @param ms    timeout in milliseconds.
 * @return 0 when ready; #ZXEPOLL_TIMEOUT; #ZXEPOLL_HANGUP, even if there is still something to
 *         read.
 */
int32_t zxepoll_waitfd_timeout_noopt(int epfd, int fd, uint8_t mode, uint32_t ms);

/**
 * Registers a descriptor, waits as zxepoll_waitfd_timeout_noopt() does, and removes the descriptor
 * again.
 *
 * @param epfd  the instance.
 * @param fd    the descriptor, which is not registered yet.
 * @param mode  1: until writable; any other value: until readable.
 * @param ms    timeout in milliseconds.
 * @return 0 when ready; #ZXEPOLL_TIMEOUT; #ZXEPOLL_FAILED; #ZXEPOLL_HANGUP, even if the removal
 *         fails after a hang-up.
 *
 * Logs: error when the descriptor cannot be registered or removed.
 */
int32_t zxepoll_waitfd_timeout(int epfd, int fd, uint8_t mode, uint32_t ms);

/* -------------------------------------------------- set of descriptors -- */

/**
 * Opens an instance and registers a set of descriptors.
 * @param count    `cb` is called for the indices from 0 to `count` - 1; below 2147483647.
 * @param context  passed to `cb`.
 * @param mask     the events to watch for.
 * @param cb       returns the descriptors. One that cannot be registered is skipped.
 * @return the instance, which zxepoll_appapi_deinit() closes; -1 on failure.
 * Cancellation: safe; also in `cb`. The instance is closed.
 * Logs: error when the instance cannot be opened, for each failed registration, and for a NULL
 * `cb`.
 */
int32_t zxepoll_appapi_init(uint32_t count, void* context, uint32_t mask, zxepoll_getfd_cb cb);

/**
 * Lets the caller release the descriptors of a set, and closes its instance.
 * @param epfd     the instance; the caller's variable keeps its value.
 * @param count    `cb` is called for the indices from 0 to `count` - 1.
 * @param context  passed to `cb`.
 * @param cb       releases the descriptor at an index; its result is ignored.
 * @return 0; -1 with nothing done for a NULL `cb`.
 * Cancellation: safe; a cancelled `cb` is not called for the rest of the set, and the instance is
 * closed.
 * Logs: error for a NULL `cb`.
 */
int32_t zxepoll_appapi_deinit(int epfd, uint32_t count, void* context, zxepoll_getfd_cb cb);

/**
 * Dispatches events to callbacks for one second.
 *
 * A descriptor that hung up or is in error is only logged. For a readable descriptor only `readcb`
 * is called in a pass, even if the descriptor is also writable and even if `readcb` is NULL. So
 * watch for EPOLLIN only with a `readcb`.
 *
 * @param epfd     the instance.
 * @param count    descriptors in the set; a pass takes `count` + 1 events, at most 1024, and the
 *                 next pass takes the others.
 * @param context  passed to the callbacks.
 * @param readcb   called for readable descriptors; may be NULL.
 * @param writecb  called for writable descriptors; may be NULL.
 *
 * Cancellation: safe; also in the callbacks.
 * Logs: information for a hang-up or an error of a descriptor.
 */
void zxepoll_appapi_dataread(int epfd, uint32_t count, void* context, zxepoll_io_cb readcb,
                             zxepoll_io_cb writecb);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

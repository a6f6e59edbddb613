/**
 * @file zxepoll.h
 * Waiting for descriptors through epoll: one descriptor with a time-out, or a
 * set of them with callbacks.
 *
 * The module keeps no state: an instance is a descriptor that belongs to its
 * caller. Every registration stores the watched descriptor as `data.fd`; what
 * the caller registers by other means must do the same. Log tag: EPOLL.
 *
 * Threads: all operations are safe on different instances. Signal handlers: no.
 * A thread that is cancelled inside a call leaves open no instance, and
 * registered no descriptor, that the call opened or registered.
 * zxepoll_appapi_deinit() closes its instance.
 */
#ifndef ZXEPOLL_H
#define ZXEPOLL_H

#include <stdint.h>
#include <sys/epoll.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define ZXEPOLL_WAIT_READ  0 /**< wait until readable; so does any mode but 1 */
#define ZXEPOLL_WAIT_WRITE 1 /**< wait until writable */

#define ZXEPOLL_TIMEOUT (-1) /**< the time-out passed */
#define ZXEPOLL_FAILED  (-2) /**< the descriptor could not be registered or removed */
#define ZXEPOLL_HANGUP  (-3) /**< the peer hung up, or the descriptor is in error */

/** Names the caller's descriptor at an index; 0 or less: there is none. */
typedef int32_t (*zxepoll_getfd_cb)(void* context, uint32_t index);

/** Is told that a descriptor is ready; the result is ignored. */
typedef int32_t (*zxepoll_io_cb)(void* context, int32_t fd);

/* ------------------------------------------------------------ instance -- */

/**
 * Opens an instance, close-on-exec.
 *
 * @param size    a hint without effect, but above 0.
 * @param caller  not used. @param line not used.
 * @return the instance; -1 with `errno` set (EINVAL for a size of 0 or less).
 */
int zxepoll_innerapi_open(int size, const char* caller, int line);

/**
 * Registers a descriptor.
 * @param epfd  the instance.
 * @param fd    the descriptor, which stays the caller's.
 * @param mask  the events to watch for (EPOLLIN, EPOLLOUT, ...).
 * @return 0; -1 on failure, with `errno` set.
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
 * @param mask  not used by the kernel.
 * @return 0; 1 when `epfd` is -1, that is after zxepoll_close(), and nothing is done; -1 on
 *         failure, with `errno` set.
 * Logs: error on failure.
 */
int32_t zxepoll_del(int epfd, int fd, uint32_t mask);

/**
 * Waits for events, 500 ms at most.
 * @param epfd  the instance.
 * @param ev    receives at most `max` events.
 * @param max   events, above 0.
 * @return the number of events, 0 when there was none, -1 with `errno` set: EINTR when a signal
 *         handler ran.
 */
int32_t zxepoll_wait(int epfd, struct epoll_event* ev, int max);

/**
 * Waits for events with a time-out of the caller's.
 * @param epfd  the instance.
 * @param ev    receives at most `max` events.
 * @param max   events, above 0.
 * @param ms    milliseconds; -1: without an end.
 * @return as zxepoll_wait().
 */
int32_t zxepoll_wait_timeout(int epfd, struct epoll_event* ev, int max, int ms);

/**
 * Closes an instance.
 * @param epfd  the caller's variable, which holds -1 then. NULL is refused.
 * @return 0; -1 for a NULL `epfd`.
 * Logs: error for a NULL `epfd`.
 */
int32_t zxepoll_close(int* epfd);

/* ------------------------------------------------------ one descriptor -- */

/**
 * Waits for a descriptor that is registered already.
 *
 * Waits in passes of one second, and looks at the time after a pass only: an idle descriptor keeps
 * the caller for at least a second, however short the time-out is. The time-out in microseconds is
 * computed in 32 bits, so 4294968 ms and above wrap. A failing instance counts as an idle one; a
 * signal handler that runs ends a pass, not the wait.
 * A step of the wall clock can end the wait early or late.
 *
 * @param epfd  the instance.
 * @param fd    the descriptor.
 * @param mode  1: until writable; any other value: until readable.
 * @param ms    time-out in milliseconds.
 * @return 0 ready; #ZXEPOLL_TIMEOUT; #ZXEPOLL_HANGUP, also when there is still something to read.
 */
int32_t zxepoll_waitfd_timeout_noopt(int epfd, int fd, uint8_t mode, uint32_t ms);

/**
 * Registers a descriptor, waits as zxepoll_waitfd_timeout_noopt() does, and removes it again.
 * @param epfd  the instance.
 * @param fd    the descriptor, which is not registered.
 * @param mode  1: until writable; any other value: until readable.
 * @param ms    time-out in milliseconds.
 * @return 0 ready; #ZXEPOLL_TIMEOUT; #ZXEPOLL_FAILED; #ZXEPOLL_HANGUP, also when the removal
 *         failed then.
 * Logs: error when it cannot be registered or removed.
 */
int32_t zxepoll_waitfd_timeout(int epfd, int fd, uint8_t mode, uint32_t ms);

/* -------------------------------------------------- set of descriptors -- */

/**
 * Opens an instance and registers a set of descriptors.
 *
 * @param count    how many indices `cb` is asked for, from 0; below 2147483647.
 * @param context  handed to `cb`.
 * @param mask     the events to watch for.
 * @param cb       names the descriptors; one that cannot be registered is passed over.
 * @return the instance, which zxepoll_appapi_deinit() closes; -1 on failure.
 * Logs: error when the instance cannot be opened, for each failed registration, for a NULL `cb`.
 */
int32_t zxepoll_appapi_init(uint32_t count, void* context, uint32_t mask, zxepoll_getfd_cb cb);

/**
 * Lets the caller release the descriptors of a set and closes its instance.
 * @param epfd     the instance; the caller's variable keeps its value.
 * @param count    how many indices `cb` is called for, from 0.
 * @param context  handed to `cb`.
 * @param cb       releases the descriptor of an index; its result is ignored.
 * @return 0; -1 for a NULL `cb`, with nothing done.
 * Logs: error for a NULL `cb`.
 */
int32_t zxepoll_appapi_deinit(int epfd, uint32_t count, void* context, zxepoll_getfd_cb cb);

/**
 * Dispatches events to callbacks for one second.
 *
 * A descriptor that hung up or is in error is only logged. One that is readable gets `readcb`
 * alone in that pass, also when it is writable as well and `readcb` is NULL: watch for EPOLLIN only
 * where there is a `readcb`.
 *
 * @param epfd     the instance.
 * @param count    descriptors in the set; a pass takes `count` + 1 events, 1024 at most, and the
 *                 next pass the others.
 * @param context  handed to the callbacks.
 * @param readcb   told of readable descriptors, or NULL.
 * @param writecb  of writable ones, or NULL.
 * Logs: information for a hang-up or an error of a descriptor.
 */
void zxepoll_appapi_dataread(int epfd, uint32_t count, void* context, zxepoll_io_cb readcb,
                             zxepoll_io_cb writecb);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

/**
 * @file zxcommon.h
 * The library's version and its list of modules.
 *
 * Log tag: ZXCOMMON_INNER.
 *
 * Threads: safe; for different texts.
 * Signal handlers: safe.
 * Cancellation: none.
 */
#ifndef ZXCOMMON_H
#define ZXCOMMON_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define ZXCOMMON_VERSION_MAJOR 1  /**< as in the soname; if it changes, build programs again */
#define ZXCOMMON_VERSION_MINOR 3  /**< a higher one adds to the interface */
#define ZXCOMMON_VERSION_PATCH 26 /**< a higher one does not change the interface */

/** The version as one number that the preprocessor can compare: 1.3.26 is 10326. */
#define ZXCOMMON_VERSION \
    (ZXCOMMON_VERSION_MAJOR * 10000 + ZXCOMMON_VERSION_MINOR * 100 + ZXCOMMON_VERSION_PATCH)

/** Bytes that zxcommon_api_info() needs after the current end of the text. */
#define ZXCOMMON_INFO_SIZE 87

/**
 * Tells the version of the library that the program runs with.
 * @return the constant text "01.03.26".
 */
const char* zxcommon_api_version(void);

/**
 * Appends the platform and the list of modules to a text:
 * "linux64|json|env|epoll|fifo|memapi|netframe|net|system|mpegts|signal|thread|time|types".
 *
 * @param str  a NUL-terminated text with at least #ZXCOMMON_INFO_SIZE bytes of room after its end
 *             (86 characters and a NUL are added; the room is not checked). NULL: nothing is done.
 *
 * Logs: error for a NULL `str`.
 */
void zxcommon_api_info(char* str);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

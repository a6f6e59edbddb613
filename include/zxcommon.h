/**
 * @file zxcommon.h
 * Identity of the library: its version and its modules.
 *
 * Signal handlers: only where a function says so. Log tag: ZXCOMMON_INNER.
 */
#ifndef ZXCOMMON_H
#define ZXCOMMON_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define ZXCOMMON_VERSION_MAJOR 1  /**< number of the soname: another one wants a new build */
#define ZXCOMMON_VERSION_MINOR 3  /**< a higher one has more to offer */
#define ZXCOMMON_VERSION_PATCH 26 /**< a higher one has the same interface */

/** The version as one number that the preprocessor can compare: 1.3.26 is 10326. */
#define ZXCOMMON_VERSION \
    (ZXCOMMON_VERSION_MAJOR * 10000 + ZXCOMMON_VERSION_MINOR * 100 + ZXCOMMON_VERSION_PATCH)

/** Bytes that zxcommon_api_info() needs behind the current end of the text. */
#define ZXCOMMON_INFO_SIZE 87

/**
 * The version of the library that is linked in.
 * @return the constant text "01.03.26".
 * Threads and signal handlers: safe.
 */
const char* zxcommon_api_version(void);

/**
 * Appends the platform and the list of modules to a text:
 * "linux64|json|env|epoll|fifo|memapi|netframe|net|system|mpegts|signal|thread|time|types".
 *
 * @param str  a NUL-terminated text with at least #ZXCOMMON_INFO_SIZE bytes of room behind its
 *             end (86 characters and the NUL are added; not checked). NULL: nothing is done.
 *
 * Threads: safe for different texts.
 * Logs: error for a NULL `str`.
 */
void zxcommon_api_info(char* str);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

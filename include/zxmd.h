/**
 * @file zxmd.h
 * System helpers: files, pseudo-random bytes, Base64.
 *
 * Nothing is kept open or allocated between calls. Lengths and counts are in bytes; lengths above
 * 2147483646 are lowered to that value, with a warning. Log tag: ZXMD.
 *
 * A missing (NULL) argument is refused with an error line and the result of a failure.
 */
#ifndef ZXMD_H
#define ZXMD_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* --------------------------------------------------------------- files -- */
/*
 * Some operations run shell commands with the path in them. Such a path consists of letters,
 * digits, ". : _ % - / + , = @ ~ ^" and bytes from 0x80 on, begins with neither "-" nor "~", and
 * fits the command; with any other path the command is not run.
 */

#define ZXMD_MSG_FILE_LIMIT 10485760 /**< bytes above which zxmd_api_newMsgFile() rotates */

/**
 * Reads the beginning of a file with one read.
 *
 * A pipe or socket may give less than there will be: zxmd_api_read3() goes on.
 *
 * @param buf  `len` bytes; a NUL is put behind the data when they are fewer than `len`.
 * @return the number of bytes; -1 on failure.
 * Threads: safe.
 * Logs: error when the file cannot be opened.
 */
int32_t zxmd_api_read(const char* path, void* buf, uint32_t len);

/** The same as zxmd_api_read(). */
int32_t zxmd_api_read2(const char* path, void* buf, uint32_t len);

/**
 * Reads a file until `len` bytes or its end. Otherwise as zxmd_api_read().
 * @param buf  `len` bytes; never terminated.
 */
int32_t zxmd_api_read3(const char* path, void* buf, uint32_t len);

/**
 * Writes a file with one write.
 *
 * When the file cannot be opened it is created with the touch command, and the call still fails.
 *
 * @param buf   `len` bytes. Writable: after a short write a NUL is stored in it, behind the bytes
 *              that were written.
 * @param mode  as fopen() takes it: "w" truncates, "a+" appends, "r+" wants a file that is there.
 * @return the number of bytes that reached the file; -1 on failure.
 * Threads: safe.
 * Logs: error when the file cannot be opened.
 */
int32_t zxmd_api_write(const char* path, void* buf, uint32_t len, const char* mode);

/** zxmd_api_write() to the end of a file, which is created when it is missing. */
int32_t zxmd_api_writea(const char* path, void* buf, uint32_t len);

/**
 * Replaces a file by a complete copy of a buffer.
 *
 * The bytes are written to the side file "<path>_tmp", which is then copied over `path` with the
 * cp command and removed. `path` is left alone unless the side file holds all of them; a side file
 * that could not be copied stays.
 *
 * @param path  fit for a command (see above), at most 247 characters.
 * @param buf   `len` bytes, writable as for zxmd_api_write().
 * @return the number of bytes in the side file: below `len` (or 0), `path` is as it was; -1 on
 *         failure.
 * Threads: not safe for the same path.
 * Logs: error on failure.
 */
int32_t zxmd_api_writeProtect(const char* path, void* buf, uint32_t len);

/**
 * Tells the size of a file.
 * @param path  a path of up to 1023 characters, or "file://" and a path.
 * @return bytes; 0 when the file cannot be examined.
 * Threads: safe.
 * Logs: error on failure; warning for a path that was cut to 1024 characters.
 */
uint64_t zxmd_api_getFileSize(const char* path);

/**
 * Names the type of a file; a symbolic link is not followed.
 * @return a constant text: "regular", "diretory" (spelled so in the interface), "block special",
 *         "character special", "fifo", "symbolic link", "socket", "unknown", or "error" when the
 *         file cannot be examined.
 * Threads: safe.
 * Logs: error on failure.
 */
const char* zxmd_api_getFileType(const char* path);

/**
 * Tells whether a file exists (the name is spelled so in the interface).
 * @return 1 or 0. Threads: safe.
 */
int32_t zxmd_api_isFileExsit(const char* path);

/**
 * Moves a message file that exceeds #ZXMD_MSG_FILE_LIMIT to "<path>_YYYYMMDDhhmmss.txt", local
 * time, with the mv command; whoever writes then creates a new one.
 *
 * @param path  fit for a command (see above), at most 114 characters.
 * Threads: not safe for the same path.
 * Logs: error when the file cannot be examined or its path is refused.
 */
void zxmd_api_newMsgFile(const char* path);

/**
 * Tells whether a name is that of a media file.
 * @return 1 when it ends in ".ts", ".mp3" or ".mp4", in lower case; 0 otherwise.
 * Threads: safe.
 */
int32_t zxmd_api_fileFormatFilter(const char* name);

/* -------------------------------------------------- pseudo-random bytes -- */
/*
 * Not for secrets. Every call seeds the C library's generator, which it shares with the whole
 * process, with the current second: calls within a second give the same values. Threads: not safe.
 */

/** @return a value in [`min`, `max`], with `min` not above `max`. */
uint32_t zxmd_api_randomU32(uint32_t min, uint32_t max);

/**
 * Overwrites a run of random place and length with one random byte value.
 * @param buf        `len` bytes.
 * @param minOffset  bytes at the beginning that are left alone; nothing is done without a byte
 *                   behind them.
 */
void zxmd_api_randomInsert(uint8_t* buf, uint32_t len, uint32_t minOffset);

/**
 * Fills a buffer with bytes other than 0, without a terminator.
 * @return `len`; 0 for a NULL `buf`.
 */
uint32_t zxmd_api_randomStr(uint8_t* buf, uint32_t len);

/* -------------------------------------------------------------- Base64 -- */

#define ZXMD_BASE64_MAX_INPUT 3221225469U /**< bytes of input whose output still can be counted */

/** Bytes that the output of zxmd_api_ascii2Base64() needs, the NUL included. */
#define ZXMD_BASE64_SIZE(len) (((len) + UINT64_C(2)) / 3 * 4 + 1)

/**
 * Encodes bytes as RFC 4648 does, over an alphabet of the caller's.
 *
 * @param alphabet  64 characters.
 * @param in        `len` bytes. @param len at most #ZXMD_BASE64_MAX_INPUT.
 * @param out       #ZXMD_BASE64_SIZE bytes; padded with "=" and terminated.
 * @return the number of characters; 0 for a refused argument.
 * Threads: safe.
 */
uint32_t zxmd_api_ascii2Base64(const char* alphabet, const uint8_t* in, uint32_t len, char* out);

/**
 * Decodes what zxmd_api_ascii2Base64() wrote with the same alphabet.
 *
 * Padding ends the text, the NUL too: padding may be missing, and a single character that is left
 * over is dropped. Characters that are not in the alphabet are no error but give garbage.
 *
 * @param alphabet  64 characters; the first counts where one stands twice.
 * @param in        a NUL-terminated text.
 * @param out       3 bytes for every 4 characters begun; not terminated.
 * @return the number of bytes; 0 for a missing argument.
 * Threads: safe.
 */
uint32_t zxmd_api_base642Ascii(const char* alphabet, const char* in, uint8_t* out);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

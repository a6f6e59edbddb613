/**
 * @file zxt.h
 * Small tools: buffers, amounts as texts, a change detector, names of playlists, shell commands.
 *
 * No state is kept between calls. Log tag: ZXCOMMON_INNER.
 *
 * Threads: safe; for different outputs.
 * Signal handlers: unsafe.
 * Cancellation: none.
 */
#ifndef ZXT_H
#define ZXT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* ------------------------------------------------------------- buffers -- */

#define ZXT_SWITCH_SIZE 1024 /**< most bytes that zxt_innerapi_bufSwitch() exchanges */

/**
 * Exchanges the beginnings of two buffers.
 * @param buf1  `len` bytes; NULL is refused.
 * @param buf2  `len` bytes; NULL is refused.
 * @param len   bytes, at most #ZXT_SWITCH_SIZE.
 * @return 0; -2 for a larger `len`, without a log line and before the other arguments are checked;
 *         -1 for a NULL buffer.
 * Signal handlers: safe.
 * Logs: error for a NULL buffer.
 */
int32_t zxt_innerapi_bufSwitch(void* buf1, void* buf2, uint32_t len);

/**
 * Moves the content of a buffer and zeroes the bytes that it leaves.
 *
 * During the call a copy is in a buffer of zxmem_api_malloc(), named "selfcp_buf".
 *
 * @param buf     NULL is refused. Its size is that of the content plus the distance that it moves:
 *                `len - offset` bytes for an `offset` of 0 or below, otherwise `offset + len`
 *                bytes.
 * @param offset  bytes. Above 0: the content is the `len` bytes at `buf + offset` and moves to the
 *                front. 0 or below: the content is the `len` bytes at `buf` and moves back by
 *                `-offset`.
 * @param len     bytes of content, 0 or more.
 * @return 0; -1 with nothing moved for a NULL `buf`, a negative `len`, more than 2147483647 bytes
 *         in all, or when memory is short.
 *
 * Logs: error for every -1.
 */
int32_t zxt_innerapi_bufOffset(uint8_t* buf, int32_t offset, int32_t len);

/* --------------------------------------------------------------- units -- */

#define ZXT_UNIT_SIZE 32 /**< most bytes that an amount needs, including the NUL */

/**
 * Writes an amount with a binary unit, B, KB, MB or GB: 1536 gives "1.50KB".
 *
 * The unit is the largest one that leaves a whole part; gigabytes have no upper limit.
 *
 * @param outstr  at least #ZXT_UNIT_SIZE bytes.
 * @param value   the amount in bytes or bits.
 * @param bits    0: units of bytes; any other value: units of bits, b, Kb, Mb and Gb.
 * @return `outstr`; NULL when it is NULL.
 *
 * Signal handlers: safe.
 * Logs: error for a NULL `outstr`.
 */
char* zxt_innerapi_bit2str_64(char* outstr, uint64_t value, uint8_t bits);

/**
 * Does the same as zxt_innerapi_bit2str_64() for a 32-bit amount.
 * @param outstr  at least #ZXT_UNIT_SIZE bytes.
 * @param value   the amount in bytes or bits.
 * @param bits    0: units of bytes; any other value: units of bits.
 * @return `outstr`; NULL when it is NULL.
 * Signal handlers: safe.
 * Logs: error for a NULL `outstr`.
 */
char* zxt_innerapi_bit2str_32(char* outstr, uint32_t value, uint8_t bits);

/* -------------------------------------------------------------- change -- */

/**
 * Tells whether a value flaps: whether it differed from the previous one in six calls in a row.
 *
 * A change that lasts is never reported, because the next call sees the same value twice.
 *
 * @param cur       the value now.
 * @param last      the value of the previous call; set to `cur`, except in the call that reports.
 * @param counter   calls in a row that saw a change; start with 0. A report sets it back to 0.
 * @param tag       for the message: what has changed.
 * @param fromText  for the message: the old value in words.
 * @param toText    for the message: the new value in words.
 * @return 1 in the sixth such call; otherwise 0. For a NULL argument 0, with nothing changed.
 *
 * Threads: safe; for different values.
 * Signal handlers: safe.
 * Logs: warning for a value that flaps; error for a NULL argument.
 */
int32_t zxt_api_isDatatypeChange(const int8_t* cur, int8_t* last, uint8_t* counter, const char* tag,
                                 const char* fromText, const char* toText);

/* ----------------------------------------------------------- playlists -- */
/*
 * URLs of playlists, "live/chan1.m3u8". A URL that begins with the path of the recordings is
 * already expanded: both functions act only on other URLs, of more than five characters. With an
 * empty path they do nothing, because every URL begins with it.
 */

/**
 * Derives the name of a stream from the URL of its playlist: the URL without its last five
 * characters, whatever they are.
 *
 * @param hls_url      the URL; NULL is refused.
 * @param vodpath      path of the recordings; NULL is refused.
 * @param programname  at least strlen(hls_url) + 1 bytes outside `hls_url`. They must already hold
 *                     a text, which may be empty: the function first zeroes it. NULL is refused.
 *
 * Signal handlers: safe.
 * Logs: error for a NULL argument.
 */
void zxt_innerapi_getHlsName(const char* hls_url, const char* vodpath, char* programname);

/**
 * Derives the directory of a stream from the URL of its playlist, and makes it anew.
 *
 * The directory is `vodpath`, a slash and the name of the stream. It is removed with everything in
 * it, then made: empty, and writable for everybody. The results of these commands are not checked.
 *
 * Nothing is done for a path that contains a character that a shell interprets, is too long for a
 * command of 511 characters, or does not lead below `vodpath`: one with a part "..", or one whose
 * parts are all "." or empty.
 *
 * @param hls_url   the URL; NULL is refused.
 * @param vodpath   path of the recordings; NULL is refused.
 * @param hls_path  at least strlen(vodpath) + strlen(hls_url) + 2 bytes outside the other texts.
 *                  They must already hold a text, which may be empty: the function first zeroes it.
 *                  NULL is refused.
 * @return 1 when it acted; otherwise 0.
 *
 * Threads: safe; for different directories.
 * Cancellation: safe; a cancelled call kills its shell and may leave the directory removed.
 * Logs: information with the path; error for a NULL argument and a refused path.
 */
int32_t zxt_innerapi_getHlsPath(const char* hls_url, const char* vodpath, char* hls_path);

/* ------------------------------------------------------------ commands -- */
/*
 * /bin/sh runs the commands as they are, and nothing is quoted: pass only trusted text. Commands
 * inherit the signal dispositions of the process. If SIGCHLD is ignored, their status is lost, and
 * zxt_innerapi_cmdRet() counts them as failed. A signal does not end a call.
 *
 * Cancellation: safe; a call that is cancelled while it reads from a pipe closes the pipe and waits
 * for the end of the command. Any other cancelled call kills its shell.
 */

#define ZXT_CMD_ROOM 13 /**< bytes that zxt_innerapi_cmdRet() appends */

/**
 * Runs a command and tells whether it succeeded. Note that 1 is success.
 * @param cmd  the command, with #ZXT_CMD_ROOM bytes of room after its NUL. "  > /dev/null" is
 *             appended and stays there. Standard error is not redirected. NULL is refused.
 * @return 1 when it exited with status 0; otherwise 0; -1 for a NULL `cmd`.
 * Logs: error for a NULL `cmd`.
 */
int32_t zxt_innerapi_cmdRet(char* cmd);

/**
 * Runs a command to its end and reads the beginning of its output through a pipe.
 * @param cmd   the command; NULL is refused.
 * @param info  `size` bytes, zeroed first. An output that fills them is not terminated: to get a
 *              text, set the last byte of your buffer to 0 and do not count it in `size`. NULL is
 *              refused.
 * @param size  bytes; at most 2147483646 are used. Any further output is lost.
 * @return the number of bytes; -1 for a NULL argument or when the command cannot be started.
 * Logs: error for a NULL argument.
 */
int32_t zxt_innerapi_cmdReadByPipe(const char* cmd, char* info, uint32_t size);

/**
 * Runs a command and reads its output through the file "/tmp/zxcmd_info".
 *
 * All callers on the machine share this file. Every call replaces it in one step by a new file of
 * its own. The call therefore follows no link, and never writes or reads another user's file. This
 * relies on the sticky bit of /tmp. The file stays there, readable only for its owner. If `cmd`
 * contains several commands, only the last one writes to the file. On a full disk the output is
 * cut.
 *
 * @param cmd   at most 1006 characters; a longer one is not run. NULL is refused.
 * @param info  `size` bytes; terminated when the output is shorter. NULL is refused.
 * @param size  bytes; at most 2147483646 are used.
 * @return the number of bytes; -1 for a NULL or refused argument, when the file cannot be made or
 *         opened, or when the command cannot be started.
 *
 * Threads: unsafe; nor may another process call it at the same time. zxt_innerapi_cmdReadByPipe()
 * has no such limit.
 * Logs: error for every -1.
 */
int32_t zxt_innerapi_cmdReadByTmp(const char* cmd, char* info, uint32_t size);

/**
 * Tells whether a command prints anything to standard output.
 * @param cmd  the command; NULL is refused.
 * @return 1 when it does; 0 when it does not or cannot be started; -1 for a NULL `cmd`.
 * Logs: error for a NULL `cmd`.
 */
int32_t zxt_innerapi_cmdIsGrep(const char* cmd);

/**
 * Kills (signal 9) every process whose identifier a command prints.
 *
 * The command runs twice, the first time only to see whether it prints anything. Every process
 * whose number it prints the second time is killed.
 *
 * @param cmd  at most 1012 characters; a longer one is not run. NULL is refused.
 * @return the status of the kill command as system() returns it; 0 when `cmd` printed nothing; -1
 *         for a NULL or refused `cmd`.
 *
 * Logs: error for a NULL or refused `cmd`.
 */
int32_t zxt_innerapi_kill(const char* cmd);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

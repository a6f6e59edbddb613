/**
 * @file zxt.h
 * Small tools of all kinds: buffers, amounts as texts, a change detector, names of playlists, shell
 * commands.
 *
 * No state is kept between calls. Log tag: ZXCOMMON_INNER.
 *
 * Threads: safe for different outputs, unless said otherwise. Signal handlers: only where a
 * function says so.
 */
#ifndef ZXT_H
#define ZXT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* ------------------------------------------------------------- buffers -- */

#define ZXT_SWITCH_SIZE 1024 /**< bytes that zxt_innerapi_bufSwitch() exchanges at most */

/**
 * Exchanges the beginnings of two buffers.
 *
 * @param buf1  `len` bytes; NULL is refused.
 * @param buf2  `len` bytes; NULL is refused.
 * @param len   bytes, at most #ZXT_SWITCH_SIZE.
 * @return 0; -2, silently and before anything else is looked at, for a larger `len`; -1 for a
 *         missing buffer.
 *
 * Threads: safe for different buffers. Signal handlers: yes.
 * Logs: error for a missing buffer.
 */
int32_t zxt_innerapi_bufSwitch(void* buf1, void* buf2, uint32_t len);

/**
 * Moves the content of a buffer, and zeroes what it leaves behind.
 *
 * @param buf     NULL is refused. It holds `len` bytes and those that the content moves by:
 *                `len - offset` for an `offset` up to 0, `offset + len` above.
 * @param offset  bytes. Above 0: the content is the `len` bytes at `buf + offset` and moves to the
 *                front. 0 and below: it is the `len` bytes at `buf` and moves back by `-offset`.
 * @param len     bytes of content, 0 or more.
 * @return 0; -1, with nothing moved, for a NULL `buf`, a negative `len`, bytes beyond 2147483647
 *         or when memory is short.
 *
 * Threads: safe for different buffers. Takes a temporary from zxmem_api_malloc(), "selfcp_buf".
 * Logs: error for every -1.
 */
int32_t zxt_innerapi_bufOffset(uint8_t* buf, int32_t offset, int32_t len);

/* --------------------------------------------------------------- units -- */

#define ZXT_UNIT_SIZE 32 /**< bytes that an amount needs at most, the NUL included */

/**
 * Writes an amount with a binary unit, B, KB, MB or GB: 1536 gives "1.50KB".
 *
 * The unit is the largest one that leaves a whole part; gigabytes have no end.
 *
 * @param outstr  at least #ZXT_UNIT_SIZE bytes.
 * @param value   the amount in bytes or bits.
 * @param bits    0: the units of bytes; otherwise those of bits, b, Kb, Mb and Gb.
 * @return `outstr`; NULL when it is NULL.
 *
 * Threads: safe for different texts.
 * Logs: error for a NULL `outstr`.
 */
char* zxt_innerapi_bit2str_64(char* outstr, uint64_t value, uint8_t bits);

/**
 * As zxt_innerapi_bit2str_64() for a 32-bit amount.
 * @param outstr  at least #ZXT_UNIT_SIZE bytes.
 * @param value   the amount in bytes or bits.
 * @param bits    0: the units of bytes; otherwise those of bits.
 * @return `outstr`; NULL when it is NULL.
 */
char* zxt_innerapi_bit2str_32(char* outstr, uint32_t value, uint8_t bits);

/* -------------------------------------------------------------- change -- */

/**
 * Tells whether a value flaps: whether it differed from the one before on six calls in a row.
 *
 * A change that lasts is never reported, since the next call sees the same value twice.
 *
 * @param cur       the value now.
 * @param last      the value of the call before; takes over `cur`, but on the call that reports.
 * @param counter   calls in a row that saw a change; begin with 0. A report sets it back to 0.
 * @param tag       for the message: what has changed.
 * @param fromText  for the message: the old value in words.
 * @param toText    for the message: the new value in words.
 * @return 1 on the sixth such call; 0 otherwise, and with nothing touched when an argument is NULL.
 *
 * Threads: safe for different records.
 * Logs: warning for a value that flaps; error for a missing argument.
 */
int32_t zxt_api_isDatatypeChange(const int8_t* cur, int8_t* last, uint8_t* counter, const char* tag,
                                 const char* fromText, const char* toText);

/* ----------------------------------------------------------- playlists -- */
/*
 * URLs of playlists, "live/chan1.m3u8". Both functions act only on a URL of more than five
 * characters that does not begin with the path of the recordings, as one that was expanded before
 * does; an empty path begins every URL.
 */

/**
 * Derives the name of a stream from the URL of its playlist: the URL without its last five
 * characters, whatever they are.
 *
 * @param hls_url      the URL; NULL is refused.
 * @param vodpath      path of the recordings; NULL is refused.
 * @param programname  a text, which is zeroed first: an empty one will do. At least
 *                     strlen(hls_url) + 1 bytes, and none of `hls_url`. NULL is refused.
 *
 * Threads: safe for different names.
 * Logs: error for a missing argument.
 */
void zxt_innerapi_getHlsName(const char* hls_url, const char* vodpath, char* programname);

/**
 * Derives the directory of a stream from the URL of its playlist, and makes it anew.
 *
 * The directory is `vodpath`, a slash and the name of the stream. It is removed with all that is in
 * it, then made, empty and writable for everybody. Whether the commands succeed is not looked at.
 *
 * Nothing is done for a path that the shell would not take as it stands, that is too long for a
 * command of 511 characters, or that does not lead below `vodpath`: one with a part "..", or with
 * none but "." and empty ones.
 *
 * @param hls_url   the URL; NULL is refused.
 * @param vodpath   path of the recordings; NULL is refused.
 * @param hls_path  a text, which is zeroed first: an empty one will do. At least
 *                  strlen(vodpath) + strlen(hls_url) + 2 bytes, and none of the other texts. NULL
 *                  is refused.
 * @return 1 when it acted; 0 when it did not.
 *
 * Threads: safe for different directories.
 * Logs: information with the path; error for a missing argument and a refused path.
 */
int32_t zxt_innerapi_getHlsPath(const char* hls_url, const char* vodpath, char* hls_path);

/* ------------------------------------------------------------ commands -- */
/*
 * Commands are run by /bin/sh as they stand, with nothing quoted: hand them trusted text only.
 * They inherit the signal dispositions of the process; where SIGCHLD is ignored their status is
 * lost, and zxt_innerapi_cmdRet() counts them as failed.
 *
 * A signal does not end a call. A thread that is cancelled in one kills the shell; while it reads
 * from a pipe, it closes the pipe and waits for the command's end.
 */

#define ZXT_CMD_ROOM 13 /**< bytes that zxt_innerapi_cmdRet() appends to a command */

/**
 * Runs a command and tells whether it succeeded. Mind the status: 1 is success.
 *
 * @param cmd  command with #ZXT_CMD_ROOM bytes of room behind its NUL, to which "  > /dev/null" is
 *             appended for good. Standard error is left alone. NULL is refused.
 * @return 1 when it exited with status 0; 0 otherwise; -1 for a NULL `cmd`.
 * Threads: safe for different texts.
 * Logs: error for a NULL `cmd`.
 */
int32_t zxt_innerapi_cmdRet(char* cmd);

/**
 * Runs a command to its end, and reads the beginning of its output through a pipe.
 *
 * @param cmd   command; NULL is refused.
 * @param info  `size` bytes, cleared first; not terminated when the output fills them, so hand
 *              one byte less than there is. NULL is refused.
 * @param size  bytes; at most 2147483646 are used. What the command prints beyond is lost.
 * @return the number of bytes; -1 for a missing argument or when the command cannot be started.
 * Threads: safe.
 * Logs: error for a missing argument.
 */
int32_t zxt_innerapi_cmdReadByPipe(const char* cmd, char* info, uint32_t size);

/**
 * Runs a command and reads its output through the file "/tmp/zxcmd_info".
 *
 * One file serves all callers on the machine. Every call puts a new file of the caller's in its
 * place, in one step, so that no link is followed and nobody else's file is written to or read; it
 * counts on the sticky bit of /tmp. The file is left in place, readable for its owner. Of several
 * commands in `cmd` only the last one writes to it. On a full disk the output is cut.
 *
 * @param cmd   at most 1006 characters; a longer one is not run. NULL is refused.
 * @param info  `size` bytes; terminated when the output is shorter. NULL is refused.
 * @param size  bytes; at most 2147483646 are used.
 * @return the number of bytes; -1 for a missing or refused argument, when the file cannot be made
 *         or opened, or when the command cannot be started.
 * Threads: not safe, nor against other processes: use zxt_innerapi_cmdReadByPipe() there.
 * Logs: error for every -1.
 */
int32_t zxt_innerapi_cmdReadByTmp(const char* cmd, char* info, uint32_t size);

/**
 * Tells whether a command prints anything to standard output.
 * @param cmd  command; NULL is refused.
 * @return 1 when it does; 0 when it does not or cannot be started; -1 for a NULL `cmd`.
 * Threads: safe.
 * Logs: error for a NULL `cmd`.
 */
int32_t zxt_innerapi_cmdIsGrep(const char* cmd);

/**
 * Kills (signal 9) every process whose identifier a command prints.
 *
 * The command runs twice, first to see whether it prints anything. Whatever numbers it prints the
 * second time are killed.
 *
 * @param cmd  at most 1012 characters; a longer one is not run. NULL is refused.
 * @return the status of the kill command as system() gives it; 0 when `cmd` printed nothing; -1
 *         for a missing or refused `cmd`.
 * Threads: safe.
 * Logs: error for a missing or refused `cmd`.
 */
int32_t zxt_innerapi_kill(const char* cmd);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

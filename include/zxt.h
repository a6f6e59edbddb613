/**
 * @file zxt.h
 * Small tools of all kinds: amounts as texts, shell commands. Log tag: ZXCOMMON_INNER.
 */
#ifndef ZXT_H
#define ZXT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

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

/** As zxt_innerapi_bit2str_64() for a 32-bit amount. */
char* zxt_innerapi_bit2str_32(char* outstr, uint32_t value, uint8_t bits);

/* ------------------------------------------------------------ commands -- */
/*
 * Commands are run by /bin/sh as they stand, with nothing quoted: hand them trusted text only.
 * They inherit the signal dispositions of the process; where SIGCHLD is ignored their status is
 * lost and they count as failed.
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
 * Runs a command and reads the beginning of its output through a pipe.
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
 * One file serves all callers on the machine. It is written anew by every call, so that no link and
 * no file of somebody else's is followed, and is left in place. Of several commands in `cmd` only
 * the last one writes to it.
 *
 * @param cmd   at most 1006 characters; a longer one is not run. NULL is refused.
 * @param info  `size` bytes; terminated when the output is shorter. NULL is refused.
 * @return the number of bytes; -1 for a missing or refused argument, when the file cannot be
 *         removed or read.
 * Threads: not safe, nor against other processes: use zxt_innerapi_cmdReadByPipe() there.
 * Logs: error for every -1.
 */
int32_t zxt_innerapi_cmdReadByTmp(const char* cmd, char* info, uint32_t size);

/**
 * Tells whether a command prints anything to standard output.
 * @return 1 when it does; 0 when it does not; -1 for a NULL `cmd`.
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

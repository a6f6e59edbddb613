/**
 * @file zxmd.h
 * System helpers: files, pseudo-random bytes, Base64, daemons and watchdogs, limits, housekeeping,
 * facts about the host.
 *
 * Nothing stays open or allocated after a call. A signal does not end a call. Lengths and counts
 * are in bytes. Log tag: ZXMD.
 *
 * A NULL argument is refused with an error line and the result of a failure.
 *
 * Threads: safe; for different files and outputs.
 * Signal handlers: unsafe.
 * Cancellation: none.
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
 * Some operations run shell commands that contain the path. Such a path consists of letters,
 * digits, ". : _ % - / + , = @ ~ ^" and bytes from 0x80 on, begins with neither "-" nor "~", and
 * fits the command. With any other path the command is not run.
 *
 * Reads and writes of more than 2147483646 bytes are reduced to this length, with a warning.
 * Opening a FIFO waits until its other end is open.
 */

#define ZXMD_MSG_FILE_LIMIT 10485760 /**< zxmd_api_newMsgFile() rotates files of more bytes */

/**
 * Reads a file from its beginning until it has `len` bytes, or until the file ends or a read fails.
 * @param path  the file.
 * @param buf   `len` bytes; a NUL follows the data if there are fewer than `len` bytes.
 * @param len   bytes.
 * @return the number of bytes, even when a read fails; -1 when the file cannot be opened.
 * Cancellation: safe; the file is closed.
 * Logs: error when the file cannot be opened.
 */
int32_t zxmd_api_read(const char* path, void* buf, uint32_t len);

/**
 * Does the same as zxmd_api_read().
 * @copydetails zxmd_api_read
 */
int32_t zxmd_api_read2(const char* path, void* buf, uint32_t len);

/**
 * Does the same as zxmd_api_read(), but never adds a NUL, and retries a read that failed after some
 * bytes.
 *
 * @param path  the file.
 * @param buf   `len` bytes; never terminated.
 * @param len   bytes.
 * @return as zxmd_api_read().
 *
 * Cancellation: safe; the file is closed.
 * Logs: error when the file cannot be opened.
 */
int32_t zxmd_api_read3(const char* path, void* buf, uint32_t len);

/**
 * Writes a buffer to a file.
 *
 * If the file cannot be opened, the touch command creates it, and the call still fails. On a full
 * disk fewer bytes are written, and content that "w" removed is lost: zxmd_api_writeProtect() keeps
 * it. When the file reaches the limit of its size, and on a pipe without a reader, the kernel sends
 * SIGXFSZ or SIGPIPE, which the program must handle or ignore.
 *
 * @param path  the file; fit for a command (see above) if it is to be created.
 * @param buf   `len` bytes. It must be writable: after a short write, a NUL is stored in it after
 *              the bytes that were written.
 * @param len   bytes.
 * @param mode  as for fopen(): "w" truncates, "a+" appends, "r+" needs an existing file.
 * @return the number of bytes written; -1 when the file cannot be opened.
 *
 * Cancellation: safe; the file is closed, with a part of the bytes written.
 * Logs: error when the file cannot be opened.
 */
int32_t zxmd_api_write(const char* path, void* buf, uint32_t len, const char* mode);

/**
 * Appends a buffer to a file with zxmd_api_write(); a missing file is created.
 * @param path  as for zxmd_api_write().
 * @param buf   `len` bytes, writable.
 * @param len   bytes.
 * @return as zxmd_api_write().
 * Cancellation: safe; as zxmd_api_write().
 * Logs: as zxmd_api_write().
 */
int32_t zxmd_api_writea(const char* path, void* buf, uint32_t len);

/**
 * Replaces the content of a file by a complete copy of a buffer.
 *
 * The bytes are written to the side file "<path>_tmp". The cp command copies the side file over
 * `path`, and then the side file is removed. By then both files have reached the disk. For a moment
 * both need space on it.
 *
 * After the call `path` has either the whole old content or the whole new content. While cp runs, a
 * reader may see a part of it. If the machine or the program stops then, the side file has the
 * whole new content.
 *
 * If there is no space for the side file or for the copy, `path` is left alone and the side file is
 * removed. If the copy fails before it begins, the side file stays. If the copy breaks off, the
 * side file replaces `path`, with its owner and its permissions where that is possible. A link
 * stays a link, unless the copy breaks off and the link leads to another disk.
 *
 * @param path  fit for a command (see above), at most 247 characters.
 * @param buf   `len` bytes, writable as for zxmd_api_write().
 * @param len   bytes.
 * @return the number of bytes in the side file; if it is below `len`, or 0, `path` is unchanged. -1
 *         on failure.
 *
 * Threads: safe; for different paths.
 * Logs: error on failure.
 */
int32_t zxmd_api_writeProtect(const char* path, void* buf, uint32_t len);

/**
 * Tells the size of a file.
 * @param path  a path of up to 1023 characters, or "file://" and a path.
 * @return bytes; 0 when the file cannot be examined.
 * Logs: error on failure; warning for a longer path, of which 1024 characters are used.
 */
uint64_t zxmd_api_getFileSize(const char* path);

/**
 * Names the type of a file. It does not follow symbolic links.
 * @param path  the file.
 * @return a constant text: "regular", "diretory" (spelled so in the interface), "block special",
 *         "character special", "fifo", "symbolic link", "socket", "unknown", or "error" when the
 *         file cannot be examined.
 * Logs: error on failure.
 */
const char* zxmd_api_getFileType(const char* path);

/**
 * Tells whether a file exists (the name is spelled so in the interface). It follows symbolic links.
 * @param path  the file.
 * @return 1 or 0.
 * Signal handlers: safe.
 * Logs: error for a NULL `path`.
 */
int32_t zxmd_api_isFileExsit(const char* path);

/**
 * Moves a message file larger than #ZXMD_MSG_FILE_LIMIT to "<path>_YYYYMMDDhhmmss.txt" (local time)
 * with the mv command. The next writer then creates a new file. A file that already has the new
 * name, made by a call in the same second, is not replaced: the next call moves the message file.
 *
 * @param path  fit for a command (see above), at most 114 characters.
 *
 * Threads: safe; for different paths.
 * Cancellation: safe; a cancelled call kills the shell that it runs.
 * Logs: error when the file cannot be examined, its path is refused or the new name is taken.
 */
void zxmd_api_newMsgFile(const char* path);

/**
 * Tells whether a name is that of a media file.
 * @param name  with or without a path.
 * @return 1 when it ends in ".ts", ".mp3" or ".mp4", in lower case; otherwise 0.
 * Signal handlers: safe.
 * Logs: error for a NULL `name`.
 */
int32_t zxmd_api_fileFormatFilter(const char* name);

/* -------------------------------------------------- pseudo-random bytes -- */
/*
 * Not for secrets. Every call seeds the C library's generator with the current second: calls within
 * one second give the same values. The whole process shares this generator.
 *
 * Threads: unsafe.
 */

/**
 * Makes a pseudo-random number.
 * @param min  the lowest value.
 * @param max  the highest value, not below `min`; values that are more than 2147483647 above `min`
 *             never occur.
 * @return a value in [`min`, `max`].
 */
uint32_t zxmd_api_randomU32(uint32_t min, uint32_t max);

/**
 * Overwrites a range of random position and length with one random byte value.
 * @param buf        `len` bytes.
 * @param len        bytes.
 * @param minOffset  bytes at the beginning that are left alone; nothing is done if there is no byte
 *                   after them.
 * Logs: error for a NULL `buf`.
 */
void zxmd_api_randomInsert(uint8_t* buf, uint32_t len, uint32_t minOffset);

/**
 * Fills a buffer with bytes other than 0, without a terminator.
 * @param buf  receives `len` bytes.
 * @param len  bytes.
 * @return `len`; 0 for a NULL `buf`.
 * Logs: error for a NULL `buf`.
 */
uint32_t zxmd_api_randomStr(uint8_t* buf, uint32_t len);

/* -------------------------------------------------------------- Base64 -- */

#define ZXMD_BASE64_MAX_INPUT 3221225469U /**< bytes of the longest input that can be encoded */

/** Bytes that the output of zxmd_api_ascii2Base64() needs, including the NUL. */
#define ZXMD_BASE64_SIZE(len) (((len) + UINT64_C(2)) / 3 * 4 + 1)

/**
 * Encodes bytes as RFC 4648 does, with an alphabet of the caller.
 * @param alphabet  64 characters.
 * @param in        `len` bytes.
 * @param len       bytes, at most #ZXMD_BASE64_MAX_INPUT.
 * @param out       #ZXMD_BASE64_SIZE bytes outside `in` and `alphabet`; receives the text, padded
 *                  with "=" and terminated.
 * @return the number of characters; 0 for a refused argument.
 * Logs: error for a refused argument.
 */
uint32_t zxmd_api_ascii2Base64(const char* alphabet, const uint8_t* in, uint32_t len, char* out);

/**
 * Decodes a text that zxmd_api_ascii2Base64() wrote with the same alphabet.
 *
 * Characters are decoded in groups of four. A "=" in the third or fourth place of a group is
 * padding and ends the text. The NUL also ends it: padding may be missing, and a single character
 * that is left over is dropped. Other characters outside the alphabet are not an error, but decode
 * to garbage.
 *
 * @param alphabet  64 characters; if one occurs twice, the first place counts.
 * @param in        a NUL-terminated text.
 * @param out       3 bytes for every group of 4 characters, including the last, incomplete one; not
 *                  terminated. It may be `in`, or begin before it; it must not begin after it and
 *                  overlap it.
 * @return the number of bytes; 0 for a NULL argument.
 *
 * Logs: error for a NULL argument.
 */
uint32_t zxmd_api_base642Ascii(const char* alphabet, const char* in, uint8_t* out);

/* ------------------------------------------------- daemons and watchdogs -- */

/*
 * The first two functions fork: call them while the process has a single thread, first the daemon,
 * then the watchdog. They flush the standard streams before a fork. Where they call exit(),
 * atexit() handlers run.
 */

/**
 * Makes the process a daemon: forks twice, creates a session of its own, sets umask 022, and closes
 * the descriptors 0, 1 and 2. The calling process ends with exit(0).
 *
 * The next files that the program opens get the numbers 0 to 2. Open /dev/null three times before
 * anything else, or an echo of log lines may end up in a data file. libzxlog keeps its file.
 *
 * @param logdir  becomes the current directory.
 * @return 0 in the daemon; -1 in the caller when `logdir` is NULL.
 *
 * Threads: unsafe; call it while the process has a single thread.
 * Cancellation: unsafe; the process may be a daemon already, with some descriptors closed.
 * Logs: error when `logdir` is NULL, when a fork fails and when the directory cannot be entered. In
 * the last two cases the process ends with exit(-1).
 */
int32_t zxmd_api_startDaemon(const char* logdir);

/**
 * Keeps a worker alive: forks it, waits for its end, and forks the next one, for ever. It notices
 * the end within a second. The supervising process never returns. It has the signal handling of
 * zxsignal_api_catch(), which the worker inherits, and ends with exit(1) when it cannot fork.
 *
 * Any child of the process group that ends counts as the worker: have no other children.
 *
 * @param childfunc  the function that the worker runs.
 * @param arg        passed to it.
 * @return in each worker the result of `childfunc`; -1 when it is NULL.
 *
 * Threads: unsafe; call it while the process has a single thread.
 * Cancellation: unsafe; the worker continues without supervision.
 * Logs: error when a signal ended a worker, when a fork or a wait fails, and for a NULL argument;
 * information for every start and every other end.
 */
int32_t zxmd_api_watchdog(int32_t (*childfunc)(void* arg), void* arg);

/**
 * Gives up administrator rights: takes the primary and the supplementary groups of a user, then its
 * identity (real, effective and saved), and drops all capabilities (except for "root"). A process
 * that is not allowed to change groups keeps its supplementary groups if it has no capabilities or
 * already is that user.
 *
 * @param name  the user.
 * @return 0; -1 for a user that is NULL or unknown, -2 when the groups are refused, -3 when the
 *         identity is refused or a capability would remain.
 *
 * Threads: unsafe; groups and identity change for the whole process. But ambient capabilities, and
 * the setting that keeps capabilities, belong to each thread alone. Call it while there is one
 * thread.
 * Logs: error on failure, otherwise information.
 */
int32_t zxmd_api_changeUser(const char* name);

/* -------------------------------------------------------------- limits -- */

/**
 * Raises a resource limit of the process to its maximum. For open files (7, RLIMIT_NOFILE) a shell
 * command also sets the kernel's number of inotify watches to this maximum.
 *
 * @param resource  as for setrlimit().
 * @param name      the resource in messages; may be NULL.
 * @return `resource`; for 7 the result of system(); -1 on failure.
 *
 * Cancellation: safe; a cancelled call kills the shell that it runs.
 * Logs: information; error on failure.
 */
int32_t zxmd_api_setRlimit(uint32_t resource, const char* name);

/**
 * Calls zxmd_api_setRlimit() for open files.
 * @return the result of system(); -1 on failure.
 * Cancellation: safe; as zxmd_api_setRlimit().
 * Logs: as zxmd_api_setRlimit().
 */
int32_t zxmd_api_setUlimit(void);

/* -------------------------------------------------------- housekeeping -- */

/*
 * The first four functions run shell commands that change the machine and need administrator
 * rights.
 */

/**
 * Makes the kernel drop clean caches.
 * @param level  1: pages; 2: directory entries; 3: both.
 * @return the result of system(): 0 for success.
 * Cancellation: safe; a cancelled call kills the shell that it runs.
 */
int32_t zxmd_api_clearCache(uint32_t level);

/**
 * Removes the log files of the system below /var/log.
 * @return the result of the last system(): 0 for success.
 * Cancellation: safe; a cancelled call kills the shell that it runs.
 */
int32_t zxmd_api_clearSysLog(void);

/**
 * Removes the log files of the servers.
 * @return the result of the last system(): 0 for success.
 * Cancellation: safe; a cancelled call kills the shell that it runs.
 */
int32_t zxmd_api_clearAppLog(void);

/**
 * Removes packages that no other package needs any more.
 * @return the result of system(): 0 for success.
 * Cancellation: safe; a cancelled call kills the shell that it runs.
 */
int32_t zxmd_api_cleanKernelUpgradeFile(void);

/**
 * Tells once a minute that it is time to save. A clock that was set back counts as a minute that
 * has passed.
 * @param last  time of the last result of 1, in microseconds, kept by the caller; start with 0.
 * @return 1 or 0; 0 for a NULL argument.
 * Signal handlers: safe.
 * Logs: error for a NULL argument.
 */
int32_t zxmd_api_timeToSave(uint64_t* last);

/* ---------------------------------------------------------------- host -- */
/*
 * Cancellation: safe; a cancelled call kills the shell that it runs and closes what it opened.
 */

/**
 * Counts the processors that are configured.
 * @return the number, at most 256; -1 when it is unknown.
 * Cancellation: none.
 * Logs: warning when there are more than 256.
 */
int32_t zxmd_api_getCpuNum(void);

/**
 * Switches a processor to its "performance" governor, with cpufreq-set if the package cpufrequtils
 * is installed, otherwise through the kernel's file.
 *
 * @param cpu  number of the processor; counts from 0.
 * @return the result of system().
 */
int32_t zxmd_api_setCpuFreq(uint32_t cpu);

/**
 * Tells whether a Debian package has its documentation on the machine.
 * @param package  name of the package.
 * @return 1 or 0.
 * Cancellation: none.
 * Logs: error for a NULL `package`.
 */
int32_t zxmd_api_isInstall(const char* package);

/**
 * Tells whether a program is in /bin, /usr/bin, /usr/local/bin, /sbin, /usr/sbin or
 * /usr/local/sbin.
 *
 * @param program  name of the program, without a path.
 * @return 1 or 0.
 *
 * Cancellation: none.
 * Logs: error for a NULL `program`.
 */
int32_t zxmd_api_isInstallByBin(const char* program);

/**
 * Draws the tree of a process with the pstree command. It includes threads, except on Ubuntu 16.04.
 * @param pid   the process.
 * @param out   `size` bytes; not terminated when the text fills them.
 * @param size  bytes.
 * @return as zxt_innerapi_cmdReadByPipe(): the length of the text, cut to `size`; 0 when there is
 *         no such process or no pstree; -1 for a NULL `out` or when no command can be started.
 * Cancellation: safe; as zxt_innerapi_cmdReadByPipe().
 * Logs: error for a NULL `out`, and when /etc/issue cannot be opened.
 */
int32_t zxmd_api_pstree(int32_t pid, char* out, uint32_t size);

/**
 * Looks for a graphics processor that can decode and encode.
 * @return 1 when there is one; 0 when software must decode and encode.
 * Cancellation: safe; as zxt_innerapi_cmdReadByPipe().
 * Logs: information with the answer.
 */
int32_t zxmd_api_getDecEncMode(void);

/**
 * Prints the options of a command line, as getopt() finds them, to standard output.
 * @param argc       number of arguments, including the program's name.
 * @param argv       the arguments, which getopt() may reorder.
 * @param optstring  as for getopt().
 * @return the number of options; 0 when an argument is NULL.
 * Threads: unsafe; the process shares the state of getopt(), which the call resets.
 * Cancellation: safe; only while it prints.
 * Logs: error for a NULL argument.
 */
int32_t zxmd_api_parseOpt(int argc, char** argv, const char* optstring);

/**
 * Prints the sizes of the integer types, and -1 in each of them, to standard output.
 * Cancellation: safe; only while it prints.
 */
void zxmd_api_checkVarTypeLen(void);

/**
 * Tells whether a shared library, NAME-RELEASE.so.VERSION or NAME.so.VERSION, is in more than one
 * of the system's library directories.
 *
 * @param name     with its "lib".
 * @param release  RELEASE in the first form.
 * @param version  the text after ".so.".
 * @return 1 or 0.
 *
 * Cancellation: none.
 * Logs: warning with each place when the result is 1; error for a NULL argument.
 */
int32_t zxmd_api_isConflictLib(const char* name, const char* release, const char* version);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

/**
 * @file zxmd.h
 * System helpers: files, pseudo-random bytes, Base64, daemons and watchdogs,
 * limits, housekeeping, facts about the host.
 *
 * Nothing is kept open or allocated between calls, nor by a thread that is cancelled in one. A
 * signal does not end a call. Lengths and counts are in bytes. Log tag: ZXMD.
 *
 * A missing (NULL) argument is refused with an error line and the result of a failure.
 *
 * Threads: safe for different files and outputs, unless said otherwise. Signal handlers: no.
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
 *
 * Lengths of reads and writes above 2147483646 are lowered to that value, with a warning. A FIFO is
 * waited for until its other end is open.
 */

#define ZXMD_MSG_FILE_LIMIT 10485760 /**< bytes above which zxmd_api_newMsgFile() rotates */

/**
 * Reads the beginning of a file, until `len` bytes, its end or an error.
 *
 * @param path  of the file.
 * @param buf   `len` bytes; a NUL is put behind the data when they are fewer than `len`.
 * @param len   bytes.
 * @return the number of bytes, also when reading fails; -1 when the file cannot be opened.
 * Threads: safe.
 * Logs: error when the file cannot be opened.
 */
int32_t zxmd_api_read(const char* path, void* buf, uint32_t len);

/**
 * The same as zxmd_api_read().
 * @copydetails zxmd_api_read
 */
int32_t zxmd_api_read2(const char* path, void* buf, uint32_t len);

/**
 * As zxmd_api_read(), but the data are never terminated, and a read that failed after some bytes
 * is tried again.
 * @param path  of the file.
 * @param buf   `len` bytes; never terminated.
 * @param len   bytes.
 * @return as zxmd_api_read().
 */
int32_t zxmd_api_read3(const char* path, void* buf, uint32_t len);

/**
 * Writes a file with one write.
 *
 * When the file cannot be opened it is created with the touch command, and the call still fails.
 * On a full disk fewer bytes are written, and what "w" emptied is lost: zxmd_api_writeProtect()
 * keeps it. At a limit of the size of files and on a pipe without a reader the kernel sends
 * SIGXFSZ and SIGPIPE, which are the program's to handle or to ignore.
 *
 * @param path  of the file; fit for a command (see above) if it is to be created.
 * @param buf   `len` bytes. Writable: after a short write a NUL is stored in it, behind the bytes
 *              that were written.
 * @param len   bytes.
 * @param mode  as fopen() takes it: "w" truncates, "a+" appends, "r+" wants a file that is there.
 * @return the number of bytes that reached the file; -1 when it cannot be opened.
 * Threads: safe.
 * Logs: error when the file cannot be opened.
 */
int32_t zxmd_api_write(const char* path, void* buf, uint32_t len, const char* mode);

/**
 * zxmd_api_write() to the end of a file, which is created when it is missing.
 * @param path  as for zxmd_api_write().
 * @param buf   `len` bytes, writable.
 * @param len   bytes.
 * @return as zxmd_api_write().
 */
int32_t zxmd_api_writea(const char* path, void* buf, uint32_t len);

/**
 * Replaces a file by a complete copy of a buffer.
 *
 * The bytes are written to the side file "<path>_tmp", which is then copied over `path` with the
 * cp command and removed. Both files have reached the disk by then. For a moment both take up room.
 *
 * After the call `path` holds the old content or the new one, whole. While cp runs, a reader may
 * see a part; a machine or a program that goes down then leaves the whole content in the side file.
 * It is left alone, and the side file is removed, when there is no room for the side file or for
 * the copy. A copy that breaks off in spite of that leaves the side file in the place of `path`,
 * with its owner and its permissions as far as they can be given; one that did not begin leaves the
 * side file where it is. A link stays, unless a copy breaks off on another disk than the link's.
 *
 * @param path  fit for a command (see above), at most 247 characters.
 * @param buf   `len` bytes, writable as for zxmd_api_write().
 * @param len   bytes.
 * @return the number of bytes in the side file: below `len` (or 0), `path` is as it was; -1 on
 *         failure.
 * Threads: not safe for the same path. It is no cancellation point.
 * Logs: error on failure.
 */
int32_t zxmd_api_writeProtect(const char* path, void* buf, uint32_t len);

/**
 * Tells the size of a file.
 * @param path  a path of up to 1023 characters, or "file://" and a path.
 * @return bytes; 0 when the file cannot be examined.
 * Threads: safe.
 * Logs: error on failure; warning for a longer path, of which 1024 characters are used.
 */
uint64_t zxmd_api_getFileSize(const char* path);

/**
 * Names the type of a file; a symbolic link is not followed.
 * @param path  of the file.
 * @return a constant text: "regular", "diretory" (spelled so in the interface), "block special",
 *         "character special", "fifo", "symbolic link", "socket", "unknown", or "error" when the
 *         file cannot be examined.
 * Threads: safe.
 * Logs: error on failure.
 */
const char* zxmd_api_getFileType(const char* path);

/**
 * Tells whether a file exists, at the end of a link, too (the name is spelled so in the interface).
 * @param path  of the file.
 * @return 1 or 0. Threads: safe.
 */
int32_t zxmd_api_isFileExsit(const char* path);

/**
 * Moves a message file that exceeds #ZXMD_MSG_FILE_LIMIT to "<path>_YYYYMMDDhhmmss.txt", local
 * time, with the mv command; whoever writes then creates a new one. A file of that name, which an
 * earlier call in the same second made, is not replaced: the next call moves it.
 *
 * @param path  fit for a command (see above), at most 114 characters.
 * Threads: not safe for the same path.
 * Logs: error when the file cannot be examined, its path is refused or the new name is taken.
 */
void zxmd_api_newMsgFile(const char* path);

/**
 * Tells whether a name is that of a media file.
 * @param name  with or without a path.
 * @return 1 when it ends in ".ts", ".mp3" or ".mp4", in lower case; 0 otherwise.
 * Threads: safe.
 */
int32_t zxmd_api_fileFormatFilter(const char* name);

/* -------------------------------------------------- pseudo-random bytes -- */
/*
 * Not for secrets. Every call seeds the C library's generator, which it shares with the whole
 * process, with the current second: calls within a second give the same values. Threads: not safe.
 */

/**
 * @param min  lowest value.
 * @param max  highest value; what is more than 2147483647 above `min` never comes.
 * @return a value in [`min`, `max`], with `min` not above `max`.
 */
uint32_t zxmd_api_randomU32(uint32_t min, uint32_t max);

/**
 * Overwrites a run of random place and length with one random byte value.
 * @param buf        `len` bytes.
 * @param len        bytes.
 * @param minOffset  bytes at the beginning that are left alone; nothing is done without a byte
 *                   behind them.
 */
void zxmd_api_randomInsert(uint8_t* buf, uint32_t len, uint32_t minOffset);

/**
 * Fills a buffer with bytes other than 0, without a terminator.
 * @param buf  takes `len` bytes.
 * @param len  bytes.
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
 * @param in        `len` bytes.
 * @param len       bytes, at most #ZXMD_BASE64_MAX_INPUT.
 * @param out       #ZXMD_BASE64_SIZE bytes, none of them in `in` or `alphabet`; takes the text,
 *                  padded with "=" and terminated.
 * @return the number of characters; 0 for a refused argument.
 * Threads: safe.
 * Logs: error for a refused argument.
 */
uint32_t zxmd_api_ascii2Base64(const char* alphabet, const uint8_t* in, uint32_t len, char* out);

/**
 * Decodes what zxmd_api_ascii2Base64() wrote with the same alphabet.
 *
 * Characters go in groups of four. A "=" in the third or fourth place of one is padding and ends
 * the text, the NUL too: padding may be missing, and a single character that is left over is
 * dropped. Other characters that are not in the alphabet are no error but give garbage.
 *
 * @param alphabet  64 characters; the first counts where one stands twice.
 * @param in        a NUL-terminated text.
 * @param out       3 bytes for every 4 characters begun; not terminated. It may be `in`, or begin
 *                  before it; it may not begin after it and overlap it.
 * @return the number of bytes; 0 for a missing argument.
 * Threads: safe.
 * Logs: error for a missing argument.
 */
uint32_t zxmd_api_base642Ascii(const char* alphabet, const char* in, uint8_t* out);

/* ------------------------------------------------- daemons and watchdogs -- */

/*
 * These fork: call them while the process has a single thread, the daemon first, then the
 * watchdog. Standard streams are flushed before. Functions that exit() run what atexit() holds.
 */

/**
 * Makes the process a daemon: forks twice, into a session of its own, with umask 022, and closes
 * the descriptors 0, 1 and 2. The calling process ends with exit(0).
 *
 * Whatever is opened first afterwards gets the numbers 0 to 2: open /dev/null three times before
 * anything else, or an echo of log lines may land in a data file. libzxlog keeps its file.
 *
 * @param logdir  becomes the current directory.
 * @return 0, in the daemon; -1 when `logdir` is missing, in the caller.
 *
 * Logs: error when it is missing, when a fork fails and when the directory cannot be entered; the
 * process that sees these two ends with exit(-1).
 */
int32_t zxmd_api_startDaemon(const char* logdir);

/**
 * Keeps a worker alive: forks it, waits for its end, forks the next one, for ever. The end is
 * noticed within a second. The supervising process never returns; it has the signals of
 * zxsignal_api_catch(), as has the worker at first, and exits with exit(1) when it cannot fork.
 *
 * The first child of the process group that ends counts, whatever it was: have no others.
 *
 * @param childfunc  what the worker does.
 * @param arg        handed to it.
 * @return in each worker what `childfunc` returned; -1 when it is missing.
 *
 * Logs: error when a worker was ended by a signal, when a fork or a wait fails, and for a missing
 * argument; information for every start and every other end.
 */
int32_t zxmd_api_watchdog(int32_t (*childfunc)(void* arg), void* arg);

/**
 * Gives up administrator rights: takes the primary and the supplementary groups of a user, then its
 * identity, real, effective and saved, and drops all capabilities (not for "root"). A process that
 * may not change groups keeps its supplementary ones if it has no capabilities or is that user
 * already.
 * @param name  of the user.
 * @return 0; -1 for a user that is missing or unknown, -2 when the groups are refused, -3 when the
 *         identity is, or when a capability would remain.
 * Threads: groups and identity change for the whole process. Capabilities that are ambient or to be
 * kept belong to a thread: with such, call it while there is one. Logs: error on failure, otherwise
 * information.
 */
int32_t zxmd_api_changeUser(const char* name);

/* -------------------------------------------------------------- limits -- */

/**
 * Raises a resource limit of the process to the most that it may have. For open files (7,
 * RLIMIT_NOFILE) the kernel's number of inotify watches is set to the same with a shell command.
 * @param resource  as setrlimit() takes it.
 * @param name      of the resource, in messages; may be NULL.
 * @return `resource`; for 7 what system() returned; -1 on failure.
 * Logs: information; error on failure.
 */
int32_t zxmd_api_setRlimit(uint32_t resource, const char* name);

/**
 * zxmd_api_setRlimit() for open files.
 * @return what system() returned; -1 on failure.
 */
int32_t zxmd_api_setUlimit(void);

/* -------------------------------------------------------- housekeeping -- */

/*
 * The first four run shell commands that change the machine, as administrator. The result is that
 * of the last system(): 0 for success.
 */

/**
 * Has the kernel drop clean caches.
 * @param level  1: pages; 2: directory entries; 3: both.
 * @return what system() returned.
 */
int32_t zxmd_api_clearCache(uint32_t level);

/**
 * Removes the log files of the system below /var/log.
 * @return what the last system() returned.
 */
int32_t zxmd_api_clearSysLog(void);

/**
 * Removes the log files of the servers.
 * @return what the last system() returned.
 */
int32_t zxmd_api_clearAppLog(void);

/**
 * Removes packages that no other needs any more.
 * @return what the last system() returned.
 */
int32_t zxmd_api_cleanKernelUpgradeFile(void);

/**
 * Tells whether it is time to save, once a minute. A clock that was set back counts as a minute.
 * @param last  microseconds of the last 1, kept by the caller; 0 at first.
 * @return 1 or 0; 0 for a missing argument.
 */
int32_t zxmd_api_timeToSave(uint64_t* last);

/* ---------------------------------------------------------------- host -- */

/**
 * @return the number of processors that are configured, at most 256; -1 when it is unknown.
 * Logs: warning when there are more.
 */
int32_t zxmd_api_getCpuNum(void);

/**
 * Switches a processor to its "performance" governor, by cpufreq-set where the package cpufrequtils
 * is installed, otherwise through the kernel's file.
 * @param cpu  number of the processor, from 0 on.
 * @return what system() returned.
 */
int32_t zxmd_api_setCpuFreq(uint32_t cpu);

/**
 * @param package  name of the package.
 * @return 1 when a Debian package has its documentation on the machine, otherwise 0.
 */
int32_t zxmd_api_isInstall(const char* package);

/**
 * @param program  name of the program, without a path.
 * @return 1 when a program stands in /bin, /usr/bin, /sbin or the like, otherwise 0.
 */
int32_t zxmd_api_isInstallByBin(const char* program);

/**
 * Draws the tree of a process with the pstree command, with its threads but on Ubuntu 16.04.
 * @param pid   of the process.
 * @param out   `size` bytes; not terminated when the text fills them.
 * @param size  bytes.
 * @return as zxt_innerapi_cmdReadByPipe(): the length of the text, cut to `size`; 0 when there is
 *         no such process or no pstree; -1 for a missing `out` or when no command can be started.
 */
int32_t zxmd_api_pstree(int32_t pid, char* out, uint32_t size);

/**
 * Looks for a graphics processor that can decode and encode.
 * @return 1 when there is one, 0 when it is to be done in software.
 * Logs: information with the answer.
 */
int32_t zxmd_api_getDecEncMode(void);

/**
 * Prints the options of a command line, as getopt() finds them, to standard output.
 * @param argc       arguments, the program's name included.
 * @param argv       the arguments, which getopt() may reorder.
 * @param optstring  as getopt() takes it.
 * @return the number of options; 0 when an argument is missing.
 * Threads: not safe: getopt() keeps its state for the process, which starts anew.
 */
int32_t zxmd_api_parseOpt(int argc, char** argv, const char* optstring);

/** Prints the sizes of the integer types and their value of -1 to standard output. */
void zxmd_api_checkVarTypeLen(void);

/**
 * Tells whether a shared library, NAME-RELEASE.so.VERSION or NAME.so.VERSION, stands in more than
 * one of the system's library directories.
 * @param name     with its "lib".
 * @param release  second part of the first form.
 * @param version  behind ".so.".
 * @return 1 when it does, otherwise 0.
 * Logs: warning with each place then.
 */
int32_t zxmd_api_isConflictLib(const char* name, const char* release, const char* version);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

/**
 * @file zxsysctl.h
 * Tunables of the kernel's IPv4 stack. Changing them needs administrator rights.
 *
 * Log tag: SYSCTL.
 *
 * Threads: safe.
 * Signal handlers: unsafe.
 * Cancellation: safe; a cancelled call kills the shell that it runs and closes the file that it
 * reads.
 */
#ifndef ZXSYSCTL_H
#define ZXSYSCTL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * Switches off the reverse-path filter of an interface, with "sysctl".
 *
 * The name is put into the command as it is. In sysctl a dot separates names: write "v/7" for the
 * interface v.7. Never pass a name from outside: with a "=" in it, the command would set another
 * tunable.
 *
 * @param name   the interface, "all" or "default".
 * @param value  not used: the filter is always switched off.
 * @return the result of system(); -1 when no command was run, because `name` is NULL, empty, too
 *         long for a command of 255 characters, or contains a character that a shell interprets:
 *         control characters, blanks and any of | & ; < > ( ) $ ` \ " ' * ? [ {
 *
 * Logs: the command as information; error when no command was run.
 */
int32_t zxsysctl_api_setEth_rpfilter(const char* name, uint8_t value);

/**
 * Switches off the reverse-path filter for "all", then for "default".
 * @param value  not used.
 * @return the result of the second system().
 * Logs: as zxsysctl_api_setEth_rpfilter().
 */
int32_t zxsysctl_api_setGw_rpfilter(uint8_t value);

/**
 * Reads the IGMP version that all interfaces are forced to.
 * @return the version; 0 when none is forced or it cannot be read.
 * Logs: error when it cannot be read.
 */
int32_t zxsysctl_api_getIgmpVersion(void);

/**
 * Forces all interfaces to an IGMP version.
 * @param version  1, 2 or 3; 0: none.
 * @return the result of system(): 0 for success.
 * Logs: debug.
 */
int32_t zxsysctl_api_setIgmpVersion(uint8_t version);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

/**
 * @file zxsysctl.h
 * Tunables of the kernel's IPv4 stack. Changing them needs administrator rights.
 *
 * Threads: safe. Signal handlers: no. Log tag: SYSCTL.
 */
#ifndef ZXSYSCTL_H
#define ZXSYSCTL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * Switches the reverse-path filter of an interface off, with "sysctl".
 *
 * The name goes into the command as it stands. To sysctl a dot separates names: write "v/7" for the
 * interface v.7. The name must not be a stranger's: a "=" in it ends the name of the tunable, and
 * another one is set.
 *
 * @param name   the interface, "all" or "default".
 * @param value  not used: the filter is always switched off.
 * @return what system() returned; -1 when nothing was run: `name` is missing, empty or too long for
 *         a command of 255 characters, or has what a shell would interpret: control characters,
 *         blanks and any of | & ; < > ( ) $ ` \ " ' * ? [ {
 * Logs: the command as information; error when nothing was run.
 */
int32_t zxsysctl_api_setEth_rpfilter(const char* name, uint8_t value);

/**
 * Switches the reverse-path filter off for "all", then for "default".
 * @param value  not used.
 * @return what the second system() returned.
 */
int32_t zxsysctl_api_setGw_rpfilter(uint8_t value);

/** @return the IGMP version that all interfaces are held to; 0 for none, or when it is unknown. */
int32_t zxsysctl_api_getIgmpVersion(void);

/**
 * Holds all interfaces to an IGMP version.
 * @param version  1, 2 or 3; 0: none.
 * @return what system() returned: 0 for success.
 * Logs: debug.
 */
int32_t zxsysctl_api_setIgmpVersion(uint8_t version);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

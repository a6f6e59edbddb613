/**
 * @file zxenv.h
 * Environment variables with checks, default values and messages.
 *
 * Log tag: ENV.
 *
 * Threads: unsafe; no thread may change the environment while another one reads or changes it.
 * Signal handlers: unsafe.
 * Cancellation: none.
 */
#ifndef ZXENV_H
#define ZXENV_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * Looks up a variable.
 * @param name          without "=".
 * @param defaultValue  the result when there is no such variable; may be NULL.
 * @return the value, which may be empty and stays valid until the variable changes; `defaultValue`
 *         when there is no such variable or `name` is NULL.
 * Logs: error for a NULL `name`.
 */
const char* zxenv_api_get(const char* name, const char* defaultValue);

/**
 * Sets a variable to a copy of a text.
 * @param name       not empty and without "=".
 * @param str_value  copied; may be empty.
 * @param overwrite  0: an existing variable keeps its value, and the call succeeds.
 * @return 1; 0 when it fails or an argument is NULL.
 * Logs: error when it returns 0.
 */
int32_t zxenv_api_set(const char* name, const char* str_value, int8_t overwrite);

/**
 * Removes a variable.
 * @param name  the variable, which need not exist.
 * @return 0; -1 with `errno` EINVAL and without a log line for a name that is NULL, empty or
 *         contains "=".
 */
int32_t zxenv_api_unset(const char* name);

/**
 * Makes a text a part of the environment.
 * @param name_val  "NAME=VALUE"; not copied: it must stay valid and unchanged for as long as the
 *                  variable exists. Without "=" the variable is removed.
 * @return 1; 0 when it fails or the argument is NULL.
 * Logs: error when it returns 0.
 */
int32_t zxenv_api_put(char* name_val);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

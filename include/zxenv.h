/**
 * @file zxenv.h
 * Environment variables with checks, defaults and messages.
 *
 * The environment is the process's: no other thread may change it while one
 * reads or changes it. Signal handlers: no. Log tag: ENV.
 */
#ifndef ZXENV_H
#define ZXENV_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * Looks a variable up.
 * @param name          without "=".
 * @param defaultValue  the result when there is no such variable; may be NULL.
 * @return its value, an empty one, too, until the variable is changed; otherwise `defaultValue`,
 *         for a NULL `name`, too.
 * Logs: error for a NULL `name`.
 */
const char* zxenv_api_get(const char* name, const char* defaultValue);

/**
 * Sets a variable to a copy of a text.
 * @param name       not empty and without "=".
 * @param str_value  copied; may be empty.
 * @param overwrite  0: a variable that exists keeps its value, which is a success.
 * @return 1; 0 when it fails or an argument is missing.
 * Logs: error in these cases.
 */
int32_t zxenv_api_set(const char* name, const char* str_value, int8_t overwrite);

/**
 * Removes a variable.
 * @param name  of the variable, which need not exist.
 * @return 0; -1 with `errno` EINVAL, silently, for NULL, an empty name and one with "=".
 */
int32_t zxenv_api_unset(const char* name);

/**
 * Makes a text part of the environment.
 * @param name_val  "NAME=VALUE"; not copied: it stays alive and unchanged as long as the variable.
 *                  Without "=" the variable is removed.
 * @return 1; 0 when it fails or the argument is missing.
 * Logs: error in these cases.
 */
int32_t zxenv_api_put(char* name_val);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif

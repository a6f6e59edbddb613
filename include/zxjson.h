/**
 * @file zxjson.h
 * The JSON parser and printer that the library offers its callers: cJSON, under its own names
 * (cJSON_Parse(), cJSON_Print(), ...).
 *
 * It is the system's shared cJSON. A program that links libzxcommon through its CMake target or its
 * pkg-config file also links cJSON. Of the library's own modules, only zxdiag uses it.
 *
 * A tree belongs to the code that made it: cJSON_Delete() frees it, cJSON_free() frees a printed
 * text. Nothing is logged.
 *
 * Threads: safe; for different trees, except cJSON_GetErrorPtr() and cJSON_InitHooks(), which all
 * threads share.
 * Signal handlers: unsafe.
 * Cancellation: none.
 */
#ifndef ZXJSON_H
#define ZXJSON_H

#include <cjson/cJSON.h>

#endif

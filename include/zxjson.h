/**
 * @file zxjson.h
 * The JSON parser and printer that the library offers its callers: cJSON, under
 * its own names (cJSON_Parse(), cJSON_Print(), ...).
 *
 * It is the system's shared cJSON; linking libzxcommon through its CMake target
 * or its pkg-config file links it too. The library's own modules do not use it.
 *
 * A tree belongs to who made it: cJSON_Delete() frees it, cJSON_free() a printed
 * text. Nothing is logged.
 *
 * Threads: safe for different trees, but for cJSON_GetErrorPtr() and
 * cJSON_InitHooks(), which all threads share. Signal handlers: no.
 */
#ifndef ZXJSON_H
#define ZXJSON_H

#include <cjson/cJSON.h>

#endif

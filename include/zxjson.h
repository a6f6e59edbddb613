/**
 * @file zxjson.h
 * The JSON parser and printer that the library offers its callers: cJSON, under
 * its own names (cJSON_Parse(), cJSON_Print(), ...).
 *
 * It is the system's shared cJSON; linking libzxcommon through its CMake target
 * or its pkg-config file links it too. The library's own modules do not use it.
 */
#ifndef ZXJSON_H
#define ZXJSON_H

#include <cjson/cJSON.h>

#endif

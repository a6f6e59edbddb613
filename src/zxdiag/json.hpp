// Members of answers.
#pragma once

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "shared/controls.hpp"

namespace zx::diag {

// Adds a text of the program. JSON is UTF-8, but a name may have any bytes, or may have been cut
// within a character: a question mark takes the place of each byte that is no part of one.
inline void add_text(cJSON* object, const char* key, const char* text) {
    const cJSON* const item = cJSON_AddStringToObject(object, key, text);
    char* at = item != nullptr ? item->valuestring : nullptr;
    for (std::size_t left = at != nullptr ? std::strlen(at) : 0; left > 0;) {
        const std::size_t size = character_size(at, left);
        if (size == 1 && static_cast<unsigned char>(*at) >= 0x80) {
            *at = '?';
        }
        at += size;
        left -= size;
    }
}

inline void add_address(cJSON* object, const char* key, const void* address) {
    char text[sizeof "0x0123456789abcdef"];
    std::snprintf(text, sizeof text, "%p", address);
    cJSON_AddStringToObject(object, key, text);
}

template <typename Number>
void add_number(cJSON* object, const char* key, Number number) {
    cJSON_AddNumberToObject(object, key, static_cast<double>(number));
}

}  // namespace zx::diag

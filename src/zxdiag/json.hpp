// Members of answers.
#pragma once

#include <cjson/cJSON.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace zx::diag {

// How many bytes at the start of a text are one character of UTF-8; 0: none is.
[[nodiscard]] inline std::size_t size_of_character(const char* text) {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    if (first < 0x80) {
        return 1;
    }
    const std::size_t size = first >= 0xF5 ? 0 : first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || size == 0) {
        return 0;
    }
    for (std::size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xC0U) != 0x80) {  // also at the end of the text
            return 0;
        }
    }
    const bool is_wrong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) > 0x9F) ||
                          (first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) > 0x8F);
    return is_wrong ? 0 : size;
}

// Adds a text of the program, of less than N bytes. JSON is UTF-8, but a name may have been cut
// within a character: what is none becomes '?'.
template <std::size_t N>
void add_text(cJSON* object, const char* key, const char (&text)[N]) {
    char good[N] = {};
    for (std::size_t i = 0; i < N - 1 && text[i] != '\0';) {
        const std::size_t size = size_of_character(text + i);
        std::memcpy(good + i, size != 0 ? text + i : "?", size != 0 ? size : 1);
        i += size != 0 ? size : 1;
    }
    cJSON_AddStringToObject(object, key, good);
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

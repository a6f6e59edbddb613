// Texts into fields of a fixed size.
#pragma once

#include <cstddef>
#include <cstring>

#include "internal/log.hpp"

namespace zx {

// Copies a text with its NUL, or as much of it as the field holds, without a NUL then. Returns the
// bytes that the whole text needs.
template <std::size_t N>
std::size_t fill_field(char (&field)[N], const char* text) {
    const std::size_t needed = std::strlen(text) + 1;
    std::memcpy(field, text, needed < N ? needed : N);
    return needed;
}

}  // namespace zx

// Fills a field and warns, under the tag of the file that asks, when the text was cut.
#define ZX_FILL_FIELD(field, text)                                                              \
    do {                                                                                        \
        if (const std::size_t needed = ::zx::fill_field(field, text); needed > sizeof(field)) { \
            ZX_LOG_CUT(sizeof(field), needed, text);                                            \
        }                                                                                       \
    } while (0)

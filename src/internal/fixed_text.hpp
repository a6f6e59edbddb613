// Texts into fields of a fixed size, and into outputs.
#pragma once

#include <cstddef>
#include <cstring>

#include "internal/log.hpp"

namespace zx {

// Callers may read this many bytes of an output without looking for its end.
inline constexpr std::size_t kClearedSize = 8;

// Copies a text with its NUL. A text that does not fit is cut, and has no NUL then. Returns the
// bytes that the whole text needs.
template <std::size_t N>
std::size_t fill_field(char (&field)[N], const char* text) {
    const std::size_t needed = std::strlen(text) + 1;
    std::memcpy(field, text, needed < N ? needed : N);
    return needed;
}

}  // namespace zx

// Fills a field. When the text was cut, warns under the tag of the file that uses the macro.
#define ZX_FILL_FIELD(field, text)                                                              \
    do {                                                                                        \
        if (const std::size_t needed = ::zx::fill_field(field, text); needed > sizeof(field)) { \
            ZX_LOG_CUT(sizeof(field), needed, text);                                            \
        }                                                                                       \
    } while (0)

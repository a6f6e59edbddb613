// Control characters in texts from outside. With a line feed a host name could forge a line, with
// an escape sequence it could control a terminal.
#pragma once

#include <cstddef>
#include <cstdint>

#include "shared/hex.hpp"

namespace zx {

// "\x1b" takes the place of one byte.
inline constexpr std::size_t kEscapedSize = 4;

// True for a byte that is, or may be a part of, a control character. A tab does not count. There
// are no branches, so the compiler checks many bytes at a time.
inline bool is_doubtful(char c) {
    const auto byte = static_cast<std::uint8_t>(c);
    return ((byte < 0x20) & (byte != '\t')) | (byte >= 0x7f);
}

inline std::size_t count_doubtful(const char* text, std::size_t size) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < size; ++i) {
        count += static_cast<std::size_t>(is_doubtful(text[i]));
    }
    return count;
}

// How many bytes the UTF-8 character here has. 1 for ASCII, and for a byte that begins no
// character.
inline std::size_t character_size(const char* text, std::size_t left) {
    const auto at = [text](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint8_t lead = at(0);
    const std::size_t size = lead < 0xc2 || lead > 0xf4 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    if (size == 1 || size > left) {
        return 1;
    }
    // Rejects overlong forms, surrogates, and everything above U+10FFFF.
    const std::uint8_t low = lead == 0xe0 ? 0xa0 : lead == 0xf0 ? 0x90 : 0x80;
    const std::uint8_t high = lead == 0xed ? 0x9f : lead == 0xf4 ? 0x8f : 0xbf;
    if (at(1) < low || at(1) > high) {
        return 1;
    }
    for (std::size_t i = 2; i < size; ++i) {
        if (at(i) < 0x80 || at(i) > 0xbf) {
            return 1;
        }
    }
    return size;
}

// The bytes 0x80 to 0x9f count when they are no part of a UTF-8 character: for a terminal without
// UTF-8 they are control characters.
inline bool is_control(const char* character, std::size_t size) {
    const auto lead = static_cast<std::uint8_t>(character[0]);
    if (size == 1) {
        return is_doubtful(character[0]) && lead < 0xa0;
    }
    return lead == 0xc2 && static_cast<std::uint8_t>(character[1]) < 0xa0;
}

// Writes a text with its control characters as "\x1b" or "\xc2\x9b". Returns the end of the result.
inline char* put_escaped(const char* from, const char* end, char* to) {
    while (from < end) {
        const std::size_t size = character_size(from, static_cast<std::size_t>(end - from));
        const bool escapes = is_control(from, size);
        for (const char* const next = from + size; from < next; ++from) {
            if (!escapes) {
                *to++ = *from;
                continue;
            }
            *to++ = '\\';
            *to++ = 'x';
            to = put_hex(to, static_cast<std::uint8_t>(*from));
        }
    }
    return to;
}

}  // namespace zx

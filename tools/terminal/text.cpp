#include "terminal/text.hpp"

#include <langinfo.h>
#include <wchar.h>

#include <cstdio>

namespace terminal {
namespace {

struct Character {
    std::size_t size = 1;  // bytes
    char32_t code = 0;
    bool is_good = false;  // false: one byte that is no part of UTF-8
};

// The first character of a text that is not empty.
Character first_of(std::string_view text) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned lead = byte(0);
    if (lead < 0x80) {
        return {1, lead, true};
    }
    const std::size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < size) {
        return {};
    }
    char32_t code = lead & (0x7FU >> size);
    for (std::size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xC0U) != 0x80) {
            return {};
        }
        code = code << 6U | (byte(i) & 0x3FU);
    }
    constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool is_surrogate = code >= 0xD800 && code <= 0xDFFF;
    if (code < kLeast[size] || code > 0x10FFFF || is_surrogate) {
        return {};
    }
    return {size, code, true};
}

bool is_ascii_control(char32_t code) {
    return code < 0x20 || code == 0x7F;
}

bool is_utf8_terminal() {
    return std::string_view(nl_langinfo(CODESET)) == "UTF-8";
}

// Columns of a character; 0: a terminal must not get it.
std::size_t columns_of(const Character& character) {
    if (!character.is_good || is_ascii_control(character.code)) {
        return 0;
    }
    if (character.code < 0x80) {
        return 1;
    }
    const int width = is_utf8_terminal() ? wcwidth(static_cast<wchar_t>(character.code)) : 0;
    return width > 0 ? static_cast<std::size_t>(width) : 0;
}

void append_hex(std::string& out, std::string_view before, int digit_count, unsigned value) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%0*x", digit_count, value);
    out.append(before).append(digits);
}

}  // namespace

std::string clean(std::string_view text) {
    std::string out;
    for (std::size_t count = 0; !text.empty(); ++count) {
        if (count == kLongest) {
            return out + "...";
        }
        const Character next = first_of(text);
        if (columns_of(next) != 0) {
            out += text.substr(0, next.size);
        } else {
            for (const char byte : text.substr(0, next.size)) {
                append_hex(out, "\\x", 2, static_cast<unsigned char>(byte));
            }
        }
        text.remove_prefix(next.size);
    }
    return out;
}

std::string clean_json(std::string_view json) {
    std::string out;
    out.reserve(json.size());
    while (!json.empty()) {
        const Character next = first_of(json);
        const bool is_control =
            is_ascii_control(next.code) || (next.code >= 0x80 && next.code < 0xA0);
        if (!next.is_good) {
            out += "\\ufffd";
        } else if (is_control) {
            append_hex(out, "\\u", 4, static_cast<unsigned>(next.code));
        } else {
            out += json.substr(0, next.size);
        }
        json.remove_prefix(next.size);
    }
    return out;
}

std::size_t width_of(std::string_view text) {
    std::size_t width = 0;
    while (!text.empty()) {
        const Character next = first_of(text);
        width += columns_of(next);
        text.remove_prefix(next.size);
    }
    return width;
}

std::string beginning(std::string_view text, std::size_t columns) {
    std::size_t size = 0;
    while (size < text.size()) {
        const Character next = first_of(text.substr(size));
        const std::size_t width = columns_of(next);
        if (width > columns) {
            break;
        }
        columns -= width;
        size += next.size;
    }
    return std::string(text.substr(0, size));
}

std::string cut(std::string_view text, std::size_t columns) {
    if (width_of(text) <= columns) {
        return std::string(text);
    }
    const char* const mark = is_utf8_terminal() ? "…" : "~";
    return columns == 0 ? "" : beginning(text, columns - 1).append(mark);
}

std::string fitted(std::string_view text, std::size_t columns, bool to_the_right) {
    std::string out = cut(text, columns);
    const std::size_t blanks = columns - width_of(out);
    return out.insert(to_the_right ? 0 : out.size(), blanks, ' ');
}

}  // namespace terminal

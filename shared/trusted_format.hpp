// Printing with a format of the caller.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>

#include "shared/plain_format.hpp"

namespace zx {

// The size of an output whose size the interface does not tell. The caller made it large enough.
inline constexpr std::size_t kUnsized = static_cast<std::size_t>(-1) / 2;

// Like snprintf(), but the compiler does not check the format, which only the caller knows.
inline int print_trusted(char* out, std::size_t size, const char* fmt, ...) {
    std::va_list args;
    va_start(args, fmt);
    int length = PlainFormat(out, size).print(fmt, args);
    va_end(args);
    if (length < 0) {
        va_start(args, fmt);
        length = std::vsnprintf(out, size, fmt, args);
        va_end(args);
    }
    return length;
}

}  // namespace zx

// Printing through a format that the caller supplied.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace zx {

// For outputs whose size the interface does not know: the caller sized them for its own format.
inline constexpr std::size_t kUnsized = static_cast<std::size_t>(-1) / 2;

// snprintf without the compiler's check of the format, which only the caller knows.
inline int print_trusted(char* out, std::size_t size, const char* fmt, ...) {
    std::va_list args;
    va_start(args, fmt);
    const int length = std::vsnprintf(out, size, fmt, args);
    va_end(args);
    return length;
}

}  // namespace zx

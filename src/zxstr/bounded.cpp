// Copies and appends that never leave their buffer.
#include "zxstr.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

extern "C" uint64_t zxstr_api_lcpy(char* dst, const char* src, uint64_t size) {
    if (src == nullptr || (dst == nullptr && size != 0)) {
        return 0;
    }
    const std::size_t length = std::strlen(src);
    if (size != 0) {
        const std::size_t kept = length < size ? length : size - 1;
        std::memcpy(dst, src, kept);
        dst[kept] = '\0';
    }
    return length;
}

extern "C" uint64_t zxstr_api_lcat(char* dst, const char* src, uint64_t size) {
    if (dst == nullptr || src == nullptr) {
        return 0;
    }
    const std::size_t used = std::strlen(dst);
    if (size <= used + 1) {
        return used + std::strlen(src);
    }
    return used + zxstr_api_lcpy(dst + used, src, size - used);
}

extern "C" int32_t zxstr_api_lcatf(char* dst, uint64_t size, const char* fmt, ...) {
    if (dst == nullptr || fmt == nullptr) {
        return 0;
    }
    const std::size_t used = std::strlen(dst);
    const std::size_t room = used < size ? size - used : 0;
    std::va_list args;
    va_start(args, fmt);
    const int printed = std::vsnprintf(dst + used, room, fmt, args);
    va_end(args);
    return static_cast<int32_t>(used + static_cast<std::size_t>(printed));
}

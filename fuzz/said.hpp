// Collects what the library logs, for targets that compare it. The dynamic linker prefers the
// functions below to those of libzxlog.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>

#include "zxlog.h"

namespace zx::fuzz {

inline std::string g_said;

inline void append(std::string& to, const char* fmt, std::va_list args) {
    std::va_list again;
    va_copy(again, args);
    std::string text(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, fmt, args)), '\0');
    std::vsnprintf(text.data(), text.size() + 1, fmt, again);
    va_end(again);
    to += text;
}

// The lines that a module should log at a log level.
struct Lines {
    const char* tag;
    std::uint32_t level;
    std::string said{};

    void add(std::uint32_t of_level, const char* fmt, std::va_list args) {
        if (of_level <= level) {
            said.append("[").append(strLoglevel_simple[of_level]).append("][").append(tag) += "]";
            append(said, fmt, args);
            said += "\r\n";
        }
    }
    [[gnu::format(printf, 3, 4)]] void say(std::uint32_t of_level, const char* fmt, ...) {
        std::va_list args;
        va_start(args, fmt);
        add(of_level, fmt, args);
        va_end(args);
    }
};

// All lines since the last call.
inline std::string take_said() {
    return std::exchange(g_said, {});
}

}  // namespace zx::fuzz

extern "C" {

const char* zxlog_innerapi_logTime(void) {
    return "";
}

void zxlog_innerapi_file(const char* fmt, ...) {
    std::va_list args;
    va_start(args, fmt);
    zx::fuzz::append(zx::fuzz::g_said, fmt, args);
    va_end(args);
}

void zxlog_innerapi_bufHex(const char* label, const void* buf, std::uint32_t len, const char*,
                           std::int32_t) {
    zx::fuzz::g_said.append(label).append(static_cast<const char*>(buf), len);
}

}  // extern "C"

// The logging convention: the one place that knows the two line formats.
//
// A source file that logs defines its tag, `constexpr char kTag[] = "NETWORK";`, and says
//
//     ZX_LOG(error, "%s failed : %d", name, code);
//
// `body` is a literal and becomes part of the format, so the compiler checks its placeholders.
// Arguments may be evaluated twice: no side effects in them.
#pragma once

#include <unistd.h>

#include <cstdarg>
#include <cstdint>

#include "shared/line_buffer.hpp"
#include "shared/line_writer.hpp"
#include "shared/write_once.hpp"
#include "zxlog.h"

namespace zx {

enum class Level : std::uint32_t { error = 1, warning, notice, info, debug };

// True when a message of this level and tag is to be written.
[[nodiscard]] inline bool log_wanted(Level level, const char* tag) {
    return zxlog_api_getLoglevel() >= static_cast<std::uint32_t>(level) &&
           zxlog_api_strCasestrNum(strfilterTags, tag, 1, 1) == 0;
}

[[nodiscard]] inline const char* level_name(Level level) {
    return strLoglevel_simple[static_cast<std::uint32_t>(level)];
}

// The flags may be changed while other threads log.
[[nodiscard]] inline bool is_set(const std::int8_t& flag) {
    return __atomic_load_n(&flag, __ATOMIC_RELAXED) != 0;
}

// The place in an exported function that a helper speaks for. As a helper's last parameter,
// `Caller caller = {}`, it is the function that calls the helper, and the line of that call. Inside
// a lambda the function would be the lambda: hand the caller in.
struct Caller {
    constexpr Caller(const char* from = __builtin_FUNCTION(), int at = __builtin_LINE())
        : func(from), line(at) {}

    const char* func;
    int line;
};

inline constinit LineWriter g_echo{zxlog_innerapi_logTime, &strLoglevel_simple[2]};

// One line to standard output, in one write: stdio's lock would not be safe in a signal handler.
[[gnu::cold, gnu::noinline, gnu::format(printf, 1, 2)]] inline void echo(const char* fmt, ...) {
    const ErrnoKept errno_kept;
    LineBuffer line;
    std::va_list args;
    va_start(args, fmt);
    line.format(fmt, args);
    va_end(args);
    g_echo.write(line.data(), line.size(), [](const char* text, std::size_t size) {
        return write_once(STDOUT_FILENO, text, size, true);
    });
}

}  // namespace zx

#define ZX_COLOUR_error   "\033[1;31m"
#define ZX_COLOUR_warning "\033[1;33m"
#define ZX_COLOUR_notice  "\033[1;36m"
#define ZX_COLOUR_info    "\033[0m"
#define ZX_COLOUR_debug   "\033[0;32m"

#define ZX_LOG(level, body, ...) \
    ZX_LOG_AT(::zx::Caller(__func__, __LINE__), level, body __VA_OPT__(, ) __VA_ARGS__)

// The same for a helper that speaks for `caller`, a zx::Caller.
#define ZX_LOG_AT(caller, level, body, ...)                            \
    do {                                                               \
        if (::zx::log_wanted(::zx::Level::level, kTag)) [[unlikely]] { \
            if (::zx::is_set(flag_printLineFunc)) {                    \
                ZX_LOG_LINE(level, "[%s %d]" body, (caller).func,      \
                            (caller).line __VA_OPT__(, ) __VA_ARGS__); \
            } else {                                                   \
                ZX_LOG_LINE(level, body __VA_OPT__(, ) __VA_ARGS__);   \
            }                                                          \
        }                                                              \
    } while (0)

// One line to the log file and, when it is switched on, its coloured echo.
#define ZX_LOG_LINE(level, rest, ...)                                                  \
    do {                                                                               \
        zxlog_innerapi_file("%s[%s][%s]" rest "\r\n", zxlog_innerapi_logTime(),        \
                            ::zx::level_name(::zx::Level::level),                      \
                            kTag __VA_OPT__(, ) __VA_ARGS__);                          \
        if (::zx::is_set(flag_stdPrint)) {                                             \
            ::zx::echo(ZX_COLOUR_##level " %s[%s][%s]" rest "\033[0m\r\n",             \
                       zxlog_innerapi_logTime(), ::zx::level_name(::zx::Level::level), \
                       kTag __VA_OPT__(, ) __VA_ARGS__);                               \
        }                                                                              \
    } while (0)

// The bodies that all modules share.
#define ZX_LOG_PARAM(name)  ZX_LOG(error, "Param error####%s", name)
#define ZX_LOG_MALLOC(what) ZX_LOG(error, "Malloc %s failed,please check the memory", what)

#define ZX_LOG_CUT(capacity, needed, text) \
    ZX_LOG_CUT_AT(::zx::Caller(__func__, __LINE__), capacity, needed, text)

#define ZX_LOG_CUT_AT(caller, capacity, needed, text)                                   \
    ZX_LOG_AT(caller, warning, "There is a bug that buf1 (%lu < %lu)(%s),please fix!!", \
              static_cast<unsigned long>(capacity), static_cast<unsigned long>(needed), text)

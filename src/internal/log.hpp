// How this library logs. Only this file knows the two formats of a line.
//
// A source file that logs has a tag, `constexpr char kTag[] = "NETWORK";`, of its own or from a
// header of its module, and writes
//
//     ZX_LOG(error, "%s failed : %d", name, code);
//
// `body` is a literal and becomes part of the format, so the compiler checks its placeholders. The
// arguments may be evaluated twice, so they must have no side effects.
#pragma once

#include <unistd.h>

#include <cstdarg>
#include <cstdint>

#include "shared/line_buffer.hpp"
#include "shared/line_writer.hpp"
#include "shared/write_once.hpp"
#include "zxdiag.h"
#include "zxlog.h"

namespace zx {

enum class Level : std::uint32_t { error = 1, warning, notice, info, debug };

[[nodiscard]] inline const char* level_name(Level level) {
    return strLoglevel_simple[static_cast<std::uint32_t>(level)];
}

// Other threads may change the flags at any time.
[[nodiscard]] inline bool is_set(const std::int8_t& flag) {
    return __atomic_load_n(&flag, __ATOMIC_RELAXED) != 0;
}

// False: nobody wants a message of this level.
[[nodiscard]] inline bool may_be_wanted(Level level) {
    if (zxlog_api_getLoglevel() >= static_cast<std::uint32_t>(level)) [[unlikely]] {
        return true;
    }
    return is_set(zxdiag_log_isOn);
}

// True when the log gets a message of this level and tag.
[[nodiscard]] inline bool is_written(Level level, const char* tag) {
    return zxlog_api_getLoglevel() >= static_cast<std::uint32_t>(level) &&
           zxlog_api_strCasestrNum(strfilterTags, tag, 1, 1) == 0;
}

// Where a message goes, and its first field. It goes to the log, or to memory if the diagnosis is
// on and the log suppresses it. NULL: nowhere.
struct LineStart {
    void (*put)(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    const char* time;
};

// Not inlined: few messages get here.
[[nodiscard, gnu::noinline]] inline LineStart line_start(Level level, const char* tag) {
    if (is_written(level, tag)) {
        return {zxlog_innerapi_file, zxlog_innerapi_logTime()};
    }
    if (is_set(zxdiag_log_isOn)) {
        return {zxdiag_log_keep, zxlog_innerapi_logTime()};
    }
    return {nullptr, nullptr};
}

// The place in an exported function that a helper speaks for. A helper has it as its last
// parameter, `Caller caller = {}`: that is the function that calls the helper, and the line of the
// call. In a lambda, hand the caller in, because the default would name the lambda.
struct Caller {
    constexpr Caller(const char* from = __builtin_FUNCTION(), int at = __builtin_LINE())
        : func(from), line(at) {}

    const char* func;
    int line;
};

inline constinit LineWriter g_echo{zxlog_innerapi_logTime, &strLoglevel_simple[2]};

// Writes one line to standard output with one write. stdio takes a lock, which is not safe in a
// signal handler.
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
#define ZX_LOG_AT(caller, level, body, ...)                                              \
    do {                                                                                 \
        if (!::zx::may_be_wanted(::zx::Level::level)) [[likely]] {                       \
            break;                                                                       \
        }                                                                                \
        if (const ::zx::LineStart zx_start = ::zx::line_start(::zx::Level::level, kTag); \
            zx_start.put != nullptr) {                                                   \
            if (::zx::is_set(flag_printLineFunc)) {                                      \
                ZX_LOG_LINE(zx_start, level, "[%s %d]" body, (caller).func,              \
                            (caller).line __VA_OPT__(, ) __VA_ARGS__);                   \
            } else {                                                                     \
                ZX_LOG_LINE(zx_start, level, body __VA_OPT__(, ) __VA_ARGS__);           \
            }                                                                            \
        }                                                                                \
    } while (0)

// Puts one line where it goes. What the log gets, standard output also gets in colour when the echo
// is switched on.
#define ZX_LOG_LINE(start, level, rest, ...)                                                      \
    do {                                                                                          \
        (start).put("%s[%s][%s]" rest "\r\n", (start).time, ::zx::level_name(::zx::Level::level), \
                    kTag __VA_OPT__(, ) __VA_ARGS__);                                             \
        if (::zx::is_set(flag_stdPrint) && ::zx::is_written(::zx::Level::level, kTag)) {          \
            ::zx::echo(ZX_COLOUR_##level " %s[%s][%s]" rest "\033[0m\r\n",                        \
                       zxlog_innerapi_logTime(), ::zx::level_name(::zx::Level::level),            \
                       kTag __VA_OPT__(, ) __VA_ARGS__);                                          \
        }                                                                                         \
    } while (0)

// Messages that all modules share. For arguments see internal/args.hpp.
#define ZX_LOG_MALLOC(what) ZX_LOG_MALLOC_AT(::zx::Caller(__func__, __LINE__), what)

#define ZX_LOG_MALLOC_AT(caller, what) \
    ZX_LOG_AT(caller, error, "Malloc %s failed,please check the memory", what)

#define ZX_LOG_CUT(capacity, needed, text) \
    ZX_LOG_CUT_AT(::zx::Caller(__func__, __LINE__), capacity, needed, text)

#define ZX_LOG_CUT_AT(caller, capacity, needed, text)                                   \
    ZX_LOG_AT(caller, warning, "There is a bug that buf1 (%lu < %lu)(%s),please fix!!", \
              static_cast<unsigned long>(capacity), static_cast<unsigned long>(needed), text)

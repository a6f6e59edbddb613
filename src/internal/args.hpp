// Arguments that must not be NULL.
//
//     if (!ZX_ARE_GIVEN({list, "list"}, {out, "out"})) {
//         return -1;
//     }
#pragma once

#include <cstddef>
#include <utility>

#include "internal/log.hpp"

namespace zx {

// The beginnings of the message about an argument that is missing or wrong. Each function has one
// of them as a part of its interface.
inline constexpr char kParamError[] = "Param error####";
inline constexpr char kParamError3[] = "Param error###";
inline constexpr char kErrorParam[] = "Error param ###";

struct Argument {
    template <typename T>
    constexpr Argument(T* value, const char* called, const char* words = kParamError)
        : is_given(value != nullptr), name(called), complaint(words) {}

    bool is_given;
    const char* name;
    const char* complaint;
};

// The third parameter has the name that ZX_LOG_AT() expects.
[[gnu::cold, gnu::noinline]] inline void log_argument(const char* complaint, const char* name,
                                                      const char* kTag, Caller caller) {
    ZX_LOG_AT(caller, error, "%s%s", complaint, name);
}

// True when the argument is given. Otherwise logs that it is missing.
[[nodiscard]] inline bool is_given(const Argument& argument, const char* tag, Caller caller) {
    if (!argument.is_given) [[unlikely]] {
        log_argument(argument.complaint, argument.name, tag, caller);
        return false;
    }
    return true;
}

// True when all are given. Otherwise logs the first one that is missing. This is no loop, because a
// loop would make the compiler write the whole list to memory first.
template <std::size_t N>
[[nodiscard]] bool are_given(const Argument (&arguments)[N], const char* tag, Caller caller) {
    return [&]<std::size_t... kPlaces>(std::index_sequence<kPlaces...>) {
        return (is_given(arguments[kPlaces], tag, caller) && ...);
    }
    (std::make_index_sequence<N>());
}

}  // namespace zx

// For arguments of the function that it stands in. A helper that speaks for its caller calls
// are_given() with the zx::Caller.
#define ZX_ARE_GIVEN(...) ::zx::are_given({__VA_ARGS__}, kTag, ::zx::Caller(__func__, __LINE__))

// Logs that an argument is given but wrong.
#define ZX_LOG_PARAM(name) ZX_LOG_PARAM_AT(::zx::Caller(__func__, __LINE__), name)

#define ZX_LOG_PARAM_AT(caller, name) ::zx::log_argument(::zx::kParamError, name, kTag, caller)

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

// How the message of a missing argument begins. Which of them a function has is a part of its
// interface.
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

// Its third parameter has the name that the line of the log asks for.
[[gnu::cold, gnu::noinline]] inline void log_missing(const char* complaint, const char* name,
                                                     const char* kTag, Caller caller) {
    ZX_LOG_AT(caller, error, "%s%s", complaint, name);
}

// True when it is there; otherwise that it is missing was logged.
[[nodiscard]] inline bool is_given(const Argument& argument, const char* tag, Caller caller) {
    if (!argument.is_given) [[unlikely]] {
        log_missing(argument.complaint, argument.name, tag, caller);
        return false;
    }
    return true;
}

// True when all are there; otherwise the first one that is missing was logged. In a loop the
// compiler would write the whole list to memory first.
template <std::size_t N>
[[nodiscard]] bool are_given(const Argument (&arguments)[N], const char* tag, Caller caller) {
    return [&]<std::size_t... kPlaces>(std::index_sequence<kPlaces...>) {
        return (is_given(arguments[kPlaces], tag, caller) && ...);
    }
    (std::make_index_sequence<N>());
}

}  // namespace zx

// For the function that it stands in. A helper that speaks for its caller hands that to
// are_given().
#define ZX_ARE_GIVEN(...) ::zx::are_given({__VA_ARGS__}, kTag, ::zx::Caller(__func__, __LINE__))

// Arguments that must not be NULL.
//
//     if (!ZX_ARE_GIVEN({list, "list"}, {out, "out"})) {
//         return -1;
//     }
#pragma once

#include <initializer_list>

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

// True when all are there; otherwise the first one that is missing was logged.
[[nodiscard]] inline bool are_given(std::initializer_list<Argument> arguments, const char* tag,
                                    Caller caller) {
    for (const Argument& argument : arguments) {
        if (!argument.is_given) [[unlikely]] {
            log_missing(argument.complaint, argument.name, tag, caller);
            return false;
        }
    }
    return true;
}

}  // namespace zx

// For the function that it stands in. A helper that speaks for its caller hands that to
// are_given().
#define ZX_ARE_GIVEN(...) ::zx::are_given({__VA_ARGS__}, kTag, ::zx::Caller(__func__, __LINE__))

// What the engine says.
#pragma once

#include "internal/log.hpp"
#include "zxframe.h"

inline constexpr char kTag[] = "NETFRAME";

namespace zx::frame {

[[gnu::cold, gnu::noinline]] inline void refuse(const char* func, const char* name) {
    ZX_LOG_FROM(func, error, "Param error####%s", name);
}

struct Argument {
    const void* pointer;
    const char* name;  // in messages
};

// True when the record and the other arguments are there; the first that is not is logged.
template <typename... Others>
[[nodiscard]] bool has_all(const char* func, const ether_ctt* record, Others... others) {
    const auto is_there = [func](const Argument& argument) {
        if (argument.pointer == nullptr) [[unlikely]] {
            refuse(func, argument.name);
            return false;
        }
        return true;
    };
    return is_there({record, "pether_ctt"}) && (is_there(others) && ...);
}

}  // namespace zx::frame

// One line of a field dump, which a record's print flag allows.
#define ZX_DUMP(print_flag, body, ...)                     \
    do {                                                   \
        if ((print_flag) != 0) [[unlikely]] {              \
            ZX_LOG(info, body __VA_OPT__(, ) __VA_ARGS__); \
        }                                                  \
    } while (0)

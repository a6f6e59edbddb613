// What the engine says.
#pragma once

#include "internal/log.hpp"
#include "zxframe.h"

inline constexpr char kTag[] = "NETFRAME";

namespace zx::frame {

[[gnu::cold, gnu::noinline]] inline void refuse(const char* func, const char* name) {
    ZX_LOG_FROM(func, error, "Param error####%s", name);
}

// True when the record and a second argument are there.
[[nodiscard]] inline bool has_both(const char* func, const ether_ctt* record, const void* second,
                                   const char* second_name) {
    if (record != nullptr && second != nullptr) [[likely]] {
        return true;
    }
    refuse(func, record == nullptr ? "pether_ctt" : second_name);
    return false;
}

}  // namespace zx::frame

// One line of a field dump, which a record's print flag allows.
#define ZX_DUMP(print_flag, body, ...)                  \
    do {                                                \
        if ((print_flag) != 0) [[unlikely]] {           \
            ZX_LOG(info, body __VA_OPT__(, ) __VA_ARGS__); \
        }                                               \
    } while (0)

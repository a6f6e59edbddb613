// What the engine says.
#pragma once

#include "internal/log.hpp"
#include "zxframe.h"

inline constexpr char kTag[] = "NETFRAME";

namespace zx::frame {

[[gnu::cold, gnu::noinline]] inline void refuse(const char* name, zx::Caller caller = {}) {
    ZX_LOG_AT(caller, error, "Param error####%s", name);
}

struct Argument {
    const void* pointer;
    const char* name;  // in messages
};

// The record of an exported function, and the place in it that asks.
struct Record {
    Record(const ether_ctt* given, Caller asking = {})  // NOLINT(google-explicit-constructor)
        : pointer(given), caller(asking) {}

    const ether_ctt* pointer;
    Caller caller;
};

// True when the record and the other arguments are there; the first that is not is logged.
template <typename... Others>
[[nodiscard]] bool has_all(Record record, Others... others) {
    const auto is_there = [&record](const Argument& argument) {
        if (argument.pointer == nullptr) [[unlikely]] {
            refuse(argument.name, record.caller);
            return false;
        }
        return true;
    };
    return is_there({record.pointer, "pether_ctt"}) && (is_there(others) && ...);
}

}  // namespace zx::frame

// One line of a field dump, which a record's print flag allows.
#define ZX_DUMP(print_flag, body, ...)                     \
    do {                                                   \
        if ((print_flag) != 0) [[unlikely]] {              \
            ZX_LOG(info, body __VA_OPT__(, ) __VA_ARGS__); \
        }                                                  \
    } while (0)

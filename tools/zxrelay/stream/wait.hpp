// How long to wait in epoll.
#pragma once

#include <cstdint>

namespace relay {

// The milliseconds from `now_us` until `due_us`, rounded up; -1, no limit, for UINT64_MAX.
inline int wait_until(std::uint64_t due_us, std::uint64_t now_us) {
    if (due_us == UINT64_MAX) {
        return -1;
    }
    return due_us > now_us ? static_cast<int>((due_us - now_us + 999) / 1000) : 0;
}

}  // namespace relay

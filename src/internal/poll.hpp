// Helpers for waits that check, sleep and check again.
#pragma once

#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdint>
#include <ctime>

#include "shared/units.hpp"

namespace zx {

// How often a wait may sleep. The type is wider than the arguments, so counting below zero works.
[[nodiscard]] constexpr std::int64_t step_count(std::uint32_t timeout_ms, std::uint32_t step_ms) {
    return step_ms == 0 ? 0 : timeout_ms / step_ms;
}

// Sleeps the whole time, even when signals arrive.
inline void sleep_ms(std::uint32_t ms) {
    timespec left{};
    left.tv_sec = ms / 1000;
    left.tv_nsec = static_cast<long>(ms % 1000) * 1000000;
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

// Microseconds of a clock that changes of the system's time do not affect.
[[nodiscard]] inline std::int64_t steady_us() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * std::int64_t{kUsPerSec} + now.tv_nsec / 1000;
}

[[nodiscard]] constexpr std::int64_t us_of(const timeval& time) {
    return time.tv_sec * std::int64_t{kUsPerSec} + time.tv_usec;
}

// Repeats a call on a socket that a handled signal interrupts, and returns its result. `option` is
// SO_RCVTIMEO or SO_SNDTIMEO. The socket's own timeout begins again with each call; here it counts
// from the first interruption.
template <typename Call>
auto uninterrupted(int fd, int option, const Call& call) {
    auto result = call();
    for (std::int64_t end = -1; result < 0 && errno == EINTR; result = call()) {
        if (end < 0) {
            timeval timeout{};
            socklen_t size = sizeof timeout;
            getsockopt(fd, SOL_SOCKET, option, &timeout, &size);
            const std::int64_t us = us_of(timeout);
            end = us > 0 ? steady_us() + us : INT64_MAX;
        } else if (steady_us() >= end) {
            errno = EAGAIN;
            break;
        }
    }
    return result;
}

}  // namespace zx

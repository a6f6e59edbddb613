// What waits that look, sleep and look again have in common.
#pragma once

#include <cerrno>
#include <cstdint>
#include <ctime>

namespace zx {

// How often a wait may sleep. Wider than the arguments, so that counting below zero always works.
[[nodiscard]] constexpr std::int64_t step_count(std::uint32_t timeout_ms, std::uint32_t step_ms) {
    return step_ms == 0 ? 0 : timeout_ms / step_ms;
}

// Sleeps the whole time, also when signals come in between.
inline void sleep_ms(std::uint32_t ms) {
    timespec left{};
    left.tv_sec = ms / 1000;
    left.tv_nsec = static_cast<long>(ms % 1000) * 1000000;
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

// What a system call gives when the signals that a handler takes in between are no end of it.
template <typename Call>
auto uninterrupted(const Call& call) {
    decltype(call()) result{};
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

}  // namespace zx

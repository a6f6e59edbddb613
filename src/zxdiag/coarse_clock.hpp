// A clock that costs one load.
#pragma once

#include <atomic>
#include <cstdint>

namespace zx::diag {

inline constexpr std::uint32_t kTickMs = 10;

// steady_us() as it was at the last tick. On a line of its own: every taking of a lock reads it.
struct alignas(64) CoarseClock {
    std::atomic<std::int64_t> us{0};
};
extern CoarseClock g_coarse_clock;

[[nodiscard]] inline std::int64_t coarse_us() {
    return g_coarse_clock.us.load(std::memory_order_relaxed);
}

// Starts and ends the thread that sets the clock. Only one call at a time. Without the thread, all
// times of this clock are equal. False: there can be no thread.
bool start_coarse_clock();
void stop_coarse_clock();  // takes a tick at most

void forget_coarse_clock();  // in the child of a fork, which does not have the thread

}  // namespace zx::diag

// What the other modules tell the diagnosis. While it is off, each hook costs one load and one
// branch that is not taken. The functions behind the hooks are in the files of their topics.
#pragma once

#include <atomic>
#include <cstdint>

#include "zxlock.h"

namespace zx::diag {

// What is switched on. 0: nothing.
inline constexpr std::uint32_t kCounting = 1;
inline constexpr std::uint32_t kTracing = 2;
extern std::atomic<std::uint32_t> g_mode;

[[nodiscard]] inline bool is_on() {
    return g_mode.load(std::memory_order_relaxed) != 0;
}
[[nodiscard]] inline bool is_tracing() {
    return (g_mode.load(std::memory_order_relaxed) & kTracing) != 0;
}

// Starts the diagnosis if the environment asks for it. Called when a lock, a thread or a FIFO is
// made; never before main().
extern std::atomic<bool> g_is_environment_read;
void read_environment();
inline void something_is_made() {
    if (!g_is_environment_read.load(std::memory_order_relaxed)) [[unlikely]] {
        read_environment();
    }
}

// Locks. `func` is only valid during the call.
void lock_made(const zxlock_ctt& lock);
void lock_gone(const zxlock_ctt& lock);
void take_mutex(zxlock_ctt& lock, const char* func, int line);  // waits for it, and takes it
void mutex_given_back(zxlock_ctt& lock);                        // just before it is unlocked

// Signals. From now on the lines in memory are written to the log when a signal ends the program
// because of a fault, or when it aborts. Signals that the program handles or ignores are left
// alone. Called at the start, and when the program has set its signals.
void handle_crashes();

}  // namespace zx::diag

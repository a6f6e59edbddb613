// What the other modules tell the diagnosis. While it is off, each hook costs one load and one
// branch that is not taken. The functions behind the hooks are in the files of their topics.
#pragma once

#include <atomic>
#include <cstdint>

#include "zxlock.h"

struct zxfifoblock_ctt;
struct zxsharelist_ctt;
struct zxthread_ctt;

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

// How often counting has begun. Since the first time, what goes must be forgotten even while
// nothing is counted: another record may come to the same address.
extern std::atomic<std::uint32_t> g_epoch;
[[nodiscard]] inline bool was_on() {
    return g_epoch.load(std::memory_order_relaxed) != 0;
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

// Block FIFOs. The caller holds the lock of the FIFO, or is the only one who knows it.
void fifo_seen(const zxfifoblock_ctt& fifo);  // counts what was moved since the last call
void fifo_reset(const zxfifoblock_ctt& fifo);
void fifo_gone(const zxfifoblock_ctt& fifo);

// Shared lists, in the thread that may change them.
void list_changed(const zxsharelist_ctt& list, std::uint32_t dropped);
void list_gone(const zxsharelist_ctt& list);

// Threads. The caller holds the mutex of the record, or nobody else uses the record.
void thread_state(const zxthread_ctt& thread);
void thread_gone(const zxthread_ctt& thread);

}  // namespace zx::diag

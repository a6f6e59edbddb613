// What the other modules tell the diagnosis, except when locks are taken. While it is off, each
// hook costs one load and one branch that is not taken. The functions behind the hooks are in the
// files of their topics.
#pragma once

#include <atomic>
#include <cstdint>

#include "zxlock.h"
#include "zxmem.h"

struct zxfifoblock_ctt;
struct zxsharelist_ctt;
struct zxthread_ctt;

namespace zx::diag {

// What is switched on. 0: nothing. Relaxed order does for the hooks: what they use is there from
// the start of the program, so they may see the change a moment late.
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

// In the child of a fork that the library has made: it goes on as its parent did.
inline void child_begins() {
    if (was_on()) {
        something_is_made();
    }
}

// Locks; what they cost most is in lock_hooks.hpp. These are also called while the diagnosis is
// off.
void lock_made(const zxlock_ctt& lock);
void lock_gone(const zxlock_ctt& lock);

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
// Memory. What the diagnosis keeps with each tracked buffer. All zeros at first. These functions
// are called under the lock of the allocator, which guards the traces, too.
struct BufferTrace {
    BufferTrace* older;  // of the same place
    BufferTrace* younger;
    std::uint32_t made_s;  // by CLOCK_MONOTONIC; the allocator sets it
    std::uint16_t place;   // 0: not counted
    std::uint16_t round;   // in which the links were made
};
// `name` is as the caller gave it.
void buffer_made(BufferTrace& trace, const memnode_ctt& record, const char* name);
void buffer_gone(BufferTrace& trace, std::uint32_t size);  // only for a buffer that is counted

// For buffers that may have been made while nothing was counted. A round begins, all buffers are
// found, from the youngest to the oldest, and the round is complete. Others may be made or go
// meanwhile.
void begin_round();
void buffer_found(BufferTrace& trace, const memnode_ctt& record);
void round_is_complete();

// A child goes on with the buffers: that this process still holds them at its end is no fault.
void child_goes_on();

// Without the lock: the allocator has a lock now, or has none from now on.
void tracking_begins();
void tracking_ends();

// Signals. From now on the lines in memory are written to the log when a signal ends the program
// because of a fault, or when it aborts. Signals that the program handles or ignores are left
// alone. Called at the start, and when the program has set its signals.
void handle_crashes();

}  // namespace zx::diag

// What is counted when a lock is taken and released. The usual case is inline: two calls would cost
// a tenth of both.
#pragma once

#include "zxdiag/coarse_clock.hpp"
#include "zxdiag/hooks.hpp"
#include "zxdiag/lock_entry.hpp"
#include "zxdiag/thread_record.hpp"

namespace zx::diag {

// The caller has the mutex.
inline void note_holder(LockEntry& entry, ThreadRecord& own) {
    add_one(entry.taken);
    entry.since_us.store(coarse_us(), std::memory_order_relaxed);
    entry.holder.store(&own, std::memory_order_release);
}

inline void note_no_holder(LockEntry& entry) {
    if (entry.holder.load(std::memory_order_relaxed) == nullptr) [[unlikely]] {
        return;  // it was taken before counting began again
    }
    entry.holder.store(nullptr, std::memory_order_relaxed);
    const std::int64_t since_us = entry.since_us.load(std::memory_order_relaxed);
    if (const std::int64_t now_us = coarse_us(); now_us != since_us) [[unlikely]] {
        keep_largest(entry.longest_hold_us, now_us - since_us);
    }
}

// The mutex was taken at once. False: the lock or the thread is not known yet, or the thread holds
// other locks, or it is traced; note_any_taken() is to be called.
[[nodiscard]] inline bool note_taken(const zxlock_ctt& lock) {
    LockEntry* const entry = g_locks.find(&lock);
    ThreadRecord* const own = t_record;
    if (entry == nullptr || own == nullptr || !t_held.is_empty() || is_tracing()) [[unlikely]] {
        return false;
    }
    note_holder(*entry, *own);
    t_held.push_first(*entry);
    return true;
}

// `func` is only valid during the call.
void note_any_taken(const zxlock_ctt& lock, const char* func, int line);

// Waits for a mutex that is taken, and takes it.
void wait_for_mutex(zxlock_ctt& lock, const char* func, int line);

void note_any_released(const zxlock_ctt& lock);

// Called just before the mutex is unlocked.
inline void note_released(const zxlock_ctt& lock) {
    if (t_held.is_only(&lock) && !is_tracing()) [[likely]] {
        note_no_holder(t_held.pop_only());
    } else {
        note_any_released(lock);
    }
}

}  // namespace zx::diag

// What the diagnosis knows about each thread that does something it counts.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "zxdiag/lock_entry.hpp"
#include "zxdiag/shared_text.hpp"

namespace zx::diag {

// The locks that a thread holds, in the order in which it took them. Only the thread itself looks
// at them. Another thread may have released one: then the lock has another holder, or none.
class HeldLocks {
public:
    [[nodiscard]] bool is_empty() const { return count_ == 0; }
    [[nodiscard]] bool is_full() const { return count_ == kMost; }
    void push(LockEntry& entry) { entries_[count_++] = &entry; }
    // The same where there is none.
    void push_first(LockEntry& entry) {
        entries_[0] = &entry;
        count_ = 1;
    }

    [[nodiscard]] bool is_only(const void* record) const {
        return count_ == 1 && is_of(entries_[0], record);
    }
    LockEntry& pop_only() {
        count_ = 0;
        return *entries_[0];
    }

    // NULL: the thread does not hold it.
    LockEntry* pop(const void* record) {
        for (std::uint32_t i = count_; i-- > 0;) {
            LockEntry* const entry = entries_[i];
            if (is_of(entry, record)) {
                erase(i);
                return entry;
            }
        }
        return nullptr;
    }

    template <typename Wrong>
    void erase_if(Wrong wrong) {
        for (std::uint32_t i = count_; i-- > 0;) {
            if (wrong(*entries_[i])) {
                erase(i);
            }
        }
    }

    void clear() { count_ = 0; }

private:
    static constexpr std::uint32_t kMost = 15;

    static bool is_of(const LockEntry* entry, const void* record) {
        return entry->record.load(std::memory_order_relaxed) == record;
    }

    void erase(std::uint32_t at) {
        for (--count_; at < count_; ++at) {
            entries_[at] = entries_[at + 1];
        }
    }

    std::uint32_t count_ = 0;
    LockEntry* entries_[kMost]{};
};

// What a thread waits for. The number is odd during a wait, and no two waits have the same.
struct LockWait {
    std::atomic<std::uint64_t> number{0};
    std::atomic<LockEntry*> lock{};
    std::atomic<std::uint32_t> serial{0};  // of the lock
    std::atomic<std::int64_t> since_us{0};
    SharedText<sizeof(PlaceText)> place;
};

// Only the thread itself writes its record. Any thread may read it at any time, except what says
// otherwise.
struct alignas(64) ThreadRecord {
    std::atomic<pid_t> tid{0};  // 0: the record is free
    LockWait wait;
};

inline constexpr std::size_t kMostThreads = 1024;
extern ThreadRecord g_thread_records[kMostThreads];

// Holds the locks of threads that have ended without releasing them.
extern ThreadRecord g_ended_thread;

// In the memory of the thread itself, because each step to them costs time between taking and
// releasing a lock.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local ThreadRecord* t_record;
[[gnu::tls_model("initial-exec")]] extern constinit thread_local HeldLocks t_held;

// Takes a record for the calling thread, which has none. NULL: all are taken.
ThreadRecord* take_thread_record();

// True: further threads are left out, with the locks that they hold and wait for.
[[nodiscard]] bool are_thread_records_full();

// The record of the calling thread. NULL: there are too many threads.
[[nodiscard]] inline ThreadRecord* own_record() {
    return t_record != nullptr ? t_record : take_thread_record();
}

// In the child of a fork, which has the calling thread alone, with another number.
void forget_thread_records();

template <typename Visit>
void for_each_thread(Visit visit) {
    for (ThreadRecord& record : g_thread_records) {
        if (record.tid.load(std::memory_order_acquire) != 0) {
            visit(record);
        }
    }
}

// The name that the system shows for a thread of this process; "" if it has ended.
struct ThreadName {
    char text[16];
};
[[nodiscard]] ThreadName thread_name(pid_t tid);

}  // namespace zx::diag

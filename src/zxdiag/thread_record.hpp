// What the diagnosis knows about each thread that does something it counts.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace zx::diag {

// Only the thread itself writes its record. Any thread may read it at any time.
struct alignas(64) ThreadRecord {
    std::atomic<pid_t> tid{0};  // 0: the record is free
};

inline constexpr std::size_t kMostThreads = 1024;
extern ThreadRecord g_thread_records[kMostThreads];

[[gnu::tls_model("initial-exec")]] extern thread_local ThreadRecord* t_record;

// Takes a record for the calling thread, which has none. NULL: all are taken.
ThreadRecord* take_thread_record();

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

}  // namespace zx::diag

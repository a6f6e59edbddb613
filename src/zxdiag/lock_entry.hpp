// What the diagnosis knows about each lock.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "zxdiag/program_memory.hpp"
#include "zxdiag/shared_text.hpp"
#include "zxdiag/side_table.hpp"
#include "zxlock.h"

namespace zx::diag {

struct ThreadRecord;

// A lock that is held or waited for stays what it is, and so does its entry.
struct alignas(64) LockEntry {
    std::atomic<const void*> record{};
    // Only the thread that holds the mutex changes these.
    std::atomic<ThreadRecord*> holder{};  // NULL: nobody, or somebody who is not known
    std::atomic<std::uint64_t> taken{};
    std::atomic<std::int64_t> since_us{};  // of the coarse clock, like the next one
    std::atomic<std::int64_t> longest_hold_us{};
    std::atomic<std::uint64_t> contended{};  // waits that are over
    std::atomic<std::int64_t> longest_wait_us{};
    std::atomic<std::uint64_t> traced_ns{};  // when a traced holder took it

    std::atomic<std::uint32_t> serial{};  // no two locks have the same; never 0
    std::atomic<bool> has_order{};        // there are pairs with this lock
    // For the search in these pairs, whose mutex guards them.
    std::uint16_t distance = 0;
    std::uint16_t reached_by = 0;
    std::uint32_t search = 0;

    SharedText<ZXLOCK_NAME_SIZE> name;
};

inline constexpr std::size_t kMostLocks = 8192;
extern SideTable<LockEntry, kMostLocks> g_locks;

// "func,line". As in the record of a lock, the name is cut when both do not fit.
struct PlaceText {
    char text[ZXLOCK_HOLDER_SIZE + 3];
};
[[nodiscard]] PlaceText place_of(const char* func, int line);

// Copies a part of the lock's record. False: the lock is gone, or that cannot be read.
[[nodiscard]] bool read_field(const LockEntry& entry, const ProgramMemory& memory,
                              std::size_t offset, void* to, std::size_t size);

// Where the holder took the lock; "gone" or "busy" if that cannot be read, "" if nobody is known to
// hold it.
[[nodiscard]] PlaceText holder_place(const LockEntry& entry, const ProgramMemory& memory);

// "f,12" as it stands in a sentence, "f:12".
[[nodiscard]] PlaceText in_sentence(const PlaceText& place);

// Adds what a relaxed counter counts that one thread at a time changes.
template <typename Number>
void add_one(std::atomic<Number>& counter) {
    counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

inline void keep_largest(std::atomic<std::int64_t>& largest, std::int64_t value) {
    if (value > largest.load(std::memory_order_relaxed)) {
        largest.store(value, std::memory_order_relaxed);
    }
}

}  // namespace zx::diag

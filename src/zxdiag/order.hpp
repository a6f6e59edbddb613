// The order in which the program takes its locks: which lock was taken while which other was held.
#pragma once

#include <cjson/cJSON.h>

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "zxdiag/lock_entry.hpp"
#include "zxdiag/thread_record.hpp"

namespace zx::diag {

// The pairs that were seen, as a set that is searched without a lock.
class SeenPairs {
public:
    [[nodiscard]] static std::uint64_t pair_of(const LockEntry& outer, const LockEntry& inner) {
        return std::uint64_t{outer.serial.load(std::memory_order_relaxed)} << 32U |
               inner.serial.load(std::memory_order_relaxed);
    }

    [[nodiscard]] bool has(std::uint64_t pair) const {
        for (std::size_t step = 0, at = slot_of(pair); step < kSteps; ++step, ++at) {
            const std::uint64_t its = pairs_[at % kSize].load(std::memory_order_relaxed);
            if (its == pair || its == 0) {
                return its == pair;
            }
        }
        return false;
    }

    // One thread at a time changes the set.
    bool add(std::uint64_t pair) {
        return replace(pair, pair, [](auto p) { return p <= kGone; });
    }
    void remove(std::uint64_t pair) {
        replace(pair, kGone, [pair](auto p) { return p == pair; });
    }
    void clear() {
        for (auto& pair : pairs_) {
            pair.store(0, std::memory_order_relaxed);
        }
    }

private:
    static constexpr std::size_t kSize = 8192;
    static constexpr std::size_t kSteps = 64;
    static constexpr std::uint64_t kGone = 1;  // a place that is free again; no pair is as small

    static std::size_t slot_of(std::uint64_t pair) {
        return (pair * 0x9E3779B97F4A7C15) >> (64U - std::countr_zero(kSize));
    }

    template <typename Fits>
    bool replace(std::uint64_t pair, std::uint64_t value, Fits fits) {
        for (std::size_t step = 0, at = slot_of(pair); step < kSteps; ++step, ++at) {
            std::atomic<std::uint64_t>& place = pairs_[at % kSize];
            if (fits(place.load(std::memory_order_relaxed))) {
                place.store(value, std::memory_order_relaxed);
                return true;
            }
        }
        return false;
    }

    std::atomic<std::uint64_t> pairs_[kSize]{};
};
extern SeenPairs g_seen_pairs;
extern std::atomic<bool> g_has_room_for_pairs;

// Called once for each pair: reports an inversion of the order.
void learn_pair(LockEntry& outer, LockEntry& inner, const char* func, int line);

// The calling thread is about to take `inner`.
inline void note_order(const ThreadRecord& own, LockEntry& inner, const char* func, int line) {
    t_held.erase_if([&](LockEntry& outer) {
        if (outer.holder.load(std::memory_order_relaxed) != &own || &outer == &inner) {
            return true;  // somebody else has released it
        }
        if (!g_seen_pairs.has(SeenPairs::pair_of(outer, inner)) &&
            g_has_room_for_pairs.load(std::memory_order_relaxed)) {
            learn_pair(outer, inner, func, line);
        }
        return false;
    });
}

// The lock is gone, and with it all its pairs.
void forget_order_of(const LockEntry& lock);

void add_inversions(cJSON* answer);

void clear_order();  // in the child of a fork

}  // namespace zx::diag

// What the diagnosis knows about the records of other modules, whose layout must not change.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "internal/mutex.hpp"

namespace zx::diag {

// A table of fixed size that finds an entry by the address of a record. Finding takes no lock and
// never waits. `Entry` needs a member `std::atomic<const void*> record{}`, which only the table
// changes, and has only members that may be read while another thread writes them.
template <typename Entry, std::size_t Size>
class SideTable {
    static_assert(std::has_single_bit(Size));

public:
    // NULL: the record is not in the table.
    [[nodiscard]] Entry* find(const void* record) {
        Entry& first = entries_[slot_of(record)];
        if (first.record.load(std::memory_order_acquire) == record) [[likely]] {
            return &first;
        }
        for (std::size_t step = 0, at = slot_of(record); step < kSteps; ++step, ++at) {
            Entry& entry = entries_[at % Size];
            const void* const its = entry.record.load(std::memory_order_acquire);
            if (its == record) {
                return &entry;
            }
            if (its == nullptr) {
                return nullptr;
            }
        }
        return nullptr;
    }

    // Finds the entry or makes a new one, which `prepare` fills before others can find it. NULL:
    // there is no room. The owner of the record must see to it that nobody removes it meanwhile.
    template <typename Prepare>
    [[nodiscard]] Entry* add(const void* record, Prepare prepare) {
        const MutexGuard guard(changes_);
        Entry* entry = find(record);
        if (entry == nullptr && (entry = room_for(record)) != nullptr) {
            prepare(*entry);
            entry->record.store(record, std::memory_order_release);
        }
        if (entry == nullptr) {
            left_out_.fetch_add(1, std::memory_order_relaxed);
        }
        return entry;
    }

    void remove(const void* record) {
        const MutexGuard guard(changes_);
        if (Entry* const entry = find(record); entry != nullptr) {
            entry->record.store(&g_gone, std::memory_order_release);
        }
    }

    // The record of an entry; NULL: it is gone.
    [[nodiscard]] static const void* record_of(const Entry& entry) {
        const void* const record = entry.record.load(std::memory_order_acquire);
        return record != &g_gone ? record : nullptr;
    }

    // How often there was no room.
    [[nodiscard]] std::uint64_t left_out() const {
        return left_out_.load(std::memory_order_relaxed);
    }

    // Takes no lock: an entry may serve another record by the time it is read.
    template <typename Visit>
    void for_each(Visit visit) {
        for (Entry& entry : entries_) {
            if (record_of(entry) != nullptr) {
                visit(entry);
            }
        }
    }

    void forget_other_threads() { changes_.forget_other_threads(); }

private:
    static constexpr std::size_t kSteps = 64;
    static inline constinit char g_gone = 0;  // the "record" of an entry that is free again

    static std::size_t slot_of(const void* record) {
        constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;
        constexpr unsigned kBits = std::countr_zero(Size);
        return (reinterpret_cast<std::uintptr_t>(record) * kSpread) >> (64U - kBits);
    }

    Entry* room_for(const void* record) ZX_REQUIRES(changes_) {
        for (std::size_t step = 0, at = slot_of(record); step < kSteps; ++step, ++at) {
            Entry& entry = entries_[at % Size];
            const void* const its = entry.record.load(std::memory_order_relaxed);
            if (its == nullptr || its == &g_gone) {
                return &entry;
            }
        }
        return nullptr;
    }

    Entry entries_[Size]{};
    Mutex changes_;
    std::atomic<std::uint64_t> left_out_{0};
};

}  // namespace zx::diag

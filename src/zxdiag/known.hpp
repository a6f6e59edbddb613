// The records of one kind that the diagnosis knows, from their first use while it counts.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "zxdiag/side_table.hpp"

namespace zx::diag {

// The records that found no room in a full table, so that their next use does not look for it
// again. Two of them may share a mark.
class LeftOut {
public:
    [[nodiscard]] bool has(const void* record) const {
        return (words_[word_of(record)].load(std::memory_order_relaxed) & bit_of(record)) != 0;
    }
    void add(const void* record) {
        words_[word_of(record)].fetch_or(bit_of(record), std::memory_order_relaxed);
        is_any_.store(true, std::memory_order_relaxed);
    }
    // There may be room again.
    void forget_all() {
        if (is_any_.load(std::memory_order_relaxed)) {
            is_any_.store(false, std::memory_order_relaxed);
            for (std::atomic<std::uint64_t>& word : words_) {
                word.store(0, std::memory_order_relaxed);
            }
        }
    }
    [[nodiscard]] int count() const {
        int count = 0;
        for (const std::atomic<std::uint64_t>& word : words_) {
            count += std::popcount(word.load(std::memory_order_relaxed));
        }
        return count;
    }

private:
    static constexpr unsigned kBitsOfWords = 7;

    static std::uint64_t spread(const void* record) {
        return reinterpret_cast<std::uintptr_t>(record) * 0x9E3779B97F4A7C15;
    }
    static std::size_t word_of(const void* record) { return spread(record) >> (64 - kBitsOfWords); }
    static std::uint64_t bit_of(const void* record) {
        return std::uint64_t{1} << (spread(record) >> (64 - kBitsOfWords - 6) & 63U);
    }

    std::atomic<std::uint64_t> words_[1U << kBitsOfWords]{};
    std::atomic<bool> is_any_{false};
};

// `Entry` is that of a SideTable, with a member `std::atomic<std::uint64_t> id{}`: the number of
// this use of the entry, or 0 while it is prepared for another use. Threads find what they know
// without a lock. They take the table's lock when a record is new, or goes.
//
// What was read of an entry belongs together if the id was not 0 before and is the same after. For
// this, the id is first read with acquire order. The other members are stored with release order
// and read with acquire order. So whoever sees a later value also sees the id change.
template <typename Entry, std::size_t Size>
class Known {
public:
    // NULL: there is no room. `prepare` sets all members of a new entry but `record` and `id`.
    // Nobody may let the record go meanwhile.
    template <typename Prepare>
    [[nodiscard]] Entry* entry_of(const void* record, Prepare prepare) {
        Entry* const entry = table_.find(record);
        return entry != nullptr ? entry : meet(record, prepare);
    }

    void forget(const void* record) {
        table_.remove(record);
        left_out_.forget_all();
    }

    // For the child of a fork.
    void forget_all() {
        for_each([this](const Entry& entry) { forget(entry.record.load()); });
    }

    // Calls `visit` with each entry. Meanwhile the entry may begin to serve another record: it does
    // if its id is 0 or has changed.
    template <typename Visit>
    void for_each(Visit visit) {
        table_.for_each(visit);
    }

    // How many found no room since there was some.
    [[nodiscard]] int left_out() const { return left_out_.count(); }

    void forget_other_threads() { table_.forget_other_threads(); }

private:
    template <typename Prepare>
    [[gnu::noinline]] Entry* meet(const void* record, Prepare prepare) {
        if (left_out_.has(record)) {
            return nullptr;
        }
        Entry* const entry = table_.add(record, [&](Entry& fresh) {
            fresh.id.store(0, std::memory_order_relaxed);
            prepare(fresh);
            fresh.id.store(last_id_.fetch_add(1, std::memory_order_relaxed) + 1,
                           std::memory_order_release);
        });
        if (entry == nullptr) {
            left_out_.add(record);
        }
        return entry;
    }

    SideTable<Entry, Size> table_;
    LeftOut left_out_;
    std::atomic<std::uint64_t> last_id_{0};
};

// For a number that one thread at a time changes, and others read.
template <typename Number>
void add_to(std::atomic<Number>& number, Number more) {
    number.store(number.load(std::memory_order_relaxed) + more, std::memory_order_release);
}

}  // namespace zx::diag

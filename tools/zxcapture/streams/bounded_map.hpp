// A table of at most so many entries. When it is full, a new entry takes the place of the one that
// was not used for the longest time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <random>
#include <utility>
#include <vector>

namespace capture {

// Keys are words: they are made from what strangers send, so the places in the table depend on a
// random number, too.
template <std::size_t kWords, typename Value>
class BoundedMap {
public:
    using Key = std::array<std::uint64_t, kWords>;

    struct Entry {
        Key key{};
        Value value{};

    private:
        friend BoundedMap;
        Entry* next = nullptr;   // with the same place
        Entry* newer = nullptr;  // used after this one
        Entry* older = nullptr;
    };

    explicit BoundedMap(std::size_t most) : most_(most), places_(place_count(most)) {}

    // The entry, which is the newest from now on. NULL: there is none.
    [[nodiscard]] Entry* find(const Key& key) {
        for (Entry* entry = place_of(key); entry != nullptr; entry = entry->next) {
            if (entry->key == key) {
                touch(*entry);
                return entry;
            }
        }
        return nullptr;
    }

    // Makes the entry of a key that has none. `drop` gets an entry that is given up for it.
    template <typename Drop>
    Entry& make(const Key& key, const Drop& drop) {
        Entry* entry = nullptr;
        if (entries_.size() < most_) {
            entry = &entries_.emplace_back();
        } else {
            entry = oldest_;
            drop(*entry);
            ++given_up_;
            remove(*entry);
            entry->value = Value{};
        }
        entry->key = key;
        Entry*& place = place_of(key);
        entry->next = std::exchange(place, entry);
        put_first(*entry);
        return *entry;
    }
    Entry& make(const Key& key) {
        return make(key, [](const Entry&) {});
    }

    // In the order in which they were made, as long as none was given up.
    [[nodiscard]] const std::deque<Entry>& entries() const { return entries_; }
    [[nodiscard]] std::deque<Entry>& entries() { return entries_; }

    [[nodiscard]] std::uint64_t given_up() const { return given_up_; }

private:
    static std::size_t place_count(std::size_t most) {
        std::size_t count = 1;
        while (count < 2 * most) {
            count *= 2;
        }
        return count;
    }

    // Each bit changes all others: the last step of SplitMix64.
    static std::uint64_t mix(std::uint64_t word) {
        word = (word ^ word >> 30U) * 0xBF58476D1CE4E5B9U;
        word = (word ^ word >> 27U) * 0x94D049BB133111EBU;
        return word ^ word >> 31U;
    }

    Entry*& place_of(const Key& key) {
        std::uint64_t mixed = seed_;
        for (const std::uint64_t word : key) {
            mixed = mix(mixed ^ word);
        }
        return places_[mixed & (places_.size() - 1)];
    }

    void touch(Entry& entry) {
        if (&entry != newest_) {
            take_out(entry);
            put_first(entry);
        }
    }

    void put_first(Entry& entry) {
        entry.newer = nullptr;
        entry.older = newest_;
        (newest_ != nullptr ? newest_->newer : oldest_) = &entry;
        newest_ = &entry;
    }

    void take_out(Entry& entry) {
        (entry.newer != nullptr ? entry.newer->older : newest_) = entry.older;
        (entry.older != nullptr ? entry.older->newer : oldest_) = entry.newer;
    }

    void remove(Entry& entry) {
        Entry** at = &place_of(entry.key);
        while (*at != &entry) {
            at = &(*at)->next;
        }
        *at = entry.next;
        take_out(entry);
    }

    const std::size_t most_;
    const std::uint64_t seed_ =
        std::uint64_t{std::random_device{}()} << 32U | std::random_device{}();
    std::vector<Entry*> places_;
    std::deque<Entry> entries_;
    Entry* newest_ = nullptr;
    Entry* oldest_ = nullptr;
    std::uint64_t given_up_ = 0;
};

}  // namespace capture

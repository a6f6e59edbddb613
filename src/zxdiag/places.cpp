// Counting the tracked buffers. All of this runs under the lock of the allocator, in the threads of
// the program, so each step is short, however many buffers there are.
#include "zxdiag/places.hpp"

#include <atomic>
#include <cstring>

#include "zxdiag/memory.hpp"

namespace zx::diag {

constinit Place g_places[kMostPlaces];
std::atomic<std::size_t> g_place_end{kFirstPlace};
std::atomic<bool> g_is_round_complete{false};

namespace {

constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;
constexpr unsigned kIndexBits = 12;
constinit std::uint16_t g_index[std::size_t{1} << kIndexBits];  // the first place of each chain
constinit std::uint64_t g_last_id = 0;
constinit std::size_t g_hand = kFirstPlace;  // where the search for an unused place goes on
constinit std::uint16_t g_round = 0;

// Nobody else writes meanwhile, so this need not be one step.
template <typename Number>
void add(std::atomic<Number>& to, Number number) {
    to.store(to.load(std::memory_order_relaxed) + number, std::memory_order_release);
}

// Of the name and the line: the same lines of two files are rare.
std::uint64_t hash_of(const memnode_ctt& record) {
    constexpr std::uint64_t kOther = 0xC2B2AE3D27D4EB4F;
    std::uint64_t hash = record.line;
    std::size_t at = 0;
    do {  // a name has zeros after it
        std::uint64_t words[2];
        std::memcpy(words, record.name + at, sizeof words);
        at += sizeof words;
        hash = (hash ^ words[0]) * kSpread + words[1] * kOther;
        hash ^= hash >> 32U;
    } while (at < sizeof record.name && record.name[at - 1] != '\0');
    return hash * kSpread;
}

// The part of a file's name that a place keeps.
const char* end_of(const char* file) {
    const std::size_t size = std::strlen(file);
    return size < kFileSize ? file : file + size - (kFileSize - 1);
}

[[nodiscard]] bool is_at(const Place& place, const memnode_ctt& record) {
    return place.line.load(std::memory_order_relaxed) == record.line &&
           std::memcmp(place.name_key, record.name, sizeof record.name) == 0 &&
           (std::strcmp(place.file_key, record.file) == 0 ||
            std::strcmp(place.file_key, end_of(record.file)) == 0);
}

std::uint16_t& chain_of(std::uint64_t hash) {
    return g_index[hash >> (64U - kIndexBits)];
}

void take_out_of_index(std::size_t place) {
    std::uint16_t* link = &chain_of(g_places[place].hash);
    while (*link != place) {
        link = &g_places[*link].next;
    }
    *link = g_places[place].next;
}

// Takes a place that was never used, or one without buffers among the next few. kOtherPlaces: there
// is none.
std::size_t unused_place() {
    const std::size_t end = g_place_end.load(std::memory_order_relaxed);
    if (end < kMostPlaces) {
        return end;
    }
    constexpr int kSteps = 64;
    for (int i = 0; i < kSteps; ++i) {
        const std::size_t place = g_hand;
        g_hand = g_hand + 1 < kMostPlaces ? g_hand + 1 : kFirstPlace;
        if (g_places[place].buffers.load(std::memory_order_relaxed) == 0) {
            take_out_of_index(place);
            return place;
        }
    }
    return kOtherPlaces;
}

std::size_t new_place(const memnode_ctt& record, std::uint64_t hash) {
    const std::size_t at = unused_place();
    if (at == kOtherPlaces) {
        return at;
    }
    Place& place = g_places[at];
    // Who is reading the old one notices it: everything after this is stored with release order.
    place.id.store(0, std::memory_order_relaxed);
    place.made.store(0, std::memory_order_release);
    place.line.store(record.line, std::memory_order_release);
    std::memcpy(place.name_key, record.name, sizeof record.name);
    std::strcpy(place.file_key, end_of(record.file));
    place.file_given = record.file;
    place.name.set(record.name, sizeof record.name);
    place.file.set(place.file_key);
    place.hash = hash;
    place.next = chain_of(hash);
    chain_of(hash) = static_cast<std::uint16_t>(at);
    place.id.store(++g_last_id, std::memory_order_release);
    if (at == g_place_end.load(std::memory_order_relaxed)) {
        g_place_end.store(at + 1, std::memory_order_release);
    }
    return at;
}

// Not inline: the usual way needs none of its stack.
[[gnu::noinline]] std::size_t find_place(const memnode_ctt& record) {
    const std::uint64_t hash = hash_of(record);
    for (std::size_t at = chain_of(hash); at != kNoPlace; at = g_places[at].next) {
        if (g_places[at].hash == hash && is_at(g_places[at], record)) {
            g_places[at].file_given = record.file;
            return at;
        }
    }
    return new_place(record, hash);
}

// Most names and files are literals, so the same pointers mean the same place: this saves most of
// the search. The name is compared, because the next name may be in the memory of the last one; a
// file's name stays where it is.
std::size_t place_of(const memnode_ctt& record, const char* name) {
    constexpr unsigned kBits = 8;
    static constinit std::uint16_t recent[std::size_t{1} << kBits];
    const std::uint64_t pointers = reinterpret_cast<std::uintptr_t>(name) * 3 ^
                                   reinterpret_cast<std::uintptr_t>(record.file) ^ record.line;
    std::uint16_t& at = recent[pointers * kSpread >> (64U - kBits)];
    const Place& place = g_places[at];
    if (at < kFirstPlace || place.line.load(std::memory_order_relaxed) != record.line ||
        place.file_given != record.file || std::strcmp(place.name_key, name) != 0) {
        at = static_cast<std::uint16_t>(find_place(record));
    }
    return at;
}

Place& count(BufferTrace& trace, std::size_t at, std::uint32_t size) {
    trace.place = static_cast<std::uint16_t>(at);
    Place& place = g_places[at];
    add(place.buffers, std::uint64_t{1});
    add(place.bytes, std::uint64_t{size});
    add(place.made, std::uint64_t{1});
    return place;
}

// The links of earlier rounds are not used any more, because buffers are missing in them.
void join_round(Place& place, BufferTrace& trace) {
    if (place.round != g_round) {
        place.round = g_round;
        place.oldest = place.youngest = nullptr;
    }
    trace.round = g_round;
}

void set_oldest(Place& place, BufferTrace* trace) {
    place.oldest = trace;
    if (trace != nullptr) {
        place.oldest_s.store(trace->made_s, std::memory_order_release);
    }
}

void unlink(Place& place, const BufferTrace& trace) {
    if (trace.older != nullptr) {
        trace.older->younger = trace.younger;
    } else {
        set_oldest(place, trace.younger);
    }
    (trace.younger != nullptr ? trace.younger->older : place.youngest) = trace.older;
}

}  // namespace

void buffer_made(BufferTrace& trace, const memnode_ctt& record, const char* name) {
    Place& place = count(trace, place_of(record, name), record.size);
    join_round(place, trace);
    trace.older = place.youngest;
    trace.younger = nullptr;
    if (place.youngest != nullptr) {
        place.youngest->younger = &trace;
    } else {
        set_oldest(place, &trace);
    }
    place.youngest = &trace;
}

void buffer_gone(BufferTrace& trace, std::uint32_t size) {
    Place& place = g_places[trace.place];
    add(place.buffers, ~std::uint64_t{0});
    add(place.bytes, -std::uint64_t{size});
    if (trace.round == g_round) {
        unlink(place, trace);
    }
}

void await_round() {
    g_is_round_complete.store(false, std::memory_order_relaxed);
}

void begin_round() {
    g_round = g_round == UINT16_MAX ? 1 : g_round + 1;
    await_round();
}

void buffer_found(BufferTrace& trace, const memnode_ctt& record) {
    if (trace.place != kNoPlace && trace.round == g_round) {
        return;
    }
    Place& place = trace.place != kNoPlace ? g_places[trace.place]
                                           : count(trace, find_place(record), record.size);
    join_round(place, trace);
    trace.older = nullptr;
    trace.younger = place.oldest;
    (place.oldest != nullptr ? place.oldest->older : place.youngest) = &trace;
    set_oldest(place, &trace);
}

void round_is_complete() {
    g_is_round_complete.store(true, std::memory_order_release);
}

}  // namespace zx::diag

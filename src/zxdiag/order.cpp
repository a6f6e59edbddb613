#include "zxdiag/order.hpp"

#include <pthread.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "internal/cancel.hpp"
#include "internal/log.hpp"
#include "internal/mutex.hpp"
#include "internal/poll.hpp"
#include "zxdiag/json.hpp"
#include "zxdiag/reports.hpp"

namespace zx::diag {

constinit SeenPairs g_seen_pairs;
constinit std::atomic<bool> g_has_room_for_pairs{true};

namespace {

constexpr char kTag[] = "DIAG";
constexpr std::size_t kMostPairs = 4096;
constexpr std::uint16_t kLongestWay = 7;  // of pairs that are followed to find an inversion

struct Pair {
    LockEntry* outer;
    LockEntry* inner;
};

struct PairPlaces {
    PlaceText outer;
    PlaceText inner;
};

// A pair, when its locks may be gone.
struct PairText {
    char outer[ZXLOCK_NAME_SIZE];
    char inner[ZXLOCK_NAME_SIZE];
    PairPlaces places;
};

// `pairs` lead from a lock over others back to it.
struct Inversion {
    std::int64_t at_us;
    std::size_t count;
    PairText pairs[kLongestWay + 1];
};

constinit Reports<Inversion, 64> g_inversions;

constinit Mutex g_mutex;
std::size_t g_pair_count ZX_GUARDED_BY(g_mutex) = 0;
Pair g_pairs[kMostPairs] ZX_GUARDED_BY(g_mutex);
PairPlaces g_places[kMostPairs] ZX_GUARDED_BY(g_mutex);
std::uint32_t g_search ZX_GUARDED_BY(g_mutex) = 0;

// Where the calling thread took a lock that it holds. A program with a fault may have given back
// the memory of the lock nevertheless.
PlaceText own_place(const LockEntry& entry) {
    return holder_place(entry, ProgramMemory());
}

PairText text_of(const Pair& pair, const PairPlaces& places) {
    PairText text{};
    std::memcpy(text.outer, pair.outer->name.copy().text, sizeof text.outer);
    std::memcpy(text.inner, pair.inner->name.copy().text, sizeof text.inner);
    text.places = places;
    return text;
}

// Marks what `from` leads to, nearest first, until `to` is reached. `reached_by` is the pair that
// leads to a lock.
bool is_reached(LockEntry& from, const LockEntry& to) ZX_REQUIRES(g_mutex) {
    ++g_search;
    from.search = g_search;
    from.distance = 0;
    for (std::uint16_t distance = 0; distance < kLongestWay; ++distance) {
        for (std::size_t i = 0; i < g_pair_count; ++i) {
            const LockEntry& outer = *g_pairs[i].outer;
            LockEntry& inner = *g_pairs[i].inner;
            if (outer.search == g_search && outer.distance == distance &&
                inner.search != g_search) {
                inner.search = g_search;
                inner.distance = distance + 1;
                inner.reached_by = static_cast<std::uint16_t>(i);
                if (&inner == &to) {
                    return true;
                }
            }
        }
    }
    return false;
}

// Describes the last pair and the way from its inner lock back to its outer one.
void describe_last(Inversion& inversion) ZX_REQUIRES(g_mutex) {
    inversion.at_us = steady_us();
    const Pair& last = g_pairs[g_pair_count - 1];
    inversion.pairs[0] = text_of(last, g_places[g_pair_count - 1]);
    inversion.count = last.outer->distance + std::size_t{1};
    const LockEntry* at = last.outer;
    for (std::size_t i = inversion.count; --i > 0;) {
        inversion.pairs[i] = text_of(g_pairs[at->reached_by], g_places[at->reached_by]);
        at = g_pairs[at->reached_by].outer;
    }
}

struct Sentence {
    char text[2048];
};

// "A, held at f:1, then B at f:2, but B, held at g:7, then A at g:8"
Sentence sentence_of(const Inversion& inversion) {
    Sentence out{};
    std::size_t used = 0;
    for (std::size_t i = 0; i < inversion.count && used < sizeof out.text; ++i) {
        const PairText& pair = inversion.pairs[i];
        const int size = std::snprintf(
            out.text + used, sizeof out.text - used, "%s%.128s, held at %s, then %.128s at %s",
            i == 0 ? "" : ", but ", pair.outer, in_sentence(pair.places.outer).text, pair.inner,
            in_sentence(pair.places.inner).text);
        used += static_cast<std::size_t>(std::max(size, 0));
    }
    return out;
}

// Remembers the pair. True: it makes an inversion, which is described.
bool add_pair(const Pair& pair, const PairPlaces& places, Inversion& inversion) {
    const MutexGuard guard(g_mutex);
    const std::uint64_t key = SeenPairs::pair_of(*pair.outer, *pair.inner);
    if (g_seen_pairs.has(key)) {
        return false;  // another thread was faster
    }
    if (g_pair_count == kMostPairs || !g_seen_pairs.add(key)) {
        g_has_room_for_pairs.store(false, std::memory_order_relaxed);
        return false;
    }
    g_pairs[g_pair_count] = pair;
    g_places[g_pair_count] = places;
    ++g_pair_count;
    pair.outer->has_order.store(true, std::memory_order_relaxed);
    pair.inner->has_order.store(true, std::memory_order_relaxed);
    const bool is_inverted = is_reached(*pair.inner, *pair.outer);
    if (is_inverted) {
        describe_last(inversion);
    }
    return is_inverted;
}

void add_pair_object(cJSON* object, const char* key, const PairText& pair) {
    cJSON* const its = key != nullptr ? cJSON_AddObjectToObject(object, key) : cJSON_CreateObject();
    add_text(its, "outer", pair.outer);
    add_text(its, "outer_place", pair.places.outer.text);
    add_text(its, "inner", pair.inner);
    add_text(its, "inner_place", pair.places.inner.text);
    if (key == nullptr) {
        cJSON_AddItemToArray(object, its);
    }
}

}  // namespace

void learn_pair(LockEntry& outer, LockEntry& inner, const char* func, int line) {
    const ErrnoKept errno_kept;
    const CancelHeld held;
    const PairPlaces places{own_place(outer), place_of(func, line)};
    const Inversion* const inversion = g_inversions.add([&](Inversion& fresh) {
        return add_pair({&outer, &inner}, places, fresh);
    });
    if (inversion != nullptr) {
        ZX_LOG(warning, "the order of locks is not the same everywhere: %s",
               sentence_of(*inversion).text);
    }
}

void forget_order_of(const LockEntry& lock) {
    if (!lock.has_order.load(std::memory_order_relaxed)) {
        return;
    }
    const MutexGuard guard(g_mutex);
    for (std::size_t i = g_pair_count; i-- > 0;) {
        const Pair& pair = g_pairs[i];
        if (pair.outer == &lock || pair.inner == &lock) {
            g_seen_pairs.remove(SeenPairs::pair_of(*pair.outer, *pair.inner));
            --g_pair_count;
            g_pairs[i] = g_pairs[g_pair_count];
            g_places[i] = g_places[g_pair_count];
            g_has_room_for_pairs.store(true, std::memory_order_relaxed);
        }
    }
}

void add_inversions(cJSON* answer) {
    cJSON* const inversions = cJSON_AddArrayToObject(answer, "inversions");
    for (const Inversion& inversion : g_inversions) {
        cJSON* const object = cJSON_CreateObject();
        add_text(object, "text", sentence_of(inversion).text);
        cJSON_AddNumberToObject(object, "age_s",
                                static_cast<double>(steady_us() - inversion.at_us) / kUsPerSec);
        add_pair_object(object, "first", inversion.pairs[0]);
        add_pair_object(object, "second", inversion.pairs[1]);
        if (inversion.count > 2) {
            cJSON* const further = cJSON_AddArrayToObject(object, "further");
            for (std::size_t k = 2; k < inversion.count; ++k) {
                add_pair_object(further, nullptr, inversion.pairs[k]);
            }
        }
        cJSON_AddItemToArray(inversions, object);
    }
    cJSON_AddNumberToObject(answer, "inversions_left_out",
                            static_cast<double>(g_inversions.left_out()));
    cJSON_AddBoolToObject(answer, "order_is_full",
                          !g_has_room_for_pairs.load(std::memory_order_relaxed));
}

void clear_order() {
    g_mutex.forget_other_threads();
    if (g_pair_count != 0) {
        g_seen_pairs.clear();
    }
    g_has_room_for_pairs.store(true, std::memory_order_relaxed);
    g_pair_count = 0;
    g_inversions.clear();
}

}  // namespace zx::diag

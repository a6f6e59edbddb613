// Lists that one thread adds to and others read by time.
//
// A node is complete before the pointer to it is stored with release order, in the head or in the
// `next` of the node before it, and readers load these with acquire order; they take no lock and
// never wait. Old nodes go in two steps: the head moves on, and when no reader is left that has met
// the old one, what was before it is freed. Everything else is the adding thread's, under the
// list's lock.
#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>

#include "zxfifo.h"
#include "zxfifo/gate.hpp"
#include "zxfifo/node.hpp"
#include "zxlock/lock_guard.hpp"
#include "zxtime.h"

static_assert(offsetof(IdList_ctt, size) == 4 && offsetof(IdList_ctt, data) == 8);
static_assert(offsetof(IdList_ctt, time) == 16 && offsetof(IdList_ctt, next) == 24);
static_assert(sizeof(IdList_ctt) == 32);
static_assert(offsetof(zxsharelist_ctt, keep_seconds) == 4 && offsetof(zxsharelist_ctt, head) == 8);
static_assert(offsetof(zxsharelist_ctt, tail) == 16 && offsetof(zxsharelist_ctt, drop_timer) == 24);
static_assert(offsetof(zxsharelist_ctt, newest) == 32 && offsetof(zxsharelist_ctt, lock) == 40);
static_assert(sizeof(zxsharelist_ctt) == 344);

namespace {

using zx::fifo::kTag;

constexpr std::uint64_t kDropIntervalUs = 1000000;
constexpr std::uint32_t kUsPerSecond = 1000000;

template <typename T>
T* load(T* const& link) {
    return __atomic_load_n(&link, __ATOMIC_ACQUIRE);
}
template <typename T>
void publish(T*& link, T* node) {
    __atomic_store_n(&link, node, __ATOMIC_RELEASE);
}
void set_count(zxsharelist_ctt& list, std::uint32_t count) {
    __atomic_store_n(&list.count, count, __ATOMIC_RELAXED);
}

// What the lists of one slot share: the record of a list has no room for it.
struct Slot {
    zx::fifo::Gate gate;
    pthread_mutex_t writers = PTHREAD_MUTEX_INITIALIZER;
    const zxsharelist_ctt* list = nullptr;  // the one that has dropped nodes in this era
    std::atomic<std::uint64_t> era{0};
    std::atomic<std::uint64_t> dropped{0};  // nodes in this era
};
constexpr unsigned kSlotBits = 6;
constinit std::array<Slot, 1U << kSlotBits> g_slots;

std::size_t slot_of(const zxsharelist_ctt* list) {
    constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;
    return (reinterpret_cast<std::uintptr_t>(list) * kSpread) >> (64U - kSlotBits);
}

// Where a thread was in a list. It may go on from there as long as the node was not dropped: all
// nodes before it are older than `since`.
struct Place {
    const zxsharelist_ctt* list = nullptr;
    std::uint64_t era = 0;
    std::uint64_t number = 0;  // of the node: the nodes of the era that were before it
    std::uint64_t since = 0;
    IdList_ctt* node = nullptr;
};
constexpr std::size_t kPlaces = 8;  // for a thread that reads some lists in turn
thread_local constinit std::array<Place, kPlaces> t_places;

// Makes another node the head, behind `dropped` ones; 0: an unrelated one. Behind this no reader is
// at a node before the new head, or goes on from one.
void move_head(zxsharelist_ctt& list, IdList_ctt* head, std::uint32_t dropped) {
    Slot& slot = g_slots[slot_of(&list)];
    pthread_mutex_lock(&slot.writers);
    publish(list.head, head);
    // Behind the head: a reader that meets the new number meets the new head, too.
    if (slot.list == &list && dropped > 0) {
        slot.dropped += dropped;
    } else {
        slot.list = &list;
        slot.dropped = 0;
        ++slot.era;
    }
    slot.gate.wait_for_earlier_readers();
    pthread_mutex_unlock(&slot.writers);
}

// Drops the nodes at the head for which `is_old` holds.
template <typename Condition>
void drop_while(zxsharelist_ctt& list, Condition is_old) {
    IdList_ctt* node = list.head;
    IdList_ctt* kept = node;
    std::uint32_t count = 0;
    for (; kept != nullptr && is_old(*kept); kept = kept->next) {
        ++count;
    }
    if (count == 0) {
        return;
    }
    move_head(list, kept, count);
    set_count(list, list.count - count);
    if (kept == nullptr) {
        list.tail = nullptr;
    }
    while (node != kept) {
        IdList_ctt* const next = node->next;
        zx::fifo::free_node(node);
        node = next;
    }
}

bool is_given(const zxsharelist_ctt* list, const char* func) {
    if (list == nullptr) {
        ZX_LOG_FROM(func, error, "Param error####%s", "list");
    }
    return list != nullptr;
}

}  // namespace

extern "C" void zxfifo_innerapi_shareListVarInit(zxsharelist_ctt* list) {
    if (is_given(list, __func__)) {
        move_head(*list, nullptr, 0);
        list->tail = nullptr;
        set_count(*list, 0);
    }
}

extern "C" int32_t zxfifo_api_shareListInit(zxsharelist_ctt* list, const char* name) {
    if (!is_given(list, __func__)) {
        return -1;
    }
    if (name == nullptr) {
        ZX_LOG_PARAM("name");
        return -1;
    }
    zxfifo_innerapi_shareListVarInit(list);
    char text[zx::fifo::kTextSize];
    std::snprintf(text, sizeof text, "zxfifo_lock_%s", name);
    return zxlock_api_init(&list->lock, text);
}

extern "C" int32_t zxfifo_api_shareListDeinit(zxsharelist_ctt* list) {
    if (!is_given(list, __func__)) {
        return -1;
    }
    zxfifo_api_shareListReset(list);
    return zxlock_api_deinit(&list->lock);
}

extern "C" IdList_ctt* zxfifo_api_shareListMalloc(uint32_t size, const char* name) {
    return zx::fifo::make_node<IdList_ctt>(size, name, __func__);
}

extern "C" void zxfifo_api_shareListDemalloc(IdList_ctt** ppIdList_ctt) {
    zx::fifo::free_given(ppIdList_ctt, "ppIdList_ctt", __func__);
}

extern "C" void zxfifo_api_shareListIn(zxsharelist_ctt* list, IdList_ctt* node) {
    if (node == nullptr || !is_given(list, __func__)) {
        return;
    }
    node->next = nullptr;
    node->time = zxtime_api_us();
    const zx::LockGuard guard(list->lock, __func__, __LINE__);
    if (list->tail != nullptr) {
        publish(list->tail->next, node);
    } else {
        move_head(*list, node, 0);
    }
    list->tail = node;
    list->newest = node->time;
    set_count(*list, list->count + 1);
    if (zxtime_api_counterAsyncUs(&list->drop_timer, kDropIntervalUs) != 0) {
        zxfifo_api_shareListDropTimeout(list);
    }
}

extern "C" void zxfifo_api_shareListDropTimeout(zxsharelist_ctt* list) {
    if (!is_given(list, __func__)) {
        return;
    }
    // 32 bits with a sign, which long times overflow: such a list keeps its nodes for ever, or for
    // a moment.
    const auto signed_keep = static_cast<std::int32_t>(list->keep_seconds * kUsPerSecond);
    const auto keep = static_cast<std::uint64_t>(std::int64_t{signed_keep});
    const std::uint64_t now = zxtime_api_us();
    drop_while(*list, [=](const IdList_ctt& node) { return now - node.time >= keep; });
}

extern "C" IdList_ctt* zxfifo_api_shareListRead(zxsharelist_ctt* list, uint64_t sinceUs) {
    if (!is_given(list, __func__)) {
        return nullptr;
    }
    const std::size_t index = slot_of(list);
    Slot& slot = g_slots[index];
    const zx::fifo::Gate::Reader reader(slot.gate);
    const std::uint64_t era = slot.era;
    const std::uint64_t dropped = slot.dropped;
    IdList_ctt* const head = load(list->head);
    if (head == nullptr) {
        return nullptr;
    }
    Place& place = t_places[index % kPlaces];
    const bool is_there =
        place.list == list && place.era == era && place.number >= dropped && place.since <= sinceUs;
    IdList_ctt* node = is_there ? place.node : head;
    std::uint64_t number = is_there ? place.number : dropped;
    for (IdList_ctt* next = nullptr; node->time < sinceUs; node = next) {
        next = load(node->next);
        if (next == nullptr) {
            break;
        }
        ++number;
    }
    place = {list, era, number, sinceUs, node};
    return node;
}

extern "C" uint32_t zxfifo_api_shareListTotalNum(const zxsharelist_ctt* list) {
    return list != nullptr ? __atomic_load_n(&list->count, __ATOMIC_RELAXED) : 0;
}

extern "C" void zxfifo_api_shareListReset(zxsharelist_ctt* list) {
    if (is_given(list, __func__)) {
        const zx::LockGuard guard(list->lock, __func__, __LINE__);
        drop_while(*list, [](const IdList_ctt&) { return true; });
        zxfifo_innerapi_shareListVarInit(list);
    }
}

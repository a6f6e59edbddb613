// Lists that one thread adds to, and that others read by time.
//
// The adding thread completes a node and then stores the pointer to it, in the head or in the
// `next` of the node before, with release order. Readers load these pointers with acquire order;
// they take no lock and never wait. Each read begins at the head, so it finds the list as it is,
// even after the caller changed the nodes under the list's lock. Old nodes go in two steps: the
// head moves on, and they are freed once no reader is left that may have seen the old head. The
// adding thread does everything else, under the list's lock.
#include <pthread.h>

#include <array>
#include <cstddef>

#include "internal/args.hpp"
#include "internal/lock_guard.hpp"
#include "shared/units.hpp"
#include "zxdiag/hooks.hpp"
#include "zxfifo.h"
#include "zxfifo/gate.hpp"
#include "zxfifo/node.hpp"
#include "zxtime.h"

static_assert(offsetof(IdList_ctt, size) == 4 && offsetof(IdList_ctt, data) == 8);
static_assert(offsetof(IdList_ctt, time) == 16 && offsetof(IdList_ctt, next) == 24);
static_assert(sizeof(IdList_ctt) == 32);

namespace {

using zx::fifo::kTag;

constexpr std::uint64_t kDropIntervalUs = zx::kUsPerSec;

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

std::uint64_t time_of(const IdList_ctt& node) {
    return __atomic_load_n(&node.time, __ATOMIC_RELAXED);  // the caller may change it
}

// The record of a list has no room for a gate. So lists share these gates. The address
// of a list selects its gate.
constexpr unsigned kGateBits = 6;
constinit std::array<zx::fifo::Gate, 1U << kGateBits> g_gates;

zx::fifo::Gate& gate_of(const zxsharelist_ctt& list) {
    constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;
    return g_gates[(reinterpret_cast<std::uintptr_t>(&list) * kSpread) >> (64U - kGateBits)];
}

// The child of a fork has none of the parent's other threads. Those that were readers never leave,
// so the child must forget them instead of waiting for them. The first list registers a function
// that does this.
void watch_forks() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, [] {
        pthread_atfork(nullptr, nullptr, [] {
            for (zx::fifo::Gate& gate : g_gates) {
                gate.forget_other_threads();
            }
        });
    });
}

void tell_change(const zxsharelist_ctt& list, std::uint32_t dropped = 0) {
    if (zx::diag::is_on()) [[unlikely]] {
        zx::diag::list_changed(list, dropped);
    }
}

// Drops nodes at the head as long as `is_old` holds.
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
    publish(list.head, kept);
    set_count(list, list.count - count);
    if (kept == nullptr) {
        list.tail = nullptr;
    }
    gate_of(list).wait_for_earlier_readers();
    while (node != kept) {
        IdList_ctt* const next = node->next;
        zx::fifo::free_node(node);
        node = next;
    }
    tell_change(list, count);
}

}  // namespace

extern "C" void zxfifo_innerapi_shareListVarInit(zxsharelist_ctt* list) {
    if (ZX_ARE_GIVEN({list, "list"})) {
        publish<IdList_ctt>(list->head, nullptr);
        list->tail = nullptr;
        set_count(*list, 0);
    }
}

extern "C" int32_t zxfifo_api_shareListInit(zxsharelist_ctt* list, const char* name) {
    if (!ZX_ARE_GIVEN({list, "list"}, {name, "name"})) {
        return -1;
    }
    watch_forks();
    zxfifo_innerapi_shareListVarInit(list);
    char text[zx::fifo::kTextSize];
    zx::fifo::join(text, "zxfifo_lock_", name);
    if (zx::diag::was_on()) {
        zx::diag::list_gone(*list);  // one that was at this address and was never given back
    }
    const std::int32_t result = zxlock_api_init(&list->lock, text);
    if (result == 0) {
        tell_change(*list);
    }
    return result;
}

extern "C" int32_t zxfifo_api_shareListDeinit(zxsharelist_ctt* list) {
    if (!ZX_ARE_GIVEN({list, "list"})) {
        return -1;
    }
    zxfifo_api_shareListReset(list);
    if (zx::diag::was_on()) {
        zx::diag::list_gone(*list);
    }
    return zxlock_api_deinit(&list->lock);
}

extern "C" IdList_ctt* zxfifo_api_shareListMalloc(uint32_t size, const char* name) {
    return zx::fifo::make_node<IdList_ctt>(size, name);
}

extern "C" void zxfifo_api_shareListDemalloc(IdList_ctt** ppIdList_ctt) {
    zx::fifo::free_given(ppIdList_ctt, "ppIdList_ctt");
}

extern "C" void zxfifo_api_shareListIn(zxsharelist_ctt* list, IdList_ctt* node) {
    if (node == nullptr || !ZX_ARE_GIVEN({list, "list"})) {
        return;
    }
    node->next = nullptr;
    node->time = zxtime_api_us();
    const zx::LockGuard guard(list->lock, __func__, __LINE__);
    if (list->tail != nullptr) {
        publish(list->tail->next, node);
    } else {
        publish(list->head, node);
    }
    list->tail = node;
    list->newest = node->time;
    set_count(*list, list->count + 1);
    tell_change(*list);
    if (zxtime_api_counterAsyncUs(&list->drop_timer, kDropIntervalUs) != 0) {
        zxfifo_api_shareListDropTimeout(list);
    }
}

extern "C" void zxfifo_api_shareListDropTimeout(zxsharelist_ctt* list) {
    if (!ZX_ARE_GIVEN({list, "list"})) {
        return;
    }
    // Long times overflow this signed number of 32 bits. A list with such a time keeps its nodes
    // for ever, or only for a moment.
    const auto signed_keep =
        static_cast<std::int32_t>(list->keep_seconds * std::uint32_t{zx::kUsPerSec});
    const auto keep = static_cast<std::uint64_t>(std::int64_t{signed_keep});
    const std::uint64_t now = zxtime_api_us();
    drop_while(*list, [=](const IdList_ctt& node) { return now - node.time >= keep; });
}

extern "C" IdList_ctt* zxfifo_api_shareListRead(zxsharelist_ctt* list, uint64_t sinceUs) {
    if (!ZX_ARE_GIVEN({list, "list"})) {
        return nullptr;
    }
    const zx::fifo::Gate::Reader reader(gate_of(*list));
    IdList_ctt* found = nullptr;
    for (IdList_ctt* node = load(list->head); node != nullptr; node = load(node->next)) {
        found = node;
        if (time_of(*node) >= sinceUs) {
            break;
        }
    }
    return found;
}

extern "C" uint32_t zxfifo_api_shareListTotalNum(const zxsharelist_ctt* list) {
    return list != nullptr ? __atomic_load_n(&list->count, __ATOMIC_RELAXED) : 0;
}

extern "C" void zxfifo_api_shareListReset(zxsharelist_ctt* list) {
    if (ZX_ARE_GIVEN({list, "list"})) {
        const zx::LockGuard guard(list->lock, __func__, __LINE__);
        drop_while(*list, [](const IdList_ctt&) { return true; });
        zxfifo_innerapi_shareListVarInit(list);
    }
}

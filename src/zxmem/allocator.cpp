#include "zxmem/allocator.hpp"

#include <sched.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "internal/args.hpp"
#include "internal/cancel.hpp"
#include "internal/fixed_text.hpp"
#include "internal/lock_guard.hpp"
#include "internal/log.hpp"
#include "zxdiag/hooks.hpp"

static_assert(offsetof(memnode_ctt, size) == 8 && offsetof(memnode_ctt, name) == 12);
static_assert(offsetof(memnode_ctt, time) == 140 && offsetof(memnode_ctt, line) == 156);
static_assert(offsetof(memnode_ctt, file) == 160 && offsetof(memnode_ctt, next) == 168);
static_assert(sizeof(memnode_ctt) == 176);

namespace zx::mem {

memnode_ctt* first_memnode_ctt;
NamedLock zxmem_zxlock_ctt;
std::uint8_t flag_init;
std::uint8_t zxmem_enable_dbg;

}  // namespace zx::mem

// The interface asks the callers of these to hold the lock. Here, clang sees to it.
extern "C" void zxmem_innerapi_nodeAdd(void* buf, uint32_t size, const char* name, const char* file,
                                       uint32_t line) ZX_REQUIRES(zx::mem::zxmem_zxlock_ctt);
extern "C" void zxmem_innerapi_nodeRm(void* buf) ZX_REQUIRES(zx::mem::zxmem_zxlock_ctt);

namespace {

using namespace zx::mem;

// A node of the list, with links to the node before it and to the next one in its chain.
struct Node {
    memnode_ctt record;
    Node* prev;
    Node* chain;
    zx::diag::BufferTrace trace;
};
static_assert(offsetof(Node, record) == 0);

Node* node_of(memnode_ctt* record) {
    return reinterpret_cast<Node*>(record);
}

// The index finds the node of a buffer. It is a hash table of chains, which grows with the number
// of nodes. The first table is static, so there always is an index.
struct Chain {
    Node* youngest;
};
constexpr unsigned kFirstBits = 8;
Chain g_first_table[std::size_t{1} << kFirstBits];
Chain* g_table ZX_GUARDED_BY(zxmem_zxlock_ctt) = g_first_table;
unsigned g_table_bits ZX_GUARDED_BY(zxmem_zxlock_ctt) = kFirstBits;
std::size_t g_node_count ZX_GUARDED_BY(zxmem_zxlock_ctt);
memnode_ctt* g_last ZX_GUARDED_BY(zxmem_zxlock_ctt);
// The youngest node that is still to be shown to the diagnosis.
Node* g_unseen ZX_GUARDED_BY(zxmem_zxlock_ctt);

// Neighbours in memory are neighbours in the table, too, which suits the cache. Folding gives the
// remainder modulo 2^bits - 1, so buffers at distances of a power of two do not share a chain.
Node*& chain_of(const void* buffer) ZX_REQUIRES(zxmem_zxlock_ctt) {
    constexpr unsigned kAlignmentBits = 4;
    std::uintptr_t slot = reinterpret_cast<std::uintptr_t>(buffer) >> kAlignmentBits;
    const std::uintptr_t mask = (std::uintptr_t{1} << g_table_bits) - 1;
    while (slot > mask) {
        slot = (slot & mask) + (slot >> g_table_bits);
    }
    return g_table[slot].youngest;
}

void index_add(Node* node) ZX_REQUIRES(zxmem_zxlock_ctt) {
    Node*& chain = chain_of(node->record.buffer);
    node->chain = chain;
    chain = node;
}

// Takes the oldest node of a buffer out of its chain, or returns NULL.
Node* index_remove(const void* buffer) ZX_REQUIRES(zxmem_zxlock_ctt) {
    Node** found = nullptr;
    for (Node** link = &chain_of(buffer); *link != nullptr; link = &(*link)->chain) {
        if ((*link)->record.buffer == buffer) {
            found = link;
        }
    }
    if (found == nullptr) {
        return nullptr;
    }
    Node* const node = *found;
    *found = node->chain;
    return node;
}

// Without memory for a larger table the chains only get longer, and so slower.
void index_grow() ZX_REQUIRES(zxmem_zxlock_ctt) {
    auto* const table =
        static_cast<Chain*>(std::calloc(std::size_t{1} << (g_table_bits + 1), sizeof(Chain)));
    if (table == nullptr) {
        return;
    }
    if (g_table != g_first_table) {
        std::free(g_table);
    }
    g_table = table;
    ++g_table_bits;
    for (memnode_ctt* record = first_memnode_ctt; record != nullptr; record = record->next) {
        index_add(node_of(record));
    }
}

void list_append(Node* node) ZX_REQUIRES(zxmem_zxlock_ctt) {
    node->prev = g_last != nullptr ? node_of(g_last) : nullptr;
    (g_last != nullptr ? g_last->next : first_memnode_ctt) = &node->record;
    g_last = &node->record;
}

void list_unlink(Node* node) ZX_REQUIRES(zxmem_zxlock_ctt) {
    if (g_unseen == node) [[unlikely]] {
        g_unseen = node->prev;
    }
    memnode_ctt* const next = node->record.next;
    (node->prev != nullptr ? node->prev->record.next : first_memnode_ctt) = next;
    if (next != nullptr) {
        node_of(next)->prev = node->prev;
    } else {
        g_last = node->prev != nullptr ? &node->prev->record : nullptr;
    }
}

// The local time of day, converted once a second. Returns the time by a clock that nobody sets, in
// seconds, read as seldom. Reading the files of the time zone must be no cancellation point: a
// thread that is cancelled here would keep the list's lock for ever.
std::uint32_t write_time(char (&out)[ZXMEM_TIME_SIZE]) ZX_REQUIRES(zxmem_zxlock_ctt) {
    static std::time_t text_second ZX_GUARDED_BY(zxmem_zxlock_ctt);
    static std::uint32_t steady_second ZX_GUARDED_BY(zxmem_zxlock_ctt);
    static char text[ZXMEM_TIME_SIZE] ZX_GUARDED_BY(zxmem_zxlock_ctt);
    const std::time_t now = std::time(nullptr);
    if (now != text_second || text[0] == '\0') {
        const zx::CancelHeld held;
        std::tm local{};
        localtime_r(&now, &local);
        std::snprintf(text, sizeof text, "%02d:%02d:%02d", local.tm_hour, local.tm_min,
                      local.tm_sec);
        text_second = now;
        timespec steady{};
        clock_gettime(CLOCK_MONOTONIC, &steady);
        steady_second = static_cast<std::uint32_t>(steady.tv_sec);
    }
    std::memcpy(out, text, sizeof text);
    return steady_second;
}

// True when the list can be used. Warns when tracking is on but has no lock.
bool is_tracking(zx::Caller caller = {}) {
    if (zxmem_enable_dbg != 1) {
        return false;
    }
    if (flag_init != 1) {
        ZX_LOG_AT(caller, warning, "Must init  zxmem_zxlock_ctt  first");
        return false;
    }
    return true;
}

void* allocate(std::uint32_t size, const char* name, const char* file, std::uint32_t line,
               zx::Caller caller = {}) {
    if (file == nullptr) {
        ZX_LOG_AT(caller, error, "dbuf is null");
        return nullptr;
    }
    void* const buffer = std::calloc(1, size);
    if (buffer == nullptr) {
        ZX_LOG_MALLOC_AT(caller, file);
        return nullptr;
    }
    if (is_tracking(caller)) {
        const zx::LockGuard guard(zxmem_zxlock_ctt, caller.func, caller.line);
        zxmem_innerapi_nodeAdd(buffer, size, name, file, line);
    }
    return buffer;
}

// Bounds the time that others wait for the lock. Returns true when there are more nodes to show.
bool show_some(bool is_new, zx::Caller caller = {}) {
    constexpr int kAtOnce = 64;
    const zx::LockGuard guard(zxmem_zxlock_ctt, caller.func, caller.line);
    if (is_new) {
        zx::diag::begin_round();
        g_unseen = g_last != nullptr ? node_of(g_last) : nullptr;
    }
    for (int i = 0; i < kAtOnce && g_unseen != nullptr; ++i) {
        Node* const node = g_unseen;
        g_unseen = node->prev;
        zx::diag::buffer_found(node->trace, node->record);
    }
    if (g_unseen == nullptr) {
        zx::diag::round_is_complete();
    }
    return g_unseen != nullptr;
}

}  // namespace

void zx::mem::show_buffers(bool is_new) {
    constexpr unsigned kHoldsInARow = 16;
    for (unsigned holds = 1; show_some(is_new); ++holds) {
        is_new = false;
        if (holds % kHoldsInARow == 0) {
            sched_yield();  // those who wait take the lock first
        }
    }
}

bool zx::mem::can_be_locked() {
    timespec limit{};
    clock_gettime(CLOCK_REALTIME, &limit);
    ++limit.tv_sec;
    pthread_mutex_t& mutex = zxmem_zxlock_ctt.mutex;
    return pthread_mutex_timedlock(&mutex, &limit) == 0 && pthread_mutex_unlock(&mutex) == 0;
}

extern "C" void zxmem_api_init(uint8_t enable) {
    if (flag_init == 1) {
        return;
    }
    zxmem_enable_dbg = enable;
    if (enable == 1 && zxlock_api_init(&zxmem_zxlock_ctt, "zxmem_zxlockctt") == 0) {
        flag_init = 1;
        zx::diag::tracking_begins();
    }
}

extern "C" void zxmem_api_deinit(void) {
    if (flag_init == 1) {
        zx::diag::tracking_ends();
        flag_init = 0;
        zxlock_api_deinit(&zxmem_zxlock_ctt);
    }
}

extern "C" void* zxmem_api_malloc(uint32_t size, const char* name, const char* file,
                                  uint32_t line) {
    return allocate(size, name, file, line);
}

extern "C" void* zxmem_api_calloc(uint32_t size, const char* name, const char* file,
                                  uint32_t line) {
    return allocate(size, name, file, line);
}

extern "C" void zxmem_api_free(void** pbuf) {
    if (!ZX_ARE_GIVEN({pbuf, "pbuf"})) {
        return;
    }
    if (is_tracking()) {
        const zx::LockGuard guard(zxmem_zxlock_ctt, __func__, __LINE__);
        zxmem_innerapi_nodeRm(*pbuf);
    }
    std::free(*pbuf);
    *pbuf = nullptr;
}

extern "C" void zxmem_innerapi_nodeAdd(void* buf, uint32_t size, const char* name, const char* file,
                                       uint32_t line) {
    if (buf == nullptr || file == nullptr) {
        ZX_LOG(error, "dbuf is null");
        return;
    }
    auto* const node = static_cast<Node*>(std::malloc(sizeof(Node)));
    if (node == nullptr) {
        ZX_LOG_MALLOC("memnode_ctt");
        return;
    }
    std::memset(node, 0, sizeof *node);
    memnode_ctt& record = node->record;
    record.buffer = buf;
    record.size = size;
    if (name != nullptr) {
        ZX_FILL_FIELD(record.name, name);
    }
    node->trace.made_s = write_time(record.time);
    record.line = line;
    record.file = file;

    list_append(node);
    index_add(node);
    if (zx::diag::is_on()) {
        zx::diag::buffer_made(node->trace, record, name != nullptr ? name : "");
    }
    if (2 * ++g_node_count > std::size_t{1} << g_table_bits) {  // short chains
        index_grow();
    }
}

extern "C" void zxmem_innerapi_nodeRm(void* buf) {
    if (buf == nullptr) {
        ZX_LOG(error, "dbuf is null");
        return;
    }
    if (Node* const node = index_remove(buf); node != nullptr) {
        list_unlink(node);
        if (node->trace.place != 0) {  // also while the diagnosis is off
            zx::diag::buffer_gone(node->trace, node->record.size);
        }
        --g_node_count;
        std::free(node);
    }
}

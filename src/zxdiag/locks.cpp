#include "zxdiag/locks.hpp"

#include <pthread.h>

#include <cstdio>
#include <cstring>

#include "internal/lock_holder.hpp"
#include "internal/poll.hpp"
#include "zxdiag/answers.hpp"
#include "zxdiag/coarse_clock.hpp"
#include "zxdiag/hooks.hpp"
#include "zxdiag/json.hpp"
#include "zxdiag/order.hpp"
#include "zxdiag/thread_record.hpp"
#include "zxdiag/trace.hpp"
#include "zxdiag/waits.hpp"

namespace zx::diag {

constinit SideTable<LockEntry, kMostLocks> g_locks;

namespace {

constinit std::atomic<std::uint32_t> g_last_serial{0};
constinit std::atomic<bool> g_is_used{false};  // since this process has begun to count
constinit std::atomic<bool> g_is_full{false};  // until a lock goes

// Finds the entry of a lock, or makes one. NULL: there is no room.
[[gnu::noinline]] LockEntry* add_entry(const zxlock_ctt& lock) {
    LockEntry* const entry = g_locks.add(&lock, [&lock](LockEntry& fresh) {
        fresh.holder.store(nullptr, std::memory_order_relaxed);
        fresh.taken.store(0, std::memory_order_relaxed);
        fresh.longest_hold_us.store(0, std::memory_order_relaxed);
        fresh.contended.store(0, std::memory_order_relaxed);
        fresh.longest_wait_us.store(0, std::memory_order_relaxed);
        fresh.has_order.store(false, std::memory_order_relaxed);
        fresh.name.set(lock.name, sizeof lock.name);
        std::uint32_t serial = 0;
        do {
            serial = g_last_serial.fetch_add(1, std::memory_order_relaxed) + 1;
        } while (serial == 0);
        fresh.serial.store(serial, std::memory_order_relaxed);
    });
    if (entry == nullptr) {
        g_is_full.store(true, std::memory_order_relaxed);
    }
    return entry;
}

// Locks that were made before the diagnosis was switched on get their entries here. The caller is
// about to take the lock, so nobody may remove it.
LockEntry* entry_of(const zxlock_ctt& lock) {
    LockEntry* const entry = g_locks.find(&lock);
    if (entry != nullptr || g_is_full.load(std::memory_order_relaxed)) [[likely]] {
        return entry;
    }
    return add_entry(lock);
}

void note_further(LockEntry& entry, ThreadRecord& own) {
    if (t_held.is_full()) {
        add_one(entry.taken);  // but the holder is not known
        return;
    }
    // Before the holder: who sees the new one must not take the time of the one before for its own.
    entry.traced_ns.store(is_tracing() ? steady_ns() : 0, std::memory_order_relaxed);
    note_holder(entry, own);
    t_held.push(entry);
}

void forget(const zxlock_ctt& lock) {
    if (LockEntry* const entry = g_locks.find(&lock); entry != nullptr) {
        forget_order_of(*entry);
        entry->holder.store(nullptr, std::memory_order_relaxed);
        g_locks.remove(&lock);
        g_is_full.store(false, std::memory_order_relaxed);
    }
}

// The threads that wait for any lock; most often they are few.
struct Waiting {
    std::size_t count = 0;
    const ThreadRecord* threads[kMostThreads];
};

void collect(Waiting& waiting) {
    for_each_thread([&](const ThreadRecord& thread) {
        if (WaitCopy wait; copy_wait(thread, wait)) {
            waiting.threads[waiting.count++] = &thread;
        }
    });
}

void add_waiting(cJSON* object, const LockEntry& entry, const Waiting& waiting) {
    cJSON* const array = cJSON_AddArrayToObject(object, "waiting");
    for (std::size_t i = 0; i < waiting.count; ++i) {
        if (WaitCopy wait; copy_wait(*waiting.threads[i], wait) && wait.lock == &entry) {
            cJSON* const its = cJSON_CreateObject();
            add_waiter(its, wait);
            cJSON_AddItemToArray(array, its);
        }
    }
}

void add_lock(cJSON* locks, const LockEntry& entry, const Waiting& waiting,
              const ProgramMemory& memory) {
    const auto number = [](const auto& from) {
        return static_cast<double>(from.load(std::memory_order_relaxed));
    };
    cJSON* const object = cJSON_CreateObject();
    add_text(object, "name", entry.name.copy().text);
    char address[sizeof "0x0123456789abcdef"];
    std::snprintf(address, sizeof address, "%p", entry.record.load(std::memory_order_relaxed));
    cJSON_AddStringToObject(object, "address", address);
    const bool is_held = entry.holder.load(std::memory_order_relaxed) != nullptr;
    const double held_us = is_held ? static_cast<double>(steady_us()) - number(entry.since_us) : 0;
    cJSON_AddBoolToObject(object, "held", is_held);
    if (is_held) {
        add_holder(object, entry, memory);
        cJSON_AddNumberToObject(object, "held_us", held_us);
    }
    cJSON_AddNumberToObject(object, "taken", number(entry.taken));
    cJSON_AddNumberToObject(object, "contended", number(entry.contended));
    cJSON_AddNumberToObject(object, "longest_wait_us", number(entry.longest_wait_us));
    cJSON_AddNumberToObject(object, "longest_hold_us", number(entry.longest_hold_us));
    add_waiting(object, entry, waiting);
    cJSON_AddItemToArray(locks, object);
}

}  // namespace

void lock_made(const zxlock_ctt& lock) {
    if (g_is_used.load(std::memory_order_relaxed)) {
        forget(lock);  // a record that was here, and was never deinitialised
        if (is_on()) {
            (void)add_entry(lock);
        }
    }
}

void lock_gone(const zxlock_ctt& lock) {
    if (g_is_used.load(std::memory_order_relaxed)) {
        forget(lock);
    }
}

void note_any_taken(const zxlock_ctt& lock, const char* func, int line) {
    LockEntry* const entry = entry_of(lock);
    ThreadRecord* const own = own_record();
    if (entry != nullptr && own != nullptr) {
        note_order(*own, *entry, func, line);
        note_further(*entry, *own);
    }
}

void wait_for_mutex(zxlock_ctt& lock, const char* func, int line) {
    LockEntry* const entry = entry_of(lock);
    ThreadRecord* const own = own_record();
    if (entry == nullptr || own == nullptr) {
        pthread_mutex_lock(&lock.mutex);
        return;
    }
    note_order(*own, *entry, func, line);
    const std::uint64_t begin_ns = is_tracing() ? steady_ns() : 0;
    wait_for(lock, *entry, *own, func, line);
    if (g_locks.find(&lock) != entry) {
        return;  // the program has given the lock back, and this wait should not have been
    }
    if (begin_ns != 0) {
        trace(Span::lock_wait, begin_ns, entry->name.copy().text, ZXLOCK_NAME_SIZE, 0);
    }
    note_further(*entry, *own);
}

void note_any_released(const zxlock_ctt& lock) {
    LockEntry* entry = t_held.pop(&lock);
    if (entry == nullptr) {
        entry = g_locks.find(&lock);  // another thread took it, or this one has too many
    }
    if (entry == nullptr || entry->holder.load(std::memory_order_relaxed) == nullptr) {
        return;
    }
    note_no_holder(*entry);
    const std::uint64_t since_ns = entry->traced_ns.load(std::memory_order_relaxed);
    entry->traced_ns.store(0, std::memory_order_relaxed);
    if (since_ns != 0 && is_tracing()) {
        trace(Span::lock_hold, since_ns, entry->name.copy().text, ZXLOCK_NAME_SIZE, 0);
    }
}

std::uint64_t traced_since_ns(const zxlock_ctt& lock) {
    const LockEntry* const entry = g_locks.find(&lock);
    return entry != nullptr ? entry->traced_ns.load(std::memory_order_relaxed) : 0;
}

// While nothing was counted, locks were released unseen. Threads still list them as held, but what
// has no holder counts no more.
void begin_to_count_locks() {
    g_locks.for_each(
        [](LockEntry& entry) { entry.holder.store(nullptr, std::memory_order_relaxed); });
}

void clear_locks() {
    if (g_is_used.exchange(true)) {
        return;
    }
    g_locks.for_each([](const LockEntry& entry) {
        g_locks.remove(entry.record.load(std::memory_order_relaxed));
    });
    g_is_full.store(false, std::memory_order_relaxed);
}

void forget_locks_of_parent() {
    g_is_used.store(false, std::memory_order_relaxed);
    g_locks.forget_other_threads();
    clear_cycles();
    clear_order();
}

PlaceText place_of(const char* func, int line) {
    PlaceText place{};
    char holder[ZXLOCK_HOLDER_SIZE] = {};
    lock::write_holder(holder, func, line);
    std::memcpy(place.text, holder, sizeof holder);
    return place;
}

PlaceText in_sentence(const PlaceText& place) {
    PlaceText out = place;
    if (char* const comma = std::strrchr(out.text, ','); comma != nullptr) {
        *comma = ':';
    }
    return out;
}

bool read_field(const LockEntry& entry, const ProgramMemory& memory, std::size_t offset, void* to,
                std::size_t size) {
    const auto* const record = static_cast<const char*>(g_locks.record_of(entry));
    return record != nullptr && memory.read(record + offset, to, size);
}

PlaceText holder_place(const LockEntry& entry, const ProgramMemory& memory) {
    PlaceText place{};
    const ThreadRecord* const holder = entry.holder.load(std::memory_order_acquire);
    const std::uint64_t taken = entry.taken.load(std::memory_order_acquire);
    if (holder == nullptr) {
        return place;
    }
    if (!read_field(entry, memory, offsetof(zxlock_ctt, holder), place.text, ZXLOCK_HOLDER_SIZE)) {
        return memory.can_read() ? PlaceText{"gone"} : PlaceText{"busy"};
    }
    // The note follows the taking.
    const bool is_same = entry.holder.load(std::memory_order_acquire) == holder &&
                         entry.taken.load(std::memory_order_acquire) == taken &&
                         std::strcmp(place.text, lock::kFree) != 0;
    return is_same ? place : PlaceText{"busy"};
}

Answer answer_locks(const Question&) {
    cJSON* const answer = cJSON_CreateObject();
    cJSON* const locks = cJSON_AddArrayToObject(answer, "locks");
    if (g_is_used.load(std::memory_order_relaxed)) {
        Waiting waiting;
        collect(waiting);
        const ProgramMemory memory;
        g_locks.for_each([&](const LockEntry& entry) { add_lock(locks, entry, waiting, memory); });
    }
    cJSON_AddNumberToObject(answer, "left_out", static_cast<double>(g_locks.left_out()));
    return {answer, nullptr};
}

}  // namespace zx::diag

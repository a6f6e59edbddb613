#include "zxdiag/waits.hpp"

#include <algorithm>
#include <cstdio>

#include "internal/cancel.hpp"
#include "internal/log.hpp"
#include "internal/poll.hpp"
#include "zxdiag/answers.hpp"
#include "zxdiag/json.hpp"
#include "zxdiag/order.hpp"
#include "zxdiag/reports.hpp"

namespace zx::diag {
namespace {

constexpr char kTag[] = "DIAG";
constexpr std::size_t kMostMembers = 16;
constexpr int kLooks = 5;
constexpr std::uint32_t kLookMs = 10;

// Each waits for the lock that the next one holds, the last one for that of the first.
struct Chain {
    std::size_t count = 0;
    WaitCopy waits[kMostMembers];

    [[nodiscard]] bool operator==(const Chain& other) const {
        return std::equal(waits, waits + count, other.waits, other.waits + other.count,
                          [](const WaitCopy& a, const WaitCopy& b) {
                              return a.thread == b.thread && a.number == b.number &&
                                     a.lock == b.lock && a.holder == b.holder;
                          });
    }
};

struct Member {
    pid_t tid;
    ThreadName thread;
    char lock[ZXLOCK_NAME_SIZE];
    PlaceText place;    // where it waits
    PlaceText held_at;  // where the next member took the lock
};

struct Cycle {
    std::int64_t at_us;
    std::uint64_t key;  // the same for the same waits, whoever finds them
    std::size_t count;
    Member members[kMostMembers];
};

constinit Reports<Cycle, 16> g_cycles;

// Follows the waits from the calling thread. True: they lead back to it.
//
// Each thread makes its own wait known before it looks at those of others, so the last one of a
// cycle sees all of it. This needs the default memory order, both for the number and in
// copy_wait().
bool find_cycle(ThreadRecord& own, Chain& chain) {
    const ThreadRecord* thread = &own;
    for (chain.count = 0; chain.count < kMostMembers;) {
        WaitCopy& wait = chain.waits[chain.count];
        if (!copy_wait(*thread, wait) || wait.holder == nullptr) {
            return false;
        }
        ++chain.count;
        if (wait.holder == &own) {
            return true;
        }
        thread = wait.holder;
    }
    return false;
}

// The diagnosis does not see who locks and unlocks bare mutexes. The C library keeps the thread
// that has a mutex. Where it does not tell, or no descriptor is left to ask it, the look at the
// record has to do.
bool is_held_by([[maybe_unused]] const WaitCopy& wait,
                [[maybe_unused]] const ProgramMemory& memory) {
#ifdef __GLIBC__
    pthread_mutex_t mutex;
    return !memory.can_read() ||
           (read_field(*wait.lock, memory, offsetof(zxlock_ctt, mutex), &mutex, sizeof mutex) &&
            mutex.__data.__owner == wait.holder->tid.load(std::memory_order_relaxed));
#else
    return true;
#endif
}

bool is_real(const Chain& chain) {
    const ProgramMemory memory;
    return std::all_of(chain.waits, chain.waits + chain.count,
                       [&](const WaitCopy& wait) { return is_held_by(wait, memory); });
}

// Two waits have different keys, whose sum does not depend on the order.
std::uint64_t key_of(const WaitCopy& wait) {
    constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;
    const auto at = static_cast<std::uint64_t>(wait.thread - g_thread_records);
    const std::uint64_t key = (wait.number * kMostThreads + at) * kSpread;
    return (key ^ key >> 32U) * kSpread;
}

void describe(const Chain& chain, Cycle& cycle) {
    const ProgramMemory memory;
    cycle.at_us = steady_us();
    cycle.count = chain.count;
    for (std::size_t i = 0; i < chain.count; ++i) {
        const WaitCopy& wait = chain.waits[i];
        Member& member = cycle.members[i];
        member.tid = wait.thread->tid.load(std::memory_order_relaxed);
        member.thread = thread_name(member.tid);
        std::memcpy(member.lock, wait.lock->name.copy().text, sizeof member.lock);
        std::memcpy(member.place.text, wait.thread->wait.place.copy().text,
                    sizeof member.place.text);
        member.held_at = holder_place(*wait.lock, memory);
    }
}

// The name of a thread, with its number if it has no name or another member has the same.
struct MemberName {
    char text[64];
};
MemberName name_in(const Cycle& cycle, std::size_t at) {
    const Member& member = cycle.members[at];
    const auto namesakes =
        std::count_if(cycle.members, cycle.members + cycle.count, [&](const Member& other) {
            return std::strcmp(other.thread.text, member.thread.text) == 0;
        });
    MemberName name;
    if (namesakes == 1 && member.thread.text[0] != '\0') {
        std::snprintf(name.text, sizeof name.text, "%s", member.thread.text);
    } else {
        std::snprintf(name.text, sizeof name.text, "%s (%d)", member.thread.text,
                      static_cast<int>(member.tid));
    }
    return name;
}

struct CycleText {
    char text[4096];
};

// "A waits for L1, held at f:12 by B, which waits for L2, held at g:40 by A"
CycleText sentence_of(const Cycle& cycle) {
    CycleText out{};
    std::size_t used = 0;
    for (std::size_t i = 0; i < cycle.count && used < sizeof out.text; ++i) {
        const Member& member = cycle.members[i];
        const std::size_t next = (i + 1) % cycle.count;
        const int size = std::snprintf(out.text + used, sizeof out.text - used,
                                       "%s waits for %.128s, held at %s by %s",
                                       i == 0 ? name_in(cycle, 0).text : ", which", member.lock,
                                       in_sentence(member.held_at).text, name_in(cycle, next).text);
        used += static_cast<std::size_t>(std::max(size, 0));
    }
    return out;
}

// Each member of a cycle may find it.
void report(const Chain& chain) {
    std::uint64_t key = 0;
    for (std::size_t i = 0; i < chain.count; ++i) {
        key += key_of(chain.waits[i]);
    }
    const Cycle* const cycle = g_cycles.add([&](Cycle& fresh) {
        if (std::any_of(g_cycles.begin(), g_cycles.end(),
                        [key](const Cycle& other) { return other.key == key; })) {
            return false;
        }
        fresh.key = key;
        describe(chain, fresh);
        return true;
    });
    if (cycle != nullptr) {
        ZX_LOG(error, "deadlock: %s", sentence_of(*cycle).text);
    }
}

// The thread is about to wait, and the waits seem to lead back to it. Looks again a few times: the
// others may only just have got what they waited for, or somebody may have unlocked a bare mutex.
// True: the thread has the mutex.
bool is_taken_while_looking(zxlock_ctt& lock, ThreadRecord& own, const Chain& first) {
    const CancelHeld held;
    Chain chain;
    for (int look = 0; look < kLooks; ++look) {
        sleep_ms(kLookMs);
        if (pthread_mutex_trylock(&lock.mutex) == 0) {
            return true;
        }
        if (!find_cycle(own, chain) || !(chain == first)) {
            return false;  // if it closes again, the one who closes it finds it
        }
    }
    if (is_real(chain)) {
        report(chain);
    }
    return false;
}

void begin_wait(LockWait& wait, LockEntry& entry, const char* func, int line) {
    const PlaceText place = place_of(func, line);
    wait.place.set(place.text);
    // Who sees a part of this wait also sees that the one before is over.
    wait.since_us.store(steady_us(), std::memory_order_release);
    wait.serial.store(entry.serial.load(std::memory_order_relaxed), std::memory_order_release);
    wait.lock.store(&entry, std::memory_order_release);
    wait.number.fetch_add(1);
}

// The thread has the mutex.
void end_wait(LockWait& wait, LockEntry& entry) {
    wait.number.fetch_add(1);
    wait.lock.store(nullptr, std::memory_order_relaxed);
    add_one(entry.contended);
    keep_largest(entry.longest_wait_us,
                 steady_us() - wait.since_us.load(std::memory_order_relaxed));
}

void add_cycles(cJSON* answer) {
    cJSON* const cycles = cJSON_AddArrayToObject(answer, "cycles");
    for (const Cycle& cycle : g_cycles) {
        cJSON* const object = cJSON_CreateObject();
        add_text(object, "text", sentence_of(cycle).text);
        cJSON_AddNumberToObject(object, "age_s",
                                static_cast<double>(steady_us() - cycle.at_us) / kUsPerSec);
        cJSON* const members = cJSON_AddArrayToObject(object, "members");
        for (std::size_t k = 0; k < cycle.count; ++k) {
            const Member& member = cycle.members[k];
            cJSON* const its = cJSON_CreateObject();
            cJSON_AddNumberToObject(its, "tid", member.tid);
            add_text(its, "thread", member.thread.text);
            add_text(its, "lock", member.lock);
            add_text(its, "place", member.place.text);
            add_text(its, "held_by", cycle.members[(k + 1) % cycle.count].thread.text);
            add_text(its, "held_at", member.held_at.text);
            cJSON_AddItemToArray(members, its);
        }
        cJSON_AddItemToArray(cycles, object);
    }
}

}  // namespace

bool copy_wait(const ThreadRecord& thread, WaitCopy& copy) {
    const std::uint64_t number = thread.wait.number.load();
    LockEntry* const lock = thread.wait.lock.load(std::memory_order_acquire);
    if (number % 2 == 0 || lock == nullptr) {
        return false;
    }
    // The entry may serve another lock, if the program has given this one back.
    const bool is_same = thread.wait.serial.load(std::memory_order_acquire) == lock->serial.load();
    copy = {&thread, number, lock, lock->holder.load(),
            thread.wait.since_us.load(std::memory_order_acquire)};
    return is_same && thread.wait.number.load() == number;
}

const LockEntry* lock_awaited_by(pid_t tid) {
    const LockEntry* lock = nullptr;
    for_each_thread([&](const ThreadRecord& thread) {
        WaitCopy wait;
        if (thread.tid.load(std::memory_order_relaxed) == tid && copy_wait(thread, wait)) {
            lock = wait.lock;
        }
    });
    return lock;
}

void wait_for(zxlock_ctt& lock, LockEntry& entry, ThreadRecord& own, const char* func, int line) {
    const ErrnoKept errno_kept;
    begin_wait(own.wait, entry, func, line);
    if (Chain chain; !find_cycle(own, chain) || !is_taken_while_looking(lock, own, chain)) {
        pthread_mutex_lock(&lock.mutex);
    }
    end_wait(own.wait, entry);
}

void add_holder(cJSON* object, const LockEntry& entry, const ProgramMemory& memory) {
    const ThreadRecord* const holder = entry.holder.load(std::memory_order_relaxed);
    if (holder == nullptr) {
        return;
    }
    add_text(object, "holder", holder_place(entry, memory).text);
    const pid_t tid = holder->tid.load(std::memory_order_relaxed);
    cJSON_AddNumberToObject(object, "holder_tid", tid);
    add_text(object, "holder_thread",
             holder == &g_ended_thread ? "(ended)" : thread_name(tid).text);
}

void add_waiter(cJSON* object, const WaitCopy& wait) {
    const pid_t tid = wait.thread->tid.load(std::memory_order_relaxed);
    cJSON_AddNumberToObject(object, "tid", tid);
    add_text(object, "thread", thread_name(tid).text);
    add_text(object, "place", wait.thread->wait.place.copy().text);
    cJSON_AddNumberToObject(object, "waiting_us", static_cast<double>(steady_us() - wait.since_us));
}

void clear_cycles() {
    g_cycles.clear();
}

Answer answer_waits(const Question&) {
    cJSON* const answer = cJSON_CreateObject();
    cJSON* const waits = cJSON_AddArrayToObject(answer, "waits");
    const ProgramMemory memory;
    for_each_thread([&](const ThreadRecord& thread) {
        if (WaitCopy wait; copy_wait(thread, wait)) {
            cJSON* const object = cJSON_CreateObject();
            add_waiter(object, wait);
            add_text(object, "lock", wait.lock->name.copy().text);
            add_holder(object, *wait.lock, memory);
            cJSON_AddItemToArray(waits, object);
        }
    });
    add_cycles(answer);
    cJSON_AddNumberToObject(answer, "cycles_left_out", static_cast<double>(g_cycles.left_out()));
    cJSON_AddBoolToObject(answer, "threads_are_full", are_thread_records_full());
    add_inversions(answer);
    return {answer, nullptr};
}

}  // namespace zx::diag

// Who waits for whom.
#pragma once

#include <cjson/cJSON.h>

#include <cstdint>

#include "zxdiag/thread_record.hpp"
#include "zxlock.h"

namespace zx::diag {

// Waits for a lock that somebody holds, and takes its mutex. Reports a cycle of waits, and then
// waits all the same.
void wait_for(zxlock_ctt& lock, LockEntry& entry, ThreadRecord& own, const char* func, int line);

// A wait as it is at one moment.
struct WaitCopy {
    const ThreadRecord* thread;
    std::uint64_t number;
    LockEntry* lock;
    ThreadRecord* holder;  // NULL: not known
    std::int64_t since_us;
};

// False: the thread waits for nothing, or has just ceased to.
[[nodiscard]] bool copy_wait(const ThreadRecord& thread, WaitCopy& copy);

// NULL: the thread waits for no lock.
[[nodiscard]] const LockEntry* lock_awaited_by(pid_t tid);

// Adds what is known about the holder: "holder", "holder_tid" and "holder_thread".
void add_holder(cJSON* object, const LockEntry& entry, const ProgramMemory& memory);

// Adds who waits: "tid", "thread", "place" and "waiting_us".
void add_waiter(cJSON* object, const WaitCopy& wait);

void clear_cycles();  // in the child of a fork

}  // namespace zx::diag

#include "zxdiag/thread_record.hpp"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "internal/guard.hpp"

namespace zx::diag {

constinit ThreadRecord g_thread_records[kMostThreads];
constinit ThreadRecord g_ended_thread;
constinit thread_local ThreadRecord* t_record = nullptr;
constinit thread_local HeldLocks t_held;

namespace {

constinit std::atomic<bool> g_is_full{false};  // until a thread ends
pthread_key_t g_key;
bool g_has_key = false;

// At the end of a thread. One that still takes locks in a later destructor gets another record. The
// next thread with this record must not seem to hold what this one has left.
void give_back(void* its) {
    auto* const record = static_cast<ThreadRecord*>(its);
    t_record = nullptr;
    t_held.erase_if([record](LockEntry& entry) {
        ThreadRecord* holder = record;
        entry.holder.compare_exchange_strong(holder, &g_ended_thread);
        return true;
    });
    record->tid.store(0, std::memory_order_release);
    g_is_full.store(false, std::memory_order_relaxed);
}

void make_key() {
    g_has_key = pthread_key_create(&g_key, give_back) == 0;
}

}  // namespace

ThreadRecord* take_thread_record() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, make_key);
    if (!g_has_key || are_thread_records_full()) {
        return nullptr;
    }
    const pid_t tid = gettid();
    const auto first = static_cast<std::size_t>(tid);
    for (std::size_t i = 0; i < kMostThreads; ++i) {
        ThreadRecord& record = g_thread_records[(first + i) % kMostThreads];
        pid_t nobody = 0;
        if (record.tid.load(std::memory_order_relaxed) == 0 &&
            record.tid.compare_exchange_strong(nobody, tid, std::memory_order_acq_rel)) {
            pthread_setspecific(g_key, &record);
            t_record = &record;
            return &record;
        }
    }
    g_is_full.store(true, std::memory_order_relaxed);
    return nullptr;
}

bool are_thread_records_full() {
    return g_is_full.load(std::memory_order_relaxed);
}

void forget_thread_records() {
    for (ThreadRecord& record : g_thread_records) {
        if (record.tid.load(std::memory_order_relaxed) != 0) {
            record.wait.lock.store(nullptr, std::memory_order_relaxed);
            record.wait.number.store(0, std::memory_order_relaxed);
            record.tid.store(0, std::memory_order_relaxed);
        }
    }
    g_is_full.store(false, std::memory_order_relaxed);
    t_record = nullptr;
    t_held.clear();
}

ThreadName thread_name(pid_t tid) {
    ThreadName name{};
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/task/%d/comm", static_cast<int>(tid));
    const UniqueFd file(open(path, O_RDONLY | O_CLOEXEC));
    if (file.get() >= 0 && read(file.get(), name.text, sizeof name.text - 1) > 0) {
        name.text[strcspn(name.text, "\n")] = '\0';
    }
    return name;
}

}  // namespace zx::diag

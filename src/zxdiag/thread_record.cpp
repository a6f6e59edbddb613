#include "zxdiag/thread_record.hpp"

#include <pthread.h>
#include <unistd.h>

namespace zx::diag {

constinit ThreadRecord g_thread_records[kMostThreads];
constinit thread_local ThreadRecord* t_record = nullptr;

namespace {

pthread_key_t g_key;
bool g_has_key = false;

// At the end of a thread. One that still takes locks in a later destructor gets another record.
void give_back(void* record) {
    t_record = nullptr;
    static_cast<ThreadRecord*>(record)->tid.store(0, std::memory_order_release);
}

}  // namespace

ThreadRecord* take_thread_record() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, [] { g_has_key = pthread_key_create(&g_key, give_back) == 0; });
    if (!g_has_key) {
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
    return nullptr;
}

void forget_thread_records() {
    for (ThreadRecord& record : g_thread_records) {
        record.tid.store(0, std::memory_order_relaxed);
    }
    t_record = nullptr;
}

}  // namespace zx::diag

// Taking and releasing a lock, also while the diagnosis counts or traces, compared with a bare
// mutex and with those of GLib, Abseil and libevent, the last two also with their own diagnosis.
#include "zxlock.h"

#include <absl/synchronization/mutex.h>
#include <benchmark/benchmark.h>
#include <event2/thread.h>
#include <glib.h>

#include <atomic>
#include <optional>

#include "diagnosis.hpp"
#include "support.hpp"

// The functions behind the locks of libevent. No header declares them.
extern "C" evthread_lock_callbacks evthread_lock_fns_;

namespace {

using zx::bench::Counting;
using zx::bench::kTracedTurns;
using zx::bench::SecondThread;
using zx::bench::Tracing;
using zx::bench::With;

class Library {
public:
    Library() { zxlock_api_init(&lock_, "bench"); }
    ~Library() { zxlock_api_deinit(&lock_); }
    void obtain() { zxlock_api_obtain(&lock_, __func__, __LINE__); }
    void release() { zxlock_api_release(&lock_, __func__, __LINE__); }

private:
    zxlock_ctt lock_{};
};

class Pthread {
public:
    void obtain() { pthread_mutex_lock(&mutex_); }
    void release() { pthread_mutex_unlock(&mutex_); }

private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

class Glib {
public:
    void obtain() { g_mutex_lock(&mutex_); }
    void release() { g_mutex_unlock(&mutex_); }

private:
    GMutex mutex_{};
};

std::atomic<bool> g_is_profiled{false};
std::atomic<std::int64_t> g_waited_cycles{0};

void count_wait(std::int64_t cycles) {
    if (g_is_profiled.load(std::memory_order_relaxed)) {
        g_waited_cycles.fetch_add(cycles, std::memory_order_relaxed);
    }
}

// What Abseil can show is switched on for the whole program: the profile, which is told of waits,
// and the check of the order of locks.
template <bool kIsProfiled, absl::OnDeadlockCycle kCheck = absl::OnDeadlockCycle::kIgnore>
class Abseil {
public:
    Abseil() {
        absl::RegisterMutexProfiler(count_wait);
        g_is_profiled = kIsProfiled;
        absl::SetMutexDeadlockDetectionMode(kCheck);
    }
    void obtain() { mutex_.Lock(); }
    void release() { mutex_.Unlock(); }

private:
    absl::Mutex mutex_;
};
using CheckedAbseil = Abseil<false, absl::OnDeadlockCycle::kReport>;

// The debugging cannot be switched off again, so both kinds of functions are kept.
const evthread_lock_callbacks& libevent_functions(bool is_debugging) {
    static const evthread_lock_callbacks plain = (evthread_use_pthreads(), evthread_lock_fns_);
    static const evthread_lock_callbacks debugging =
        (evthread_enable_lock_debugging(), evthread_lock_fns_);
    return is_debugging ? debugging : plain;
}

template <bool kIsDebugging>
class Libevent {
public:
    ~Libevent() { functions_.free(lock_, EVTHREAD_LOCKTYPE_RECURSIVE); }
    void obtain() { functions_.lock(0, lock_); }
    void release() { functions_.unlock(0, lock_); }

private:
    const evthread_lock_callbacks& functions_ = libevent_functions(kIsDebugging);
    void* lock_ = functions_.alloc(EVTHREAD_LOCKTYPE_RECURSIVE);
};

template <typename Lock>
using Single = Lock;

// A lock that is taken while another one is held.
template <typename Lock>
class Nested {
public:
    void obtain() {
        outer_.obtain();
        inner_.obtain();
    }
    void release() {
        inner_.release();
        outer_.release();
    }

private:
    Lock outer_;
    Lock inner_;
};

#define ZX_BENCH(function, Locks, work, ...)                                            \
    BENCHMARK(function<Locks<Library>>)->Name(work "/library") __VA_ARGS__;             \
    BENCHMARK(function<With<Counting, Locks<Library>>>)                                 \
        ->Name(work "/library+counting") __VA_ARGS__;                                   \
    BENCHMARK(function<Locks<Pthread>>)->Name(work "/pthread") __VA_ARGS__;             \
    BENCHMARK(function<Locks<Glib>>)->Name(work "/glib") __VA_ARGS__;                   \
    BENCHMARK(function<Locks<Abseil<false>>>)->Name(work "/abseil") __VA_ARGS__;        \
    BENCHMARK(function<Locks<Abseil<true>>>)->Name(work "/abseil+profile") __VA_ARGS__; \
    BENCHMARK(function<Locks<CheckedAbseil>>)->Name(work "/abseil+check") __VA_ARGS__;  \
    BENCHMARK(function<Locks<Libevent<false>>>)->Name(work "/libevent") __VA_ARGS__;    \
    BENCHMARK(function<Locks<Libevent<true>>>)->Name(work "/libevent+debugging") __VA_ARGS__

template <typename Lock>
void pairs(benchmark::State& state) {
    const SecondThread second;
    Lock lock;
    for ([[maybe_unused]] auto _ : state) {
        lock.obtain();
        benchmark::ClobberMemory();
        lock.release();
    }
}
ZX_BENCH(pairs, Single, "obtain_release");
ZX_BENCH(pairs, Nested, "obtain_release_nested");
BENCHMARK(pairs<With<Tracing, Library>>)
    ->Name("obtain_release/library+tracing")
    ->Iterations(kTracedTurns);
BENCHMARK(pairs<With<Tracing, Nested<Library>>>)
    ->Name("obtain_release_nested/library+tracing")
    ->Iterations(kTracedTurns);

// Two threads compete for the same lock all the time.
template <typename Lock>
void contended_pairs(benchmark::State& state) {
    static std::optional<Lock> lock;
    if (state.thread_index() == 0) {
        lock.emplace();
    }
    for ([[maybe_unused]] auto _ : state) {
        lock->obtain();
        benchmark::ClobberMemory();
        lock->release();
    }
    if (state.thread_index() == 0) {
        lock.reset();
    }
}
ZX_BENCH(contended_pairs, Single, "obtain_release_contended", ->Threads(2)->UseRealTime());

}  // namespace

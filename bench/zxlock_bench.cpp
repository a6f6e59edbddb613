// Taking and releasing a lock, also while the diagnosis counts, compared with a bare mutex and a
// mutex of GLib.
#include "zxlock.h"

#include <benchmark/benchmark.h>
#include <glib.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

#include "zxdiag.h"

namespace {

// Starts a second thread, which sleeps. With a single thread the C library leaves out the atomic
// operations, which would not be realistic for a server.
class SecondThread {
public:
    ~SecondThread() {
        {
            const std::scoped_lock lock(mutex_);
            done_ = true;
        }
        wake_.notify_one();
        thread_.join();
    }

private:
    void sleep() {
        std::unique_lock lock(mutex_);
        wake_.wait(lock, [this] { return done_; });
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    bool done_ = false;
    std::thread thread_{&SecondThread::sleep, this};
};

class Library {
public:
    Library() { zxlock_api_init(&lock_, "bench"); }
    ~Library() { zxlock_api_deinit(&lock_); }
    void obtain() { zxlock_api_obtain(&lock_, __func__, __LINE__); }
    void release() { zxlock_api_release(&lock_, __func__, __LINE__); }

private:
    zxlock_ctt lock_{};
};

// The same while the diagnosis counts.
class Counting : public Library {
public:
    Counting() { zxdiag_api_start(); }
    ~Counting() { zxdiag_api_stop(); }
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
BENCHMARK(pairs<Library>)->Name("obtain_release/library");
BENCHMARK(pairs<Counting>)->Name("obtain_release/counting");
BENCHMARK(pairs<Pthread>)->Name("obtain_release/pthread");
BENCHMARK(pairs<Glib>)->Name("obtain_release/glib");

// A lock that is taken while another one is held.
template <typename Lock>
void nested_pairs(benchmark::State& state) {
    const SecondThread second;
    Lock outer;
    Lock inner;
    for ([[maybe_unused]] auto _ : state) {
        outer.obtain();
        inner.obtain();
        benchmark::ClobberMemory();
        inner.release();
        outer.release();
    }
}
BENCHMARK(nested_pairs<Library>)->Name("obtain_release_nested/library");
BENCHMARK(nested_pairs<Counting>)->Name("obtain_release_nested/counting");
BENCHMARK(nested_pairs<Pthread>)->Name("obtain_release_nested/pthread");
BENCHMARK(nested_pairs<Glib>)->Name("obtain_release_nested/glib");

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
BENCHMARK(contended_pairs<Library>)
    ->Name("obtain_release_contended/library")
    ->Threads(2)
    ->UseRealTime();
BENCHMARK(contended_pairs<Counting>)
    ->Name("obtain_release_contended/counting")
    ->Threads(2)
    ->UseRealTime();
BENCHMARK(contended_pairs<Pthread>)
    ->Name("obtain_release_contended/pthread")
    ->Threads(2)
    ->UseRealTime();
BENCHMARK(contended_pairs<Glib>)->Name("obtain_release_contended/glib")->Threads(2)->UseRealTime();

}  // namespace

// An uncontended obtain and release beside the bare mutex that it holds.
#include "zxlock.h"

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

// A second thread that sleeps: with a single one the C library leaves the atomic operations out,
// which is not how servers run.
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

void BM_bare_mutex(benchmark::State& state) {
    const SecondThread second;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    for (auto _ : state) {
        pthread_mutex_lock(&mutex);
        benchmark::ClobberMemory();
        pthread_mutex_unlock(&mutex);
    }
}
BENCHMARK(BM_bare_mutex);

void BM_zxlock(benchmark::State& state) {
    const SecondThread second;
    zxlock_ctt lock{};
    zxlock_api_init(&lock, "bench");
    for (auto _ : state) {
        zxlock_api_obtain(&lock, __func__, __LINE__);
        benchmark::ClobberMemory();
        zxlock_api_release(&lock, __func__, __LINE__);
    }
    zxlock_api_deinit(&lock);
}
BENCHMARK(BM_zxlock);

}  // namespace

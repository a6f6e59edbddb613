// What the benchmarks share.
//
// The name of a benchmark is Work/who[/argument ...]. `who` is "library" for this library; every
// other `who` with the same work and arguments is a peer. scripts/bench_report.py relies on these
// names.
#pragma once

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace zx::bench {

inline std::vector<std::uint8_t> some_bytes(std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    std::uint32_t state = 1;
    for (std::uint8_t& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<std::uint8_t>(state >> 24U);
    }
    return bytes;
}

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

// Hides the value of `value` from the compiler.
template <typename Value>
Value opaque(Value value) {
    benchmark::DoNotOptimize(value);
    return value;
}

// Measures `kCall(data, size)`. The first argument of the benchmark is the number of bytes.
template <auto kCall>
void over_bytes(benchmark::State& state) {
    const auto bytes = some_bytes(static_cast<std::size_t>(state.range(0)));
    for ([[maybe_unused]] auto _ : state) {
        const std::uint8_t* data = bytes.data();
        benchmark::DoNotOptimize(data);
        kCall(data, bytes.size());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

}  // namespace zx::bench

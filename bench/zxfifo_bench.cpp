// Length-prefixed messages through the block FIFO, through libavutil's AVFifo under a mutex a call
// and through JACK's ring buffer (which is for one reader and one writer) with the same mutexes.
#include "zxfifo.h"

#include <benchmark/benchmark.h>
#include <jack/ringbuffer.h>
#include <pthread.h>
#include <sched.h>

extern "C" {
#include <libavutil/fifo.h>
}

#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kCapacity = 1U << 20U;

class BlockFifo {
public:
    BlockFifo() : fifo_(zxfifo_api_blockInit(kCapacity, "bench")) {}
    ~BlockFifo() { zxfifo_api_blockDeinit(&fifo_); }
    bool has_room(std::uint32_t size) {
        return static_cast<std::uint32_t>(zxfifo_api_blockSizeLeft(fifo_)) >=
               size + ZXFIFO_PREFIX_SIZE;
    }
    bool has_message() { return zxfifo_api_blockSizeUsed(fifo_) > 0; }
    void put(const std::vector<std::uint8_t>& data) {
        zxfifo_api_blockLenIn(fifo_, data.data(), static_cast<std::int32_t>(data.size()));
    }
    void get(std::vector<std::uint8_t>& data) {
        zxfifo_api_blockLenOut1(fifo_, data.data(), static_cast<std::uint32_t>(data.size()),
                                __func__, __LINE__);
    }

private:
    zxfifoblock_ctt* fifo_;
};

class Mutex {
public:
    void lock() { pthread_mutex_lock(&mutex_); }
    void unlock() { pthread_mutex_unlock(&mutex_); }

private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

class AvFifo {
public:
    AvFifo() : fifo_(av_fifo_alloc2(kCapacity, 1, 0)) {}
    ~AvFifo() { av_fifo_freep2(&fifo_); }
    bool has_room(std::uint32_t size) {
        const std::scoped_lock held(mutex_);
        return av_fifo_can_write(fifo_) >= size + sizeof size;
    }
    bool has_message() {
        const std::scoped_lock held(mutex_);
        return av_fifo_can_read(fifo_) > 0;
    }
    void put(const std::vector<std::uint8_t>& data) {
        const auto size = static_cast<std::uint32_t>(data.size());
        const std::scoped_lock held(mutex_);
        av_fifo_write(fifo_, &size, sizeof size);
        av_fifo_write(fifo_, data.data(), size);
    }
    void get(std::vector<std::uint8_t>& data) {
        std::uint32_t size = 0;
        const std::scoped_lock held(mutex_);
        av_fifo_read(fifo_, &size, sizeof size);
        av_fifo_read(fifo_, data.data(), size);
    }

private:
    Mutex mutex_;
    AVFifo* fifo_;
};

class JackRing {
public:
    JackRing() : ring_(jack_ringbuffer_create(kCapacity)) {}
    ~JackRing() { jack_ringbuffer_free(ring_); }
    void put(const std::vector<std::uint8_t>& data) {
        const auto size = static_cast<std::uint32_t>(data.size());
        const std::scoped_lock held(mutex_);
        jack_ringbuffer_write(ring_, reinterpret_cast<const char*>(&size), sizeof size);
        jack_ringbuffer_write(ring_, reinterpret_cast<const char*>(data.data()), size);
    }
    void get(std::vector<std::uint8_t>& data) {
        std::uint32_t size = 0;
        const std::scoped_lock held(mutex_);
        jack_ringbuffer_read(ring_, reinterpret_cast<char*>(&size), sizeof size);
        jack_ringbuffer_read(ring_, reinterpret_cast<char*>(data.data()), size);
    }

private:
    Mutex mutex_;
    jack_ringbuffer_t* ring_;
};

template <typename Fifo>
void BM_one_thread(benchmark::State& state) {
    Fifo fifo;
    const std::vector<std::uint8_t> in(static_cast<std::size_t>(state.range(0)), 0x47);
    std::vector<std::uint8_t> out(in.size());
    for (auto _ : state) {
        fifo.put(in);
        fifo.get(out);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK_TEMPLATE(BM_one_thread, BlockFifo)->Arg(188)->Arg(1316);
BENCHMARK_TEMPLATE(BM_one_thread, AvFifo)->Arg(188)->Arg(1316);
BENCHMARK_TEMPLATE(BM_one_thread, JackRing)->Arg(188)->Arg(1316);

// A producer and a consumer that ask before they act, a batch of messages an iteration.
template <typename Fifo>
void BM_two_threads(benchmark::State& state) {
    constexpr int kBatch = 1000;
    Fifo fifo;
    const auto size = static_cast<std::uint32_t>(state.range(0));
    const std::vector<std::uint8_t> in(size, 0x47);
    std::vector<std::uint8_t> out(size);
    for (auto _ : state) {
        std::thread producer([&] {
            for (int i = 0; i < kBatch; ++i) {
                while (!fifo.has_room(size)) {
                    sched_yield();
                }
                fifo.put(in);
            }
        });
        for (int i = 0; i < kBatch; ++i) {
            while (!fifo.has_message()) {
                sched_yield();
            }
            fifo.get(out);
        }
        producer.join();
    }
    state.SetBytesProcessed(state.iterations() * kBatch * state.range(0));
}
BENCHMARK_TEMPLATE(BM_two_threads, BlockFifo)->Arg(1316)->Arg(65536)->UseRealTime();
BENCHMARK_TEMPLATE(BM_two_threads, AvFifo)->Arg(1316)->Arg(65536)->UseRealTime();

}  // namespace

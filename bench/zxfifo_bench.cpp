// Length-prefixed messages through the block FIFO, compared with libavutil's AVFifo under a mutex,
// and with the ring buffers of JACK and Boost, which have no lock and allow one reader and one
// writer. JACK's also runs under a mutex. Nodes through the list pool, compared with GLib's queues.
#include "zxfifo.h"

#include <benchmark/benchmark.h>
#include <glib.h>
#include <jack/ringbuffer.h>
#include <pthread.h>
#include <sched.h>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
#include <boost/lockfree/spsc_queue.hpp>
#pragma GCC diagnostic pop

extern "C" {
#include <libavutil/fifo.h>
}

#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "diagnosis.hpp"
#include "support.hpp"

namespace {

using zx::bench::Counting;
using zx::bench::kTracedTurns;
using zx::bench::SecondThread;
using zx::bench::Tracing;
using zx::bench::With;

constexpr std::size_t kCapacity = 1U << 20U;

class BlockFifo {
public:
    BlockFifo() : fifo_(zxfifo_api_blockInit(kCapacity, "bench")) {}
    ~BlockFifo() { zxfifo_api_blockDeinit(&fifo_); }
    bool has_room(std::uint32_t size) {
        return static_cast<std::uint32_t>(zxfifo_api_blockSizeLeft(fifo_)) >=
               size + ZXFIFO_PREFIX_SIZE;
    }
    bool has_message(std::uint32_t) { return zxfifo_api_blockSizeUsed(fifo_) > 0; }
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
    bool has_message(std::uint32_t) {
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

struct NoLock {
    void lock() {}
    void unlock() {}
};

template <typename Lock>
class JackRing {
public:
    JackRing() : ring_(jack_ringbuffer_create(kCapacity)) {}
    ~JackRing() { jack_ringbuffer_free(ring_); }
    bool has_room(std::uint32_t size) {
        const std::scoped_lock held(lock_);
        return jack_ringbuffer_write_space(ring_) >= size + sizeof size;
    }
    bool has_message(std::uint32_t size) {
        const std::scoped_lock held(lock_);
        return jack_ringbuffer_read_space(ring_) >= size + sizeof size;
    }
    void put(const std::vector<std::uint8_t>& data) {
        const auto size = static_cast<std::uint32_t>(data.size());
        const std::scoped_lock held(lock_);
        jack_ringbuffer_write(ring_, reinterpret_cast<const char*>(&size), sizeof size);
        jack_ringbuffer_write(ring_, reinterpret_cast<const char*>(data.data()), size);
    }
    void get(std::vector<std::uint8_t>& data) {
        std::uint32_t size = 0;
        const std::scoped_lock held(lock_);
        jack_ringbuffer_read(ring_, reinterpret_cast<char*>(&size), sizeof size);
        jack_ringbuffer_read(ring_, reinterpret_cast<char*>(data.data()), size);
    }

private:
    Lock lock_;
    jack_ringbuffer_t* ring_;
};

class BoostQueue {
public:
    bool has_room(std::uint32_t size) { return queue_.write_available() >= size + sizeof size; }
    bool has_message(std::uint32_t size) { return queue_.read_available() >= size + sizeof size; }
    void put(const std::vector<std::uint8_t>& data) {
        const auto size = static_cast<std::uint32_t>(data.size());
        queue_.push(reinterpret_cast<const std::uint8_t*>(&size), sizeof size);
        queue_.push(data.data(), size);
    }
    void get(std::vector<std::uint8_t>& data) {
        std::uint32_t size = 0;
        queue_.pop(reinterpret_cast<std::uint8_t*>(&size), sizeof size);
        queue_.pop(data.data(), size);
    }

private:
    boost::lockfree::spsc_queue<std::uint8_t> queue_{kCapacity};
};

template <typename Fifo>
void one_thread(benchmark::State& state) {
    const SecondThread second;
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
#define ZX_BENCH(function, work, ...)                                                           \
    BENCHMARK(function<BlockFifo>)->Name(work "/library") __VA_ARGS__;                          \
    BENCHMARK(function<With<Counting, BlockFifo>>)->Name(work "/library+counting") __VA_ARGS__; \
    BENCHMARK(function<AvFifo>)->Name(work "/libavutil+mutex") __VA_ARGS__;                     \
    BENCHMARK(function<JackRing<Mutex>>)->Name(work "/jack+mutex") __VA_ARGS__;                 \
    BENCHMARK(function<JackRing<NoLock>>)->Name(work "/jack") __VA_ARGS__;                      \
    BENCHMARK(function<BoostQueue>)->Name(work "/boost-spsc") __VA_ARGS__

ZX_BENCH(one_thread, "blockLenIn_blockLenOut1", ->Arg(188)->Arg(1316));
BENCHMARK(one_thread<With<Tracing, BlockFifo>>)
    ->Name("blockLenIn_blockLenOut1/library+tracing")
    ->Arg(188)
    ->Arg(1316)
    ->Iterations(kTracedTurns);

// A producer and a consumer that check the FIFO before each call. One iteration is a batch of
// messages.
template <typename Fifo>
void two_threads(benchmark::State& state) {
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
            while (!fifo.has_message(size)) {
                sched_yield();
            }
            fifo.get(out);
        }
        producer.join();
    }
    state.SetBytesProcessed(state.iterations() * kBatch * state.range(0));
    state.SetItemsProcessed(state.iterations() * kBatch);
}
ZX_BENCH(two_threads,
         "blockLenIn_blockLenOut1_two_threads", ->Arg(1316)->Arg(65536)->UseRealTime());

// Adds a node to a queue that has some, and takes another one out.
class ListPool {
public:
    void put() { zxfifo_api_listIn(&head_, zxfifo_api_listMalloc(kNode, "bench")); }
    void get() {
        zxfifolist_ctt* node = zxfifo_api_listOut(&head_);
        zxfifo_api_listDemalloc(&node);
    }
    static constexpr std::uint32_t kNode = 188;

private:
    zxfifolist_ctt* head_ = nullptr;
};

class GlibQueue {
public:
    void put() { g_queue_push_tail(queue_, g_malloc0(ListPool::kNode)); }
    void get() { g_free(g_queue_pop_head(queue_)); }

private:
    GQueue* queue_ = g_queue_new();
};

class GlibAsyncQueue {
public:
    void put() { g_async_queue_push(queue_, g_malloc0(ListPool::kNode)); }
    void get() { g_free(g_async_queue_pop(queue_)); }

private:
    GAsyncQueue* queue_ = g_async_queue_new();
};

template <typename Queue>
void nodes(benchmark::State& state) {
    const SecondThread second;
    Queue queue;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        queue.put();
    }
    for ([[maybe_unused]] auto _ : state) {
        queue.put();
        queue.get();
    }
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        queue.get();
    }
}
BENCHMARK(nodes<ListPool>)->Name("listIn_listOut/library")->Arg(1)->Arg(10)->Arg(100);
BENCHMARK(nodes<GlibQueue>)->Name("listIn_listOut/glib-queue")->Arg(1)->Arg(10)->Arg(100);
BENCHMARK(nodes<GlibAsyncQueue>)->Name("listIn_listOut/glib-async")->Arg(1)->Arg(10)->Arg(100);

}  // namespace

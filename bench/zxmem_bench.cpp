// A tracked allocation and its free while many buffers are in use, compared with calloc and a table
// of the buffers under a mutex.
#include "zxmem.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "zxdiag.h"

namespace {

constexpr std::uint32_t kSize = 256;
constexpr char kName[] = "a buffer of the benchmark";

struct Tracked {
    Tracked() { zxmem_api_init(1); }
    ~Tracked() { zxmem_api_deinit(); }
    void* take() { return zxmem_api_malloc(kSize, kName, "bench", __LINE__); }
    void give(void* buffer) { zxmem_api_free(&buffer); }
};

// The same, while the diagnosis counts the buffers by place.
struct Counted {
    Counted() { zxdiag_api_start(); }
    ~Counted() { zxdiag_api_stop(); }
    void* take() { return tracked_.take(); }
    void give(void* buffer) { tracked_.give(buffer); }

private:
    Tracked tracked_;
};

// A simple implementation that offers the same information.
class Table {
public:
    void* take() {
        void* const buffer = std::calloc(1, kSize);
        const std::scoped_lock lock(mutex_);
        nodes_[buffer] = {kSize, kName, std::time(nullptr), "bench", __LINE__};
        return buffer;
    }
    void give(void* buffer) {
        {
            const std::scoped_lock lock(mutex_);
            nodes_.erase(buffer);
        }
        std::free(buffer);
    }

private:
    struct Node {
        std::uint32_t size;
        std::string name;
        std::time_t time;
        const char* file;
        std::uint32_t line;
    };
    std::mutex mutex_;
    std::unordered_map<void*, Node> nodes_;
};

// For each buffer that is allocated, the oldest one is freed, as in a queue.
template <typename Allocator>
void allocates(benchmark::State& state) {
    Allocator allocator;
    std::vector<void*> live(static_cast<std::size_t>(state.range(0)));
    for (void*& buffer : live) {
        buffer = allocator.take();
    }
    std::size_t oldest = 0;
    for (auto _ : state) {
        allocator.give(live[oldest]);
        live[oldest] = allocator.take();
        benchmark::DoNotOptimize(live[oldest]);
        oldest = oldest + 1 == live.size() ? 0 : oldest + 1;
    }
    for (void* buffer : live) {
        allocator.give(buffer);
    }
}
BENCHMARK_TEMPLATE(allocates, Tracked)
    ->Name("malloc_free/library")
    ->Arg(10)
    ->Arg(1000)
    ->Arg(100000);
BENCHMARK_TEMPLATE(allocates, Counted)
    ->Name("malloc_free/library, counting")
    ->Arg(10)
    ->Arg(1000)
    ->Arg(100000);
BENCHMARK_TEMPLATE(allocates, Table)
    ->Name("malloc_free/calloc+map")
    ->Arg(10)
    ->Arg(1000)
    ->Arg(100000);

}  // namespace

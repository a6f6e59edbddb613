// A tracked allocation and its free while many buffers are in use, compared with calloc and a table
// of the buffers under a mutex. And calloc and free alone, for scripts/bench-tools.sh.
#include "zxmem.h"

#include <benchmark/benchmark.h>
#include <mcheck.h>

#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "diagnosis.hpp"
#include "support.hpp"

namespace {

using zx::bench::Counting;
using zx::bench::kTracedTurns;
using zx::bench::SecondThread;
using zx::bench::Tracing;
using zx::bench::With;

constexpr std::uint32_t kSize = 256;
constexpr char kName[] = "a buffer of the benchmark";

struct Tracked {
    Tracked() { zxmem_api_init(1); }
    ~Tracked() { zxmem_api_deinit(); }
    void* take() { return zxmem_api_malloc(kSize, kName, "bench", __LINE__); }
    void give(void* buffer) { zxmem_api_free(&buffer); }
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

// Lets glibc trace the allocations if the environment says so.
struct Untracked {
    Untracked() { mtrace(); }
    ~Untracked() { muntrace(); }
    void* take() { return std::calloc(1, kSize); }
    void give(void* buffer) { std::free(buffer); }
};

// For each buffer that is allocated, the oldest one is freed, as in a queue.
template <typename Allocator>
void allocates(benchmark::State& state) {
    const SecondThread second;
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
#define ZX_BENCH(allocator, name) \
    BENCHMARK(allocates<allocator>)->Name(name)->Arg(10)->Arg(1000)->Arg(100000)
using Counted = With<Counting, Tracked>;
using Traced = With<Tracing, Tracked>;
ZX_BENCH(Tracked, "malloc_free/library");
ZX_BENCH(Counted, "malloc_free/library+counting");
BENCHMARK(allocates<Traced>)
    ->Name("malloc_free/library+tracing")
    ->Arg(10)
    ->Iterations(kTracedTurns);
ZX_BENCH(Table, "malloc_free/calloc+map");
ZX_BENCH(Untracked, "calloc_free/glibc");

}  // namespace

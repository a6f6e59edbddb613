// The upper limit for the speed of reading and writing: a memcpy of the sizes that the other
// programs use.
#include <cstring>

#include "support.hpp"

namespace {

// The distance between the two buffers is not a multiple of the page size. Otherwise loads after a
// store would be slower.
void copies(benchmark::State& state) {
    constexpr std::size_t kApart = 2048;
    const auto size = static_cast<std::size_t>(state.range(0));
    auto bytes = zx::bench::some_bytes(2 * size + kApart);
    for ([[maybe_unused]] auto _ : state) {
        std::memcpy(bytes.data() + size + kApart, bytes.data(), zx::bench::opaque(size));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void sizes(benchmark::internal::Benchmark* bench) {
    for (const int size : {8, 16, 20, 40, 48, 64, 100, 176, 188, 1000, 1024, 1316, 1400, 1500, 4096,
                           65536, 1 << 20}) {
        bench->Arg(size);
    }
}
BENCHMARK(copies)->Name("memcpy/limit")->Apply(sizes);

}  // namespace

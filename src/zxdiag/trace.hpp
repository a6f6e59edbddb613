// A record of how long the threads wait and work, for a while.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

#include "zxdiag/hooks.hpp"

namespace zx::diag {

enum class Span : std::uint8_t { lock_wait, lock_hold, fifo_in, fifo_out, socket_wait, command };

[[nodiscard]] inline std::uint64_t steady_ns() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
           static_cast<std::uint64_t>(now.tv_nsec);
}

// Records what began at `begin_ns` and ends now. `name` need not have an end within `limit` bytes.
// `amount`: bytes, a descriptor or 0.
void trace(Span span, std::uint64_t begin_ns, const char* name, std::size_t limit,
           std::int64_t amount);

// In the child of a fork, where nobody traces.
void forget_trace();

// Traces the rest of a block, which waits for something outside the program, and has a probe for
// perf and bpftrace at its beginning and at its end. A thread that is cancelled in it leaves no
// trace. One must not be made inside another.
class TracedWait {
public:
    // `name` must stay as long as the object.
    TracedWait(Span span, const char* name, std::int64_t amount = 0);
    TracedWait(const TracedWait&) = delete;
    TracedWait& operator=(const TracedWait&) = delete;
    ~TracedWait();

private:
    std::uint64_t begin_ns_;  // 0: nothing is traced
    const char* name_;
    std::int64_t amount_;
    Span span_;
    bool is_noted_;
};

}  // namespace zx::diag

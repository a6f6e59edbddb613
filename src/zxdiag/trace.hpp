// A record of how long the threads wait and work, for a while.
#pragma once

#include <sys/sdt.h>

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

// Notes what the calling thread waits for outside the program, for a trace that ends meanwhile.
// False: there is no room, and nothing is to be ended.
[[nodiscard]] bool begin_outside_wait(Span span, const char* name, std::int64_t amount);
void end_outside_wait();

// In the child of a fork, where nobody traces.
void forget_trace();

// Traces the rest of a block, which waits for something outside the program, and has a probe for
// perf and bpftrace at its beginning and at its end. A thread that is cancelled in it leaves no
// trace. One must not be made inside another.
class TracedWait {
public:
    // `name` must stay as long as the object.
    TracedWait(Span span, const char* name, std::int64_t amount = 0)
        : begin_ns_(is_tracing() ? steady_ns() : 0), name_(name), amount_(amount), span_(span) {
        if (is_on()) [[unlikely]] {
            is_noted_ = begin_outside_wait(span_, name_, amount_);
        }
        DTRACE_PROBE3(zxcommon, wait_begin, static_cast<int>(span_), name_, amount_);
    }
    TracedWait(const TracedWait&) = delete;
    TracedWait& operator=(const TracedWait&) = delete;
    ~TracedWait() {
        DTRACE_PROBE3(zxcommon, wait_end, static_cast<int>(span_), name_, amount_);
        if (is_noted_) [[unlikely]] {
            end_outside_wait();
        }
        if (begin_ns_ != 0) [[unlikely]] {
            trace(span_, begin_ns_, name_, kWholeText, amount_);
        }
    }

private:
    static constexpr std::size_t kWholeText = 4096;
    std::uint64_t begin_ns_;  // 0: nothing is traced
    const char* name_;
    std::int64_t amount_;
    Span span_;
    bool is_noted_ = false;
};

}  // namespace zx::diag

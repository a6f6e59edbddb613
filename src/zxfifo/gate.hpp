// Readers that take no lock, and a writer that must not free what they read.
#pragma once

#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <cstdint>

namespace zx::fifo {

// Readers count themselves in and out, in the phase that they meet; they never wait. A writer
// begins the other phase and waits until those of the earlier one have left: what it took out of
// their way before, it may free then.
class alignas(64) Gate {
public:
    class Reader {
    public:
        explicit Reader(Gate& gate) : gate_(gate), phase_(gate.enter()) {}
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;
        ~Reader() { gate_.readers_[phase_].fetch_sub(1); }

    private:
        Gate& gate_;
        unsigned phase_;
    };

    // For one writer at a time.
    void wait_for_earlier_readers() {
        const unsigned earlier = phase_.load();
        phase_.store(1 - earlier);
        while (readers_[earlier].load() != 0) {
            sched_yield();
        }
    }

private:
    // A reader that the writer has overlooked, having begun the next phase meanwhile, sees that and
    // counts itself there.
    unsigned enter() {
        for (;;) {
            const unsigned phase = phase_.load();
            readers_[phase].fetch_add(1);
            if (phase_.load() == phase) [[likely]] {
                return phase;
            }
            readers_[phase].fetch_sub(1);
        }
    }

    std::atomic<unsigned> phase_{0};
    std::atomic<std::uint32_t> readers_[2]{};
};

}  // namespace zx::fifo

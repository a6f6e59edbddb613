// Readers that take no lock, and a writer that frees what they read only after they have left.
#pragma once

#include <atomic>
#include <cstdint>

#include "internal/mutex.hpp"

namespace zx::fifo {

// There are two phases. Readers count themselves in and out of the current one, and never wait. A
// writer takes something out of the readers' way, begins the other phase, and sleeps until all
// readers of the earlier phase have left. Then it may free what it took out.
//
// This needs the default memory order. A reader counts itself and then looks at the phase; a writer
// begins the next phase and then looks at the count. So one of the two sees the other.
class alignas(64) Gate {
public:
    class Reader {
    public:
        explicit Reader(Gate& gate) : gate_(gate), phase_(gate.enter()) {}
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;
        ~Reader() { gate_.leave(phase_); }

    private:
        Gate& gate_;
        unsigned phase_;
    };

    // Writers may call this at any time; they go one after the other. It is no cancellation point.
    void wait_for_earlier_readers() {
        const MutexGuard guard(writers_);
        const unsigned earlier = phase_.load();
        phase_.store(1 - earlier);
        for (std::uint32_t left = readers_[earlier].load(); left != 0;
             left = readers_[earlier].load()) {
            readers_[earlier].wait(left);
        }
    }

    // For the child of a fork, which has none of the other threads.
    void forget_other_threads() {
        writers_.forget_other_threads();
        readers_[0] = 0;
        readers_[1] = 0;
    }

private:
    // The writer may begin the next phase before it sees this reader. The reader notices that, and
    // counts itself in the next phase instead.
    unsigned enter() {
        for (;;) {
            const unsigned phase = phase_.load();
            readers_[phase].fetch_add(1);
            if (phase_.load() == phase) [[likely]] {
                return phase;
            }
            leave(phase);
        }
    }

    void leave(unsigned phase) {
        if (readers_[phase].fetch_sub(1) == 1) {
            readers_[phase].notify_all();  // no system call unless somebody waits
        }
    }

    Mutex writers_;
    std::atomic<unsigned> phase_{0};
    std::atomic<std::uint32_t> readers_[2]{};
};

}  // namespace zx::fifo

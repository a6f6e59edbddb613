// Readers that take no lock, and a writer that must not free what they read.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

namespace zx::fifo {

// Readers count themselves in and out, in the phase that they meet; they never wait. A writer
// begins the other phase and sleeps until those of the earlier one have left: what it took out of
// their way before, it may free then.
//
// The default memory order is needed: a reader looks at the phase after it has counted itself, a
// writer at the count after it has begun the next phase. One of the two sees the other.
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

    // Any number of writers, one after the other. It is no cancellation point.
    void wait_for_earlier_readers() {
        pthread_mutex_lock(&writers_);
        const unsigned earlier = phase_.load();
        phase_.store(1 - earlier);
        for (std::uint32_t left = readers_[earlier].load(); left != 0;
             left = readers_[earlier].load()) {
            readers_[earlier].wait(left);
        }
        pthread_mutex_unlock(&writers_);
    }

    // In the child of a fork, which has none of the other threads.
    void forget_other_threads() {
        writers_ = PTHREAD_MUTEX_INITIALIZER;
        readers_[0] = 0;
        readers_[1] = 0;
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
            leave(phase);
        }
    }

    void leave(unsigned phase) {
        if (readers_[phase].fetch_sub(1) == 1) {
            readers_[phase].notify_all();  // asks the system for nothing while nobody waits
        }
    }

    pthread_mutex_t writers_ = PTHREAD_MUTEX_INITIALIZER;
    std::atomic<unsigned> phase_{0};
    std::atomic<std::uint32_t> readers_[2]{};
};

}  // namespace zx::fifo

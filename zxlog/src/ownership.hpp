// The right to change where the log's lines go. Unlike a lock, it never makes a line wait.
#pragma once

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace zxlog {

// A thread that writes a line tries to get the right, and goes on without it if another thread has
// it. `holder` is the id of the process whose thread has the right, or 0. When a thread of the
// parent had it during a fork, the child sees another id than its own, and takes the right over.
// The thread that has the right cannot be cancelled.
class Ownership {
public:
    using Holder = std::atomic<pid_t>;

    explicit Ownership(Holder& holder) : holder_(holder) {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state_);
        const pid_t self = getpid();
        pid_t seen = 0;
        while (!held_ && seen != self) {
            held_ = holder_.compare_exchange_strong(seen, self, std::memory_order_acquire);
        }
    }
    ~Ownership() {
        if (held_) {
            holder_.store(0, std::memory_order_release);
        }
        pthread_setcancelstate(cancel_state_, nullptr);
    }
    Ownership(const Ownership&) = delete;
    Ownership& operator=(const Ownership&) = delete;

    [[nodiscard]] bool held() const { return held_; }

private:
    Holder& holder_;
    bool held_ = false;
    int cancel_state_ = 0;
};

}  // namespace zxlog

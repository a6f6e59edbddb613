// The right to change where lines go, without a lock that a line would have to wait for.
#pragma once

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace zxlog {

// Writing a line only tries to get it. It names the process that holds it: when a thread of the
// parent held it during a fork, the child takes it over. The holder cannot be cancelled.
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

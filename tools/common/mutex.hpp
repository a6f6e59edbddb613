// Locks that clang can check: std::mutex does not say what takes it.
#pragma once

#include <condition_variable>
#include <mutex>

#include "shared/thread_safety.hpp"

namespace tools {

class ZX_CAPABILITY("mutex") Mutex {
private:
    friend class MutexGuard;
    std::mutex mutex_;
};

// Holds a mutex until the end of the block.
class ZX_SCOPED_CAPABILITY MutexGuard {
public:
    explicit MutexGuard(Mutex& mutex) ZX_ACQUIRE(mutex) : lock_(mutex.mutex_) {}
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;
    ~MutexGuard() ZX_RELEASE() {}

    void unlock() ZX_RELEASE() { lock_.unlock(); }
    void lock() ZX_ACQUIRE() { lock_.lock(); }

    // Frees the mutex while it waits, and holds it again when it returns.
    template <typename Time>
    std::cv_status wait_until(std::condition_variable& changed, const Time& time) {
        return changed.wait_until(lock_, time);
    }

private:
    std::unique_lock<std::mutex> lock_;
};

}  // namespace tools

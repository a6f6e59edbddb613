// A mutex of the diagnosis itself. What is done while it is held is short, and calls nothing of the
// program.
#pragma once

#include <pthread.h>

namespace zx::diag {

class Mutex {
public:
    // For the child of a fork, in which a thread that no longer exists may have held it.
    void forget_other_threads() { mutex_ = PTHREAD_MUTEX_INITIALIZER; }

private:
    friend class MutexGuard;
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

class MutexGuard {
public:
    explicit MutexGuard(Mutex& mutex) : mutex_(mutex.mutex_) { pthread_mutex_lock(&mutex_); }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;
    ~MutexGuard() { pthread_mutex_unlock(&mutex_); }

private:
    pthread_mutex_t& mutex_;
};

}  // namespace zx::diag

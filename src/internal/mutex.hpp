// Locks for the library's own state.
#pragma once

#include <pthread.h>

#include "shared/thread_safety.hpp"
#include "zxlock.h"

namespace zx {

// A named lock that guards state of the library; zx::LockGuard holds it.
using NamedLock ZX_CAPABILITY("lock") = zxlock_ctt;

// What is done while it is held is short, and calls nothing of the program.
class ZX_CAPABILITY("mutex") Mutex {
public:
    // For the child of a fork, in which a thread that no longer exists may have held it. The child
    // has one thread, which may then use what the mutex guards.
    void forget_other_threads() ZX_ASSERT_HELD(this) { mutex_ = PTHREAD_MUTEX_INITIALIZER; }

    // For a lambda that is called under the mutex: clang does not see who calls it.
    void is_held() const ZX_ASSERT_HELD(this) {}

private:
    friend class MutexGuard;
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

class ZX_SCOPED_CAPABILITY MutexGuard {
public:
    explicit MutexGuard(Mutex& mutex) ZX_ACQUIRE(mutex) : mutex_(mutex.mutex_) {
        pthread_mutex_lock(&mutex_);
    }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;
    ~MutexGuard() ZX_RELEASE() { pthread_mutex_unlock(&mutex_); }

private:
    pthread_mutex_t& mutex_;
};

}  // namespace zx

// A lock that is held until the end of a block.
#pragma once

#include "internal/lock_holder.hpp"
#include "internal/mutex.hpp"
#include "zxlock.h"

namespace zx {

// Holds a lock; `func` and `line` are the place that holds it. A lock that cannot be used is
// reported and not held.
class ZX_SCOPED_CAPABILITY LockGuard {
public:
    // Inlined by hand: the compiler takes the probes for long code, but they are nops.
    [[gnu::always_inline]] LockGuard(NamedLock& lock, const char* func, int line) ZX_ACQUIRE(lock)
        : lock_(lock), func_(func), line_(line) {
        if (lock::is_usable(&lock_)) [[likely]] {
            lock::obtain(lock_, func_, line_);
        } else {
            zxlock_api_obtain(&lock_, func_, line_);
        }
    }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;
    ~LockGuard() ZX_RELEASE() {
        if (lock::is_usable(&lock_)) [[likely]] {
            lock::release(lock_);
        } else {
            zxlock_api_release(&lock_, func_, line_);
        }
    }

private:
    zxlock_ctt& lock_;
    const char* func_;
    int line_;
};

}  // namespace zx

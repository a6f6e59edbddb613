#include "zxthread.h"

#include <sys/prctl.h>

#include <cstddef>
#include <cstring>

#include "internal/args.hpp"
#include "internal/fixed_text.hpp"
#include "internal/log.hpp"
#include "internal/poll.hpp"
#include "zxdiag/hooks.hpp"
#include "zxlock.h"

namespace {

constexpr char kTag[] = "THREAD";

enum class Usable { yes, missing, not_created };

// Tells whether the record has a mutex. Logs when it has none.
Usable check(zxthread_ctt* thread, zx::Caller caller = {}) {
    if (!zx::are_given({{thread, "pzxthread_ctt"}}, kTag, caller)) {
        return Usable::missing;
    }
    if (thread->created == 1) {
        return Usable::yes;
    }
    if (__atomic_exchange_n(&thread->misuse_logged, 1, __ATOMIC_RELAXED) == 0) {
        ZX_LOG_AT(caller, error, "%.128s:must be call zxthread_api_create first", thread->name);
    }
    return Usable::not_created;
}

// The caller holds the mutex, and the state word may have changed. There is no thread if it could
// not be created.
void unlock(zxthread_ctt& thread) {
    if (zx::diag::is_on() && thread.created == 1) [[unlikely]] {
        zx::diag::thread_state(thread);
    }
    pthread_mutex_unlock(&thread.mutex);
}

// Holds the mutex of a record that has one.
class StateLock {
public:
    explicit StateLock(zxthread_ctt& thread) : thread_(thread) {
        pthread_mutex_lock(&thread_.mutex);
    }
    StateLock(const StateLock&) = delete;
    StateLock& operator=(const StateLock&) = delete;
    ~StateLock() { unlock(thread_); }

private:
    zxthread_ctt& thread_;
};

}  // namespace

extern "C" void zxthread_api_envInit(void) {
    std::memset(zxlocklist_ctt, 0, sizeof zxlocklist_ctt);
}

extern "C" int32_t zxthread_api_setName(const char* name) {
    if (!ZX_ARE_GIVEN({name, "name"})) {
        return -1;
    }
    if (prctl(PR_SET_NAME, name) != 0) {
        ZX_LOG(warning, "prctl(PR_SET_NAME):%s  failed", name);
        return -1;
    }
    return 0;
}

extern "C" int32_t zxthread_api_create(zxthread_ctt* thread, const char* name,
                                       zxthread_func_cb func, void* argument) {
    if (!ZX_ARE_GIVEN({thread, "pzxthread_ctt"}, {name, "name"}, {func, "zxthrad_func"})) {
        return -1;
    }
    if (thread->created == 1) {
        ZX_LOG(error, "no need to create");
        return -2;
    }

    zx::diag::something_is_made();
    std::memset(thread, 0, sizeof *thread);
    ZX_FILL_FIELD(thread->name, name);
    if (const int code = pthread_mutex_init(&thread->mutex, nullptr); code != 0) {
        ZX_LOG(error, "%.128s:pthread_mutex_init failed : %s", thread->name, std::strerror(code));
        return -1;
    }
    // A fast worker has to wait in its first operation until the record is complete.
    const StateLock guard(*thread);
    thread->created = 1;
    if (pthread_create(&thread->handle, nullptr, func, argument) != 0) {
        thread->created = 0;
        ZX_LOG(error, "%.128s:create thread failed", thread->name);
        return -1;
    }
    thread->state = ZXTHREAD_STATE_CREATED;
    return 0;
}

extern "C" int32_t zxthread_api_destroy(zxthread_ctt* thread) {
    if (!ZX_ARE_GIVEN({thread, "pzxthread_ctt"})) {
        return -1;
    }
    if (thread->created != 1) {
        ZX_LOG(error, "no need to destroy");
        return -2;
    }
    pthread_mutex_destroy(&thread->mutex);
    pthread_cancel(thread->handle);
    if (pthread_join(thread->handle, nullptr) != 0) {
        ZX_LOG(error, "%.128s:pthread_join(): error", thread->name);
    }
    if (zx::diag::was_on()) {
        zx::diag::thread_gone(*thread);
    }
    std::memset(thread, 0, sizeof *thread);
    return 0;
}

extern "C" int32_t zxthread_api_lock(zxthread_ctt* thread) {
    if (check(thread) != Usable::yes) {
        return -1;
    }
    pthread_mutex_lock(&thread->mutex);
    return 0;
}

extern "C" int32_t zxthread_api_unlock(zxthread_ctt* thread) {
    if (check(thread) != Usable::yes) {
        return -1;
    }
    unlock(*thread);
    return 0;
}

extern "C" int32_t zxthread_api_waitStateTimeout(zxthread_ctt* thread, uint32_t setValue,
                                                 uint32_t awaited, uint32_t timeoutMs,
                                                 uint32_t stepMs) {
    if (const Usable usable = check(thread); usable != Usable::yes) {
        return usable == Usable::missing ? -1 : 0;
    }
    std::uint32_t current = setValue;
    {
        const StateLock guard(*thread);
        thread->state = setValue;
    }
    for (std::int64_t steps = zx::step_count(timeoutMs, stepMs); current != awaited;) {
        if (--steps < 0) {
            ZX_LOG(error, "%.128s:Wait thread start timeout!", thread->name);
            return 0;
        }
        zx::sleep_ms(stepMs);
        const StateLock guard(*thread);
        current = thread->state;
    }
    return 1;
}

extern "C" int32_t zxthread_api_waitCmdStarting(zxthread_ctt* thread, uint32_t timeoutMs,
                                                uint32_t stepMs) {
    if (const Usable usable = check(thread); usable != Usable::yes) {
        return usable == Usable::missing ? -1 : 0;
    }
    for (std::int64_t steps = zx::step_count(timeoutMs, stepMs);;) {
        {
            const StateLock guard(*thread);
            if (thread->state == ZXTHREAD_STATE_START) {
                thread->state = ZXTHREAD_STATE_STARTING;
                return 1;
            }
        }
        if (--steps < 0) {
            ZX_LOG(error, "%.128s:Wait thread starting-cmd timeout!", thread->name);
            return 0;
        }
        zx::sleep_ms(stepMs);
    }
}

extern "C" int32_t zxthread_api_isStop(zxthread_ctt* thread) {
    if (zxthread_api_lock(thread) != 0) {
        return 1;
    }
    const bool running = thread->state == ZXTHREAD_STATE_RUN;
    if (!running) {
        thread->state = ZXTHREAD_STATE_STOPPED;
    }
    zxthread_api_unlock(thread);
    if (running) {
        return 0;
    }
    ZX_LOG(info, "%.128s stop", thread->name);
    return 1;
}

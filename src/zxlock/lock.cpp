#include "zxlock.h"

#include <cstddef>
#include <cstring>

#include "internal/args.hpp"
#include "internal/fixed_text.hpp"
#include "internal/lock_guard.hpp"
#include "internal/lock_holder.hpp"
#include "internal/log.hpp"
#include "internal/mutex.hpp"
#include "internal/poll.hpp"
#include "zxdiag/hooks.hpp"

static_assert(sizeof(zxlocklist_entry_ctt) == 16 && offsetof(zxlocklist_entry_ctt, used) == 8);

zxlocklist_entry_ctt zxlocklist_ctt[ZXLOCK_LIST_SIZE];

namespace {

using zx::lock::is_usable;

constexpr char kTag[] = "THREAD";
constexpr char kNoText[] = "(null)";

constexpr std::uint32_t kCmdStart = 2;
constexpr std::uint32_t kCmdTaken = 3;

// Several threads may make locks at once. Readers of the table do not take this mutex.
constinit zx::Mutex g_list_mutex;

void list_add(zxlock_ctt* lock) {
    const zx::MutexGuard guard(g_list_mutex);
    for (zxlocklist_entry_ctt& entry : zxlocklist_ctt) {
        if (entry.used != 1) {
            entry.lock = lock;
            entry.used = 1;
            return;
        }
    }
}

void list_remove(const zxlock_ctt* lock) {
    const zx::MutexGuard guard(g_list_mutex);
    for (zxlocklist_entry_ctt& entry : zxlocklist_ctt) {
        if (entry.used == 1 && entry.lock == lock) {
            entry = {};
            return;
        }
    }
}

// Logs on behalf of `self` why a lock cannot be used. `func` and `line` are the place of the call.
[[gnu::cold, gnu::noinline]] int32_t refuse(const zxlock_ctt* lock, const char* func, int line,
                                            zx::Caller self = {}) {
    if (zx::are_given({{lock, "pzxlock_ctt"}}, kTag, self) && lock->report_misuse == 1) {
        ZX_LOG_AT(self, error, "[%s %d]%.128s:must be call zxthread_api_create first",
                  func != nullptr ? func : kNoText, line, lock->name);
    }
    return -1;
}

}  // namespace

extern "C" int32_t zxlock_api_init(zxlock_ctt* lock, const char* name) {
    if (!ZX_ARE_GIVEN({lock, "pzxlock_ctt"})) {
        return -1;
    }
    if (lock->initialised == 1) {
        return 0;
    }

    zx::diag::something_is_made();
    std::memset(lock, 0, sizeof *lock);
    if (const int code = pthread_mutex_init(&lock->mutex, nullptr); code != 0) {
        ZX_LOG(error, "pthread_mutex_init failed : %s", std::strerror(code));
        return -1;
    }
    ZX_FILL_FIELD(lock->name, name != nullptr ? name : "unknown");
    lock->report_misuse = 1;
    lock->initialised = 1;
    list_add(lock);
    zx::diag::lock_made(*lock);
    std::memcpy(lock->holder, zx::lock::kFree, sizeof zx::lock::kFree);
    return 0;
}

extern "C" int32_t zxlock_api_deinit(zxlock_ctt* lock) {
    if (!ZX_ARE_GIVEN({lock, "pzxlock_ctt"})) {
        return -1;
    }
    if (lock->initialised != 1) {
        return 0;
    }
    list_remove(lock);
    zx::diag::lock_gone(*lock);
    pthread_mutex_destroy(&lock->mutex);
    std::memset(lock, 0, sizeof *lock);
    return 0;
}

extern "C" int32_t zxlock_api_obtain(zxlock_ctt* lock, const char* func, int line) {
    if (!is_usable(lock)) [[unlikely]] {
        return refuse(lock, func, line);
    }
    if (func == nullptr) [[unlikely]] {
        return zxlock_api_obtain(lock, kNoText, line);
    }
    zx::lock::obtain(*lock, func, line);
    return 0;
}

extern "C" int32_t zxlock_api_release(zxlock_ctt* lock, const char* func, int line) {
    if (!is_usable(lock)) [[unlikely]] {
        return refuse(lock, func, line);
    }
    return zx::lock::release(*lock);
}

extern "C" int32_t zxlock_api_waitStateTimeout(zxlock_ctt* lock, uint32_t* state, uint32_t setValue,
                                               uint32_t awaited, uint32_t timeoutMs,
                                               uint32_t stepMs) {
    if (!is_usable(lock)) {
        return refuse(lock, __func__, __LINE__);
    }
    if (!ZX_ARE_GIVEN({state, "state"})) {
        return -1;
    }

    std::uint32_t current = setValue;
    {
        const zx::LockGuard guard(*lock, __func__, __LINE__);
        *state = setValue;
    }
    for (std::int64_t steps = zx::step_count(timeoutMs, stepMs); current != awaited;) {
        zx::sleep_ms(stepMs);
        if (--steps < 0) {
            ZX_LOG(error, "%.128s:Wait thread start timeout!", lock->name);
            return 0;
        }
        const zx::LockGuard guard(*lock, __func__, __LINE__);
        current = *state;
    }
    return 1;
}

extern "C" int32_t zxlock_api_waitCmdStarting(zxlock_ctt* lock, uint32_t* cmd, uint32_t timeoutMs,
                                              uint32_t stepMs) {
    if (!is_usable(lock)) {
        return refuse(lock, __func__, __LINE__);
    }
    if (!ZX_ARE_GIVEN({cmd, "cmd"})) {
        return -1;
    }

    for (std::int64_t steps = zx::step_count(timeoutMs, stepMs);;) {
        zx::lock::take(*lock, __func__, __LINE__);
        const bool started = *cmd == kCmdStart;
        if (started) {
            *cmd = kCmdTaken;
        }
        zx::lock::give_back(*lock);
        if (started) {
            return 1;
        }
        if (--steps < 0) {
            ZX_LOG(error, "%.128s:Wait thread starting-cmd timeout!", lock->name);
            return 0;
        }
        zx::sleep_ms(stepMs);
    }
}

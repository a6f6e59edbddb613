// Switching the diagnosis on and off.
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "internal/args.hpp"
#include "internal/cancel.hpp"
#include "internal/log.hpp"
#include "internal/mutex.hpp"
#include "zxdiag.h"
#include "zxdiag/answers.hpp"
#include "zxdiag/coarse_clock.hpp"
#include "zxdiag/fifos.hpp"
#include "zxdiag/hooks.hpp"
#include "zxdiag/lists.hpp"
#include "zxdiag/locks.hpp"
#include "zxdiag/log.hpp"
#include "zxdiag/memory.hpp"
#include "zxdiag/service.hpp"
#include "zxdiag/thread_record.hpp"
#include "zxdiag/threads.hpp"
#include "zxdiag/trace.hpp"

namespace zx::diag {

std::atomic<std::uint32_t> g_mode{0};
std::atomic<bool> g_is_environment_read{false};
std::atomic<std::uint32_t> g_epoch{0};

namespace {

constexpr char kTag[] = "DIAG";
constexpr std::size_t kPathSize = 108;  // of a Unix socket

constinit Mutex g_switch;

void begin_anew_in_child() {
    g_mode.store(0, std::memory_order_relaxed);
    g_is_environment_read.store(false, std::memory_order_relaxed);
    g_switch.forget_other_threads();
    forget_thread_records();
    forget_trace();
    forget_coarse_clock();
    begin_fifos_anew();
    begin_lists_anew();
    begin_threads_anew();
    forget_locks_of_parent();
    forget_service();
    forget_marks();
    forget_lines();
}

void watch_forks() {
    pthread_atfork(nullptr, nullptr, begin_anew_in_child);
}

// Returns true if it was off.
bool count(Caller caller = {}) ZX_REQUIRES(g_switch) {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, watch_forks);
    if ((g_mode.load(std::memory_order_relaxed) & kCounting) != 0) {
        return false;
    }
    clear_locks();
    if (!start_coarse_clock()) {
        ZX_LOG_AT(caller, warning, "there can be no thread that measures how long locks are held");
    }
    g_epoch.fetch_add(1, std::memory_order_relaxed);
    await_round();
    begin_to_count_locks();
    g_mode.fetch_or(kCounting);
    start_keeping_lines();
    return true;
}

std::int32_t serve(const char* path, Caller caller = {}) {
    const CancelHeld held;
    bool was_off = false;
    {
        const MutexGuard guard(g_switch);
        if (const char* const fault = start_service(path); fault != nullptr) {
            ZX_LOG_AT(caller, error, "cannot serve the diagnosis at %s: %s", path, fault);
            return -1;
        }
        was_off = count(caller);
    }
    count_memory(was_off);
    return 0;
}

}  // namespace

void read_environment() {
    if (g_is_environment_read.exchange(true)) {
        return;
    }
    const char* const directory = secure_getenv("ZX_DIAG");
    if (directory == nullptr || directory[0] == '\0') {
        return;
    }
    char path[kPathSize];
    const int size = std::snprintf(path, sizeof path, "%s/%s.%d.sock", directory,
                                   program_invocation_short_name, static_cast<int>(getpid()));
    if (size < 0 || static_cast<std::size_t>(size) >= sizeof path) {
        ZX_LOG(error, "the path of ZX_DIAG is too long: %s", directory);
        return;
    }
    if (!is_serving()) {
        serve(path);
    }
}

}  // namespace zx::diag

extern "C" int32_t zxdiag_api_start(void) {
    const zx::CancelHeld held;
    bool was_off = false;
    {
        const zx::MutexGuard guard(zx::diag::g_switch);
        was_off = zx::diag::count();
    }
    zx::diag::count_memory(was_off);
    return 0;
}

extern "C" int32_t zxdiag_api_serve(const char* path) {
    using zx::diag::kTag;
    if (!ZX_ARE_GIVEN({path, "path"})) {
        return -1;
    }
    if (zx::diag::serve(path) != 0) {
        return -1;
    }
    ZX_LOG(notice, "the diagnosis is served at %s", path);
    return 0;
}

extern "C" void zxdiag_api_stop(void) {
    const zx::CancelHeld held;
    const zx::MutexGuard guard(zx::diag::g_switch);
    zx::diag::stop_service();
    zx::diag::stop_keeping_lines();
    zx::diag::g_mode.store(0, std::memory_order_relaxed);
    zx::diag::stop_coarse_clock();
}

extern "C" char* zxdiag_api_ask(const char* question) {
    using zx::diag::kTag;
    if (!ZX_ARE_GIVEN({question, "question"})) {
        return nullptr;
    }
    const zx::CancelHeld held;
    zx::diag::Answer answer =
        zx::diag::answer_to(zx::diag::Question(question, std::strlen(question)));
    if (answer.series != nullptr) {
        delete answer.series;
        cJSON_Delete(answer.object);
        answer.object = zx::diag::error_object("this question can only be asked on a socket");
    }
    char* const text = cJSON_PrintUnformatted(answer.object);
    cJSON_Delete(answer.object);
    return text;
}

extern "C" void zxdiag_api_free(char** answer) {
    using zx::diag::kTag;
    if (!ZX_ARE_GIVEN({answer, "answer"})) {
        return;
    }
    cJSON_free(*answer);
    *answer = nullptr;
}

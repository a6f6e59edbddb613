#include "zxdiag/coarse_clock.hpp"

#include <pthread.h>
#include <sys/prctl.h>

#include "internal/poll.hpp"
#include "zxdiag/quiet_thread.hpp"

namespace zx::diag {

constinit CoarseClock g_coarse_clock;

namespace {

constinit std::atomic<bool> g_is_running{false};
pthread_t g_thread;

void* tick(void*) {
    prctl(PR_SET_NAME, "zxdiag-clock");
    while (g_is_running.load(std::memory_order_relaxed)) {
        g_coarse_clock.us.store(steady_us(), std::memory_order_relaxed);
        sleep_ms(kTickMs);
    }
    return nullptr;
}

}  // namespace

bool start_coarse_clock() {
    g_coarse_clock.us.store(steady_us(), std::memory_order_relaxed);
    g_is_running.store(true, std::memory_order_relaxed);
    const bool is_started = start_quiet_thread(g_thread, tick) == 0;
    g_is_running.store(is_started, std::memory_order_relaxed);
    return is_started;
}

void stop_coarse_clock() {
    if (g_is_running.exchange(false, std::memory_order_relaxed)) {
        pthread_join(g_thread, nullptr);
    }
}

void forget_coarse_clock() {
    g_is_running.store(false, std::memory_order_relaxed);
}

}  // namespace zx::diag

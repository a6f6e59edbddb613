#include "zxdiag/coarse_clock.hpp"

#include <pthread.h>
#include <sys/prctl.h>

#include <bit>
#include <csignal>

#include "internal/poll.hpp"

namespace zx::diag {

constinit CoarseClock g_coarse_clock;

namespace {

// Each start and each stop ends the threads of the starts before it.
constinit std::atomic<std::uintptr_t> g_current{0};

void* tick(void* number) {
    prctl(PR_SET_NAME, "zxdiag-clock");
    while (g_current.load(std::memory_order_relaxed) == std::bit_cast<std::uintptr_t>(number)) {
        g_coarse_clock.us.store(steady_us(), std::memory_order_relaxed);
        sleep_ms(kTickMs);
    }
    return nullptr;
}

}  // namespace

bool start_coarse_clock() {
    g_coarse_clock.us.store(steady_us(), std::memory_order_relaxed);
    const std::uintptr_t number = g_current.fetch_add(1, std::memory_order_relaxed) + 1;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);  // the thread inherits the mask
    pthread_t thread;
    const int code = pthread_create(&thread, &attributes, tick, std::bit_cast<void*>(number));
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return code == 0;
}

void stop_coarse_clock() {
    g_current.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace zx::diag

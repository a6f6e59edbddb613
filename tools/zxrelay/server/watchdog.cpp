#include "server/watchdog.hpp"

#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "common/failure.hpp"
#include "zxcommon.hpp"
#include "zxmd.h"

namespace relay::watchdog {
namespace {

using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr long kStepNs = 5000000;
constexpr int kTerminateSteps = 2000;  // a worker that has not ended after these is killed

// In a memory page that the watchdog and its workers share.
struct Shared {
    std::atomic<pid_t> worker{0};
    std::atomic<Phase> phase{Phase::starting};
    std::atomic<bool> has_reloaded{false};
};

Shared* g_shared = nullptr;  // null without a watchdog
pid_t g_supervisor = 0;
bool g_is_supervisor = false;
bool g_had_worker = false;
void (*g_at_end)() = nullptr;

// True while a worker runs. One that has ended does not count, even while its process ID is still
// in use because the watchdog has not waited for it yet.
bool has_living_worker() {
    siginfo_t info{};
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0;
}

// Just after a fork the process ID is still 0, because the worker itself stores it.
void signal_worker(int number) {
    const pid_t worker = g_shared->worker;
    if (worker != 0) {
        kill(worker, number);
    }
}

[[noreturn]] void end_supervisor(int code) {
    g_at_end();
    _exit(code);
}

void end_by_signal(int number) {
    log({Level::notice, kTag}, "signal %d ends the watchdog", number);
    const timespec step{0, kStepNs};
    for (int i = 0; has_living_worker() && i < kTerminateSteps; ++i) {
        signal_worker(SIGTERM);
        nanosleep(&step, nullptr);
    }
    while (has_living_worker()) {
        signal_worker(SIGKILL);
        nanosleep(&step, nullptr);
    }
    end_supervisor(EXIT_SUCCESS);
}

void forward_signal(int number) {
    const int code = errno;
    if (has_living_worker()) {
        signal_worker(number);
    }
    errno = code;
}

void mask_signals(int how) {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGHUP, SIGINT, SIGTERM, SIGUSR1}) {
        sigaddset(&set, number);
    }
    pthread_sigmask(how, &set, nullptr);
}

void set_handler(int number, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigfillset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(number, &action, nullptr);
}

// These three run before and after each fork of the watchdog. The watchdog handles signals only
// between forks, so that it loses no signal and misses no worker.
void before_fork() {
    if (!g_is_supervisor) {
        return;
    }
    mask_signals(SIG_BLOCK);
    const Phase phase = g_shared->phase;
    if (g_had_worker && phase != Phase::up) {
        end_supervisor(phase == Phase::delivered ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    g_had_worker = true;
    g_shared->worker = 0;
}

void after_fork_in_supervisor() {
    if (!g_is_supervisor) {
        return;
    }
    set_handler(SIGINT, end_by_signal);
    set_handler(SIGTERM, end_by_signal);
    set_handler(SIGUSR1, forward_signal);
    set_handler(SIGHUP, forward_signal);
    mask_signals(SIG_UNBLOCK);
}

void after_fork_in_worker() {
    if (g_is_supervisor) {
        g_is_supervisor = false;
        g_shared->worker = getpid();
    }
}

// zxmd_api_watchdog() returns its result in the worker, which then continues in start().
std::int32_t return_to_start(void*) {
    return 0;
}

}  // namespace

void start(void (*at_end)()) {
    void* const page =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED ||
        pthread_atfork(before_fork, after_fork_in_supervisor, after_fork_in_worker) != 0) {
        throw tools::Failure("no memory for the watchdog");
    }
    g_shared = new (page) Shared;
    g_supervisor = getpid();
    g_is_supervisor = true;
    g_at_end = at_end;
    zxmd_api_watchdog(return_to_start, nullptr);
    // The library ignores SIGHUP and only logs the others. After a real fault, the faulting
    // instruction would run again and again.
    for (const int number : {SIGHUP, SIGILL, SIGTRAP, SIGABRT, SIGBUS, SIGFPE}) {
        signal(number, SIG_DFL);
    }
}

void set_phase(Phase phase) {
    if (g_shared != nullptr) {
        g_shared->phase = phase;
    }
}

void note_reload() {
    if (g_shared != nullptr) {
        g_shared->has_reloaded = true;
    }
}

bool has_reloaded() {
    return g_shared != nullptr && g_shared->has_reloaded;
}

bool is_restart() {
    return g_shared != nullptr && g_shared->phase == Phase::up;
}

void end_with_watchdog() {
    if (g_shared == nullptr) {
        return;
    }
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (is_orphan()) {
        raise(SIGTERM);  // the watchdog died before prctl()
    }
}

bool is_orphan() {
    return g_shared != nullptr && getppid() != g_supervisor;
}

}  // namespace relay::watchdog

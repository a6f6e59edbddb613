#include "zxdiag/crash.hpp"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <ctime>

#include "shared/write_once.hpp"
#include "zxdiag/hooks.hpp"
#include "zxdiag/log.hpp"

namespace zx::diag {
namespace {

struct Fatal {
    int number;
    const char* name;
};
constexpr Fatal kFatal[] = {{SIGSEGV, "SIGSEGV"},
                            {SIGBUS, "SIGBUS"},
                            {SIGFPE, "SIGFPE"},
                            {SIGILL, "SIGILL"},
                            {SIGABRT, "SIGABRT"}};

// The thread that writes the lines. The program ends when it has.
constinit std::atomic<pid_t> g_writer{0};
constinit LineRing::Line g_room{};  // the stack may be small

const char* name_of(int number) {
    for (const Fatal& fatal : kFatal) {
        if (fatal.number == number) {
            return fatal.name;
        }
    }
    return "";
}

// For a second thread with a fatal signal: the first one needs a moment. If it hangs, for example
// because the disk does, the program ends without it.
void wait_for_writer() {
    constexpr timespec kLimit{10, 0};
    nanosleep(&kLimit, nullptr);
}

// The signal arrives again, as if it had only now been sent: its default action ends the program at
// the place that it interrupted. After a fault the instruction would fail again, but the memory may
// have changed meanwhile.
void die_of(int number, siginfo_t* info) {
    signal(number, SIG_DFL);
    const pid_t process = getpid();
    const auto thread = static_cast<pid_t>(syscall(SYS_gettid));
    if (syscall(SYS_rt_tgsigqueueinfo, process, thread, number, info) != 0) {
        syscall(SYS_tgkill, process, thread, number);
    }
}

// All fatal signals are blocked meanwhile, so a fault in here ends the program at once.
void on_fatal_signal(int number, siginfo_t* info, void*) {
    const ErrnoKept errno_kept;
    if (is_on()) {
        const pid_t self = gettid();
        pid_t writer = 0;
        if (g_writer.compare_exchange_strong(writer, self)) {
            write_kept_lines(name_of(number), g_room);
        } else if (writer != self) {
            wait_for_writer();
        }
    }
    die_of(number, info);
}

bool has_handler(int number, bool& is_ours) {
    struct sigaction its {};
    if (sigaction(number, nullptr, &its) != 0) {
        return true;
    }
    is_ours = (its.sa_flags & SA_SIGINFO) != 0 && its.sa_sigaction == on_fatal_signal;
    return (its.sa_flags & SA_SIGINFO) != 0 || its.sa_handler != SIG_DFL;
}

}  // namespace

void handle_crashes() {
    struct sigaction action {};
    action.sa_sigaction = on_fatal_signal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (const Fatal& fatal : kFatal) {
        sigaddset(&action.sa_mask, fatal.number);
    }
    for (const Fatal& fatal : kFatal) {
        bool is_ours = false;
        if (!has_handler(fatal.number, is_ours)) {
            sigaction(fatal.number, &action, nullptr);
        }
    }
}

bool is_crashing() {
    return g_writer.load(std::memory_order_relaxed) != 0;
}

void leave_crashes_alone() {
    g_writer.store(0);  // in a child, the thread may be one of the parent
    for (const Fatal& fatal : kFatal) {
        bool is_ours = false;
        if (has_handler(fatal.number, is_ours) && is_ours) {
            signal(fatal.number, SIG_DFL);
        }
    }
}

}  // namespace zx::diag

// How a server reacts to signals.
#include "zxsignal.h"

#include <pthread.h>
#include <signal.h>

#include <cstddef>
#include <cstdint>

#include "internal/log.hpp"
#include "zxdiag/hooks.hpp"

const char* zxsignal_desstring[ZXSIGNAL_COUNT] = {
    "Unknow",
    "Hangup",
    "Interrupt",
    "Quit",
    "Illegal instruction",
    "Trace trap",
    "Abort  / IOT trap",
    "BUS error",
    "Floating-point exception",
    "Kill, unblockable",
    "User-defined signal 1",
    "Segmentation violation",
    "User-defined signal 2",
    "Broken pipe",
    "Alarm clock",
    "Termination",
    "Stack fault. ",
    "Same as SIGCHLD / Child status has changed ",
    "Continue ",
    "Stop, unblockable",
    "Keyboard stop",
    "Background read from tty",
    "Background write to tty ",
    "Urgent condition on socket",
    "CPU limit exceeded ",
    "File size limit exceeded",
    "Virtual alarm clock",
    "Profiling alarm clock ",
    "Window size change",
    "Pollable event occurred / I/O now possible ",
    "Power failure restart ",
    "Bad system call.",
};

namespace {

constexpr char kTag[] = "SIGNAL";

// Makes the set of one signal. False when there is no such signal.
bool make_set(sigset_t& set, int number) {
    return sigemptyset(&set) == 0 && sigaddset(&set, number) == 0;
}

void block(int number, zx::Caller caller = {}) {
    sigset_t set;
    if (!make_set(set, number) || pthread_sigmask(SIG_BLOCK, &set, nullptr) != 0) {
        ZX_LOG_AT(caller, error, "pthread_sigmask failed:block sigpipe error");
    }
}

struct Disposition {
    int number;
    zxsignal_handler_cb handler;
};

// The signals that are set before SIGPIPE and after it. Signals that cannot be caught are refused
// silently.
const Disposition kBeforePipe[] = {
    {SIGHUP, SIG_IGN},
    {SIGINT, zxsignal_innerapi_handler},
    {SIGQUIT, zxsignal_innerapi_handler},
    {SIGILL, zxsignal_innerapi_handler},
    {SIGTRAP, zxsignal_innerapi_handler},
    {SIGABRT, zxsignal_innerapi_handler},
    {SIGBUS, zxsignal_innerapi_handler},
    {SIGFPE, zxsignal_innerapi_handler},
    {SIGKILL, SIG_DFL},
    {SIGUSR1, zxsignal_innerapi_handler},
    {SIGSEGV, SIG_DFL},  // a crash still ends the process
    {SIGUSR2, zxsignal_innerapi_handler},
};
const Disposition kAfterPipe[] = {
    {SIGALRM, zxsignal_innerapi_handler},
    {SIGTERM, zxsignal_innerapi_handler},
    {SIGSTKFLT, zxsignal_innerapi_handler},
    {SIGCHLD, SIG_DFL},
    {SIGCONT, zxsignal_innerapi_handler},
    {SIGSTOP, zxsignal_innerapi_handler},
    {SIGTSTP, zxsignal_innerapi_handler},
    {SIGTTIN, SIG_IGN},
    {SIGTTOU, SIG_IGN},
    {SIGURG, zxsignal_innerapi_handler},
    {SIGXCPU, zxsignal_innerapi_handler},
    {SIGXFSZ, zxsignal_innerapi_handler},
    {SIGVTALRM, zxsignal_innerapi_handler},
    {SIGPROF, zxsignal_innerapi_handler},
    {SIGWINCH, SIG_IGN},
    {SIGIO, zxsignal_innerapi_handler},
    {SIGPWR, zxsignal_innerapi_handler},
};

}  // namespace

extern "C" void zxsignal_innerapi_handler(int number) {
    const zx::ErrnoKept errno_kept;  // for the interrupted code
    const bool is_known = number >= 0 && static_cast<std::size_t>(number) < ZXSIGNAL_COUNT &&
                          zxsignal_desstring[number] != nullptr;
    ZX_LOG(notice, "Catch a signal(%d):%s\n", number, zxsignal_desstring[is_known ? number : 0]);
}

extern "C" void zxsignal_innerapi_set(int number, zxsignal_handler_cb handler) {
    struct sigaction action {};
    action.sa_handler = handler != nullptr ? handler : SIG_IGN;
    if (sigemptyset(&action.sa_mask) != 0) {
        ZX_LOG(error, "sigemptyset failed");
    }
    if (sigaction(number, &action, nullptr) != 0) {
        ZX_LOG(error, "sigaction failed");
    }
}

extern "C" void zxsignal_innerapi_sigMask(int number) {
    block(number);
    sigset_t set;
    if (!make_set(set, number) || sigprocmask(SIG_BLOCK, &set, nullptr) != 0) {
        ZX_LOG(error, "sigprocmask failed:block sigpipe error");
    }
}

extern "C" zxsignal_handler_cb zxsignal_api_catch(void) {
    block(SIGPIPE);
    for (const Disposition& disposition : kBeforePipe) {
        signal(disposition.number, disposition.handler);
    }
    zxsignal_innerapi_sigMask(SIGPIPE);
    zxsignal_innerapi_set(SIGPIPE, nullptr);
    for (const Disposition& disposition : kAfterPipe) {
        signal(disposition.number, disposition.handler);
    }
    if (zx::diag::is_on()) {
        zx::diag::handle_crashes();
    }
    return signal(SIGSYS, zxsignal_innerapi_handler);
}

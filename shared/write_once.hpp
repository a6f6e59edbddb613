// One write to a descriptor, straight to the kernel. Logging is no cancellation point: otherwise a
// cancelled thread could leave in the middle of a line and keep somebody's lock.
#pragma once

#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace zx {

// Keeps `errno` for the code that logs.
class ErrnoKept {
public:
    ErrnoKept() = default;
    ErrnoKept(const ErrnoKept&) = delete;
    ErrnoKept& operator=(const ErrnoKept&) = delete;
    ~ErrnoKept() { errno = saved_; }

private:
    int saved_ = errno;
};

// Keeps signals that a write of this thread raises away from the program: SIGPIPE when nobody reads
// a pipe any more, and SIGXFSZ when a file has reached RLIMIT_FSIZE. They are blocked for every
// write, even when a file is far from its limit: another thread or process may lower the limit at
// any time.
class SignalsHeldBack {
public:
    // `may_be_pipe`: false saves a system call when the program itself blocks SIGPIPE.
    explicit SignalsHeldBack(bool may_be_pipe) {
        sigemptyset(&ours_);
        sigaddset(&ours_, SIGPIPE);
        sigaddset(&ours_, SIGXFSZ);
        pthread_sigmask(SIG_BLOCK, &ours_, &before_);
        if (sigismember(&before_, SIGXFSZ) == 1 ||
            (may_be_pipe && sigismember(&before_, SIGPIPE) == 1)) {
            leave_pending();
        }
    }
    ~SignalsHeldBack() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsHeldBack(const SignalsHeldBack&) = delete;
    SignalsHeldBack& operator=(const SignalsHeldBack&) = delete;

    // Takes back the signal `number` that a write has raised, unless it was pending before.
    void discard(int number) const {
        if (sigismember(&ours_, number) == 1) {
            constexpr timespec kNoWait{};
            sigset_t raised;
            sigemptyset(&raised);
            sigaddset(&raised, number);
            syscall(SYS_rt_sigtimedwait, &raised, nullptr, &kNoWait, _NSIG / 8);
        }
    }

private:
    // A signal that was pending before belongs to the program and stays pending.
    void leave_pending() {
        sigset_t pending;
        sigpending(&pending);
        for (const int number : {SIGPIPE, SIGXFSZ}) {
            if (sigismember(&pending, number) == 1) {
                sigdelset(&ours_, number);
            }
        }
    }

    sigset_t ours_;
    sigset_t before_;
};

inline long write_once(int fd, const char* text, std::size_t size, bool may_be_pipe) {
    const SignalsHeldBack signals(may_be_pipe);
    long written;
    do {
        written = syscall(SYS_write, fd, text, size);
    } while (written < 0 && errno == EINTR);
    const ErrnoKept errno_kept;
    if (written < 0 && errno == EFBIG) {
        signals.discard(SIGXFSZ);
    } else if (written < 0 ? errno == EPIPE : written != static_cast<long>(size) && may_be_pipe) {
        signals.discard(SIGPIPE);  // also when the reader left in the middle of the line
    }
    return written;
}

}  // namespace zx

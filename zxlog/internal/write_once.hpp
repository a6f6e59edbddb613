// One line to a descriptor, as the kernel's own call: logging is no cancellation point, so a thread
// that is cancelled cannot leave in the middle of a line with somebody's lock held.
#pragma once

#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace zxlog {

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

inline long write_once(int fd, const char* text, std::size_t size) {
    long written;
    do {
        written = syscall(SYS_write, fd, text, size);
    } while (written < 0 && errno == EINTR);
    return written;
}

// The same for what may be a pipe or a socket: that nobody reads it any more fails with EPIPE and
// does not stop the process.
inline long write_once_unsignalled(int fd, const char* text, std::size_t size) {
    sigset_t pipe_signal;
    sigset_t before;
    sigset_t pending;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    const bool is_blocked = pthread_sigmask(SIG_BLOCK, &pipe_signal, &before) == 0;
    const bool was_pending = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
    const long written = write_once(fd, text, size);
    const int code = errno;
    if (written < 0 && code == EPIPE && !was_pending) {
        constexpr timespec kNoWait{};
        syscall(SYS_rt_sigtimedwait, &pipe_signal, nullptr, &kNoWait, _NSIG / 8);
    }
    if (is_blocked) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
    errno = code;
    return written;
}

}  // namespace zxlog

// The threads of the diagnosis itself.
#pragma once

#include <pthread.h>

#include <csignal>

namespace zx::diag {

// Starts a thread that handles none of the program's signals. Returns an error number, or 0.
inline int start_quiet_thread(pthread_t& thread, void* (*work)(void*)) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);  // the thread inherits the mask
    const int code = pthread_create(&thread, nullptr, work, nullptr);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return code;
}

}  // namespace zx::diag

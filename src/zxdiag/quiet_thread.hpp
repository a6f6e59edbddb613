// The threads of the diagnosis itself.
#pragma once

#include <pthread.h>
#include <sched.h>

#include <csignal>

namespace zx::diag {

// Starts a thread that handles none of the program's signals, and has no part in its real-time
// scheduling. Returns an error number, or 0.
inline int start_quiet_thread(pthread_t& thread, void* (*work)(void*)) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);  // the thread inherits the mask
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    if (sched_getscheduler(0) != SCHED_OTHER) {
        constexpr sched_param kUsual{};
        pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
        pthread_attr_setschedpolicy(&attributes, SCHED_OTHER);
        pthread_attr_setschedparam(&attributes, &kUsual);
    }
    const int code = pthread_create(&thread, &attributes, work, nullptr);
    pthread_attr_destroy(&attributes);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return code;
}

}  // namespace zx::diag

#include "stop.hpp"

#include <signal.h>

#include <csignal>

namespace capture {
namespace {

volatile std::sig_atomic_t g_stop = 0;

void on_signal(int) {
    g_stop = 1;
}

}  // namespace

void install_stop_handlers() {
    struct sigaction action {};
    action.sa_handler = on_signal;  // without SA_RESTART, so that system calls end
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    struct sigaction before {};
    sigaction(SIGHUP, nullptr, &before);
    if (before.sa_handler != SIG_IGN) {  // as nohup has it
        sigaction(SIGHUP, &action, nullptr);
    }
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
}

void request_stop() {
    g_stop = 1;
}

bool stop_requested() {
    return g_stop != 0;
}

}  // namespace capture

// zxrelay: receives a transport stream from a TCP client or from UDP and sends it to any number of
// TCP clients. One thread receives and another one sends; a block FIFO connects them. The main
// thread waits for signals. As a server, zxrelay runs as a daemon under a watchdog.
#include <signal.h>

#include <cstdlib>

#include "common/failure.hpp"
#include "options.hpp"
#include "relay.hpp"
#include "server/service.hpp"
#include "zxlog.h"
#include "zxmem.h"
#include "zxthread.h"

namespace {

// Every thread blocks these signals: the main thread waits for them with sigtimedwait().
sigset_t block_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGUSR1}) {
        sigaddset(&set, number);
    }
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    return set;
}

void open_log(const relay::Options& options) {
    zxlog_api_setLoglevel(options.log_level);
    const char* const path = options.log_file.empty() ? nullptr : options.log_file.c_str();
    if (zxlog_api_setFile(path) != 0 && path != nullptr) {
        throw tools::system_failure("cannot write the log " + options.log_file);
    }
}

void work(const relay::Options& options, relay::Service& service) {
    open_log(options);
    const sigset_t signals = block_signals();
    relay::Relay relay(options);
    service.start();

    zxthread_api_envInit();
    zxmem_api_init(1);
    const auto end = relay.run(signals, [&] { service.announce_up(); });
    if (end == relay::Relay::End::delivered) {
        service.announce_delivered();
    }
    zxmem_api_showBlock();  // shows leaks: all buffers are freed by now
}

}  // namespace

int main(int argc, char** argv) {
    relay::fill_standard_descriptors();
    const relay::Options options = relay::parse_options(argc, argv);
    relay::Service service(options);
    try {
        work(options, service);
        return EXIT_SUCCESS;
    } catch (const std::exception& failure) {
        service.report(failure.what());
        return EXIT_FAILURE;
    }
}

// zxrelay: receives a transport stream from any of its inputs and sends it to any number of TCP
// clients. Each input has a thread that receives, and another thread sends; a block FIFO connects
// them. The main thread waits for signals. As a server, zxrelay runs as a daemon under a watchdog.
#include <signal.h>

#include <cstdlib>

#include "config/config.hpp"
#include "relay.hpp"
#include "server/log.hpp"
#include "server/service.hpp"
#include "server/user.hpp"
#include "zxmem.h"
#include "zxthread.h"

namespace {

// Every thread blocks these signals: the main thread waits for them with sigtimedwait(). SIGPIPE is
// blocked, too, and is none of them: a reader of the standard output that leaves, or a connection
// that breaks under a library, must not end the relay.
sigset_t block_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGHUP, SIGINT, SIGTERM, SIGUSR1}) {
        sigaddset(&set, number);
    }
    sigset_t blocked = set;
    sigaddset(&blocked, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    return set;
}

void work(const relay::CommandLine& command_line, const relay::Config& config,
          relay::Service& service) {
    const relay::Options& options = config.options;
    const relay::User user(options.run_as_user);
    relay::Log log(options, user);
    const sigset_t signals = block_signals();
    relay::Relay relay(command_line, config);
    service.start(user, log);

    zxthread_api_envInit();
    zxmem_api_init(1);
    const auto end = relay.run(signals, log, [&] { service.announce_up(); });
    if (end == relay::Relay::End::delivered) {
        service.announce_delivered();
    }
    zxmem_api_showBlock();  // shows leaks: all buffers are freed by now
}

}  // namespace

int main(int argc, char** argv) {
    relay::fill_standard_descriptors();
    const relay::CommandLine command_line(argc, argv);
    const relay::Config config = command_line.read_or_exit();
    relay::Service service(config.options);
    try {
        work(command_line, config, service);
        return EXIT_SUCCESS;
    } catch (const std::exception& failure) {
        service.report(failure.what());
        return EXIT_FAILURE;
    }
}

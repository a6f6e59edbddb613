// zxrelay: takes a transport stream from a TCP client or from UDP and gives it to any number of TCP
// clients. One thread receives, one sends, a block FIFO is between them; this one listens to
// signals.
#include <signal.h>
#include <time.h>

#include "channel.hpp"
#include "common/failure.hpp"
#include "fanout.hpp"
#include "internal/log.hpp"
#include "monitor.hpp"
#include "options.hpp"
#include "source.hpp"
#include "stats.hpp"
#include "worker.hpp"
#include "zxlog.h"
#include "zxmem.h"
#include "zxthread.h"

namespace {

constexpr char kTag[] = "RELAY";
constexpr std::uint64_t kMicro = 1000000;

// Signals are taken one by one in the main thread, so every thread blocks them.
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

// The listing is information; whoever asks for it by a signal gets it at every level but 0.
void show_memory() {
    const std::uint32_t level = zxlog_api_getLoglevel();
    if (level == 0) {
        return;
    }
    zxlog_api_setLoglevel(level < 4 ? 4 : level);
    zxmem_api_showBlock();
    zxlog_api_setLoglevel(level);
}

// The number of the next signal, 0 when `micros` pass without one.
int wait_for_signal(const sigset_t& set, std::uint64_t micros) {
    const timespec wait{static_cast<time_t>(micros / kMicro),
                        static_cast<long>(micros % kMicro * 1000)};
    const int number = sigtimedwait(&set, nullptr, &wait);
    return number > 0 ? number : 0;
}

// Until a signal ends the relay, or until its only source is delivered.
void watch(const relay::Options& options, const relay::Source& source, const relay::Fanout& fanout,
           const relay::Channel& channel, relay::Monitor& monitor, const sigset_t& signals) {
    const std::uint64_t wait_us = options.once ? kMicro / 20 : kMicro;
    for (;;) {
        const int number = wait_for_signal(signals, wait_us);
        if (number == SIGINT || number == SIGTERM) {
            ZX_LOG(notice, "ended by signal %d", number);
            return;
        }
        if (number == SIGUSR1) {
            show_memory();
        }
        if (source.finished() && channel.empty() && fanout.drained()) {
            ZX_LOG(notice, "%s", "the stream is delivered");
            return;
        }
        if (options.stats) {
            monitor.print_when_due();
        }
    }
}

void relay_stream(const relay::Options& options, const sigset_t& signals) {
    const relay::Input input = relay::parse_input(options.input);
    const relay::Endpoint output = relay::parse_output(options.output);

    relay::Stats stats;
    relay::Channel channel(static_cast<std::uint32_t>(options.fifo_size));
    relay::Source source(input, options.interface, options.once, channel, stats);
    relay::Fanout fanout(output, static_cast<std::uint32_t>(options.client_buffer),
                         options.stall_sec, channel, stats);
    relay::Monitor monitor(stats, channel);
    relay::Worker sender("relay-send", [&](relay::Worker& worker) { fanout.run(worker); });
    relay::Worker receiver("relay-receive", [&](relay::Worker& worker) { source.run(worker); });
    sender.start();
    receiver.start();
    ZX_LOG(notice, "relaying %s to clients of %s", options.input.c_str(), output.text().c_str());

    watch(options, source, fanout, channel, monitor, signals);

    source.interrupt();
    receiver.stop();
    channel.close();
    sender.stop();
    if (options.stats) {
        monitor.print();
    }
}

}  // namespace

int main(int argc, char** argv) {
    const relay::Options options = relay::parse_options(argc, argv);
    return tools::run("zxrelay", [&] {
        open_log(options);
        const sigset_t signals = block_signals();
        zxthread_api_envInit();
        zxmem_api_init(1);
        relay_stream(options, signals);
        zxmem_api_showBlock();  // nothing is held any more
    });
}

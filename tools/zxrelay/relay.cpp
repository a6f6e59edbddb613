#include "relay.hpp"

#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <optional>
#include <string>

#include "monitor.hpp"
#include "server/log.hpp"
#include "server/notify.hpp"
#include "status/service.hpp"
#include "stream/channel.hpp"
#include "stream/senders.hpp"
#include "stream/snapshot.hpp"
#include "stream/worker.hpp"
#include "zxcommon.hpp"
#include "zxlog.h"
#include "zxmem.h"

namespace relay {
namespace {

using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr std::uint64_t kMicro = 1000000;
constexpr int kBacklog = 128;
constexpr std::uint64_t kOtherDescriptors = 24;
constexpr std::uint64_t kInputDescriptors = 8;    // of each input, with those of a transfer
constexpr std::uint64_t kSenderDescriptors = 3;   // its epoll instance, its inbox, its queue
constexpr std::uint64_t kStatusDescriptors = 68;  // its connections, and those of the server itself
constexpr std::uint64_t kMostClients = 10000000;

// Logs the list of buffers. Its lines have the level of information. A signal asks for it
// explicitly, so it is logged at every level but 0.
void show_memory() {
    const std::uint32_t level = zxlog_api_getLoglevel();
    if (level == 0) {
        return;
    }
    zxlog_api_setLoglevel(level < 4 ? 4 : level);
    zxmem_api_showBlock();
    zxlog_api_setLoglevel(level);
}

// Returns the number of the next signal, or 0 if none arrives within `micros`.
int wait_for_signal(const sigset_t& set, std::uint64_t micros) {
    const timespec wait{static_cast<time_t>(micros / kMicro),
                        static_cast<long>(micros % kMicro * 1000)};
    const int number = sigtimedwait(&set, nullptr, &wait);
    return number > 0 ? number : 0;
}

std::vector<std::string> all_inputs(const Options& options) {
    std::vector<std::string> urls = options.channel.backup_urls;
    urls.insert(urls.begin(), options.channel.input_url);
    return urls;
}

Sender::Settings sender_settings(const Options& options) {
    Sender::Settings settings{};
    settings.latency_us = options.latency_ms * std::uint64_t{1000};
    settings.client_buffer_bytes = options.channel.client_buffer_bytes;
    settings.stall_us = options.stall_timeout_seconds * kMicro;
    settings.keep_us = options.channel.keep_seconds * kMicro;
    settings.memory_bytes = options.memory_bytes;
    settings.site = {{options.channel.name}, options.cors_origin};
    return settings;
}

// Every client needs a descriptor. The source, the log, the status page and the connections that
// are just being refused need some, too.
unsigned max_clients(const Options& options) {
    const std::uint64_t farewells = Farewells::kMost * (1 + std::uint64_t{options.senders});
    const std::uint64_t status = options.status_address.empty() ? 0 : kStatusDescriptors;
    const std::uint64_t inputs = kInputDescriptors * (1 + options.channel.backup_urls.size());
    const std::uint64_t senders = kSenderDescriptors * options.senders;
    const std::uint64_t others = kOtherDescriptors + inputs + senders + farewells + status;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const std::uint64_t allowed =
        std::clamp<std::uint64_t>(limit.rlim_cur, others + 1, others + kMostClients) - others;
    if (options.max_clients > allowed) {
        log({Level::warning, kTag}, "at most %llu clients: the limit of open files allows no more",
            static_cast<unsigned long long>(allowed));
    }
    return static_cast<unsigned>(
        options.max_clients == 0 ? allowed : std::min<std::uint64_t>(options.max_clients, allowed));
}

}  // namespace

Relay::Relay(const Options& options)
    : options_(options),
      output_(parse_output(options.output_address)),
      inputs_(open_inputs(all_inputs(options), options.channel.interface)),
      listener_(open_listener(output_, kBacklog)) {}

Relay::End Relay::run(const sigset_t& signals, Log& log_file, const std::function<void()>& on_up) {
    Board board(options_.senders);
    Channel channel(static_cast<std::uint32_t>(options_.channel.fifo_bytes), options_.senders,
                    options_.channel.name);
    const std::string input = inputs_.front().url.shown();
    Senders senders(std::move(listener_), sender_settings(options_), options_.senders,
                    max_clients(options_), {&channel}, board);
    Monitor monitor(channel.stats, channel);
    Inputs inputs(std::move(inputs_),
                  {options_.channel.source_timeout_seconds, options_.channel.once}, channel);
    std::optional<StatusServer> status;
    if (!options_.status_address.empty()) {
        status.emplace(parse_output(options_.status_address),
                       Facts{input, output_.text(), options_.channel.fifo_bytes, options_.channel.name},
                       channel.stats, channel, board);
    }
    senders.start();
    inputs.start();
    Notifier notifier;
    announce_up(notifier, input);
    on_up();
    const auto goes_on = [&] {
        notifier.keep_alive(channel.stats.clients);
        if (options_.print_stats) {
            monitor.print_when_due();
        }
        return !inputs.finished() || !channel.empty() || !senders.drained();
    };
    const End end = run_main_loop(signals, log_file, notifier, goes_on);
    Notifier::announce_end();
    inputs.stop();
    senders.stop();
    if (options_.print_stats) {
        monitor.print();
    }
    return end;
}

void Relay::announce_up(const Notifier& notifier, const std::string& input) const {
    const std::string what = "relaying " + input + " to clients of " + output_.text();
    log({Level::notice, kTag}, "%s", what.c_str());
    notifier.announce_up(what);
}

Relay::End Relay::run_main_loop(const sigset_t& signals, Log& log_file, const Notifier& notifier,
                                const std::function<bool()>& goes_on) const {
    const std::uint64_t wait_us =
        notifier.wait_us(options_.channel.once ? kMicro / 20 : kMicro);
    do {
        log_file.rotate_when_due();
        const int number = wait_for_signal(signals, wait_us);
        if (number == SIGINT || number == SIGTERM) {
            log({Level::notice, kTag}, "ended by signal %d", number);
            return End::signal;
        }
        if (number == SIGUSR1) {
            show_memory();
        } else if (number == SIGHUP) {
            log_file.reopen();
        }
    } while (goes_on());
    log({Level::notice, kTag}, "%s", "the stream is delivered");
    return End::delivered;
}

}  // namespace relay

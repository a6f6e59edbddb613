#include "relay.hpp"

#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <string>

#include "monitor.hpp"
#include "server/log.hpp"
#include "server/notify.hpp"
#include "status/service.hpp"
#include "stream/roster.hpp"
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
    std::vector<std::string> urls = options.backup_urls;
    urls.insert(urls.begin(), options.input_url);
    return urls;
}

Sender::Settings sender_settings(const Options& options) {
    Sender::Settings settings{};
    settings.latency_us = options.latency_ms * std::uint64_t{1000};
    settings.stall_us = options.stall_timeout_seconds * kMicro;
    settings.memory_bytes = options.memory_bytes;
    settings.site = {{}, options.cors_origin, options.token};
    return settings;
}

ChannelSettings channel_settings(const Options& options, const std::string& input) {
    ChannelSettings settings{options.channel_name, static_cast<std::uint32_t>(options.fifo_bytes),
                             options.client_buffer_bytes, options.keep_seconds * kMicro};
    settings.source = input;
    return settings;
}

// Every client needs a descriptor. The source, the log, the status page and the connections that
// are just being refused need some, too.
unsigned max_clients(const Options& options) {
    const std::uint64_t farewells = Farewells::kMost * (1 + std::uint64_t{options.senders});
    const std::uint64_t status = options.status_address.empty() ? 0 : kStatusDescriptors;
    const std::uint64_t inputs = kInputDescriptors * (1 + options.backup_urls.size());
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

Admission::Rules admission_rules(const Options& options) {
    Admission::Rules rules{max_clients(options), options.max_per_address, {}};
    std::ranges::transform(options.allowed_networks, std::back_inserter(rules.allowed),
                           parse_network);
    return rules;
}

}  // namespace

Relay::Relay(const Options& options)
    : options_(options),
      output_(parse_output(options.output_address)),
      inputs_(open_inputs(all_inputs(options), options.multicast_interface)),
      listener_(open_listener(output_, kBacklog)) {
    if (!options.status_address.empty()) {
        status_ = parse_output(options.status_address);
        status_listener_ = open_listener(*status_, kBacklog);
    }
}

Relay::End Relay::run(const sigset_t& signals, Log& log_file, const std::function<void()>& on_up) {
    Board board(options_.senders);
    Roster roster;
    const std::string input = inputs_.front().url.shown();
    const auto channel =
        std::make_shared<Channel>(channel_settings(options_, input), options_.senders);
    Senders senders(std::move(listener_), sender_settings(options_), options_.senders,
                    admission_rules(options_), roster, board);
    senders.change({}, {channel});
    Monitor monitor(roster);
    Inputs inputs(std::move(inputs_),
                  {options_.source_timeout_seconds, options_.end_after_first_source,
                   options_.latency_ms == 0},
                  *channel);
    std::optional<StatusServer> status;
    if (status_) {
        status.emplace(std::move(status_listener_), *status_,
                       StatusSettings{output_.text(), options_.token,
                                      [&](std::uint64_t client) { senders.disconnect(client); }},
                       roster, board);
    }
    senders.start();
    inputs.start();
    Notifier notifier;
    announce_up(notifier, input);
    on_up();
    const auto goes_on = [&] {
        notifier.keep_alive(static_cast<unsigned>(roster.total().clients), senders.are_live());
        if (options_.print_stats) {
            monitor.print_when_due();
        }
        return !inputs.finished() || !channel->empty() || !senders.drained();
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
        notifier.wait_us(options_.end_after_first_source ? kMicro / 20 : kMicro);
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

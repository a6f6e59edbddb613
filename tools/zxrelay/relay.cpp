#include "relay.hpp"

#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>

#include "common/seconds.hpp"
#include "demand.hpp"
#include "monitor.hpp"
#include "server/log.hpp"
#include "server/notify.hpp"
#include "server/watchdog.hpp"
#include "stations.hpp"
#include "status/service.hpp"
#include "stream/roster.hpp"
#include "stream/senders.hpp"
#include "stream/snapshot.hpp"
#include "stream/worker.hpp"
#include "zxcommon.hpp"
#include "zxdiag.h"
#include "zxlog.h"
#include "zxmem.h"

namespace relay {
namespace {

using tools::kMicro;
using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr int kBacklog = 1024;  // a client that finds the queue full waits for a second or longer
constexpr std::uint64_t kOtherDescriptors = 24;
constexpr std::uint64_t kInputDescriptors = 8;    // of each input, with those of a transfer
constexpr std::uint64_t kDemandDescriptors = 3;   // of each channel on demand, beside its queues
constexpr std::uint64_t kSenderDescriptors = 2;   // its epoll instance and its inbox
constexpr std::uint64_t kStatusDescriptors = 68;  // its connections, and those of the server itself
constexpr std::uint64_t kMostClients = 10000000;
constexpr unsigned kFewClients = 100;  // fewer are hardly what is wanted

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

Sender::Settings sender_settings(const Options& options) {
    Sender::Settings settings{};
    settings.latency_us = options.latency_ms * std::uint64_t{1000};
    settings.stall_us = options.stall_timeout_seconds * kMicro;
    settings.memory_bytes = options.memory_bytes;
    settings.site = {{}, options.cors_origin, options.token};
    return settings;
}

std::uint64_t channel_descriptors(const Config& config, unsigned senders) {
    const std::uint64_t queues = senders + std::uint64_t{1};
    std::uint64_t sum = config.on_demand.networks.empty()
                            ? 0
                            : config.on_demand.most * (kDemandDescriptors + queues);
    for (const ChannelOptions& channel : config.channels) {
        sum += kInputDescriptors * (1 + channel.backup_urls.size()) + channel.send_urls.size() +
               queues;
    }
    return sum;
}

// Every client needs a descriptor. The channels of `config`, the log, the status page and the
// connections that are just being refused need some, too.
unsigned max_clients(const Options& options, const Config& config) {
    const std::uint64_t farewells = Farewells::kMost * (1 + std::uint64_t{options.senders});
    const std::uint64_t status = options.status_address.empty() ? 0 : kStatusDescriptors;
    const std::uint64_t senders = kSenderDescriptors * options.senders;
    const std::uint64_t others = kOtherDescriptors + channel_descriptors(config, options.senders) +
                                 senders + farewells + status;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const std::uint64_t allowed =
        std::clamp<std::uint64_t>(limit.rlim_cur, others + 1, others + kMostClients) - others;
    if ((options.max_clients == 0 ? kFewClients : options.max_clients) > allowed) {
        log({Level::warning, kTag}, "at most %llu clients: the limit of open files allows no more",
            static_cast<unsigned long long>(allowed));
    }
    return static_cast<unsigned>(
        options.max_clients == 0 ? allowed : std::min<std::uint64_t>(options.max_clients, allowed));
}

Admission::Rules admission_rules(const Options& options) {
    Admission::Rules rules{options.max_per_address, {}};
    std::ranges::transform(options.allowed_networks, std::back_inserter(rules.allowed),
                           parse_network);
    return rules;
}

// What the relay receives, for people.
std::string sources_of(const Config& config) {
    if (config.channels.size() == 1) {
        return parse_url(config.channels.front().input_url).shown();
    }
    return std::to_string(config.channels.size()) + " channels";
}

InputPool open_all_inputs(const Config& config) {
    InputPool pool;
    for (const ChannelOptions& channel : config.channels) {
        pool.add(input_urls(channel), channel.interface);
    }
    return pool;
}

}  // namespace

Relay::Relay(const CommandLine& command_line, const Config& config)
    : command_line_(command_line),
      options_(config.options),
      fixed_(config.fixed),
      config_(config),
      output_(parse_output(options_.output_address)),
      inputs_(open_all_inputs(config)),
      listener_(open_listener(output_, kBacklog)) {
    if (!options_.status_address.empty()) {
        status_ = parse_output(options_.status_address);
        status_listener_ = open_listener(*status_, kBacklog);
    }
}

Relay::End Relay::run(const sigset_t& signals, Log& log_file, const std::function<void()>& on_up) {
    if (watchdog::has_reloaded()) {
        read_again("the channels of the start come back");
    }
    if (options_.inside) {
        zxdiag_api_start();
    }
    Board board(options_.senders);
    Roster roster;
    std::optional<DemandStations> demand;  // before the senders run
    Sender::Settings settings = sender_settings(options_);
    settings.on_demand = [&demand](const std::string& name, bool opens) {
        return demand->ask(name, opens);
    };
    Senders senders(std::move(listener_), settings, options_.senders, admission_rules(options_),
                    max_clients(options_, config_), roster, board);
    const Surroundings around{options_.senders, options_.latency_ms == 0};
    Stations stations(senders, around, std::move(inputs_));
    demand.emplace(config_.on_demand, config_.options.channel, senders, around);
    Monitor monitor(roster);
    std::optional<StatusServer> status;
    if (status_) {
        status.emplace(std::move(status_listener_), *status_,
                       StatusSettings{output_.text(), options_.status_token,
                                      [&](std::uint64_t client) { senders.disconnect(client); }},
                       roster, board);
    }
    senders.start();
    if (watchdog::is_restart()) {
        stations.change(config_.channels);  // one that cannot be opened now must not end the others
    } else {
        stations.start(config_.channels);
    }
    demand->start();
    senders.open_door();
    Notifier notifier;
    announce_up(notifier);
    on_up();
    const auto goes_on = [&] {
        notifier.keep_alive(static_cast<unsigned>(roster.total().clients), senders.are_live());
        if (options_.print_stats) {
            monitor.print_when_due();
        }
        stations.open_missing_when_due();
        return !config_.on_demand.networks.empty() || !stations.finished() || !senders.drained();
    };
    const auto load = [&] { reload(stations, *demand, senders); };
    const End end = run_main_loop(signals, notifier, log_file, load, goes_on);
    Notifier::announce_end();
    stations.stop();
    demand->stop();
    senders.stop();
    if (options_.print_stats) {
        monitor.print();
    }
    return end;
}

void Relay::announce_up(const Notifier& notifier) const {
    const std::string what = "relaying " + sources_of(config_) + " to clients of " + output_.text();
    log({Level::notice, kTag}, "%s", what.c_str());
    notifier.announce_up(what);
}

Relay::End Relay::run_main_loop(const sigset_t& signals, const Notifier& notifier, Log& log_file,
                                const std::function<void()>& reload,
                                const std::function<bool()>& goes_on) {
    do {
        log_file.rotate_when_due();
        const int number =
            wait_for_signal(signals, notifier.wait_us(is_once() ? kMicro / 20 : kMicro));
        if (number == SIGINT || number == SIGTERM) {
            log({Level::notice, kTag}, "ended by signal %d", number);
            return End::signal;
        }
        if (number == SIGUSR1) {
            show_memory();
        } else if (number == SIGHUP) {
            log_file.reopen();
            reload();
        }
    } while (goes_on());
    log({Level::notice, kTag}, "%s", "the stream is delivered");
    return End::delivered;
}

bool Relay::is_once() const {
    return config_.options.channel.once;
}

bool Relay::read_again(const char* consequence) {
    try {
        config_ = command_line_.read();
        return true;
    } catch (const std::exception& failure) {
        log({Level::error, kTag}, "the configuration is refused, and %s: %s", consequence,
            failure.what());
        return false;
    }
}

void Relay::reload(Stations& stations, DemandStations& demand, Senders& senders) {
    if (config_.file.empty() || !read_again("nothing changes")) {
        return;
    }
    watchdog::note_reload();
    for (const std::string& name : changed_options(fixed_, config_.fixed)) {
        log({Level::warning, kTag}, "the option %s changes only when zxrelay is restarted",
            name.c_str());
    }
    senders.set_most_clients(max_clients(options_, config_));
    const Stations::Changes changes = stations.change(config_.channels);
    demand.change(config_.on_demand, config_.options.channel);
    log({Level::notice, kTag},
        "the configuration is read again: %zu channels opened, %zu closed, %zu not opened, %zu "
        "go on",
        changes.opened, changes.closed, changes.failed, changes.kept);
}

}  // namespace relay

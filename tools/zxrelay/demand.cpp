#include "demand.hpp"

#include <algorithm>

#include "common/failure.hpp"
#include "common/seconds.hpp"
#include "zxcommon.hpp"
#include "zxtime.h"

namespace relay {
namespace {

using tools::kMicro;
using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr std::uint64_t kLeastLingerUs = 2 * kMicro;  // time for the client that has asked to start
constexpr std::uint64_t kLargestFifo = 512U << 10U;   // --memory does not count what clients open
constexpr int kStepMs = 1000;
constexpr unsigned kRank = 1U << 20U;  // after the channels of the configuration

bool is_ipv4(const Address& address) {
    return parse_network("0.0.0.0/0").contains(address);
}

// The numeric address in a text. A name gives nothing: strangers must not cause look-ups. Nor does
// an IPv4 address that is written as IPv6: the kernel joins no such group.
std::optional<Address> address_in(const std::string& text) {
    try {
        const Address address = parse_network(text).address;
        const bool has_colon = text.find(':') != std::string::npos;
        const bool is_alone = text.find('/') == std::string::npos;
        return is_alone && has_colon != is_ipv4(address) ? std::optional(address) : std::nullopt;
    } catch (const tools::Failure&) {
        return std::nullopt;
    }
}

// True if the sender can send to the group.
bool is_sender(const std::string& text, const Address& group) {
    const auto sender = address_in(text);
    return sender && is_ipv4(*sender) == is_ipv4(group);
}

bool is_group(const Address& address) {
    return is_ipv4(address) ? (address[12] & 0xf0U) == 0xe0U : address[0] == 0xffU;
}

// The URL of "udp/GROUP:PORT", if it is one.
std::optional<Url> url_of(const std::string& name) {
    const std::size_t slash = name.find('/');
    const std::string scheme = name.substr(0, slash);
    if (slash == std::string::npos || (scheme != "udp" && scheme != "rtp")) {
        return std::nullopt;
    }
    try {
        return parse_url(scheme + "://" + name.substr(slash + 1));
    } catch (const tools::Failure&) {
        return std::nullopt;
    }
}

Demand judge(const std::string& name, const std::vector<Network>& networks) {
    const std::optional<Url> url = url_of(name);
    if (!url || networks.empty()) {
        return Demand::unknown;
    }
    const auto address = address_in(url->endpoint.host);
    if (!address || (!url->sender.empty() && !is_sender(url->sender, *address))) {
        return Demand::unknown;
    }
    return is_group(*address) && contains(networks, *address) ? Demand::coming : Demand::forbidden;
}

std::vector<Network> parse_networks(const OnDemandOptions& options) {
    std::vector<Network> networks;
    std::ranges::transform(options.networks, std::back_inserter(networks), parse_network);
    return networks;
}

std::unique_ptr<Station> open_station(const std::string& name, ChannelOptions options,
                                      const Surroundings& around) {
    options.name = name;
    options.input_url = url_of(name)->text;
    const ChannelSettings settings{name,
                                   static_cast<std::uint32_t>(options.fifo_bytes),
                                   options.client_buffer_bytes,
                                   options.keep_seconds * kMicro,
                                   false,
                                   options.input_url};
    auto inputs = open_inputs(input_urls(options), options.interface);
    auto station = std::make_unique<Station>(options, settings, std::move(inputs), around);
    station->channel()->rank = kRank;
    station->start();
    return station;
}

}  // namespace

DemandStations::DemandStations(const OnDemandOptions& options, const ChannelOptions& usual,
                               Senders& senders, const Surroundings& around)
    : senders_(senders),
      around_(around),
      worker_("relay-demand", [this](zxcommon::StopRequest&) { run(); }) {
    change(options, usual);
}

void DemandStations::stop() {
    interrupt_.raise();
    worker_.stop();
    std::map<std::string, Entry> last;
    {
        const tools::MutexGuard lock(mutex_);
        last.swap(entries_);
    }
    for (const auto& [name, entry] : last) {
        if (entry.station != nullptr) {
            entry.station->stop();
        }
    }
}

Demand DemandStations::ask(const std::string& name, bool opens) {
    const tools::MutexGuard lock(mutex_);
    const Demand result = judge(name, networks_);
    if (result != Demand::coming) {
        return result;
    }
    const auto known = entries_.find(name);
    if (known != entries_.end() && known->second.has_failed) {
        return Demand::failed;
    }
    const bool has_room = known != entries_.end() || entries_.size() < options_.most;
    if (!has_room || interrupt_.is_raised()) {
        return Demand::full;
    }
    const bool is_open = known != entries_.end() && known->second.station != nullptr;
    if (opens) {
        entries_[name].wanted_us = zxtime_api_upTimeUs();
    }
    if (opens && !is_open) {
        wake_.set();
    }
    return is_open ? Demand::open : Demand::coming;
}

void DemandStations::change(const OnDemandOptions& options, const ChannelOptions& usual) {
    const tools::MutexGuard lock(mutex_);
    options_ = options;
    networks_ = parse_networks(options);
    usual_ = usual;
    usual_.interface = options.interface;
    usual_.backup_urls.clear();
    usual_.send_urls.clear();
    usual_.once = false;
    usual_.fifo_bytes = std::min(usual_.fifo_bytes, kLargestFifo);
}

void DemandStations::run() {
    while (!interrupt_.is_raised()) {
        const bool is_idle = [this] {
            const tools::MutexGuard lock(mutex_);
            return entries_.empty();
        }();
        if (interrupt_.wait(wake_.fd(), is_idle ? kForever : kStepMs)) {
            wake_.clear();
        }
        open_asked();
        close_idle();
        failed_.report_when_due();
    }
}

// The mutex is free while a socket is opened, so that ask() does not wait for that.
void DemandStations::open_asked() {
    tools::MutexGuard lock(mutex_);
    const ChannelOptions usual = usual_;
    for (const std::string& name : asked()) {
        if (interrupt_.is_raised()) {
            return;
        }
        lock.unlock();
        std::unique_ptr<Station> station = try_open(name, usual);
        lock.lock();
        Entry& entry = entries_[name];
        entry.has_failed = station == nullptr;
        entry.station = std::move(station);
        entry.interface = usual.interface;
        entry.wanted_us = zxtime_api_upTimeUs();
        if (entry.has_failed) {
            lock.unlock();
            senders_.change({}, {});  // those who wait for the channel ask again
            lock.lock();
        }
    }
}

std::vector<std::string> DemandStations::asked() const {
    std::vector<std::string> names;
    for (const auto& [name, entry] : entries_) {
        if (entry.station == nullptr && !entry.has_failed) {
            names.push_back(name);
        }
    }
    return names;
}

std::unique_ptr<Station> DemandStations::try_open(const std::string& name,
                                                  const ChannelOptions& usual) {
    try {
        auto station = open_station(name, usual, around_);
        senders_.change({}, {station->channel()});
        return station;
    } catch (const std::exception& failure) {
        if (failed_.admits()) {
            log({Level::warning, kTag}, "the channel %s is not opened: %s", name.c_str(),
                failure.what());
        }
        return nullptr;
    }
}

void DemandStations::close_idle() {
    std::vector<std::unique_ptr<Station>> idle;
    {
        const tools::MutexGuard lock(mutex_);
        const std::uint64_t now = zxtime_api_upTimeUs();
        for (auto at = entries_.begin(); at != entries_.end();) {
            const bool is_idle = is_over(at->first, at->second, now);
            if (is_idle && !at->second.has_failed) {
                idle.push_back(std::move(at->second.station));
            }
            at = is_idle ? entries_.erase(at) : std::next(at);
        }
    }
    for (const auto& station : idle) {
        station->stop();
        senders_.change({station->channel()}, {});
    }
}

// An entry that is neither open nor failed is not over: the thread opens it first.
bool DemandStations::is_over(const std::string& name, Entry& entry, std::uint64_t now_us) const {
    if (entry.has_failed) {
        return now_us - entry.wanted_us >= kLeastLingerUs;
    }
    if (entry.station == nullptr) {
        return false;
    }
    if (entry.station->channel()->stats.clients != 0) {
        entry.wanted_us = now_us;
    }
    const std::uint64_t linger_us = std::max(options_.linger_seconds * kMicro, kLeastLingerUs);
    return now_us - entry.wanted_us >= linger_us || entry.interface != options_.interface ||
           judge(name, networks_) != Demand::coming;
}

}  // namespace relay

#include "stations.hpp"

#include <algorithm>

#include "common/failure.hpp"
#include "common/seconds.hpp"
#include "stream/lookup.hpp"
#include "zxcommon.hpp"
#include "zxtime.h"

namespace relay {
namespace {

using tools::kMicro;
using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr std::uint64_t kRetryUs = 5 * kMicro;

ChannelSettings settings_of(const ChannelOptions& options) {
    return {options.name,
            static_cast<std::uint32_t>(options.fifo_bytes),
            options.client_buffer_bytes,
            options.keep_seconds * kMicro,
            true,
            parse_url(options.input_url).shown()};
}

}  // namespace

void Stations::start(const std::vector<ChannelOptions>& wanted) {
    unsigned rank = 0;
    for (const ChannelOptions& options : wanted) {
        open(options, rank++);
    }
}

Stations::Changes Stations::change(const std::vector<ChannelOptions>& wanted) {
    const HurriedLookups hurried;
    Changes changes;
    changes.closed = close_unless(wanted);  // first: a new channel may use the same port
    pool_.prepare_for(wanted);
    changes.kept = stations_.size();
    unsigned rank = 0;
    for (const ChannelOptions& options : wanted) {
        if (Station* const station = find(options); station != nullptr) {
            station->channel()->rank = rank;
        } else {
            ++(try_open(options, rank) ? changes.opened : changes.failed);
        }
        ++rank;
    }
    senders_.change({}, {});  // the ranks
    pool_.note_idle();
    wanted_ = wanted;
    missing_us_ = changes.failed == 0 ? UINT64_MAX : zxtime_api_upTimeUs() + kRetryUs;
    return changes;
}

// The error of a channel is in the log already.
void Stations::open_missing_when_due() {
    if (zxtime_api_upTimeUs() < missing_us_) {
        return;
    }
    const HurriedLookups hurried;
    missing_us_ = UINT64_MAX;
    unsigned rank = 0;
    for (const ChannelOptions& options : wanted_) {
        try {
            if (find(options) == nullptr) {
                open(options, rank);
                log({Level::notice, kTag}, "the channel %s is open now", options.name.c_str());
            }
        } catch (const std::exception&) {
            missing_us_ = zxtime_api_upTimeUs() + kRetryUs;
        }
        ++rank;
    }
    pool_.note_idle();
}

bool Stations::finished() const {
    return !stations_.empty() &&
           std::ranges::all_of(stations_, [](const auto& station) { return station->finished(); });
}

void Stations::stop() {
    std::ranges::for_each(stations_, [](const auto& station) { station->stop(); });
}

void Stations::open(const ChannelOptions& options, unsigned rank) {
    const std::vector<std::string> urls = input_urls(options);
    auto inputs = pool_.take(urls, options.interface);
    try {
        auto station =
            std::make_unique<Station>(options, settings_of(options), std::move(inputs), around_);
        station->channel()->rank = rank;
        station->start();
        senders_.change({}, {station->channel()});
        stations_.push_back(std::move(station));
    } catch (...) {
        pool_.give_back(urls, options.interface);
        throw;
    }
}

bool Stations::try_open(const ChannelOptions& options, unsigned rank) {
    try {
        open(options, rank);
        return true;
    } catch (const std::exception& failure) {
        log({Level::error, kTag}, "the channel %s is not opened: %s", options.name.c_str(),
            failure.what());
        return false;
    }
}

Station* Stations::find(const ChannelOptions& options) const {
    const auto found = std::ranges::find_if(
        stations_, [&](const auto& station) { return station->options() == options; });
    return found != stations_.end() ? found->get() : nullptr;
}

std::size_t Stations::close_unless(const std::vector<ChannelOptions>& wanted) {
    return std::erase_if(stations_, [&](const auto& station) {
        const bool is_wanted = std::ranges::find(wanted, station->options()) != wanted.end();
        if (!is_wanted) {
            close(*station);
        }
        return !is_wanted;
    });
}

void Stations::close(Station& station) {
    station.stop();
    senders_.change({station.channel()}, {});
    pool_.give_back(input_urls(station.options()), station.options().interface);
}

}  // namespace relay

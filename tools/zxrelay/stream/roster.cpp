#include "stream/roster.hpp"

#include <algorithm>
#include <numeric>

namespace relay {

void Roster::change(const ChannelList& closed, const ChannelList& opened) {
    const tools::MutexGuard lock(mutex_);
    for (const ChannelPtr& channel : closed) {
        if (std::erase(channels_, channel) != 0) {
            Counters last = channel->stats.read();
            last.clients = 0;
            closed_ = closed_ + last;
        }
    }
    channels_.insert(channels_.end(), opened.begin(), opened.end());
    sort_by_rank(channels_, [](const ChannelPtr& channel) -> const Channel& { return *channel; });
}

ChannelList Roster::channels() const {
    const tools::MutexGuard lock(mutex_);
    return channels_;
}

Counters Roster::total() const {
    const tools::MutexGuard lock(mutex_);
    return std::accumulate(
        channels_.begin(), channels_.end(), closed_,
        [](const Counters& sum, const auto& channel) { return sum + channel->stats.read(); });
}

double Roster::fill_ratio() const {
    const tools::MutexGuard lock(mutex_);
    double fullest = 0;
    for (const ChannelPtr& channel : channels_) {
        fullest = std::max(fullest, channel->fill_ratio());
    }
    return fullest;
}

}  // namespace relay

// The channels that the relay has at the moment.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "stream/channel.hpp"
#include "stream/stats.hpp"

namespace relay {

using ChannelPtr = std::shared_ptr<Channel>;
using ChannelList = std::vector<ChannelPtr>;

// Any thread may call it.
class Roster {
public:
    void change(const ChannelList& closed, const ChannelList& opened);

    // In the order of their ranks.
    [[nodiscard]] ChannelList channels() const;

    // The sums of all channels, also of those that are closed.
    [[nodiscard]] Counters total() const;

    // Of the fullest queue of all.
    [[nodiscard]] double fill_ratio() const;

    GuestStats guests;

private:
    mutable std::mutex mutex_;
    ChannelList channels_;
    Counters closed_;
};

}  // namespace relay

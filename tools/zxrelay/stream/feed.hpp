// One channel as one sender has it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "stream/channel.hpp"
#include "stream/ring.hpp"

namespace relay {

struct Feed {
    Feed(std::shared_ptr<Channel> its_channel, std::size_t sender, Budget& budget)
        : holder(std::move(its_channel)),
          channel(*holder),
          queue(channel.queue(sender)),
          ring(budget, channel.settings().keep_us) {}

    // Moves what waits in the queue to the ring. Returns false if there is no memory for any of it.
    bool fill(std::uint64_t now_us);

    // Drops what waits in the queue, and counts it.
    void lose();

    // The ring must keep what comes after `position`.
    void need_from(std::uint64_t position) { needed_from = std::min(needed_from, position); }

    const std::shared_ptr<Channel> holder;
    Channel& channel;
    Queue& queue;
    Ring ring;
    std::uint64_t needed_from = 0;
};

using Feeds = std::vector<std::unique_ptr<Feed>>;

}  // namespace relay

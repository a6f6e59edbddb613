// One channel as one sender has it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "stream/channel.hpp"
#include "stream/ring.hpp"

namespace relay {

struct Feed {
    Feed(Channel& its_channel, std::size_t sender, Budget& budget, std::uint64_t keep_us)
        : channel(its_channel), queue(its_channel.queue(sender)), ring(budget, keep_us) {}

    // Moves what waits in the queue to the ring. Returns false if there is no memory for any of it.
    bool fill(std::uint64_t now_us);

    // Drops what waits in the queue, and counts it.
    void lose();

    // The ring must keep what comes after `position`.
    void need_from(std::uint64_t position) { needed_from = std::min(needed_from, position); }

    Channel& channel;
    Queue& queue;
    Ring ring;
    std::uint64_t needed_from = 0;
};

}  // namespace relay

#include "stream/feed.hpp"

#include <array>

namespace relay {
namespace {

constexpr int kBlocksPerRound = 4;  // then the clients are served, before they lag too far

}  // namespace

bool Feed::fill(std::uint64_t now_us) {
    for (int i = 0; i < kBlocksPerRound && !queue.empty(); ++i) {
        const auto room = ring.room(now_us);
        if (room.empty()) {
            return i != 0;
        }
        ring.commit(queue.pop(room), now_us);
    }
    return true;
}

void Feed::lose() {
    std::array<std::uint8_t, kMessageSize> message;
    while (queue.pop(message) != 0) {
        ++channel.stats.dropped_fifo_full;
    }
}

}  // namespace relay

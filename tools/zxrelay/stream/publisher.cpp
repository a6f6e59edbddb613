#include "stream/publisher.hpp"

#include <algorithm>
#include <utility>

#include "common/seconds.hpp"
#include "stream/lock_table.hpp"
#include "zxtime.h"

namespace relay {
namespace {

using tools::kMicro;

constexpr std::uint64_t kSpareBuffers = 4096;  // for those added before the page is served

}  // namespace

Publisher::Publisher(Board& board, std::size_t sender)
    : board_(board), sender_(sender), last_us_(zxtime_api_upTimeUs()) {}

void Publisher::publish(const Clients& clients, const Feeds& feeds) {
    const std::uint64_t now = zxtime_api_upTimeUs();
    const std::uint64_t passed = std::max<std::uint64_t>(now - std::exchange(last_us_, now), 1);
    Snapshot snapshot;
    for (const auto& [fd, client] : clients) {
        snapshot.clients.push_back({client->number(), client->feed().channel.name(), client->peer(),
                                    client->bytes_sent(), client->take_progress() * kMicro / passed,
                                    client->dropped(), client->bytes_waiting(),
                                    client->is_time_shifted()});
    }
    if (sender_ == 0) {  // the locks of the whole process
        snapshot.locks = view_locks();
    }
    snapshot.tracked_buffers = 2 * feeds.size() + kSpareBuffers;  // a queue takes two buffers
    for (const auto& feed : feeds) {
        const Ring& ring = feed->ring;
        snapshot.stores.push_back({feed->channel.name(), ring.bytes(), ring.blocks()});
        snapshot.tracked_buffers += ring.blocks();
    }
    board_.publish(std::move(snapshot), sender_);
}

}  // namespace relay

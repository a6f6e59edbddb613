#include "stream/publisher.hpp"

#include <algorithm>
#include <utility>

#include "stream/lock_table.hpp"
#include "zxtime.h"

namespace relay {
namespace {

constexpr std::uint64_t kMicro = 1000000;
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
    for (const auto& feed : feeds) {
        snapshot.stored_bytes += feed->ring.bytes();
        snapshot.stored_nodes += feed->ring.blocks();
    }
    // A queue takes two buffers.
    snapshot.tracked_buffers = 2 * feeds.size() + snapshot.stored_nodes + kSpareBuffers;
    board_.publish(std::move(snapshot), sender_);
}

}  // namespace relay

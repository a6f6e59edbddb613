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

Publisher::Publisher(Board& board) : board_(board), last_us_(zxtime_api_upTimeUs()) {}

void Publisher::publish(const Clients& clients, const Store* store) {
    const std::uint64_t now = zxtime_api_upTimeUs();
    const std::uint64_t passed = std::max<std::uint64_t>(now - std::exchange(last_us_, now), 1);
    Snapshot snapshot;
    for (const auto& [fd, client] : clients) {
        snapshot.clients.push_back({client->peer(), client->bytes_sent(),
                                    client->take_progress() * kMicro / passed, client->dropped(),
                                    client->bytes_waiting(), client->is_time_shifted()});
    }
    snapshot.locks = view_locks();
    if (store != nullptr) {
        snapshot.stored_bytes = store->bytes();
        snapshot.stored_nodes = store->nodes();
    }
    // The FIFO, each backlog and each node take two buffers.
    snapshot.tracked_buffers =
        2 * (1 + snapshot.clients.size() + snapshot.stored_nodes) + kSpareBuffers;
    board_.publish(std::move(snapshot));
}

}  // namespace relay

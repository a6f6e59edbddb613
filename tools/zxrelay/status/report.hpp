// Makes the JSON and the memory table of the status page.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "status/history.hpp"
#include "stream/snapshot.hpp"
#include "stream/stats.hpp"

namespace relay {

struct Report {
    const std::string& output;
    bool can_disconnect;  // clients, by the page
    const Snapshot& snapshot;
    const GuestStats& guests;
    const Counters total;    // of all channels, also of those that are closed
    const History& history;  // of the total
    const std::vector<Track>& tracks;
    std::uint64_t uptime_sec;
};

// True if the source, or one of the sources, has sent something in the last second or two.
[[nodiscard]] inline bool is_receiving(const History& history) {
    return history.latest().in != 0;
}

// What all senders keep of a channel.
[[nodiscard]] StoreView stored_of(const Snapshot& snapshot, const std::string& channel);

// Returns the HTML table of the live buffers from the allocator. Allocations wait until it is done.
std::string memory_table(std::uint64_t tracked_buffers);

// `memory`: the memory table, whose rows are added, or null. Both functions throw if memory is
// short.
std::string to_json(const Report& report, const std::string* memory);

}  // namespace relay

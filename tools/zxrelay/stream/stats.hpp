// Counters that the threads share.
#pragma once

#include <atomic>
#include <cstdint>

namespace relay {

struct Stats {
    std::atomic<std::uint64_t> bytes_in{0};
    std::atomic<std::uint64_t> messages_in{0};
    std::atomic<std::uint64_t> dropped_fifo_full{0};  // messages that did not fit into the FIFO
    std::atomic<std::uint64_t> bytes_no_stream{0};    // bytes that are not transport stream packets
    std::atomic<std::uint64_t> datagrams_lost{0};     // of RTP sources, on the way to the relay
    std::atomic<std::uint64_t> bytes_out{0};
    std::atomic<std::uint64_t> dropped_slow_client{0};  // messages, counted once for every client
    std::atomic<std::uint64_t> datagrams_sent{0};    // to --send
    std::atomic<std::uint64_t> datagrams_unsent{0};  // which the kernel has refused
    std::atomic<unsigned> clients{0};
    std::atomic<std::uint64_t> connections{0};      // of clients, also those that are gone
    std::atomic<std::uint64_t> refused_clients{0};  // beyond --max-clients
};

}  // namespace relay

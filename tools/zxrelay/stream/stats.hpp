// Counters that the threads share.
#pragma once

#include <atomic>
#include <cstdint>

namespace relay {

template <typename Number>
struct CountersOf {
    Number bytes_in{0};
    Number messages_in{0};
    Number dropped_fifo_full{0};  // messages that did not fit into the FIFO
    Number bytes_no_stream{0};    // bytes that are not transport stream packets
    Number datagrams_lost{0};     // of RTP sources, on the way to the relay
    Number bytes_out{0};
    Number dropped_slow_client{0};  // messages, counted once for every client
    Number clients{0};              // that are connected now
    Number datagrams_sent{0};       // to --send
    Number datagrams_unsent{0};     // which the kernel has refused
};

using Counters = CountersOf<std::uint64_t>;

inline Counters operator+(const Counters& a, const Counters& b) {
    return {a.bytes_in + b.bytes_in,
            a.messages_in + b.messages_in,
            a.dropped_fifo_full + b.dropped_fifo_full,
            a.bytes_no_stream + b.bytes_no_stream,
            a.datagrams_lost + b.datagrams_lost,
            a.bytes_out + b.bytes_out,
            a.dropped_slow_client + b.dropped_slow_client,
            a.clients + b.clients,
            a.datagrams_sent + b.datagrams_sent,
            a.datagrams_unsent + b.datagrams_unsent};
}

// The counters of a channel.
struct Stats : CountersOf<std::atomic<std::uint64_t>> {
    [[nodiscard]] Counters read() const {
        return {bytes_in,       messages_in,     dropped_fifo_full,   bytes_no_stream,
                datagrams_lost, bytes_out,       dropped_slow_client, clients,
                datagrams_sent, datagrams_unsent};
    }
};

// The counters of the door, before a client has a channel.
struct GuestStats {
    std::atomic<std::uint64_t> connections{0};      // of clients, also those that are gone
    std::atomic<std::uint64_t> refused_clients{0};  // at the door
};

}  // namespace relay

// Keeps the last seconds of the stream for clients that ask for it.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "zxfifo.h"

namespace relay {

// A shared list whose nodes hold a quarter of a second each. Only the sending thread uses it, so
// the node that a Place names exists until the head of the list has moved past it.
class Store {
public:
    explicit Store(unsigned keep_seconds);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    // Adds a message, which consists of whole packets, to the open node.
    void add(std::span<const std::uint8_t> message);

    // Closes the open node if it is due, so that readers can see it. Returns true if it did.
    bool close_node_when_due();

    // Milliseconds until the open node is due; negative if it is empty.
    [[nodiscard]] int due_ms() const;

    // Where a client continues to read. Packets are counted from the start of the relay.
    struct Place {
        std::uint64_t packet = 0;
        const IdList_ctt* node = nullptr;  // at or before the packet; may have been dropped
        std::uint64_t node_first = 0;      // the first packet of `node`
    };

    // Returns the place of `seconds` ago, or the oldest one in the store.
    [[nodiscard]] Place seek_back(std::uint64_t seconds);

    // Copies whole packets to `out` and moves the place past them. Adds the number of packets that
    // were dropped before the client could read them to `lost`.
    std::span<const std::uint8_t> read(Place& place, std::span<std::uint8_t> out,
                                       std::uint64_t& lost) const;

    // Bytes that a client can read from `place` on.
    [[nodiscard]] std::uint64_t bytes_after(const Place& place) const;

    [[nodiscard]] std::uint64_t bytes() const;
    [[nodiscard]] std::uint32_t nodes() const { return zxfifo_api_shareListTotalNum(&list_); }

private:
    void close_node();
    [[nodiscard]] const IdList_ctt* locate(Place& place) const;

    zxsharelist_ctt list_{};
    std::vector<std::uint8_t> open_node_;  // not in the list yet
    std::uint64_t open_node_start_us_ = 0;
    std::uint64_t end_ = 0;  // the number of the first packet of the open node
};

}  // namespace relay

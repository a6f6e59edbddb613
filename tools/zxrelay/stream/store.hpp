// The last seconds of the stream, for clients that ask for what has passed.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "zxfifo.h"

namespace relay {

// A shared list whose nodes hold a quarter of a second each. The sending thread writes and reads
// it, so a node that a place names is there as long as the head is not behind it.
class Store {
public:
    explicit Store(unsigned keep_sec);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    // A message is whole packets.
    void add(std::span<const std::uint8_t> message);

    // Makes what was added readable when it is time to. True when it did.
    bool close_when_due();

    // Milliseconds until then; negative when nothing waits for it.
    [[nodiscard]] int due_ms() const;

    // Where a client goes on to read. Packets are counted from the start of the relay.
    struct Place {
        std::uint64_t packet = 0;
        const IdList_ctt* node = nullptr;  // it is in, or before, unless that was dropped
        std::uint64_t node_first = 0;      // that node's first packet
    };

    // The place of so many seconds ago, or of the oldest packet that is held.
    [[nodiscard]] Place back(std::uint64_t seconds);

    // Copies whole packets and moves the place behind them. `lost` is increased by those that were
    // dropped before they were read.
    std::span<const std::uint8_t> read(Place& place, std::span<std::uint8_t> out,
                                       std::uint64_t& lost) const;

    // Bytes that can be read from a place.
    [[nodiscard]] std::uint64_t waiting(const Place& place) const;

    [[nodiscard]] std::uint64_t bytes() const;
    [[nodiscard]] std::uint32_t nodes() const { return zxfifo_api_shareListTotalNum(&list_); }

private:
    void close();
    [[nodiscard]] const IdList_ctt* locate(Place& place) const;

    zxsharelist_ctt list_{};
    std::vector<std::uint8_t> bundle_;  // the next node
    std::uint64_t bundle_start_us_ = 0;
    std::uint64_t end_ = 0;  // the first packet that is in no node yet
};

}  // namespace relay

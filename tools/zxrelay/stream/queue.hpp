// Passes packets from the receiving thread to a sending thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "common/event.hpp"
#include "common/transport_stream.hpp"
#include "zxcommon.hpp"

namespace relay {

using tools::kPacketSize;
inline constexpr std::size_t kMessageSize = 7 * kPacketSize;
inline constexpr std::size_t kLargestMessage = 65535;  // no datagram is larger

// For one producer and one consumer. What is pushed, and so what is popped, are whole packets.
class Queue {
public:
    explicit Queue(std::uint32_t capacity);  // throws a Failure

    // Returns false if the packets do not fit; then none of them is queued. Wakes the consumer if
    // it sleeps, and if there is much.
    bool push(std::span<const std::uint8_t> packets);

    // Moves packets to `room`, as many as there are and as fit. Returns their bytes.
    std::size_t pop(std::span<std::uint8_t> room);

    [[nodiscard]] bool empty() const { return fifo_.used() == 0; }
    [[nodiscard]] std::size_t size() const { return static_cast<std::size_t>(fifo_.used()); }
    // True if the consumer should not wait until more comes: half of the queue is in use, or as
    // much as the caches of a processor hold.
    [[nodiscard]] bool has_much() const;
    [[nodiscard]] double fill_ratio() const;  // from 0 to 1

    // Called by the consumer before it waits without a limit: the next push() wakes it. Returns
    // false if there are packets already.
    [[nodiscard]] bool sleep();

    // Readable when the consumer is to wake up, until clear_wake().
    [[nodiscard]] int wake_fd() const { return wake_.fd(); }
    void clear_wake() { wake_.clear(); }

private:
    zxcommon::Fifo fifo_;
    const tools::Event wake_;
    std::atomic<bool> is_asleep_{false};
};

}  // namespace relay

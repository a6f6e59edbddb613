// Passes messages from the receiving thread to the sending thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "zxcommon.hpp"

namespace relay {

inline constexpr std::size_t kPacketSize = 188;
inline constexpr std::size_t kMessageSize = 7 * kPacketSize;
inline constexpr std::size_t kLargestMessage = 65535;  // no datagram is larger

// For one producer and one consumer.
class Channel {
public:
    explicit Channel(std::uint32_t capacity);

    // Returns false if the message does not fit; then none of it is queued.
    bool push(std::span<const std::uint8_t> message);

    // Reads the next message into `buffer`, which has room for the largest one. Returns an empty
    // span if there is no message.
    std::span<const std::uint8_t> pop(std::span<std::uint8_t> buffer);

    [[nodiscard]] bool empty() const { return fifo_.used() == 0; }
    [[nodiscard]] double fill_ratio() const;  // from 0 to 1

    // This descriptor is readable after push() and wake(), until clear_wake(). After close() it
    // stays readable.
    [[nodiscard]] int wake_fd() const { return wake_.get(); }
    void clear_wake();
    void wake();
    void close();

private:
    zxcommon::Fifo fifo_;
    zxcommon::Descriptor wake_;
    std::atomic<bool> closed_{false};
};

}  // namespace relay

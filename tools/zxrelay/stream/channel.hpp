// The way of the messages from the receiver to the sender.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "zxcommon.hpp"

namespace relay {

inline constexpr std::size_t kPacketSize = 188;
inline constexpr std::size_t kMessageSize = 7 * kPacketSize;
inline constexpr std::size_t kLargestMessage = 65535;  // what a datagram may hold

// One producer and one consumer.
class Channel {
public:
    explicit Channel(std::uint32_t capacity);

    // False when there was no room: the message is dropped whole.
    bool push(std::span<const std::uint8_t> message);

    // The next message, in `buffer`, which holds the largest one. Empty: there is none.
    std::span<const std::uint8_t> pop(std::span<std::uint8_t> buffer);

    [[nodiscard]] bool empty() const { return fifo_.used() == 0; }
    [[nodiscard]] double fill() const;

    // Readable after a push or a wake(), until clear_wake(); for good after close().
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

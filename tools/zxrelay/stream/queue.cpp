#include "stream/queue.hpp"

#include <algorithm>

#include "common/failure.hpp"

namespace relay {
namespace {

constexpr std::int32_t kMuch = 256 << 10;

}  // namespace

Queue::Queue(std::uint32_t capacity) : fifo_(capacity, "relay") {
    if (!fifo_) {
        throw tools::Failure("no memory for the FIFO");
    }
}

bool Queue::push(std::span<const std::uint8_t> packets) {
    // There is one producer: until in(), the room can only grow.
    if (static_cast<std::size_t>(fifo_.left()) < packets.size()) {
        return false;
    }
    fifo_.in(packets);
    // Reads and clears in one operation: either this sees that the consumer sleeps, or the consumer
    // sees these packets before it does.
    if (is_asleep_.exchange(false) || has_much()) {
        wake_.set();
    }
    return true;
}

std::size_t Queue::pop(std::span<std::uint8_t> room) {
    const std::size_t size = std::min(static_cast<std::size_t>(fifo_.used()), room.size());
    const std::size_t whole = size - size % kPacketSize;
    if (whole != 0) {
        fifo_.out(room.first(whole));
    }
    return whole;
}

bool Queue::has_much() const {
    return fifo_.used() > std::min(fifo_.left(), kMuch);
}

double Queue::fill_ratio() const {
    return static_cast<double>(fifo_.used()) / static_cast<double>(fifo_.get()->size);
}

bool Queue::sleep() {
    is_asleep_.exchange(true);
    return empty();
}

}  // namespace relay

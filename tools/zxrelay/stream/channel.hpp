// A channel: a named stream on its way from its source to the senders.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "stream/queue.hpp"
#include "stream/stats.hpp"

namespace relay {

// Every sender has a queue of its own.
class Channel {
public:
    // `capacity`: of each queue. Throws a Failure.
    explicit Channel(std::uint32_t capacity, std::size_t senders = 1, std::string name = "stream");

    // These are for the one thread that receives at a time.
    // Returns false if a queue has no room; then its sender misses the packets.
    bool push(std::span<const std::uint8_t> packets);
    // Pushes to the queues from number `first` on, as long as they have room. Returns the number of
    // the one that has none; senders() when all have the packets.
    [[nodiscard]] std::size_t push_from(std::size_t first, std::span<const std::uint8_t> packets);
    [[nodiscard]] std::size_t senders() const { return queues_.size(); }

    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] Queue& queue(std::size_t sender) { return *queues_[sender]; }
    [[nodiscard]] bool empty() const;
    [[nodiscard]] double fill_ratio() const;  // of the fullest queue
    void close();                             // wakes the senders from now on

    Stats stats;

private:
    const std::string name_;
    std::vector<std::unique_ptr<Queue>> queues_;
};

}  // namespace relay

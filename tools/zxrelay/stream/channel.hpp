// A channel: a named stream on its way from its source to the senders.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "stream/queue.hpp"
#include "stream/stats.hpp"
#include "zxcommon.hpp"

namespace relay {

// Every sender has a queue of its own.
class Channel {
public:
    // `capacity`: of each queue. Throws a Failure.
    explicit Channel(std::uint32_t capacity, std::size_t senders = 1, std::string name = "stream");

    // These are for the thread that receives.
    // Returns false if a queue has no room; then its sender misses the packets.
    bool push(std::span<const std::uint8_t> packets);
    // Waits for room. Returns false if it was asked to stop meanwhile.
    bool push_waiting(std::span<const std::uint8_t> packets, zxcommon::StopRequest& stop);

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

// A channel: a named stream on its way from its source to the senders.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "stream/queue.hpp"
#include "stream/stats.hpp"

namespace relay {

struct ChannelSettings {
    std::string name;
    std::uint32_t fifo_bytes;           // the capacity of each queue
    std::uint64_t client_buffer_bytes;  // how far a client may lag
    std::uint64_t keep_us = 0;          // of the stream; 0: no time shift
    bool is_listed = true;              // in playlists
    std::string source = {};            // as the status page shows it

    bool operator==(const ChannelSettings&) const = default;
};

// Every sender has a queue of its own.
class Channel {
public:
    // Throws a Failure.
    explicit Channel(ChannelSettings settings, std::size_t queues = 1);
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    // These are for the one thread that receives at a time.
    // Returns false if a queue has no room; then its sender misses the packets.
    bool push(std::span<const std::uint8_t> packets);
    // Pushes to the queues from number `first` on, as long as they have room. Returns the number of
    // the one that has none; queues() when all have the packets.
    [[nodiscard]] std::size_t push_from(std::size_t first, std::span<const std::uint8_t> packets);
    [[nodiscard]] std::size_t queues() const { return queues_.size(); }

    [[nodiscard]] const ChannelSettings& settings() const { return settings_; }
    [[nodiscard]] const std::string& name() const { return settings_.name; }
    [[nodiscard]] Queue& queue(std::size_t number) { return *queues_[number]; }
    [[nodiscard]] bool empty() const;
    [[nodiscard]] double fill_ratio() const;  // of the fullest queue

    Stats stats;

    // Playlists are in the order of ranks. The first channel that is listed is the one of clients
    // that do not ask. The main thread changes it when the configuration is read again.
    std::atomic<unsigned> rank{0};

private:
    const ChannelSettings settings_;
    std::vector<std::unique_ptr<Queue>> queues_;
};

}  // namespace relay

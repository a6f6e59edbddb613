// Cuts a byte stream into messages of whole transport stream packets.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "stream/channel.hpp"

namespace relay {

// True when these are whole packets, each with its sync byte.
bool is_transport_stream(std::span<const std::uint8_t> bytes);

class Packetizer {
public:
    using Emit = std::function<void(std::span<const std::uint8_t>)>;
    explicit Packetizer(Emit emit) : emit_(std::move(emit)) {}

    // Emits every message of seven packets that these bytes complete, and what is whole before a
    // place where the packets are torn.
    void feed(std::span<const std::uint8_t> bytes);

    // Emits the whole packets that wait for more, so that a pause holds nothing back.
    void flush();

    // As flush(), and forgets the torn packet at the end of a source.
    void finish();

    // Bytes left out so far because they were no transport stream.
    [[nodiscard]] std::uint64_t skipped() const { return skipped_; }

private:
    void skip(std::size_t count);
    [[nodiscard]] std::size_t next_sync() const;

    Emit emit_;
    std::array<std::uint8_t, kMessageSize> held_{};
    std::size_t size_ = 0;
    std::uint64_t skipped_ = 0;
};

}  // namespace relay

// Cuts a byte stream into messages of whole transport stream packets.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "stream/channel.hpp"

namespace relay {

// True if the bytes are whole packets that all begin with the sync byte.
bool is_transport_stream(std::span<const std::uint8_t> bytes);

class Packetizer {
public:
    using Emit = std::function<void(std::span<const std::uint8_t>)>;
    explicit Packetizer(Emit emit) : emit_(std::move(emit)) {}

    // Emits every packet that these bytes complete, in as few messages as possible. Where packets
    // are damaged, it skips to the next packet.
    void feed(std::span<const std::uint8_t> bytes);

    // Skips an incomplete packet. Called at the end of a source.
    void finish();

    // Bytes skipped so far because they are not part of a transport stream.
    [[nodiscard]] std::uint64_t skipped() const { return skipped_; }

private:
    std::size_t emit_packets(std::span<const std::uint8_t> bytes);
    void flush();
    void skip(std::size_t count);
    [[nodiscard]] std::size_t next_sync() const;

    Emit emit_;
    std::array<std::uint8_t, kMessageSize> buffer_{};  // what no packet is known to begin with
    std::size_t size_ = 0;
    std::uint64_t skipped_ = 0;
};

}  // namespace relay

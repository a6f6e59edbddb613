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

    // Emits every message of seven packets that these bytes complete. When packets are damaged, it
    // emits the whole packets before them and skips to the next packet.
    void feed(std::span<const std::uint8_t> bytes);

    // Emits the whole packets of an incomplete message. Call this when the source pauses, so that
    // clients receive them without delay.
    void flush();

    // Does what flush() does, and skips an incomplete packet. Call this at the end of a source.
    void finish();

    // Bytes skipped so far because they are not part of a transport stream.
    [[nodiscard]] std::uint64_t skipped() const { return skipped_; }

private:
    void skip(std::size_t count);
    [[nodiscard]] std::size_t next_sync() const;

    Emit emit_;
    std::array<std::uint8_t, kMessageSize> buffer_{};
    std::size_t size_ = 0;
    std::uint64_t skipped_ = 0;
};

}  // namespace relay

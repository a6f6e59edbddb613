// Cuts a byte stream into messages of whole transport stream packets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "common/transport_stream.hpp"
#include "stream/channel.hpp"

namespace relay {

// It finds the packets by three sync bytes in a row, each a packet apart, and follows them until a
// sync byte is missing.
class Packetizer {
public:
    using Emit = std::function<void(std::span<const std::uint8_t>)>;
    explicit Packetizer(Emit emit) : emit_(std::move(emit)), buffer_(kCapacity) {}

    // Emits all packets that these bytes complete: what one read gave is one message, if it is
    // whole and fits.
    void feed(std::span<const std::uint8_t> bytes);

    // The same without a copy: where the next bytes belong, which is never empty, and how many
    // bytes were put there.
    [[nodiscard]] std::span<std::uint8_t> room() { return std::span(buffer_).subspan(end_); }
    void commit(std::size_t size);

    // Emits whole packets at the front even if they are fewer than three, and skips the rest.
    // Called at the end of a source.
    void finish();

    // Bytes skipped so far because they are not part of a transport stream.
    [[nodiscard]] std::uint64_t skipped() const { return skipped_; }

private:
    static constexpr std::size_t kCapacity = kLargestMessage / kPacketSize * kPacketSize;

    void emit_packets();
    bool find_step();
    void emit(std::size_t count);
    void skip(std::size_t count);

    [[nodiscard]] std::span<const std::uint8_t> waiting() const;

    Emit emit_;
    std::vector<std::uint8_t> buffer_;
    std::size_t begin_ = 0;  // what waits in the buffer
    std::size_t end_ = 0;
    bool is_in_step_ = false;
    std::uint64_t skipped_ = 0;
};

}  // namespace relay

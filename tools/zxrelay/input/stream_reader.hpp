// Receives a stream of bytes, whose source is slowed down when the relay has no room.
#pragma once

#include <cstdint>
#include <vector>

#include "input/entrance.hpp"
#include "input/interrupt.hpp"
#include "input/packetizer.hpp"

namespace relay {

// Finds the packets in a stream of bytes and pushes them. One for each connection or file.
class StreamFeeder {
public:
    // `emit` pushes a message into the entrance, in its own time.
    StreamFeeder(Entrance& entrance, Packetizer::Emit emit);
    // Messages wait for room; `interrupt` outlives this object.
    StreamFeeder(Entrance& entrance, const Interrupt& interrupt);
    StreamFeeder(const StreamFeeder&) = delete;
    StreamFeeder& operator=(const StreamFeeder&) = delete;

    void feed(std::span<const std::uint8_t> bytes);
    // Feeds what one read gives. Returns false at the end of the stream, and after an error.
    bool read_from(int fd);

    // Pushes what is left, and counts what is no whole packet. Called at the end of the stream, but
    // not if the relay itself has cut the stream.
    void finish();

    [[nodiscard]] bool has_delivered() const { return has_delivered_; }
    // No packet has come for so long.
    [[nodiscard]] bool is_silent(unsigned seconds) const;

private:
    void deliver(std::span<const std::uint8_t> message);
    void count_skipped();

    Entrance& entrance_;
    const Packetizer::Emit emit_;
    Packetizer packetizer_;
    std::uint64_t counted_skipped_ = 0;
    std::uint64_t last_packet_us_;
    bool has_delivered_ = false;
};

enum class StreamEnd { closed, silent, stopped };

// When a silent source is given up: after so many seconds, or later, when `rival` is readable,
// because another source waits there.
struct Patience {
    unsigned seconds;
    int rival = -1;  // -1: a silent source is given up even if no other one waits
};
inline constexpr Patience kEndless{UINT32_MAX};

struct Reading {
    StreamEnd end;
    bool has_delivered;
};

// Reads a descriptor until its end, and pushes the packets.
Reading read_stream(int fd, Entrance& entrance, const Interrupt& interrupt, Patience patience);

}  // namespace relay

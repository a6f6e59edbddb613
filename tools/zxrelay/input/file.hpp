// The stream from a file, as fast as it is to be played.
#pragma once

#include <optional>

#include "input/packetizer.hpp"
#include "input/repeated.hpp"

namespace relay {

// Tells when packets are due, by the program clock references (PCR) of one packet identifier.
class Pacer {
public:
    // How long to wait before this packet is passed on, in microseconds.
    std::uint64_t wait_us(std::span<const std::uint8_t> packet, std::uint64_t now_us);

    // So many packets came without a clock reference that nothing tells their time.
    [[nodiscard]] bool is_lost() const;

private:
    [[nodiscard]] bool is_jump(std::uint64_t clock_us) const;

    std::optional<unsigned> pid_;
    std::uint64_t clock_us_ = 0;   // the last reference
    std::uint64_t offset_us_ = 0;  // from the clock of the stream to ours
    unsigned without_ = 0;         // packets since the last reference
};

// Whether a file has a transport stream with clock references at its beginning.
bool can_be_paced(int fd);

// Plays the file again and again, or once.
class FileSource final : public Repeated {
public:
    FileSource(zxcommon::Descriptor file, Entrance& entrance, bool once)
        : Repeated(entrance, once), file_(std::move(file)) {}

private:
    Played play() override;
    bool play_through();
    void push_paced(std::span<const std::uint8_t> message);

    zxcommon::Descriptor file_;
    Pacer pacer_;
};

}  // namespace relay

// An input of datagrams: transport stream packets, or RTP with such packets in it.
#pragma once

#include <memory>
#include <optional>

#include "common/rtp_order.hpp"
#include "input/entrance.hpp"
#include "input/sockets.hpp"
#include "input/source.hpp"

namespace relay {

class DatagramSource final : public Source {
public:
    // `at_once`: a datagram does not wait for others, which would save wakes.
    DatagramSource(OpenInput input, Entrance& entrance, bool at_once);
    ~DatagramSource() override;

    void run() override;

private:
    class Batch;

    [[nodiscard]] std::optional<int> wait_ms() const;
    void receive();
    void take(std::span<const std::uint8_t> received, std::size_t segment_size);
    void take_datagram(std::span<const std::uint8_t> datagram);
    void count_lost();

    const OpenInput input_;
    Entrance& entrance_;
    std::unique_ptr<Batch> batch_;
    tools::RtpOrder order_;
    std::uint64_t counted_lost_ = 0;
    bool has_said_rtp_;  // or the user has asked for it
    const int gather_ms_;
};

}  // namespace relay

// The frame engine, zxframe, which logs all fields of a frame.
//
// It decodes Ethernet with IPv4, ARP, TCP and UDP, at places that it knows, and is not told the
// length of a frame. So it gets each frame without its VLAN tags, and zeros after what was
// captured.
#pragma once

#include <array>
#include <memory>

#include "packet/packet.hpp"
#include "zxframe.h"

namespace capture {

class Engine {
public:
    // Logs the fields of the frame, as far as they were captured.
    void dump(const Frame& frame, const Packet& packet);

    [[nodiscard]] const ether_ctt& record() const { return *record_; }

private:
    void prepare(const Frame& frame, const Packet& packet);
    void dump_whole(const Frame& frame, const Packet& packet);
    void dump_captured_headers(const Packet& packet);
    void dump_transport_of_ipv6(const Packet& packet);
    void copy_payload(const Frame& frame, const Packet& packet);
    [[nodiscard]] const std::uint8_t* at(std::size_t place, const Packet& packet) const;

    std::unique_ptr<ether_ctt> record_ = std::make_unique<ether_ctt>();
    std::array<std::uint8_t, ZXFRAME_READABLE> start_{};  // the start of a frame, then zeros
};

}  // namespace capture

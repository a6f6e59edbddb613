// One destination of datagrams.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <span>

#include "output/target.hpp"
#include "zxcommon.hpp"

namespace relay {

class Output {
public:
    // Opens its socket. Throws a Failure.
    explicit Output(Target target);

    // Sends packets as one datagram. Returns false if the kernel refuses it; `errno` tells why.
    bool send(std::span<const std::uint8_t> packets, std::uint64_t now_us);

    [[nodiscard]] const std::string& name() const { return target_.text; }

private:
    static constexpr std::size_t kRtpHeader = 12;

    void write_header(std::uint64_t now_us);

    Target target_;
    sockaddr_storage address_{};
    zxcommon::Descriptor socket_;
    bool is_connected_ = false;
    std::uint8_t header_[kRtpHeader]{};
    std::uint16_t sequence_ = 0;
};

}  // namespace relay

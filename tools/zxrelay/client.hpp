// One receiver of the stream.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

#include "internal/guard.hpp"
#include "zxfifo.h"

namespace relay {

// A message goes straight to the socket. What the socket does not take waits in a FIFO of the
// client's own, which is only made for a client that falls behind; when that is full, whole
// messages are dropped for this client alone.
class Client {
public:
    Client(int fd, std::string peer, std::uint32_t buffer_size);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    enum class Outcome { sent, dropped, gone };
    Outcome offer(std::span<const std::uint8_t> message);

    // Sends what waits, as far as the socket takes it. False: the client is gone.
    bool flush();

    // Reads and forgets what the client says. False: it has closed or is gone.
    bool discard_input();

    [[nodiscard]] bool is_behind() const { return waiting() != 0; }
    [[nodiscard]] int fd() const { return fd_.get(); }
    [[nodiscard]] const std::string& peer() const { return peer_; }
    [[nodiscard]] std::uint64_t bytes_sent() const { return bytes_sent_; }
    [[nodiscard]] std::uint64_t dropped() const { return dropped_; }

    // Uptime in microseconds at which it last took a byte or began to fall behind.
    [[nodiscard]] std::uint64_t last_progress_us() const { return last_progress_us_; }

private:
    std::int64_t send_now(std::span<const std::uint8_t> bytes);
    bool keep(std::span<const std::uint8_t> bytes);
    void refill();
    [[nodiscard]] std::size_t waiting() const;

    zx::UniqueFd fd_;
    std::string peer_;
    std::uint32_t buffer_size_;
    zxfifoblock_ctt* backlog_ = nullptr;
    std::array<std::uint8_t, 16384> chunk_;  // taken from the backlog and not all sent yet
    std::span<const std::uint8_t> unsent_;
    std::uint64_t last_progress_us_;
    std::uint64_t bytes_sent_ = 0;
    std::uint64_t dropped_ = 0;
};

}  // namespace relay

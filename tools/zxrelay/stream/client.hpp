// One receiver of the stream.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>

#include "stream/request.hpp"
#include "stream/store.hpp"
#include "zxcommon.hpp"
#include "zxfifo.h"

namespace relay {

// A message goes straight to the socket. What the socket does not take waits in a FIFO of the
// client's own, which is only made for a client that falls behind; when that is full, whole
// messages are dropped for this client alone. A shifted client is given no messages: it takes what
// it sends from the store, as fast as the socket allows.
class Client {
public:
    Client(int fd, std::string peer, std::uint32_t buffer_size);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    enum class Outcome { sent, dropped, gone };
    Outcome offer(std::span<const std::uint8_t> message);

    // Sends of what waits as much as the socket takes, or a good part of it. False: the client is
    // gone.
    bool flush();

    // Reads what the client says, and sets the seconds when it asks for what has passed. False: it
    // has closed or is gone.
    bool read_input(std::optional<std::uint64_t>& seconds);

    // From now on it receives what came behind a place in the store, after what waits already.
    void shift(const Store& store, const Store::Place& place);
    [[nodiscard]] bool is_shifted() const { return store_ != nullptr; }

    [[nodiscard]] bool is_behind() const { return waiting() != 0; }
    [[nodiscard]] std::uint64_t waiting() const;  // bytes

    // Whether somebody waits for its socket to take more, since it fell behind.
    [[nodiscard]] bool is_watched() const { return is_watched_; }
    void set_watched(bool is_watched);

    [[nodiscard]] int fd() const { return fd_.get(); }
    [[nodiscard]] const std::string& peer() const { return peer_; }
    [[nodiscard]] std::uint64_t bytes_sent() const { return bytes_sent_; }
    [[nodiscard]] std::uint64_t dropped() const { return dropped_; }

    // Bytes sent since the last call.
    std::uint64_t take_progress();

    // Uptime in microseconds at which it last took a byte or began to fall behind.
    [[nodiscard]] std::uint64_t last_progress_us() const { return last_progress_us_; }

private:
    std::int64_t send_now(std::span<const std::uint8_t> bytes);
    bool keep(std::span<const std::uint8_t> bytes);
    void refill();
    [[nodiscard]] std::size_t held() const;

    zxcommon::Descriptor fd_;
    std::string peer_;
    std::uint32_t buffer_size_;
    zxfifoblock_ctt* backlog_ = nullptr;
    std::array<std::uint8_t, 16384> chunk_;  // taken from what waits, not all sent yet
    std::span<const std::uint8_t> unsent_;
    const Store* store_ = nullptr;
    Store::Place place_;
    RequestReader requests_;
    bool is_watched_ = false;
    std::uint64_t last_progress_us_;
    std::uint64_t bytes_sent_ = 0;
    std::uint64_t bytes_seen_ = 0;
    std::uint64_t dropped_ = 0;
};

// By descriptor.
using Clients = std::unordered_map<int, std::unique_ptr<Client>>;

}  // namespace relay

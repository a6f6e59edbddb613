// A client: receives the stream.
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

// A live client sends each message to its socket directly. Bytes that the socket does not accept
// wait in the backlog, a FIFO that is allocated when the client first needs it. While the backlog
// is full, the client misses whole messages; other clients do not. A time-shifted client ignores
// messages: it reads from the store, as fast as its socket accepts data.
class Client {
public:
    Client(int fd, std::string peer, std::uint32_t buffer_size);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    enum class Outcome { sent, dropped, gone };
    Outcome offer(std::span<const std::uint8_t> message);

    // Sends waiting bytes until the socket is full or a limit is reached, so that other clients get
    // their turn. Returns false if the connection failed.
    bool flush();

    // Reads what the client has sent. Sets `seconds` if it asks for the last seconds of the stream.
    // Returns false if the client has closed the connection or the connection failed.
    bool read_input(std::optional<std::uint64_t>& seconds);

    // From now on the client reads from the store, from `place` on. Bytes that wait in the backlog
    // are sent first.
    void start_time_shift(const Store& store, const Store::Place& place);
    [[nodiscard]] bool is_time_shifted() const { return store_ != nullptr; }

    // True while bytes wait to be sent.
    [[nodiscard]] bool lags() const { return bytes_waiting() != 0; }
    [[nodiscard]] std::uint64_t bytes_waiting() const;

    // True while the epoll set waits for room in the socket. The owner sets it when the client
    // starts or stops to lag.
    [[nodiscard]] bool is_watched() const { return is_watched_; }
    void set_watched(bool is_watched);

    [[nodiscard]] int fd() const { return fd_.get(); }
    [[nodiscard]] const std::string& peer() const { return peer_; }
    [[nodiscard]] std::uint64_t bytes_sent() const { return bytes_sent_; }
    [[nodiscard]] std::uint64_t dropped() const { return dropped_; }

    // Bytes sent since the last call.
    std::uint64_t take_progress();

    // Uptime in microseconds at which the client last accepted data or began to lag.
    [[nodiscard]] std::uint64_t last_progress_us() const { return last_progress_us_; }

private:
    std::int64_t send_now(std::span<const std::uint8_t> bytes);
    bool append_to_backlog(std::span<const std::uint8_t> bytes);
    void refill();
    [[nodiscard]] std::size_t backlog_bytes() const;

    zxcommon::Descriptor fd_;
    std::string peer_;
    std::uint32_t buffer_size_;
    zxfifoblock_ctt* backlog_ = nullptr;
    std::array<std::uint8_t, 16384> chunk_;  // holds unsent_
    std::span<const std::uint8_t> unsent_;   // from the backlog or the store, sent next
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

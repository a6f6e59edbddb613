// A client: receives the stream.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "stream/admission.hpp"
#include "stream/feed.hpp"
#include "stream/request.hpp"
#include "zxcommon.hpp"

namespace relay {

// A client has a place in the ring of its channel and sends from there what its socket accepts. So
// a client that lags costs no memory of its own.
class Client {
public:
    static constexpr std::uint64_t kWholeRing = UINT64_MAX;

    // `reach`: how many bytes the client may lag; kWholeRing for a client that is shifted in time.
    // `first`: is sent before the stream.
    Client(Guest guest, Feed& feed, std::uint64_t position, std::uint64_t reach, std::string first);
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Sends what is due until the socket is full or a limit is reached, so that other clients get
    // their turn. Returns false if the connection failed.
    bool send_due(std::uint64_t now_us);

    // Reads what the client has sent. Sets `seconds` if it asks for the last seconds of the stream.
    // Returns false if the client has closed the connection or the connection failed.
    bool read_input(std::optional<std::uint64_t>& seconds);

    // From now on, nothing that the client sends is a request.
    void ignore_requests() { has_requests_ = false; }

    // Continues at `position`, from which on the client may lag as far as the ring reaches. The
    // packet that is sent in part is completed.
    void shift_to(std::uint64_t position);
    // The same for a client that lags too far: counts the messages that it misses. Returns their
    // number.
    std::uint64_t skip_to(std::uint64_t position);

    [[nodiscard]] Feed& feed() const { return feed_; }
    [[nodiscard]] std::uint64_t position() const { return position_; }
    [[nodiscard]] std::uint64_t reach() const { return reach_; }
    [[nodiscard]] bool is_time_shifted() const { return reach_ == kWholeRing; }
    [[nodiscard]] std::uint64_t bytes_waiting() const {
        return first_.size() + feed_.ring.end() - position_;
    }

    // True while the epoll set waits for room in the socket. The owner sets it when the client
    // starts or stops to lag.
    [[nodiscard]] bool is_watched() const { return is_watched_; }
    void set_watched(bool is_watched, std::uint64_t now_us);

    // A client that is gone is not served any more.
    [[nodiscard]] bool is_gone() const { return is_gone_; }
    void set_gone() { is_gone_ = true; }

    [[nodiscard]] std::uint64_t number() const { return guest_.number; }
    [[nodiscard]] int fd() const { return guest_.fd.get(); }
    [[nodiscard]] const std::string& peer() const { return guest_.peer; }
    [[nodiscard]] std::uint64_t bytes_sent() const { return bytes_sent_; }
    [[nodiscard]] std::uint64_t dropped() const { return dropped_; }

    // Bytes sent since the last call.
    std::uint64_t take_progress();

    // Uptime in microseconds at which the client last accepted data or began to lag.
    [[nodiscard]] std::uint64_t last_progress_us() const { return last_progress_us_; }

private:
    void advance(std::size_t sent);
    void keep_rest_of_packet();

    const Guest guest_;
    Feed& feed_;
    std::uint64_t position_;
    std::uint64_t reach_;
    std::string first_;  // sent before what is at position_
    RequestReader requests_;
    bool has_requests_ = true;
    bool is_watched_ = false;
    bool is_gone_ = false;
    std::uint64_t last_progress_us_ = 0;
    std::uint64_t bytes_sent_ = 0;
    std::uint64_t bytes_seen_ = 0;
    std::uint64_t dropped_ = 0;
};

// By descriptor.
using Clients = std::unordered_map<int, std::unique_ptr<Client>>;

}  // namespace relay

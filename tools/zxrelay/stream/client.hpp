// A client: receives the stream.
#pragma once

#include <sys/epoll.h>

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
    Client(Guest guest, Feed& feed, std::uint64_t position, std::uint64_t reach, std::string first,
           std::uint64_t now_us);
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Sends what is due until the socket is full or a limit is reached, so that other clients get
    // their turn. Returns false if the connection failed.
    bool send_due(std::uint64_t now_us);

    // Reads what the client has sent. Sets `seconds` if it asks for the last seconds of the stream.
    // Returns false if the client has closed the connection or the connection failed.
    bool read_input(std::optional<std::uint64_t>& seconds);

    // Called once a second: what a client sends beyond a limit is read in the next second.
    void renew_input() { input_left_ = kInputPerSecond; }

    // From now on, nothing that the client sends is a request, and it may end what it sends.
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

    // What the epoll set is to wait for, and what it waits for. The owner keeps them the same.
    [[nodiscard]] std::uint32_t wanted_events() const;
    [[nodiscard]] std::uint32_t watched_events() const { return watched_events_; }
    void set_watched_events(std::uint32_t events, std::uint64_t now_us);
    // The epoll set waits for room in the socket: the client lags.
    [[nodiscard]] bool is_blocked() const { return (watched_events_ & EPOLLOUT) != 0; }

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

    // True if the client sends no more: it has closed its side of the connection, or all of it.
    [[nodiscard]] bool has_ended_input() const { return has_ended_input_; }

    // Uptime in microseconds at which the client last accepted data or began to lag.
    [[nodiscard]] std::uint64_t last_progress_us() const { return last_progress_us_; }

private:
    static constexpr std::size_t kInputPerSecond = 64U << 10U;

    void advance(std::size_t sent);
    void keep_rest_of_packet();

    const Guest guest_;
    Feed& feed_;
    std::uint64_t position_;
    std::uint64_t reach_;
    std::string first_;  // sent before what is at position_
    RequestReader requests_;
    bool has_requests_ = true;
    bool has_ended_input_ = false;
    std::size_t input_left_ = kInputPerSecond;  // in this second
    std::uint32_t watched_events_ = EPOLLIN;
    bool is_gone_ = false;
    std::uint64_t last_progress_us_;
    std::uint64_t bytes_sent_ = 0;
    std::uint64_t bytes_seen_ = 0;
    std::uint64_t dropped_ = 0;
};

// By descriptor.
using Clients = std::unordered_map<int, std::unique_ptr<Client>>;

}  // namespace relay

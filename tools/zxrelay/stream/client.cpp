#include "stream/client.hpp"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "stream/channel.hpp"
#include "zxtime.h"

namespace relay {
namespace {

constexpr int kPiecesPerFlush = 32;  // then other clients get their turn
constexpr std::uint64_t kPacketsPerMessage = kMessageSize / kPacketSize;

}  // namespace

Client::Client(int fd, std::string peer, std::uint32_t buffer_size)
    : fd_(fd),
      peer_(std::move(peer)),
      buffer_size_(buffer_size),
      last_progress_us_(zxtime_api_upTimeUs()) {}

Client::~Client() {
    zxfifo_api_blockDeinit(&backlog_);
}

Client::Outcome Client::offer(std::span<const std::uint8_t> message) {
    if (is_time_shifted()) {
        return Outcome::sent;
    }
    if (!lags()) {
        const std::int64_t sent = send_now(message);
        if (sent < 0) {
            return Outcome::gone;
        }
        message = message.subspan(static_cast<std::size_t>(sent));
        if (message.empty()) {
            return Outcome::sent;
        }
        return append_to_backlog(message) ? Outcome::sent : Outcome::gone;
    }
    if (static_cast<std::size_t>(zxfifo_api_blockSizeLeft(backlog_)) < message.size()) {
        ++dropped_;
        return Outcome::dropped;
    }
    return append_to_backlog(message) ? Outcome::sent : Outcome::gone;
}

bool Client::flush() {
    for (int piece = 0; piece < kPiecesPerFlush && lags(); ++piece) {
        if (unsent_.empty()) {
            refill();
        }
        const std::int64_t sent = send_now(unsent_);
        if (sent < 0) {
            return false;
        }
        if (sent == 0) {
            return true;
        }
        unsent_ = unsent_.subspan(static_cast<std::size_t>(sent));
    }
    return true;
}

bool Client::read_input(std::optional<std::uint64_t>& seconds) {
    char received[4096];
    const ssize_t got = recv(fd(), received, sizeof received, MSG_DONTWAIT);
    if (got > 0) {
        seconds = requests_.feed({received, static_cast<std::size_t>(got)});
    }
    return got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR));
}

void Client::start_time_shift(const Store& store, const Store::Place& place) {
    store_ = &store;
    place_ = place;
}

void Client::set_watched(bool is_watched) {
    is_watched_ = is_watched;
    if (is_watched) {
        last_progress_us_ = zxtime_api_upTimeUs();
    }
}

std::uint64_t Client::take_progress() {
    return bytes_sent_ - std::exchange(bytes_seen_, bytes_sent_);
}

// Returns the number of bytes that the socket accepted, 0 if it is full, or -1 if the connection
// failed.
std::int64_t Client::send_now(std::span<const std::uint8_t> bytes) {
    const ssize_t sent = send(fd(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0) {
        return errno == EAGAIN || errno == EINTR ? 0 : -1;
    }
    bytes_sent_ += static_cast<std::uint64_t>(sent);
    last_progress_us_ = zxtime_api_upTimeUs();
    return sent;
}

// The caller has checked that the bytes fit. A new backlog has room for every message.
bool Client::append_to_backlog(std::span<const std::uint8_t> bytes) {
    if (backlog_ == nullptr) {
        backlog_ = zxfifo_api_blockInit(buffer_size_, peer_.c_str());
        if (backlog_ == nullptr) {
            return false;
        }
    }
    zxfifo_api_blockIn(backlog_, bytes.data(), static_cast<std::int32_t>(bytes.size()), nullptr);
    return true;
}

void Client::refill() {
    const std::size_t size = std::min(backlog_bytes(), chunk_.size());
    if (size == 0) {
        std::uint64_t lost = 0;
        unsent_ = store_->read(place_, chunk_, lost);
        dropped_ += (lost + kPacketsPerMessage - 1) / kPacketsPerMessage;
        return;
    }
    zxfifo_api_blockOut(backlog_, chunk_.data(), static_cast<std::int32_t>(size), nullptr);
    unsent_ = std::span(chunk_).first(size);
}

std::size_t Client::backlog_bytes() const {
    return backlog_ != nullptr ? static_cast<std::size_t>(zxfifo_api_blockSizeUsed(backlog_)) : 0;
}

std::uint64_t Client::bytes_waiting() const {
    return backlog_bytes() + unsent_.size() + (store_ != nullptr ? store_->bytes_after(place_) : 0);
}

}  // namespace relay

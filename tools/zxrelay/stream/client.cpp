#include "stream/client.hpp"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace relay {
namespace {

constexpr std::size_t kBytesPerTurn = 1U << 20U;  // then the other clients are served
constexpr std::size_t kPartsPerTurn = kBytesPerTurn / Ring::kBlockSize + 3;

// What `bytes`, counted from the start of the stream, lack to a whole packet.
std::uint64_t to_whole_packet(std::uint64_t bytes) {
    return (kPacketSize - bytes % kPacketSize) % kPacketSize;
}

}  // namespace

Client::Client(Guest guest, Feed& feed, std::uint64_t position, std::uint64_t reach,
               std::string first, std::uint64_t now_us)
    : guest_(std::move(guest)),
      feed_(feed),
      position_(position),
      reach_(reach),
      first_(std::move(first)),
      last_progress_us_(now_us) {
    first_.reserve(kPacketSize);  // keep_rest_of_packet() needs no memory later
}

bool Client::send_due(std::uint64_t now_us) {
    iovec parts[kPartsPerTurn];
    parts[0] = {first_.data(), first_.size()};
    const std::size_t count =
        1 + feed_.ring.gather(position_, std::span(parts).subspan(1), kBytesPerTurn);
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    const ssize_t sent = sendmsg(fd(), &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0) {
        return errno == EAGAIN || errno == EINTR || errno == ENOBUFS;
    }
    if (sent > 0) {
        last_progress_us_ = now_us;
        advance(static_cast<std::size_t>(sent));
    }
    return true;
}

void Client::advance(std::size_t sent) {
    bytes_sent_ += sent;
    const std::size_t of_first = std::min(sent, first_.size());
    first_.erase(0, of_first);
    position_ += sent - of_first;
}

bool Client::read_input(std::optional<std::uint64_t>& seconds) {
    char received[4096];
    const ssize_t got = recv(fd(), received, std::min(sizeof received, input_left_), MSG_DONTWAIT);
    if (got < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    if (got == 0) {
        has_ended_input_ = true;
        return !has_requests_;
    }
    input_left_ -= static_cast<std::size_t>(got);
    if (has_requests_) {
        seconds = requests_.feed({received, static_cast<std::size_t>(got)});
    }
    return true;
}

void Client::shift_to(std::uint64_t position) {
    keep_rest_of_packet();
    position_ = position;
    reach_ = kWholeRing;
}

std::uint64_t Client::skip_to(std::uint64_t position) {
    keep_rest_of_packet();
    const std::uint64_t messages = (position - position_ + kMessageSize - 1) / kMessageSize;
    position_ = position;
    dropped_ += messages;
    return messages;
}

void Client::keep_rest_of_packet() {
    iovec part;  // one is enough: no packet crosses the end of a block
    const std::size_t rest = to_whole_packet(position_);
    if (feed_.ring.gather(position_, {&part, 1}, rest) == 1) {
        first_.append(static_cast<const char*>(part.iov_base), part.iov_len);
        position_ += part.iov_len;
    }
}

std::uint32_t Client::wanted_events() const {
    const bool is_heard = input_left_ != 0 && !has_ended_input_;
    const std::uint32_t input = is_heard ? std::uint32_t{EPOLLIN} : 0;
    return bytes_waiting() != 0 ? input | EPOLLOUT : input;
}

void Client::set_watched_events(std::uint32_t events, std::uint64_t now_us) {
    const bool was_blocked = is_blocked();
    watched_events_ = events;
    if (is_blocked() && !was_blocked) {
        last_progress_us_ = now_us;
    }
}

std::uint64_t Client::take_progress() {
    return bytes_sent_ - std::exchange(bytes_seen_, bytes_sent_);
}

}  // namespace relay

#include "streams/connection.hpp"

#include <algorithm>

namespace capture {

void SeenBytes::begin_at(std::uint32_t sequence) {
    constexpr std::int64_t kFarBefore = INT64_MIN / 2;
    next_ = std::int64_t{1} << 32U | sequence;  // so that places are never 0
    holes_ = {{kFarBefore, next_}};
}

SeenBytes::Kind SeenBytes::add(std::uint32_t sequence, std::uint32_t size) {
    if (is_empty()) {
        begin_at(sequence);
    }
    const std::int64_t begin = place_of(sequence);
    const std::int64_t end = begin + size;
    if (begin >= next_) {
        if (begin > next_) {
            holes_.push_back({next_, begin});
        }
        next_ = end;
        if (holes_.size() > kMostHoles) {
            holes_.erase(holes_.begin());
        }
        return Kind::fresh;
    }
    next_ = std::max(next_, end);
    return fill({begin, end}) ? Kind::late : Kind::again;
}

// Takes the range out of the holes. False: it was in none of them.
bool SeenBytes::fill(Range range) {
    std::vector<Range> left;
    bool has_filled = false;
    for (const Range& hole : holes_) {
        if (range.end <= hole.begin || hole.end <= range.begin) {
            left.push_back(hole);
            continue;
        }
        has_filled = true;
        if (hole.begin < range.begin) {
            left.push_back({hole.begin, range.begin});
        }
        if (range.end < hole.end) {
            left.push_back({range.end, hole.end});
        }
    }
    if (left.size() > kMostHoles) {
        left.erase(left.begin());
    }
    holes_ = std::move(left);
    return has_filled;
}

void Way::add(const Tcp& tcp, std::uint32_t payload, std::uint32_t frame_size,
              std::int64_t now_us) {
    first_sequence = frames == 0 ? tcp.sequence : first_sequence;
    ++frames;
    bytes += frame_size;
    second_bytes_ += frame_size;
    payload_bytes += payload;
    const bool has_window = !tcp.has(kSyn) && !tcp.has(kFin) && !tcp.has(kRst);
    zero_windows += has_window && tcp.window == 0 ? 1 : 0;
    if (tcp.has(kRst)) {
        ++resets;  // what it carries are no bytes of the sequence
    } else {
        is_finished |= tcp.has(kFin);
        add_bytes(tcp, payload, now_us);
    }
}

// SYN and FIN have a place in the sequence, too.
void Way::add_bytes(const Tcp& tcp, std::uint32_t payload, std::int64_t now_us) {
    const std::uint32_t size = payload + (tcp.has(kSyn) ? 1 : 0) + (tcp.has(kFin) ? 1 : 0);
    if (size == 0 || is_keep_alive(tcp, payload)) {
        return;
    }
    const SeenBytes::Kind kind = seen_.add(tcp.sequence, size);
    const std::int64_t begin = seen_.place_of(tcp.sequence);
    if (kind == SeenBytes::Kind::fresh) {
        if (payload != 0 && sent_.size() < kMostSent) {
            sent_.push_back({begin + size, now_us});
        }
        return;
    }
    ++(kind == SeenBytes::Kind::late ? out_of_order : retransmissions);
    // Nobody knows which of the segments an acknowledgment will be for, or how long those after it
    // have waited for it.
    std::erase_if(sent_, [begin](const Sent& sent) { return sent.end > begin; });
}

// One that asks whether the other end is there repeats the last byte, which was acknowledged.
bool Way::is_keep_alive(const Tcp& tcp, std::uint32_t payload) const {
    return payload <= 1 && !tcp.has(kSyn) && !tcp.has(kFin) && !seen_.is_empty() &&
           seen_.place_of(tcp.sequence) == seen_.next() - 1 && acknowledged_ >= seen_.next();
}

void Way::acknowledge(std::uint32_t number, std::int64_t now_us) {
    if (seen_.is_empty()) {
        return;
    }
    acknowledged_ = std::max(acknowledged_, seen_.place_of(number));
    const auto waits = [this](const Sent& sent) { return sent.end > acknowledged_; };
    const auto rest = std::ranges::find_if(sent_, waits);
    if (rest != sent_.begin()) {
        round_trips.add(now_us - (rest - 1)->time_us);
        sent_.erase(sent_.begin(), rest);
    }
}

void Way::end_second(double seconds) {
    bits_per_s = 8 * static_cast<double>(second_bytes_) / seconds;
    second_bytes_ = 0;
}

Connection::Connection(const Packet& packet, const Tcp& tcp, std::int64_t now_us)
    : client_{packet.source, packet.source_port},
      server_{packet.dest, packet.dest_port},
      vlans_(vlans_of(packet)),
      start_us_(now_us),
      last_us_(now_us) {
    if (tcp.has(kSyn) && tcp.has(kAck)) {
        std::swap(client_, server_);
    }
}

void Connection::add(const Frame& frame, const Packet& packet, const Tcp& tcp,
                     std::int64_t now_us) {
    const bool from_client = is_from_client(packet);
    Way& way = ways_[from_client ? 0 : 1];
    Way& other = ways_[from_client ? 1 : 0];
    start_us_ = std::min(start_us_, now_us);  // captures that were joined may go back in time
    last_us_ = std::max(last_us_, now_us);
    follow_handshake(tcp, from_client, now_us);
    if (tcp.has(kAck) && !tcp.has(kRst)) {
        other.acknowledge(tcp.acknowledgment, now_us);
    }
    way.add(tcp, packet.payload, frame.length, now_us);
}

void Connection::follow_handshake(const Tcp& tcp, bool from_client, std::int64_t now_us) {
    if (tcp.has(kSyn) && from_client) {
        syn_us_ = handshake_us_ ? syn_us_ : now_us;
    } else if (tcp.has(kSyn)) {
        has_answer_ = tcp.has(kAck);
    } else if (from_client && tcp.has(kAck) && has_answer_ && syn_us_ && !handshake_us_) {
        handshake_us_ = now_us - *syn_us_;
    }
}

bool Connection::is_begun_again_by(const Packet& packet, const Tcp& tcp) const {
    const bool from_client = is_from_client(packet);
    const Way& way = ways_[from_client ? 0 : 1];
    const Way& other = ways_[from_client ? 1 : 0];
    const bool is_over = other.resets != 0 || other.is_finished;
    const bool is_other =
        way.frames != 0 ? way.first_sequence != tcp.sequence : tcp.has(kAck) && is_over;
    // A refused client may try the same SYN again, and be accepted.
    const bool is_answer =
        tcp.has(kAck) && other.frames != 0 && tcp.acknowledgment == other.first_sequence + 1;
    return tcp.has(kSyn) && is_other && !is_answer;
}

void Connection::end_second(double seconds) {
    for (Way& way : ways_) {
        way.end_second(seconds);
    }
}

const char* Connection::state() const {
    const auto& [up, down] = ways_;
    return up.resets + down.resets != 0         ? "reset"
           : up.is_finished && down.is_finished ? "closed"
           : up.frames == 0 || down.frames == 0 ? "half-seen"
                                                : "open";
}

double Connection::mean_bits_per_s(const Way& way) const {
    constexpr double kMicro = 1e6;
    return duration_us() == 0
               ? 0
               : 8 * kMicro * static_cast<double>(way.bytes) / static_cast<double>(duration_us());
}

}  // namespace capture

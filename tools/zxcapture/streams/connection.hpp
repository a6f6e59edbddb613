// A connection of TCP: what its two ends send, and how long they wait for each other.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "packet/packet.hpp"
#include "packet/tcp.hpp"
#include "streams/flow.hpp"
#include "streams/gaps.hpp"

namespace capture {

// Which bytes of a sequence were seen. Its numbers wrap.
class SeenBytes {
public:
    enum class Kind : std::uint8_t {
        fresh,  // they follow all others, perhaps after a hole
        late,   // some of them fill a hole
        again,  // the first of them was seen, and none fills a hole
    };

    // `size` is more than 0.
    Kind add(std::uint32_t sequence, std::uint32_t size);

    // The place in the whole sequence that is nearest to the end of all that was seen.
    [[nodiscard]] std::int64_t place_of(std::uint32_t sequence) const {
        return next_ + static_cast<std::int32_t>(sequence - static_cast<std::uint32_t>(next_));
    }
    [[nodiscard]] std::int64_t next() const { return next_; }
    [[nodiscard]] bool is_empty() const { return next_ == 0; }

private:
    struct Range {
        std::int64_t begin;
        std::int64_t end;
    };
    static constexpr std::size_t kMostHoles = 32;

    void begin_at(std::uint32_t sequence);
    bool fill(Range range);

    std::int64_t next_ = 0;
    std::vector<Range> holes_;  // ordered; when there are too many, the first is taken as seen
};

// One direction of a connection.
class Way {
public:
    // A segment of this way.
    void add(const Tcp& tcp, std::uint32_t payload, std::uint32_t frame_size, std::int64_t now_us);

    // A segment of the other way acknowledges what this one has sent.
    void acknowledge(std::uint32_t number, std::int64_t now_us);

    void end_second(double seconds);

    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;  // of the whole frames
    std::uint64_t payload_bytes = 0;
    std::uint64_t retransmissions = 0;  // segments whose bytes were seen before
    std::uint64_t out_of_order = 0;     // segments that fill a hole
    std::uint64_t resets = 0;
    std::uint64_t zero_windows = 0;
    bool is_finished = false;
    std::uint32_t first_sequence = 0;  // of the first segment
    double bits_per_s = 0;             // in the last second
    Gaps round_trips;                  // from data to its acknowledgment

private:
    struct Sent {
        std::int64_t end;
        std::int64_t time_us;
    };
    static constexpr std::size_t kMostSent = 256;

    void add_bytes(const Tcp& tcp, std::uint32_t payload, std::int64_t now_us);
    [[nodiscard]] bool is_keep_alive(const Tcp& tcp, std::uint32_t payload) const;

    SeenBytes seen_;
    std::int64_t acknowledged_ = 0;  // a place; 0: nothing was
    std::vector<Sent> sent_;         // data that is not acknowledged, ordered
    std::uint64_t second_bytes_ = 0;
};

class Connection {
public:
    Connection() = default;

    // Its first segment tells which end is the client: who sends a SYN, or receives one with ACK,
    // or else who sends first.
    Connection(const Packet& packet, const Tcp& tcp, std::int64_t now_us);

    void add(const Frame& frame, const Packet& packet, const Tcp& tcp, std::int64_t now_us);

    // Whether this segment begins another connection between the same ports: a SYN, or the answer
    // to one that was not captured.
    [[nodiscard]] bool is_begun_again_by(const Packet& packet, const Tcp& tcp) const;

    void end_second(double seconds);

    struct End {
        Address address;
        std::uint16_t port = 0;
    };
    [[nodiscard]] const End& client() const { return client_; }
    [[nodiscard]] const End& server() const { return server_; }
    [[nodiscard]] const Vlans& vlans() const { return vlans_; }
    [[nodiscard]] const Way& to_server() const { return ways_[0]; }
    [[nodiscard]] const Way& to_client() const { return ways_[1]; }
    [[nodiscard]] std::int64_t start_us() const { return start_us_; }
    [[nodiscard]] std::int64_t duration_us() const { return last_us_ - start_us_; }

    // "reset"; "closed": both ends have finished; "half-seen": one end is silent; "open".
    [[nodiscard]] const char* state() const;

    // From the SYN to the ACK that ends the handshake.
    [[nodiscard]] std::optional<std::int64_t> handshake_us() const { return handshake_us_; }

    // Of the whole frames, over the whole time.
    [[nodiscard]] double mean_bits_per_s(const Way& way) const;

private:
    [[nodiscard]] bool is_from_client(const Packet& packet) const {
        return packet.source_port == client_.port && packet.source == client_.address;
    }
    void follow_handshake(const Tcp& tcp, bool from_client, std::int64_t now_us);

    End client_;
    End server_;
    Vlans vlans_;
    std::array<Way, 2> ways_;
    std::int64_t start_us_ = 0;
    std::int64_t last_us_ = 0;
    std::optional<std::int64_t> syn_us_;  // of the last SYN, until the handshake ends
    bool has_answer_ = false;             // to the SYN
    std::optional<std::int64_t> handshake_us_;
};

}  // namespace capture

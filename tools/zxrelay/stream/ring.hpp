// The last bytes of a stream, for all clients of a sender.
#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>

#include "stream/queue.hpp"
#include "zxcommon.hpp"

namespace relay {

// How much memory the rings of a sender may take together.
class Budget {
public:
    explicit Budget(std::uint64_t bytes) : left_(bytes) {}
    bool take(std::uint64_t bytes, std::uint64_t now_us) {
        const bool is_enough = bytes <= (now_us < short_until_us_ ? left_ - missing_ : left_);
        left_ -= is_enough ? bytes : 0;
        return is_enough;
    }
    void give(std::uint64_t bytes) { left_ += bytes; }
    // The system had no memory for what was taken. It is not asked for more for a second, but for
    // as much as the rings give back.
    void give_unused(std::uint64_t bytes, std::uint64_t now_us) {
        give(bytes);
        missing_ = left_;
        short_until_us_ = now_us + kRetryUs;
    }

private:
    static constexpr std::uint64_t kRetryUs = 1000000;

    std::uint64_t left_;
    std::uint64_t missing_ = 0;
    std::uint64_t short_until_us_ = 0;
};

// A position is the number of a byte, counted from the start of the stream. The bytes are in blocks
// of one size, which are made when they are needed: all of them are full except the last one.
class Ring {
public:
    static constexpr std::uint32_t kBlockSize = kLargestMessage / kPacketSize * kPacketSize;

    // Keeps the bytes of the last `keep_us` microseconds as long as there is memory. `budget`
    // outlives the ring.
    Ring(Budget& budget, std::uint64_t keep_us) : budget_(budget), keep_us_(keep_us) {}
    ~Ring();
    Ring(const Ring&) = delete;
    Ring& operator=(const Ring&) = delete;

    // Where the next bytes go. Empty if there is no memory: then drop_front() may help.
    [[nodiscard]] std::span<std::uint8_t> room(std::uint64_t now_us);
    // Adds the first bytes of room(), which are whole packets.
    void commit(std::size_t size, std::uint64_t now_us);

    [[nodiscard]] std::uint64_t begin() const { return begin_; }
    [[nodiscard]] std::uint64_t end() const { return end_; }
    [[nodiscard]] std::uint64_t bytes() const { return end_ - begin_; }
    [[nodiscard]] std::uint32_t blocks() const {
        return static_cast<std::uint32_t>(blocks_.size());
    }

    // Fills `parts` with the bytes from `position` on, which is not before begin(): at most `limit`
    // bytes. Returns the number of parts.
    std::size_t gather(std::uint64_t position, std::span<iovec> parts, std::size_t limit) const;

    // The position of `seconds` ago; the oldest one that is kept if that is later.
    [[nodiscard]] std::uint64_t seek_back(std::uint64_t seconds, std::uint64_t now_us) const;

    // The position from which on the bytes are kept for seek_back().
    [[nodiscard]] std::uint64_t kept_from(std::uint64_t now_us);

    // Frees the blocks before `position`.
    void trim(std::uint64_t position);

    // The end of the oldest block; begin() if no block is full.
    [[nodiscard]] std::uint64_t front_end() const;
    // Frees the oldest block, which is full.
    void drop_front();

private:
    struct Mark {
        std::uint64_t time_us;
        std::uint64_t position;
    };

    bool add_block(std::uint64_t now_us);

    Budget& budget_;
    const std::uint64_t keep_us_;
    std::deque<zxcommon::Tracked<std::uint8_t>> blocks_;
    std::deque<Mark> marks_;  // where the stream was at some times
    std::uint64_t begin_ = 0;
    std::uint64_t end_ = 0;
};

}  // namespace relay
